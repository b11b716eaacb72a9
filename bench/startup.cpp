// How long velmar-upgrade takes to answer what needs no device: --version, --help and an error of the
// command line; against an empty program on the same libraries.

#include "pairedrounds.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char **environ;

namespace {

constexpr double StartLimit = 1.15;
constexpr int StartsOfARound = 20; // a single start takes a few milliseconds only

void runProgram(std::vector<std::string> words, int exitCode)
{
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    int status = -1;
    const bool isStarted =
        posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!isStarted || waitpid(process, &status, 0) != process || !WIFEXITED(status)
        || WEXITSTATUS(status) != exitCode) {
        std::fprintf(stderr, "%s failed\n", arguments[0]);
        std::exit(EXIT_FAILURE);
    }
}

void repeat(const std::vector<std::string> &words, int exitCode)
{
    for (int i = 0; i < StartsOfARound; ++i)
        runProgram(words, exitCode);
}

void compare(benchmark::State &state, const std::vector<std::string> &words, int exitCode)
{
    PairedRounds::run(
        state, StartLimit, [&] { repeat(words, exitCode); },
        [] { repeat({ VELMAR_EMPTY_QT_PROGRAM }, 0); });
}

void answerVersion(benchmark::State &state)
{
    compare(state, { VELMAR_UPGRADE, "--version" }, 0);
}

void answerHelp(benchmark::State &state)
{
    compare(state, { VELMAR_UPGRADE, "run", "--help" }, 0);
}

void answerUsageError(benchmark::State &state)
{
    compare(state, { VELMAR_UPGRADE, "run", "package", "--timeout", "soon" }, 2);
}

} // namespace

BENCHMARK(answerVersion)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(answerHelp)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(answerUsageError)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
