#include "steps.h"

#include "console.h"
#include "device/devicesession.h"
#include "package/packageparse.h"
#include "show/printable.h"

#include <tzcryptrc2/cryptkey.h>

#include <QDir>
#include <QEventLoop>

using namespace Velmar;
using namespace Velmar::Host;

std::optional<BizModel::Catalogue> useCatalogue(const CommandLine &options)
{
    constexpr const char *option = "catalogue";
    if (!options.isSet(option))
        return BizModel::Catalogue::builtin();
    QString errorText;
    auto catalogue = BizModel::Catalogue::load(options.value(option), errorText);
    if (catalogue)
        catalogue->install();
    else
        complain(HostExitCode::Usage, QStringLiteral("--catalogue: ") + printable(errorText));
    return catalogue;
}

bool useKeyFile(const CommandLine &options)
{
    constexpr const char *option = "key-file";
    if (!options.isSet(option))
        return true;
    TZ::CryptKey key;
    QString errorText;
    if (TZ::readCryptKeyFile(options.value(option), key, errorText) && TZ::setCryptKey(key))
        return true;
    complain(HostExitCode::Usage, QStringLiteral("--key-file: ") + printable(errorText));
    return false;
}

std::unique_ptr<DeviceSession> openSession(const DeviceAddress &address, const LogCapture &log)
{
    QString errorText;
    auto session = DeviceSession::open(address, errorText);
    if (!session) {
        complain(HostExitCode::Unreachable, errorText);
        printCause(log.lastLines());
    }
    return session;
}

QString libraryPath(const QString &path)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

bool finishParse(PackageParse &parse, std::optional<quint16> model,
                 std::chrono::milliseconds timeLimit, const LogCapture &log)
{
    QEventLoop loop;
    bool isGood = false;
    QObject::connect(&parse, &PackageParse::signalEnded, &loop,
                     [&](bool result, const QString &errorText) {
                         isGood = result;
                         if (!result) {
                             complain(HostExitCode::PackageRefused, printable(errorText));
                             printCause(log.lastLines());
                         }
                         loop.quit();
                     });
    if (model)
        parse.startForModel(*model, timeLimit);
    else
        parse.start(timeLimit);
    loop.exec();
    if (parse.isWorkerLeftBehind())
        leaveProcess(HostExitCode::PackageRefused);
    return isGood;
}
