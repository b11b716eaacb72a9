#ifndef VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_P_H
#define VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_P_H

#include "compatibilityupgrade_dat.h"
#include "records/loadrecords.h"

#include <QMap>
#include <QThread>

#include <functional>

namespace Velmar::Firmware::Internal {

/*!
    The runs over the register road, one after the other, on this thread.

    The order of the writes is that of the commands in the package; the code knows only what each
    command means. The steps are public for the tests alone. Each logs its cause and answers false
    to end the run; nothing is repeated and nothing already written is undone.
*/
class CompatibilityUpgradeDatPrivate : public QThread
{
    Q_OBJECT

public:
    using Commands = QList<TZ::ZLoad::CommandConfig *>;

    explicit CompatibilityUpgradeDatPrivate(CompatibilityUpgradeDat *owner);

    static CompatibilityUpgradeDatPrivate *get(CompatibilityUpgradeDat *upgrade)
    {
        return upgrade->d;
    }

    void run() override;

    bool sendFileInfo();
    bool sendCommandConfig(const Commands &commands);

    // The commands, by name. Each is given all commands of its file and takes the first of its
    // name.
    bool sendCardIndexCommand(const Commands &commands);
    bool sendSenderFileTypeCommand(const Commands &commands);
    bool sendFileLengthCommand(const Commands &commands);
    bool sendFileCountCommand(const Commands &commands);
    bool sendFileDataCommand(const Commands &commands);

    /*! Bytes of the enciphered file at \a path once it is plain; 0 if it cannot be deciphered. */
    int decodedFileLength(const QString &path);

    /*! Writes \a data to the register at \a address and waits for the device to accept it. */
    bool sendUpdatePackage(unsigned int address, unsigned int timeout, const QByteArray &data);

    bool m_result = false; // of the last run; read by the owner once the thread has finished
    QString m_errorMessage; // never cleared, so that it outlives the runs behind it

    // Set between runs, only read during one; the caller sees to it.
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> m_cardParts;
    std::weak_ptr<SSProxy::DeviceChannel> m_channel;

    // The worker's own.
    TZ::ZLoad::DataPackage m_dataPackage; // of the part that is being handled
    QMap<QString, std::function<bool(const Commands &)>> m_commandHandlers;
    QString m_currentFilePath;
    int m_totalFileLength = 0; // bytes

    CompatibilityUpgradeDat *const m_owner;

private:
    bool upgradeCardParts();
    bool checkPackageVersion();
    bool sendFileParts(const TZ::ZLoad::CommandConfig &command, const QByteArray &content);
    int totalFileLength();
};

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_P_H
