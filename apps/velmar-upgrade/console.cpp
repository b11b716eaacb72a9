#include "console.h"

#include "show/jsonevents.h"
#include "show/printable.h"

#include <cstdio>

#include <unistd.h>

using namespace Velmar::Host;

namespace {

// In characters; a path with what is wrong about it fits.
constexpr int LongestSentence = 4000;

JsonEvents &jsonEvents()
{
    static JsonEvents events(runId(),
                             [](const QByteArray &line) { print(QString::fromUtf8(line)); });
    return events;
}

bool isJsonAsked = false;

void write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

void print(const QString &text)
{
    write(stdout, text);
}

void printLine(const QString &text)
{
    write(stdout, text + QLatin1Char('\n'));
}

void printError(const QString &text)
{
    write(stderr, text);
}

void printWarning(const QString &sentence)
{
    write(stderr, QStringLiteral("warning: %1\n").arg(printable(sentence)));
}

QString runId()
{
    static const QString id = makeRunId();
    return id;
}

void writeJson()
{
    isJsonAsked = true;
}

void tellJson(const RunEvent &event)
{
    if (isJsonAsked)
        jsonEvents().take(event);
}

HostExitCode complain(VerdictCode code, const QString &sentence)
{
    RunEvent event;
    event.kind = RunEvent::Kind::Verdict;
    event.summary = RunSummary();
    event.summary->verdict = verdict(code, sentence);
    printFailure(*event.summary);
    tellJson(event);
    return verdictExitCode(code);
}

void printFailure(const RunSummary &summary)
{
    write(stderr,
          QStringLiteral("velmar-upgrade: %1\n")
              .arg(printable(summary.verdict.sentence, LongestSentence)));
    for (const auto &cause : summary.causes)
        write(stderr, QStringLiteral("  cause: %1\n").arg(printable(cause.trimmed())));
}

void printLogLine(const QString &line)
{
    write(stderr, QStringLiteral("log: %1\n").arg(printable(line)));
}

bool isInteractive()
{
    return isatty(STDIN_FILENO) == 1;
}

void leaveProcess(HostExitCode code)
{
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(static_cast<int>(code));
}
