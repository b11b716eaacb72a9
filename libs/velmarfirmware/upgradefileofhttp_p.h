#ifndef VELMARFIRMWARE_UPGRADEFILEOFHTTP_P_H
#define VELMARFIRMWARE_UPGRADEFILEOFHTTP_P_H

#include "records/compatibilityrecords.h"
#include "records/upgraderecords.h"
#include "upgradefileofhttp.h"

#include <velmarbizmodel/enums.h>

#include <QString>

namespace Velmar::BizModel {
struct s_DeviceConfig;
}

namespace Velmar::Firmware::Internal {

/*!
    The HTTP road: settles the generation of the service, composes the request, and turns what the
    HTTP client reports into progress and an end.

    The steps are public for the tests alone. One thread; no lock.
*/
class UpgradeFileOfHTTPPrivate : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeFileOfHTTPPrivate(UpgradeFileOfHTTP *owner);

    static UpgradeFileOfHTTPPrivate *get(UpgradeFileOfHTTP *upgrade) { return upgrade->d; }

    bool doDeviceUpgradeOfHTTP();

    // Which generation of the service the device has.
    Enum::UpgradeProtoType checkDeviceVersion();
    bool getDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &version);

    // The control text of the upload; empty if none can be composed.
    std::string serializeUpgradeConfigForHttp();
    bool findCompatibilityCodeByUpgradeCode(const BizModel::s_DeviceConfig *config,
                                            unsigned short upgradeCode,
                                            unsigned short &compatibilityCode);
    bool findUpgradeCodeByCompatilityCode(unsigned short compatibilityCode,
                                          unsigned short &upgradeCode);
    void sendUpgradeRequest(const std::string &body);

    // Progress of the older generation, in the form of the newer one.
    void convertCompatibilityPercent(
        const std::vector<ProtoModel::Auxiliary::s_CompatibilityUpgradePercent> &records,
        ProtoModel::Auxiliary::s_UpgradePercent &percent);
    void mergeUpgradeParts(
        const std::vector<ProtoModel::Auxiliary::s_CompatibilitySubCardPercentSection> &list,
        int type, quint64 &sum, ProtoModel::Auxiliary::s_UpgradePercent &percent);
    void
    makeUpgradePart(ProtoModel::Auxiliary::s_UpgradeCardParts &part,
                    const ProtoModel::Auxiliary::s_CompatibilitySubCardPercentSection &element);

    void finishUpgrade(BizModel::Enum::StatusBarMsgType statusType, const QString &statusText,
                       BizModel::Enum::FramelessMessageBoxMsgType boxType, QString boxText);

public Q_SLOTS:
    void slotOnUploadProgress(qint64 bytesSent, qint64 bytesTotal);
    void slotReplyUploadFinished(int nCode);
    void slotReplyUpdataFinished(int nCode);
    void slotReplyUpdataSchedule(QByteArray buffer);

public:
    UpgradeFileOfHTTP *const q;
    bool m_bCompatibility = false; // true: the older generation
    std::shared_ptr<SSProxy::DeviceChannel> m_pDeviceChannel; // for the version query alone
    unsigned short m_modelId = 0xFFFF;
    QString m_deviceIP;
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> m_cardInfoParts;
    QString m_filePath;
    std::function<void()> m_upgradeFinishedCallBack;
    std::function<void(ProtoModel::Auxiliary::s_UpgradePercent &)> m_refreshUpgradeProcessCallBack;
    bool m_bFinished = false; // a progress answer has ended the upgrade

private:
    std::string serializeOlderRequest();
    std::string serializeNewerRequest();
    bool decodeProgress(const QByteArray &buffer, ProtoModel::Auxiliary::s_UpgradePercent &percent);
    void finishFailedTransfer();
};

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_UPGRADEFILEOFHTTP_P_H
