#include "package.h"

#include <tinyboundary/calls.h>
#include <upgradeprocess.h>
#include <velmarbizmodel/devicelist.h>

#include <QCoreApplication>

#include <algorithm>

using Velmar::BizModel::DeviceList;
using Velmar::Firmware::UpgradeProcess;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;

namespace {

s_CardInfoParts part(quint16 modelId, quint8 boardId, quint16 code)
{
    s_CardInfoParts part;
    part.modelId = modelId;
    part.boardId = boardId;
    part.section.push_back({ code });
    return part;
}

QString upgrade(const Package &package)
{
    UpgradeProcess process(DeviceList::instance()->activedDevice(),
                           { part(0x4242, 0, 0x0042), part(0x5151, 3, 0x0051) },
                           package.upgradeCfgs, package.dataFilePaths, package.path());
    QEventLoop loop;
    QString text;
    QThread *worker = nullptr;
    QObject::connect(
        &process, &UpgradeProcess::signalUpgradeFinished, &process,
        [&worker] { worker = QThread::currentThread(); }, Qt::DirectConnection);
    QObject::connect(&process, &UpgradeProcess::signalUpgradeFinished, &loop,
                     [&](bool, const QString &resultInfo) {
                         text = resultInfo;
                         loop.quit();
                     });
    process.start(Velmar::Firmware::Enum::UpgradeProcessType::FullUpgrade);
    loop.exec();
    worker->wait();
    return text;
}

bool isEqual(const char *what, const QStringList &actual, const QStringList &expected)
{
    if (actual != expected)
        std::fprintf(stderr, "%s: %s\n", what, qPrintable(actual.join(QStringLiteral(", "))));
    return actual == expected;
}

QStringList warnings; // written by a worker, read behind its end

void noteWarning(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtWarningMsg)
        warnings.append(text);
}

// The cause that is logged is what the announcement said, as the transfer tells none.
bool isTransferFailureTold(const Package &package)
{
    TinyBoundary::setTakingFiles(false);
    const QtMessageHandler before = qInstallMessageHandler(noteWarning);
    const QString text = upgrade(package);
    qInstallMessageHandler(before);
    TinyBoundary::setTakingFiles(true);
    return isEqual("warnings", warnings,
                   { QStringLiteral("Fail to send upgrade file binary data:running low on room") })
        && isEqual("the upgrade ended with", { text },
                   { QStringLiteral("Failed to import upgrade file,device is restarting.") });
}

} // namespace

// Parses a package and upgrades the tiny boundary's device with it, and looks which of the
// boundary's functions were called for that.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    Package package;
    const bool isWritten =
        package.addFile(QStringLiteral("PackageCfg.xml"),
                        "<units><string>controller</string><string>card</string></units>")
        && package.addFile(QStringLiteral("controller/unit.xml"),
                           "<package><set ModuleID=\"4242\" StepType=\"0\"/><object "
                           "class=\"FileInfo\"><set FileLabel=\"Loader\" "
                           "FileName=\"loader.dat\"/></object></package>")
        && package.addFile(QStringLiteral("controller/loader.dat"), "redaol eht fo txet nialp")
        && package.addFile(QStringLiteral("card/unit.xml"),
                           "<package><set ModuleID=\"5151\" StepType=\"1\"/><object "
                           "class=\"FileInfo\"><set FileLabel=\"Scaler\" "
                           "FileName=\"scaler.bin\" ExtendNum=\"3\"/></object></package>")
        && package.addFile(QStringLiteral("card/scaler.bin"), "bytes of the scaler")
        && package.addFile(QStringLiteral("DataFilPathCfg.xml"),
                           "<Velmar><file><SrcPath>controller/loader.dat</SrcPath>"
                           "<DestPath>/boot/loader</DestPath></file></Velmar>");
    if (!isWritten)
        return 1;

    Velmar::Firmware::UpgradeFileParsed parser(package.path(), false, false, 0, 0);
    if (!package.parse(parser))
        return 1;
    QStringList shown;
    QObject::connect(
        DeviceList::instance(), &DeviceList::signalShowStatusBarMsg, DeviceList::instance(),
        [&shown](Velmar::BizModel::Enum::StatusBarMsgType, const QString &text, int) {
            shown.append(text);
        },
        Qt::DirectConnection);
    if (!isEqual("the upgrade ended with", { upgrade(package) },
                 { QStringLiteral("Upgrade successful,device is restarting.") })
        // A transfer that never calls back shows no percentage.
        || !isEqual("shown", shown, { QStringLiteral("Upgrading file processing"), QString() }))
        return 1;

    const QStringList expected {
        QStringLiteral("loadXml"),
        QStringLiteral("findSubcardBoardIdByModelId"),
        QStringLiteral("findUpgradeCfgByBoardId"),
        QStringLiteral("findCodeBySectionName"),
        QStringLiteral("readDeviceVersion"),
        QStringLiteral("ReadFileToEncryptOrDecrypt 1 2"),
        QStringLiteral("importFile"),
        QStringLiteral("writeFileBinary"),
        QStringLiteral("setUgradeConfig"),
        QStringLiteral("readUpgradeProgress"),
        QStringLiteral("stopDeviceUDPProbe"),
        QStringLiteral("setDeviceShutDownMode"),
        QStringLiteral("disconnectCommunication"),
    };
    QStringList calls = TinyBoundary::notedCalls();
    calls.erase(std::unique(calls.begin(), calls.end()), calls.end()); // how often is not told here
    if (!isEqual("calls", calls, expected))
        return 1;

    for (const char *bytes :
         { "plain text of the loader", "bytes of the scaler", "/boot/loader" }) {
        if (!TinyBoundary::sentBytes().contains(bytes)) {
            std::fprintf(stderr, "not in the image: %s\n", bytes);
            return 1;
        }
    }
    return isTransferFailureTold(package) ? 0 : 1;
}
