#include "show/runevent.h"

#include "show/printable.h"

#include <QJsonArray>
#include <QRandomGenerator>

namespace Velmar::Host {

namespace {

QString sectionVersionText(const QString &version)
{
    return printable(version, 40);
}

QJsonArray versionsToJson(const std::vector<SectionVersion> &versions,
                          QString SectionVersion::*version)
{
    QJsonArray array;
    for (const auto &section : versions) {
        if (!(section.*version).isEmpty())
            array.append(QJsonObject { { "part", printable(section.part, 80) },
                                       { "section", printable(section.section, 80) },
                                       { "version", sectionVersionText(section.*version) } });
    }
    return array;
}

} // namespace

QJsonObject RunSummary::toJson() const
{
    QJsonArray causeLines;
    for (const auto &cause : causes)
        causeLines.append(printable(cause));
    QJsonObject times { { "whole", qint64(wholeDuration.count()) } };
    for (const auto &[phase, duration] : durations)
        times.insert(phaseWord(phase), qint64(duration.count()));
    QJsonObject object {
        { "kind", verdictKindWord(verdictKind(verdict.code)) },
        { "code", verdictWord(verdict.code) },
        { "sentence", printable(verdict.sentence) },
        { "advice", printable(verdict.advice) },
        { "exitCode", int(verdictExitCode(verdict.code)) },
        { "causes", causeLines },
        { "versionsBefore", versionsToJson(versions, &SectionVersion::before) },
        { "versionsAfter", versionsToJson(versions, &SectionVersion::after) },
        { "bytesSent", bytesSent },
        { "durations", times },
    };
    return object;
}

QString runEventWord(RunEvent::Kind kind)
{
    switch (kind) {
    case RunEvent::Kind::Phase:
        return QStringLiteral("phase");
    case RunEvent::Kind::Progress:
        return QStringLiteral("progress");
    case RunEvent::Kind::Message:
        return QStringLiteral("message");
    case RunEvent::Kind::Plan:
        return QStringLiteral("plan");
    case RunEvent::Kind::Devices:
        return QStringLiteral("devices");
    case RunEvent::Kind::Versions:
        return QStringLiteral("versions");
    case RunEvent::Kind::Status:
        return QStringLiteral("status");
    case RunEvent::Kind::Inspection:
        return QStringLiteral("inspect");
    case RunEvent::Kind::Log:
        return QStringLiteral("log");
    case RunEvent::Kind::Verdict:
        return QStringLiteral("verdict");
    }
    return {};
}

RunEventSink::~RunEventSink() = default;

void RunEventFan::add(RunEventSink &sink)
{
    m_sinks.push_back(&sink);
}

void RunEventFan::take(const RunEvent &event)
{
    for (auto *sink : m_sinks)
        sink->take(event);
}

QString makeRunId()
{
    return QStringLiteral("%1-%2")
        .arg(QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMddThhmmsszzzZ")))
        .arg(QRandomGenerator::system()->generate(), 8, 16, QLatin1Char('0'));
}

bool isRunId(const QString &text)
{
    // Digits stand for digits of the time, x for hexadecimal ones.
    static const QLatin1String form("00000000T000000000Z-xxxxxxxx");
    if (text.size() != form.size())
        return false;
    for (int i = 0; i < form.size(); ++i) {
        const ushort unit = text.at(i).unicode();
        const bool isDigit = unit >= '0' && unit <= '9';
        const char expected = form.at(i).toLatin1();
        const bool fits = expected == '0' ? isDigit
            : expected == 'x'             ? isDigit || (unit >= 'a' && unit <= 'f')
                                          : unit == uchar(expected);
        if (!fits)
            return false;
    }
    return true;
}

} // namespace Velmar::Host
