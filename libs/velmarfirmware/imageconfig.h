#ifndef VELMARFIRMWARE_IMAGECONFIG_H
#define VELMARFIRMWARE_IMAGECONFIG_H

#include "upgradeconfig.h"

#include <QVector>

class QJsonArray;
class QJsonObject;

namespace Velmar::Firmware {

/*!
    Reader of an image configuration: one file that lists models and section codes.

    After a successful read there are three items: the main control, the input cards and the output
    cards. Their sections have names but no files.
*/
class ImageConfig : public UpgradeConfig
{
    Q_OBJECT

public:
    explicit ImageConfig(QObject *parent);

    static ImageConfig *instance();
    static void destroyInstance();

    /*!
        Reads the file at \a path; the entries for the main control have to be for the device in
        use, and there has to be one.

        The former items stay if the file cannot be read or holds no list; any other failure leaves
        none. \a errorText is never touched: the log names the cause, but for an entry of another
        model, which has none.
    */
    bool readConfig(const QString &path, QString &errorText) override;

    QVector<UpgradeCfg> upgradeCfgs() override;

private:
    bool parseMaincontrol(const QString &path, const QJsonObject &root);
    bool parseInputCard(const QString &path, const QJsonObject &root);
    bool parseOutputCard(const QString &path, const QJsonObject &root);
    bool parseCardArray(const QString &path, const QJsonArray &cards);

    QVector<UpgradeCfg> m_upgradeCfgs;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_IMAGECONFIG_H
