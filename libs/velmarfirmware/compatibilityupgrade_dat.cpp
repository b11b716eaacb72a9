#include "compatibilityupgrade_dat.h"
#include "compatibilityupgrade_dat_p.h"

#include "packageconfig.h"

#include <tzcryptrc2/cryptrc2.h>
#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>

#include <QDebug>
#include <QFile>
#include <QtEndian>

namespace Velmar::Firmware {

namespace {

using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::FileInfo;
using Commands = Internal::CompatibilityUpgradeDatPrivate::Commands;

constexpr int HeartbeatPauseMs = 180000;
constexpr int LowestMajorVersion = 3; // older packages are not for this road
constexpr int UpgradeRequested = 1; // s_CardInfoParts::type
constexpr int ProgressType = 17; // of signalUpdateProcessChanged()
constexpr int ChunkSize = 4096; // bytes; the largest payload of one write

// Offsets from the address of SendFileLength.
constexpr unsigned int LengthGuardOffset = 4;
constexpr unsigned int CurrentLengthOffset = 12;

const QString McuLabel = QStringLiteral("MCU");
const QString McuFileName = QStringLiteral("MCU.dat");
const QString SendCardIndex = QStringLiteral("SendCardIndex");
const QString SendDeviceID = QStringLiteral("SendDeviceID");
const QString SendSenderFileType = QStringLiteral("SendSenderFileType");
const QString SendFileLength = QStringLiteral("SendFileLength");
const QString SendFileCount = QStringLiteral("SendFileCount");
const QString SendFileData = QStringLiteral("SendFileData");

QDebug warning()
{
    return qWarning().noquote().nospace();
}

const CommandConfig *findCommand(const Commands &commands, const QString &name)
{
    for (const CommandConfig *command : commands) {
        if (command && command->CmdName == name)
            return command;
    }
    return nullptr;
}

const CommandConfig *requiredCommand(const Commands &commands, const QString &name)
{
    const CommandConfig *command = findCommand(commands, name);
    if (!command)
        warning() << "command config not found:" << name;
    return command;
}

unsigned int addressOf(const CommandConfig &command)
{
    return static_cast<unsigned int>(command.Address);
}

unsigned int timeoutOf(const CommandConfig &command)
{
    return static_cast<unsigned int>(command.TimeOut);
}

QByteArray littleEndianBytes(int value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian<quint32>(static_cast<quint32>(value), bytes.data());
    return bytes;
}

/*! The plain copy of an enciphered file, beside it and for as long as this object lives. */
class PlainCopy
{
public:
    explicit PlainCopy(const QString &encipheredPath)
        : m_path(encipheredPath + QLatin1String("_dn"))
    {
        // The whole file, deciphered with the cipher library's own key. Only the numbers are fixed.
        constexpr auto WholeFile = static_cast<CRYPTSTYLE>(1);
        constexpr auto Decipher = static_cast<CRYPTTYPE>(2);
        CryptRc2 cipher;
        const bool isDeciphered =
            cipher.ReadFileToEncryptOrDecrypt(encipheredPath, m_path, WholeFile, Decipher);
        m_isWhole = QFile::exists(m_path) && isDeciphered;
    }

    ~PlainCopy() { QFile::remove(m_path); }

    bool isWhole() const { return m_isWhole; }
    const QString &path() const { return m_path; }

private:
    Q_DISABLE_COPY_MOVE(PlainCopy)

    const QString m_path;
    bool m_isWhole = false;
};

} // namespace

namespace Internal {

CompatibilityUpgradeDatPrivate::CompatibilityUpgradeDatPrivate(CompatibilityUpgradeDat *owner)
    : m_owner(owner)
{
    const auto add = [this](const QString &name, auto handler) {
        m_commandHandlers.insert(
            name, [this, handler](const Commands &commands) { return (this->*handler)(commands); });
    };
    add(SendCardIndex, &CompatibilityUpgradeDatPrivate::sendCardIndexCommand);
    add(SendSenderFileType, &CompatibilityUpgradeDatPrivate::sendSenderFileTypeCommand);
    add(SendFileLength, &CompatibilityUpgradeDatPrivate::sendFileLengthCommand);
    add(SendFileCount, &CompatibilityUpgradeDatPrivate::sendFileCountCommand);
    add(SendFileData, &CompatibilityUpgradeDatPrivate::sendFileDataCommand);
}

void CompatibilityUpgradeDatPrivate::run()
{
    m_result = false;
    const auto channel = m_channel.lock();
    if (!channel) {
        qWarning() << "Update failed : channel is null.";
        return;
    }
    channel->pauseHeartbeat(HeartbeatPauseMs);
    const bool isDone = upgradeCardParts();
    channel->restartHeartbeat();
    m_result = isDone;
}

bool CompatibilityUpgradeDatPrivate::upgradeCardParts()
{
    if (m_cardParts.empty()) {
        m_errorMessage = tr("Failed to upgrade:Please select upgrade part!");
        warning() << m_errorMessage;
        return false;
    }
    for (const ProtoModel::Auxiliary::s_CardInfoParts &cardPart : m_cardParts) {
        if (cardPart.type != UpgradeRequested)
            continue;
        if (!PackageConfig::instance()->findDataPackage(cardPart.modelId, m_dataPackage)) {
            m_errorMessage =
                tr("Failed to upgrade:The corresponding configuration file was not found!");
            warning() << m_errorMessage << "modelId is:" << cardPart.modelId;
            return false;
        }
        // A fault of the device or a file is in the log only: m_errorMessage stays as it was.
        if (!checkPackageVersion() || !sendFileInfo())
            return false;
    }
    return true;
}

bool CompatibilityUpgradeDatPrivate::checkPackageVersion()
{
    const QStringList parts = m_dataPackage.Version.split(QLatin1Char('.'));
    // Even an empty version splits into one part, an empty one, so this never fires.
    if (parts.isEmpty()) {
        m_errorMessage = tr("Failed to upgrade:Upgrade file version is empty!");
        warning() << m_errorMessage;
        return false;
    }
    if (parts.first().toInt() < LowestMajorVersion) {
        m_errorMessage = tr("Failed to upgrade:The upgrade file version is too low, please check!");
        warning() << m_errorMessage;
        return false;
    }
    return true;
}

bool CompatibilityUpgradeDatPrivate::sendFileInfo()
{
    for (const FileInfo *file : qAsConst(m_dataPackage.fileInfos)) {
        if (file->FileLabel != McuLabel)
            continue;
        m_currentFilePath = m_dataPackage.FilePath + QLatin1Char('/') + file->FileName;
        if (!sendCommandConfig(file->commandConfigs)) {
            qWarning() << "Fail to send command config";
            return false;
        }
    }
    return true;
}

bool CompatibilityUpgradeDatPrivate::sendCommandConfig(const Commands &commands)
{
    for (const CommandConfig *command : commands) {
        if (!command) {
            qWarning() << "Fail to send command: invalid command config";
            return false;
        }
        const auto handler = m_commandHandlers.constFind(command->CmdName);
        if (handler == m_commandHandlers.constEnd())
            continue;
        // A name that stands here twice is handled twice, both times by its first command.
        if (!(*handler)(commands)) {
            warning() << "Fail to send command: " << command->CmdName;
            return false;
        }
    }
    return true;
}

bool CompatibilityUpgradeDatPrivate::sendCardIndexCommand(const Commands &commands)
{
    const CommandConfig *command = requiredCommand(commands, SendCardIndex);
    if (!command)
        return false;
    // Its presence is all that counts: the identifier itself is the package's.
    if (!requiredCommand(commands, SendDeviceID))
        return false;
    const int deviceId = m_dataPackage.ModuleID.toInt(nullptr, 16);
    QByteArray data(3, '\0');
    qToLittleEndian<quint16>(static_cast<quint16>(deviceId), data.data());
    data[2] = static_cast<char>(command->Data.toInt());
    return sendUpdatePackage(addressOf(*command), timeoutOf(*command), data);
}

bool CompatibilityUpgradeDatPrivate::sendSenderFileTypeCommand(const Commands &commands)
{
    const CommandConfig *command = requiredCommand(commands, SendSenderFileType);
    if (!command)
        return false;
    QByteArray data;
    const QStringList parts = command->Data.split(QLatin1Char('-'));
    for (const QString &part : parts)
        data.append(static_cast<char>(part.toInt()));
    return sendUpdatePackage(addressOf(*command), timeoutOf(*command), data);
}

bool CompatibilityUpgradeDatPrivate::sendFileLengthCommand(const Commands &commands)
{
    const CommandConfig *command = requiredCommand(commands, SendFileLength);
    if (!command)
        return false;
    const unsigned int address = addressOf(*command);
    const auto write = [&](unsigned int offset, int value, unsigned int loggedOffset) {
        if (sendUpdatePackage(address + offset, timeoutOf(*command), littleEndianBytes(value)))
            return true;
        warning() << "Fail to send command(SendFileLength): address "
                  << static_cast<int>(address + loggedOffset);
        return false;
    };
    if (!write(LengthGuardOffset, 0, LengthGuardOffset))
        return false;
    m_totalFileLength = totalFileLength();
    // Logged with the guard's address: those who read the logs know this number, and it stays.
    return write(0, m_totalFileLength, LengthGuardOffset)
        && write(LengthGuardOffset, 0, LengthGuardOffset)
        && write(CurrentLengthOffset, decodedFileLength(m_currentFilePath), CurrentLengthOffset);
}

// By file name, where the files that are sent are chosen by label.
int CompatibilityUpgradeDatPrivate::totalFileLength()
{
    quint32 total = 0;
    for (const FileInfo *file : qAsConst(m_dataPackage.fileInfos)) {
        if (file->FileName == McuFileName)
            total += static_cast<quint32>(
                decodedFileLength(m_dataPackage.FilePath + QLatin1Char('/') + file->FileName));
    }
    return static_cast<int>(total);
}

bool CompatibilityUpgradeDatPrivate::sendFileCountCommand(const Commands &commands)
{
    const CommandConfig *command = requiredCommand(commands, SendFileCount);
    if (!command)
        return false;
    return sendUpdatePackage(addressOf(*command), timeoutOf(*command),
                             QByteArrayLiteral("\x01\x00\x01\x00"));
}

int CompatibilityUpgradeDatPrivate::decodedFileLength(const QString &path)
{
    const PlainCopy plain(path);
    QFile file(plain.path());
    if (!plain.isWhole() || !file.open(QIODevice::ReadOnly))
        return 0;
    return static_cast<int>(file.bytesAvailable());
}

bool CompatibilityUpgradeDatPrivate::sendFileDataCommand(const Commands &commands)
{
    const CommandConfig *command = findCommand(commands, SendFileData);
    if (!command) {
        warning() << "command config not found(SendFileData):" << SendFileData;
        return false;
    }
    const PlainCopy plain(m_currentFilePath);
    if (!plain.isWhole()) {
        warning() << "Fail to send command(SendFileData): decode failed " << m_currentFilePath;
        return false;
    }
    QFile file(plain.path()); // behind the copy, so that it closes before that is removed
    if (!file.open(QIODevice::ReadOnly)) {
        warning() << "Fail to send command(SendFileData): open file failed " << m_currentFilePath;
        return false;
    }
    const QByteArray content = file.readAll();
    if (content.size() <= ChunkSize)
        return sendUpdatePackage(addressOf(*command), timeoutOf(*command), content);
    return sendFileParts(*command, content);
}

// All parts go to one address: the device counts the position by itself.
bool CompatibilityUpgradeDatPrivate::sendFileParts(const CommandConfig &command,
                                                   const QByteArray &content)
{
    const int total = content.size() / ChunkSize + (content.size() % ChunkSize == 0 ? 0 : 1);
    for (int i = 1; i <= total; ++i) {
        const QByteArray chunk = content.mid((i - 1) * ChunkSize, ChunkSize);
        if (!sendUpdatePackage(addressOf(command), timeoutOf(command), chunk)) {
            // The blank keeps the number apart from a path that ends in digits.
            warning() << "Fail to send command(SendFileData): send to hardware failed,"
                         " current/total "
                      << m_currentFilePath << ' ' << i << '/' << total;
            return false;
        }
        Q_EMIT m_owner->signalUpdateProcessChanged(ProgressType, static_cast<double>(i) / total);
    }
    return true;
}

bool CompatibilityUpgradeDatPrivate::sendUpdatePackage(unsigned int address, unsigned int timeout,
                                                       const QByteArray &data)
{
    // An empty file is sent nevertheless: what it means is for the device to judge.
    if (data.isEmpty())
        qWarning() << "Fail to send command: data is empty";
    const auto channel = m_channel.lock();
    if (!channel || !channel->isHardwareReadFinished()) {
        qWarning() << "Fail to send command: channel is abnormal";
        return false;
    }
    const auto request = std::make_shared<SSProxy::DeviceRequestCommand>();
    request->setTimeout(static_cast<int>(timeout));
    request->isScannerTarget = m_dataPackage.DeviceTypes == QLatin1String("Scanner") ? 1 : 0;
    request->writeFlag = 1;
    request->reservedFlag = 0;
    request->address = address;
    request->dataLength = static_cast<std::uint16_t>(data.size());
    request->trailingFlag = 0;
    request->setBody(data.toStdString());
    const auto response = channel->sendSyncRequest(request);
    if (!response) {
        qWarning() << "Fail to send command: invalid response cmd";
        return false;
    }
    if (response->ack != 0) {
        warning() << "Fail to send command: send to hardware failed, ack is " << response->ack;
        return false;
    }
    return true;
}

} // namespace Internal

CompatibilityUpgradeDat::CompatibilityUpgradeDat()
    : d(new Internal::CompatibilityUpgradeDatPrivate(this))
{
    // With this object as context the run's members are read on its thread, once they are final.
    connect(d, &QThread::finished, this,
            [this] { Q_EMIT signalUpdateFinished(d->m_result, d->m_errorMessage); });
}

CompatibilityUpgradeDat::~CompatibilityUpgradeDat()
{
    delete d;
}

bool CompatibilityUpgradeDat::update(
    const std::vector<ProtoModel::Auxiliary::s_CardInfoParts> &parts,
    std::weak_ptr<SSProxy::DeviceChannel> channel)
{
    d->m_channel = channel;
    if (&parts != &d->m_cardParts)
        d->m_cardParts = parts;
    if (!channel.expired() && !parts.empty()) {
        d->start(QThread::InheritPriority);
        return true;
    }
    // "channel valid" counts the other way round: 1 stands for a channel that has gone.
    warning() << QStringLiteral("Update failed : params error, channel valid %1, cfgs empty %2.")
                     .arg(channel.expired() ? 1 : 0)
                     .arg(parts.empty() ? 1 : 0);
    return false;
}

} // namespace Velmar::Firmware
