#ifndef VELMARHOST_OFFER_H
#define VELMARHOST_OFFER_H

#include "records/upgraderecords.h"

#include <QString>
#include <QVector>

#include <vector>

namespace Velmar::BizModel {
class Device;
struct s_DeviceConfig;
} // namespace Velmar::BizModel

namespace Velmar::Host {

/*! A section that a package has for one part of a device. */
struct SectionOffer {
    QString name;
    quint16 code = 0; //!< the device's number for it
    int type = 0; //!< kind of part that carries it, as in the model's section table
    QVector<Firmware::UpgradeFileItem> items; //!< what carries it, in the package's order
};

/*! A part of a device, its main control or a fitted card, and what a package has for it. */
struct PartOffer {
    bool isMainControl = false;
    quint8 slotId = 0; //!< 0 for the main control
    quint16 modelId = 0;
    quint8 boardId = 0; //!< 0 for the main control
    std::vector<SectionOffer> sections; //!< in the package's order
};

/*!
    What of \a units, as a parse for \a device returned them, fits which part of it: the main
    control first, then the cards in slot order; parts without any section are left out.

    Names become codes in the way in which the upgrade library plans. A section that is restricted
    to another board is left out, and so is one that the table of the card's own board lacks or gives
    another code: the device would take it for something else.
*/
std::vector<PartOffer> offeredParts(const QVector<Firmware::UpgradeCfg> &units,
                                    BizModel::Device &device);

/*! The same for a device of the model that \a config describes, without any card. */
std::vector<PartOffer> offeredParts(const QVector<Firmware::UpgradeCfg> &units,
                                    const BizModel::s_DeviceConfig &config);

/*! "main control" or "card 3", for people. */
QString partName(const PartOffer &part);

/*! \a parts in one line, as in "main control: MCU, FPGA; card 3: Video". */
QString summary(const std::vector<PartOffer> &parts);

} // namespace Velmar::Host

#endif // VELMARHOST_OFFER_H
