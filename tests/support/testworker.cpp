// A worker process that does what its argument says, for tests of whoever starts one.

#include "worker/workermessage.h"
#include "worker/workerorder.h"

#include <QByteArray>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

void tell(const WorkerMessage &message)
{
    const auto line = toLine(message);
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    std::fflush(stdout);
}

void print(const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

void tellText(const std::string &text)
{
    tell(StatusTell { QString::fromStdString(text) });
}

/*! Until the host ends this process. */
void wait()
{
    while (true)
        pause();
}

Plan shortPlan()
{
    Plan plan;
    plan.device.address = { QStringLiteral("192.0.2.7"), 9720 };
    plan.device.modelName = QStringLiteral("Strata S8");
    plan.packagePath = QStringLiteral("/package");
    return plan;
}

void tellEverything()
{
    tell(PhaseTell { Phase::Planning });
    tell(PlanTell { shortPlan() });
    tell(StatusTell { QStringLiteral("status") });
    tell(PhaseTell { Phase::Sending });
    tell(SendingTell { 7, 70, 1000 });
    LinkTraffic traffic;
    traffic.requests = 9;
    traffic.isOrdered = true;
    tell(TrafficTell { traffic });
    Velmar::ProtoModel::Auxiliary::s_UpgradePercent progress;
    progress.rate = 55;
    tell(InstallingTell { progress });
    tell(LogTell { QtWarningMsg, QStringLiteral("log") });
    tell(StopTell { true });
    tell(EndTell { true, QStringLiteral("done") });
}

/*! One step of a worker that plays an upgrade. */
void play(const std::string &step)
{
    std::string line;
    LinkTraffic traffic;
    traffic.requests = 9;
    traffic.sentBytes = 1000;
    traffic.isOrdered = true;
    if (step == "plan")
        tell(PlanTell { shortPlan() });
    else if (step == "send")
        tell(PhaseTell { Phase::Sending });
    else if (step == "install")
        tell(PhaseTell { Phase::Installing });
    else if (step == "ordered")
        tell(TrafficTell { traffic });
    else if (step == "running") {
        traffic.result = 1;
        tell(TrafficTell { traffic });
    } else if (step == "failed") {
        traffic.result = 3;
        traffic.isEndTold = true;
        tell(TrafficTell { traffic });
    } else if (step == "log")
        tell(LogTell { QtInfoMsg, QStringLiteral("the worker's log") });
    else if (step == "hear") // a command; the end of the host is none
        std::getline(std::cin, line);
    else if (step == "go on")
        tell(StopTell { false });
    else if (step == "stops")
        tell(StopTell { true });
    else if (step == "good")
        tell(EndTell { true, QString() });
    else if (step == "bad")
        tell(EndTell { false, QString() });
    else if (step == "refuse failed")
        tell(RefusedTell { VerdictCode::InstallFailed, QStringLiteral("failed before") });
    else if (step == "garbage, ordered") {
        print("Segmentation fault\n");
        tell(TrafficTell { traffic });
        wait();
    } else if (step == "die")
        std::raise(SIGKILL);
    else if (step == "wait")
        wait();
    else
        std::abort();
}

/*! What the host has set up for this process; \a descriptor is one that it hands on. */
void tellSurroundings(int descriptor)
{
    rlimit data = {};
    rlimit core = {};
    getrlimit(RLIMIT_DATA, &data);
    getrlimit(RLIMIT_CORE, &core);
    tellText("data " + std::to_string(data.rlim_cur));
    tellText("core " + std::to_string(core.rlim_cur));
    tellText(getsid(0) == getpid() ? "own session" : "the host's session");
    tellText(fcntl(descriptor, F_GETFD) < 0 ? "no descriptor" : "descriptor");
    tell(EndTell { true, QString() });
}

} // namespace

int main(int argc, char **argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "exits at once")
        return 3;
    if (what == "other protocol")
        tell(HelloTell { WorkerOrder::Protocol + 1 });
    else if (what != "no hello")
        tell(HelloTell { WorkerOrder::Protocol });

    std::string line;
    std::getline(std::cin, line);
    if (what == "plays") { // its steps, and those of a worker that watches behind "watch"
        int i = 2;
        if (line.find("\"mode\":\"watch\"") != std::string::npos)
            while (i < argc && std::string(argv[i++]) != "watch") { }
        for (; i < argc && std::string(argv[i]) != "watch"; ++i)
            play(argv[i]);
    } else if (what == "order")
        tellText(line);
    else if (what == "everything")
        tellEverything();
    else if (what == "refuses")
        tell(RefusedTell { VerdictCode::NothingFits, QStringLiteral("no") });
    else if (what == "surroundings")
        tellSurroundings(std::atoi(argv[2]));
    else if (what == "commands") {
        for (int i = 0; i < 2 && std::getline(std::cin, line); ++i)
            tellText(line);
    } else if (what == "is killed")
        std::raise(SIGKILL);
    else if (what == "aborts")
        std::raise(SIGABRT);
    else if (what == "has no memory")
        return 71;
    else if (what == "garbage")
        print("Segmentation fault\n");
    else if (what == "half a line")
        print(R"({"tell":"end","result":true,"te)");
    else if (what == "huge line") {
        while (true)
            print(QByteArray(1024 * 1024, 'x'));
    } else if (what == "two hellos")
        tell(HelloTell { WorkerOrder::Protocol });
    else if (what == "no hello")
        tellText("text");
    else if (what == "silent") {
        tellText(std::to_string(getpid()));
        wait();
    } else if (what == "stays") {
        tell(EndTell { true, QStringLiteral("done") });
        wait();
    } else if (what == "goes on") {
        tell(EndTell { false, QStringLiteral("done") });
        tell(RefusedTell { VerdictCode::Internal, QStringLiteral("late") });
        print("Segmentation fault\n");
        return 9;
    } else if (what == "standard error") {
        std::cerr << "one\n" << std::string(5000, 'x') << "\nend";
        tell(EndTell { true, QString() });
    }
    return 0;
}
