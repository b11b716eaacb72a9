#include "worker/workerorder.h"

#include "worker/jsonfields.h"
#include "worker/workerline.h"

#include <QJsonObject>

namespace Velmar::Host {

namespace {

struct ModeWord {
    WorkerMode mode;
    const char *word;
};

constexpr ModeWord ModeWords[] = {
    { WorkerMode::Plan, "plan" },
    { WorkerMode::Upgrade, "upgrade" },
    { WorkerMode::Watch, "watch" },
};

struct CommandWord {
    WorkerCommand command;
    const char *word;
};

constexpr CommandWord CommandWords[] = {
    { WorkerCommand::Go, "go" },
    { WorkerCommand::Stop, "stop" },
};

constexpr qint64 LongestLimitMs = std::numeric_limits<int>::max(); // that of a timer

WorkerMode readMode(JsonFields &fields)
{
    const auto word = fields.text("mode");
    for (const auto &entry : ModeWords) {
        if (word == QLatin1String(entry.word))
            return entry.mode;
    }
    fields.setFault("mode", QStringLiteral("is no mode"));
    return WorkerMode::Plan;
}

Road readRoad(JsonFields &fields)
{
    const auto road = roadOf(fields.text("road"));
    if (!road)
        fields.setFault("road", QStringLiteral("is no road"));
    return road.value_or(Road::Native);
}

} // namespace

QByteArray WorkerOrder::toLine() const
{
    QString modeWord;
    for (const auto &entry : ModeWords) {
        if (entry.mode == mode)
            modeWord = QLatin1String(entry.word);
    }
    QJsonObject object {
        { QStringLiteral("protocol"), Protocol },
        { QStringLiteral("mode"), modeWord },
        { QStringLiteral("road"), roadWord(road) },
        { QStringLiteral("package"), packagePath },
        { QStringLiteral("host"), device.host },
        { QStringLiteral("port"), device.port },
        { QStringLiteral("catalogue"), cataloguePath },
        { QStringLiteral("keyFile"), keyFilePath },
        { QStringLiteral("sections"), QJsonArray::fromStringList(wish.sections) },
        { QStringLiteral("cards"), QJsonArray::fromStringList(wish.cards) },
        { QStringLiteral("httpHost"), upload.host },
        { QStringLiteral("file"), upload.filePath },
        { QStringLiteral("compatibility"), upload.isCompatible },
        { QStringLiteral("restart"), mayRestart },
        { QStringLiteral("limitMs"), static_cast<qint64>(timeLimit.count()) },
        { QStringLiteral("silenceMs"), static_cast<qint64>(silenceLimit.count()) },
    };
    if (modelId)
        object.insert(QStringLiteral("model"), *modelId);
    return lineOf(object);
}

std::optional<WorkerOrder> WorkerOrder::fromLine(const QByteArray &line, QString &errorText)
{
    const auto object = objectOf(line, errorText);
    if (!object)
        return std::nullopt;
    JsonFields fields(*object, QStringLiteral("order"));
    fields.number("protocol", Protocol, Protocol);
    WorkerOrder order;
    order.mode = readMode(fields);
    order.road = readRoad(fields);
    order.packagePath = fields.text("package");
    order.device = { fields.text("host"), fields.numberOf<quint16>("port") };
    if (fields.has("model"))
        order.modelId = fields.numberOf<quint16>("model");
    order.cataloguePath = fields.text("catalogue");
    order.keyFilePath = fields.text("keyFile");
    order.wish.sections = fields.texts("sections");
    order.wish.cards = fields.texts("cards");
    order.upload.host = fields.text("httpHost");
    order.upload.filePath = fields.text("file");
    order.upload.isCompatible = fields.flag("compatibility");
    order.mayRestart = fields.flag("restart");
    order.timeLimit = std::chrono::milliseconds(fields.number("limitMs", 1, LongestLimitMs));
    order.silenceLimit = std::chrono::milliseconds(fields.number("silenceMs", 1, LongestLimitMs));
    if (order.packagePath.isEmpty() && order.mode != WorkerMode::Watch)
        fields.setFault("package", QStringLiteral("is empty"));
    if (order.modelId && order.mode != WorkerMode::Plan)
        fields.setFault("model", QStringLiteral("is for a plan alone"));
    if (order.device.host.isEmpty() != order.modelId.has_value())
        fields.setFault("host", QStringLiteral("and a model exclude each other"));
    if (!fields.isGood(errorText))
        return std::nullopt;
    return order;
}

QByteArray commandLine(WorkerCommand command)
{
    for (const auto &entry : CommandWords) {
        if (entry.command == command)
            return lineOf({ { QStringLiteral("do"), QLatin1String(entry.word) } });
    }
    return {};
}

std::optional<WorkerCommand> readCommandLine(const QByteArray &line)
{
    QString errorText;
    const auto object = objectOf(line, errorText);
    if (!object || object->size() != 1)
        return std::nullopt;
    const auto word = object->value(QLatin1String("do")).toString();
    for (const auto &entry : CommandWords) {
        if (word == QLatin1String(entry.word))
            return entry.command;
    }
    return std::nullopt;
}

} // namespace Velmar::Host
