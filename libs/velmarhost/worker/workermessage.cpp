#include "worker/workermessage.h"

#include "worker/jsonfields.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <iterator>
#include <limits>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

constexpr qint64 Largest = std::numeric_limits<qint64>::max();

struct LevelWord {
    QtMsgType level;
    const char *word;
};

constexpr LevelWord LevelWords[] = {
    { QtDebugMsg, "debug" },       { QtInfoMsg, "info" },   { QtWarningMsg, "warning" },
    { QtCriticalMsg, "critical" }, { QtFatalMsg, "fatal" },
};

QString levelWord(QtMsgType level)
{
    const auto *entry =
        std::find_if(std::begin(LevelWords), std::end(LevelWords),
                     [level](const LevelWord &candidate) { return candidate.level == level; });
    return QLatin1String(entry->word);
}

QString cut(const QString &text)
{
    if (text.size() <= WorkerTextLimit)
        return text;
    // Not within a pair of surrogates.
    const int length =
        text.at(WorkerTextLimit - 1).isHighSurrogate() ? WorkerTextLimit - 1 : WorkerTextLimit;
    return text.left(length);
}

QJsonObject object(const char *word, QJsonObject fields = {})
{
    fields.insert(QStringLiteral("tell"), QLatin1String(word));
    return fields;
}

QJsonObject progressObject(const s_UpgradePercent &progress)
{
    QJsonArray parts;
    for (const auto &part : progress.parts) {
        QJsonArray sections;
        for (const auto &section : part.section) {
            sections.append(QJsonObject { { QStringLiteral("code"), section.code },
                                          { QStringLiteral("rate"), section.rate },
                                          { QStringLiteral("result"), section.result } });
        }
        parts.append(QJsonObject { { QStringLiteral("type"), part.type },
                                   { QStringLiteral("slot"), part.slotId },
                                   { QStringLiteral("rate"), part.rate },
                                   { QStringLiteral("result"), part.result },
                                   { QStringLiteral("sections"), sections } });
    }
    return { { QStringLiteral("rate"), progress.rate },
             { QStringLiteral("result"), progress.result },
             { QStringLiteral("subRate"), progress.subSections.rate },
             { QStringLiteral("parts"), parts } };
}

/*! Puts each message in the form in which it travels. */
struct Writer {
    QJsonObject operator()(const HelloTell &tell) const
    {
        return object("hello", { { QStringLiteral("protocol"), tell.protocol } });
    }

    QJsonObject operator()(const PhaseTell &tell) const
    {
        return object("phase", { { QStringLiteral("phase"), phaseWord(tell.phase) } });
    }

    QJsonObject operator()(const PlanTell &tell) const
    {
        return object("plan", { { QStringLiteral("plan"), tell.plan.toJson() } });
    }

    QJsonObject operator()(const RefusedTell &tell) const
    {
        return object("refused",
                      { { QStringLiteral("code"), verdictWord(tell.code) },
                        { QStringLiteral("text"), cut(tell.text) } });
    }

    QJsonObject operator()(const StatusTell &tell) const
    {
        return object("status", { { QStringLiteral("text"), cut(tell.text) } });
    }

    QJsonObject operator()(const SendingTell &tell) const
    {
        return object("sending",
                      { { QStringLiteral("percent"), tell.percent },
                        { QStringLiteral("sent"), tell.sentBytes },
                        { QStringLiteral("total"), tell.totalBytes } });
    }

    QJsonObject operator()(const InstallingTell &tell) const
    {
        return object("installing", progressObject(tell.progress));
    }

    QJsonObject operator()(const TrafficTell &tell) const
    {
        const auto &traffic = tell.traffic;
        return object("traffic",
                      { { QStringLiteral("requests"), traffic.requests },
                        { QStringLiteral("answers"), traffic.answers },
                        { QStringLiteral("sent"), traffic.sentBytes },
                        { QStringLiteral("total"), traffic.totalBytes },
                        { QStringLiteral("overdue"), traffic.overdue },
                        { QStringLiteral("result"), traffic.result },
                        { QStringLiteral("isOrdered"), traffic.isOrdered },
                        { QStringLiteral("isEndTold"), traffic.isEndTold },
                        { QStringLiteral("isIdle"), traffic.isIdle },
                        { QStringLiteral("isRestartOrdered"), traffic.isRestartOrdered } });
    }

    QJsonObject operator()(const LogTell &tell) const
    {
        return object("log",
                      { { QStringLiteral("level"), levelWord(tell.level) },
                        { QStringLiteral("text"), cut(tell.text) } });
    }

    QJsonObject operator()(const StopTell &tell) const
    {
        return object("stop", { { QStringLiteral("isTaken"), tell.isTaken } });
    }

    QJsonObject operator()(const EndTell &tell) const
    {
        return object("end",
                      { { QStringLiteral("result"), tell.result },
                        { QStringLiteral("text"), cut(tell.text) } });
    }
};

WorkerMessage readHello(JsonFields &fields)
{
    return HelloTell { fields.numberOf<int>("protocol") };
}

WorkerMessage readPhase(JsonFields &fields)
{
    const auto phase = phaseOf(fields.text("phase"));
    if (!phase)
        fields.setFault("phase", QStringLiteral("is no phase"));
    return PhaseTell { phase.value_or(Phase::Planning) };
}

WorkerMessage readPlan(JsonFields &fields)
{
    const auto json = fields.object("plan");
    QString errorText;
    auto plan = Plan::fromJson(json, errorText);
    if (!plan)
        fields.setFault("plan", QStringLiteral("is none: ") + errorText);
    return PlanTell { std::move(plan).value_or(Plan()) };
}

WorkerMessage readRefused(JsonFields &fields)
{
    const auto code = verdictOf(fields.text("code"));
    if (!code)
        fields.setFault("code", QStringLiteral("is no verdict"));
    return RefusedTell { code.value_or(VerdictCode::Internal), fields.text("text") };
}

WorkerMessage readStatus(JsonFields &fields)
{
    return StatusTell { fields.text("text") };
}

WorkerMessage readSending(JsonFields &fields)
{
    SendingTell tell;
    tell.percent = static_cast<int>(fields.number("percent", 0, 100));
    tell.sentBytes = fields.number("sent", 0, Largest);
    tell.totalBytes = fields.number("total", -1, Largest);
    return tell;
}

s_SectionPercent readSection(const QJsonValue &value, JsonFields &message)
{
    JsonFields fields(value.toObject(), QStringLiteral("section"));
    s_SectionPercent section;
    section.code = fields.numberOf<std::uint16_t>("code");
    section.rate = fields.numberOf<std::uint8_t>("rate");
    section.result = fields.numberOf<int>("result");
    QString errorText;
    if (!fields.isGood(errorText))
        message.setFault("parts", QStringLiteral("is at fault: ") + errorText);
    return section;
}

s_UpgradeCardParts readPart(const QJsonValue &value, JsonFields &message)
{
    JsonFields fields(value.toObject(), QStringLiteral("part"));
    s_UpgradeCardParts part;
    part.type = fields.numberOf<int>("type");
    part.slotId = fields.numberOf<std::uint8_t>("slot");
    part.rate = fields.numberOf<std::uint8_t>("rate");
    part.result = fields.numberOf<std::uint8_t>("result");
    const auto sections = fields.array("sections");
    for (const auto &section : sections)
        part.section.push_back(readSection(section, message));
    QString errorText;
    if (!fields.isGood(errorText))
        message.setFault("parts", QStringLiteral("is at fault: ") + errorText);
    return part;
}

WorkerMessage readInstalling(JsonFields &fields)
{
    InstallingTell tell;
    tell.progress.rate = fields.numberOf<std::uint8_t>("rate");
    tell.progress.result = fields.numberOf<int>("result");
    tell.progress.subSections.rate = fields.numberOf<std::uint8_t>("subRate");
    const auto parts = fields.array("parts");
    for (const auto &part : parts)
        tell.progress.parts.push_back(readPart(part, fields));
    return tell;
}

WorkerMessage readTraffic(JsonFields &fields)
{
    LinkTraffic traffic;
    traffic.requests = fields.number("requests", 0, Largest);
    traffic.answers = fields.number("answers", 0, Largest);
    traffic.sentBytes = fields.number("sent", 0, Largest);
    traffic.totalBytes = fields.number("total", -1, Largest);
    traffic.overdue =
        static_cast<int>(fields.number("overdue", 0, std::numeric_limits<int>::max()));
    traffic.result = fields.numberOf<int>("result");
    traffic.isOrdered = fields.flag("isOrdered");
    traffic.isEndTold = fields.flag("isEndTold");
    traffic.isIdle = fields.flag("isIdle");
    traffic.isRestartOrdered = fields.flag("isRestartOrdered");
    return TrafficTell { traffic };
}

WorkerMessage readLog(JsonFields &fields)
{
    const auto word = fields.text("level");
    const auto *entry =
        std::find_if(std::begin(LevelWords), std::end(LevelWords),
                     [&word](const LevelWord &level) { return word == QLatin1String(level.word); });
    const bool isKnown = entry != std::end(LevelWords);
    if (!isKnown)
        fields.setFault("level", QStringLiteral("is no level"));
    return LogTell { isKnown ? entry->level : QtDebugMsg, fields.text("text") };
}

WorkerMessage readStop(JsonFields &fields)
{
    return StopTell { fields.flag("isTaken") };
}

WorkerMessage readEnd(JsonFields &fields)
{
    EndTell tell;
    tell.result = fields.flag("result");
    tell.text = fields.text("text");
    return tell;
}

struct Reader {
    const char *word;
    WorkerMessage (*read)(JsonFields &fields);
};

constexpr Reader Readers[] = {
    { "hello", readHello },
    { "phase", readPhase },
    { "plan", readPlan },
    { "refused", readRefused },
    { "status", readStatus },
    { "sending", readSending },
    { "installing", readInstalling },
    { "traffic", readTraffic },
    { "log", readLog },
    { "stop", readStop },
    { "end", readEnd },
};

} // namespace

QByteArray toLine(const WorkerMessage &message)
{
    return lineOf(std::visit(Writer(), message));
}

std::optional<WorkerMessage> readWorkerMessage(const QByteArray &line, QString &errorText)
{
    const auto json = objectOf(line, errorText);
    if (!json)
        return std::nullopt;
    JsonFields fields(*json, QStringLiteral("message"));
    const auto word = fields.text("tell");
    const auto *reader =
        std::find_if(std::begin(Readers), std::end(Readers), [&word](const Reader &candidate) {
            return word == QLatin1String(candidate.word);
        });
    if (reader == std::end(Readers)) {
        errorText = QStringLiteral("it is no message that is known");
        return std::nullopt;
    }
    auto message = reader->read(fields);
    if (!fields.isGood(errorText))
        return std::nullopt;
    return message;
}

} // namespace Velmar::Host
