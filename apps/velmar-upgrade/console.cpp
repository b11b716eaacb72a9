#include "console.h"

#include "show/jsonevents.h"
#include "show/printable.h"

#include <cstdio>
#include <iostream>
#include <string>

#include <unistd.h>

using namespace Velmar::Host;

namespace {

bool isJsonAsked = false;

/*! Why a program ends with \a code before any upgrade has begun. */
VerdictCode verdictCodeOf(HostExitCode code)
{
    switch (code) {
    case HostExitCode::Usage:
        return VerdictCode::Usage;
    case HostExitCode::PackageRefused:
        return VerdictCode::PackageRefused;
    case HostExitCode::Unreachable:
        return VerdictCode::Unreachable;
    case HostExitCode::TryAgain:
        return VerdictCode::DeviceBusy;
    case HostExitCode::Interrupted:
        return VerdictCode::Interrupted;
    case HostExitCode::Ok:
    case HostExitCode::Failed:
    case HostExitCode::Unconfirmed:
        break;
    }
    return VerdictCode::Internal;
}

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

void complainAsJson()
{
    isJsonAsked = true;
}

HostExitCode complain(HostExitCode code, const QString &sentence)
{
    write(stderr, QStringLiteral("velmar-upgrade: %1\n").arg(sentence));
    if (isJsonAsked) {
        RunEvent event;
        event.kind = RunEvent::Kind::Verdict;
        event.summary = RunSummary();
        event.summary->verdict = verdict(verdictCodeOf(code), sentence);
        JsonEvents(makeRunId(), [](const QByteArray &line) {
            print(QString::fromUtf8(line));
        }).take(event);
    }
    return code;
}

void printCause(const QStringList &lines)
{
    for (const auto &line : lines)
        write(stderr, QStringLiteral("  cause: %1\n").arg(printable(line.trimmed())));
}

void printAdvice(const QString &advice)
{
    write(stderr, QStringLiteral("  advice: %1\n").arg(advice));
}

void printLogLine(const QString &line)
{
    write(stderr, QStringLiteral("log: %1\n").arg(printable(line)));
}

bool isConfirmed(const QString &question)
{
    print(question + QStringLiteral(" [y/N] "));
    std::string answer;
    std::getline(std::cin, answer);
    return !answer.empty() && (answer.front() == 'y' || answer.front() == 'Y');
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
