#include "options.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Velmar::Relay;

namespace {

constexpr int ExitFailure = 1;
constexpr int ExitUsage = 64; // as in sysexits.h

int failure(const QString &sentence, int status)
{
    std::fprintf(stderr, "velmar-relay: %s\n", qUtf8Printable(sentence));
    return status;
}

int runRelay(const Settings &settings)
{
    Relay relay(settings);
    QString errorText;
    if (!relay.start(errorText))
        return failure(errorText, ExitFailure);
    const QJsonObject ready { { "event", "ready" },
                              { "address", settings.address.toString() },
                              { "port", relay.port() } };
    std::printf("%s\n", QJsonDocument(ready).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QString errorText;
    const auto options = Options::parse(QCoreApplication::arguments(), errorText);
    if (!options)
        return failure(errorText, ExitUsage);
    switch (options->action) {
    case Options::Action::ShowHelp:
        std::fputs(qUtf8Printable(Options::helpText()), stdout);
        return 0;
    case Options::Action::ShowVersion:
        std::puts("velmar-relay " VELMAR_VERSION);
        return 0;
    case Options::Action::Run:
        break;
    }
    return runRelay(options->settings);
}
