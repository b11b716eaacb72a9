#include "logfile.h"

#include "console.h"
#include "show/printable.h"

using namespace Velmar::Host;

namespace {

QString lineOf(const RunEvent &event)
{
    switch (event.kind) {
    case RunEvent::Kind::Phase:
        return QStringLiteral("phase %1").arg(phaseWord(event.phase));
    case RunEvent::Kind::Message:
    case RunEvent::Kind::Log:
        return event.code.isEmpty() ? event.text
                                    : QStringLiteral("%1: %2").arg(event.code, event.text);
    case RunEvent::Kind::Verdict:
        return QStringLiteral("verdict %1: %2")
            .arg(verdictWord(event.summary->verdict.code), event.summary->verdict.sentence);
    case RunEvent::Kind::Progress:
    case RunEvent::Kind::Plan:
    case RunEvent::Kind::Devices:
    case RunEvent::Kind::Versions:
    case RunEvent::Kind::Status:
    case RunEvent::Kind::Inspection:
        break;
    }
    return {};
}

} // namespace

bool LogFile::open(const QString &path, QString &errorText)
{
    m_file.setFileName(path);
    if (m_file.open(QIODevice::WriteOnly | QIODevice::Append))
        return true;
    errorText = QStringLiteral("%1 cannot be written: %2").arg(path, m_file.errorString());
    return false;
}

void LogFile::take(const RunEvent &event)
{
    const QString line = lineOf(event);
    if (line.isEmpty())
        return;
    m_file.write(QStringLiteral("%1 %2\n")
                     .arg(event.time.toUTC().toString(Qt::ISODateWithMs), printable(line))
                     .toUtf8());
    m_file.flush(); // whoever follows the file sees each line at once
}

bool openLogFile(const CommandLine &options, LogFile &file, RunEventFan &events)
{
    if (!options.isSet("log-file"))
        return true;
    QString errorText;
    if (!file.open(options.value("log-file"), errorText)) {
        complain(VerdictCode::Usage, QStringLiteral("--log-file: ") + errorText);
        return false;
    }
    events.add(file);
    return true;
}

std::function<void(const QString &)> logTeller(QObject *context, RunEventSink &events)
{
    return [context, &events](const QString &line) {
        QMetaObject::invokeMethod(
            context,
            [&events, line] {
                RunEvent event;
                event.kind = RunEvent::Kind::Log;
                event.code = QStringLiteral("debug");
                event.text = line;
                events.take(event);
            },
            Qt::QueuedConnection);
    };
}
