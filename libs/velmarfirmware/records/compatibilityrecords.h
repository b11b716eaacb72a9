#ifndef VELMARFIRMWARE_RECORDS_COMPATIBILITYRECORDS_H
#define VELMARFIRMWARE_RECORDS_COMPATIBILITYRECORDS_H

#include "devicerecords.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

/*!
    The records of the older generation of the device's HTTP service: progress and the upgrade
    request. Both travel as an array, of which a device fills and reads the first element.

    Declared as the records of devicerecords.h are, which they share where the generations agree.
*/
namespace Velmar::ProtoModel::Auxiliary {

/*! Progress of the base section, in percent. */
struct s_CompatibilityBasePercent {
    std::uint16_t code = 0x102; //!< section code of the device
    std::uint8_t rate = 0;
    std::uint8_t slotId = 0;
    std::uint16_t modelId = 0;
    int type = 1;

    static constexpr char Keys[] = "code, rate, type, modelId, slotId";
    static constexpr auto Members =
        std::make_tuple(&s_CompatibilityBasePercent::code, &s_CompatibilityBasePercent::rate,
                        &s_CompatibilityBasePercent::type, &s_CompatibilityBasePercent::modelId,
                        &s_CompatibilityBasePercent::slotId);
};

/*! Progress of the main control's or the back plane's sections. */
struct s_CompatibilitySubCardPercentSection {
    std::uint8_t slotId = 0;
    std::uint16_t modelId = 0;
    std::vector<s_SectionPercent> sections; //!< by compatibility code

    static constexpr char Keys[] = "modelId, slotId, sections";
    static constexpr auto Members =
        std::make_tuple(&s_CompatibilitySubCardPercentSection::modelId,
                        &s_CompatibilitySubCardPercentSection::slotId,
                        &s_CompatibilitySubCardPercentSection::sections);
};

/*! Progress of an upgrade as a device of the older generation reports it. */
struct s_CompatibilityUpgradePercent {
    int deviceId = 0;
    int result = 0; //!< 0: installed; any other value: still running
    s_CompatibilityBasePercent updateBaseSections;
    s_UpgradeSubSections updateSubSections;
    std::vector<s_CompatibilitySubCardPercentSection> mainControl;
    std::vector<s_CompatibilitySubCardPercentSection> backPlane;

    static constexpr char Keys[] =
        "deviceId, result, updateBaseSections, updateSubSections, mainControl, backPlane";
    static constexpr auto Members = std::make_tuple(
        &s_CompatibilityUpgradePercent::deviceId, &s_CompatibilityUpgradePercent::result,
        &s_CompatibilityUpgradePercent::updateBaseSections,
        &s_CompatibilityUpgradePercent::updateSubSections,
        &s_CompatibilityUpgradePercent::mainControl, &s_CompatibilityUpgradePercent::backPlane);
};

/*! One section to upgrade. */
struct s_CompatibilitySectionDetail {
    std::uint16_t code = 0; //!< compatibility code
    int timeout = 0;

    static constexpr char Keys[] = "code, timeout";
    static constexpr auto Members = std::make_tuple(&s_CompatibilitySectionDetail::code,
                                                    &s_CompatibilitySectionDetail::timeout);
};

/*! The sections to upgrade of the main control or of the back plane. */
struct s_CompatibilitySubCardDetail {
    std::uint8_t slotId = 0;
    std::uint16_t modelId = 0;
    std::vector<s_CompatibilitySectionDetail> sections;

    static constexpr char Keys[] = "modelId, slotId, sections";
    static constexpr auto Members = std::make_tuple(&s_CompatibilitySubCardDetail::modelId,
                                                    &s_CompatibilitySubCardDetail::slotId,
                                                    &s_CompatibilitySubCardDetail::sections);
};

/*! What a device of the older generation is asked to do with an uploaded file. */
struct s_CompatibilityUpgradeDetail {
    int deviceId = 0;
    int upgradeType = 0;
    std::string filePath; //!< UTF-8
    int reboot = 0;
    int deleteUpgradeFile = 0;
    std::vector<s_CompatibilitySubCardDetail> mainControl;
    std::vector<s_CompatibilitySubCardDetail> backPlane;

    static constexpr char Keys[] =
        "deviceId, upgradeType, filePath, reboot, deleteUpgradeFile, mainControl, backPlane";
    static constexpr auto Members = std::make_tuple(
        &s_CompatibilityUpgradeDetail::deviceId, &s_CompatibilityUpgradeDetail::upgradeType,
        &s_CompatibilityUpgradeDetail::filePath, &s_CompatibilityUpgradeDetail::reboot,
        &s_CompatibilityUpgradeDetail::deleteUpgradeFile,
        &s_CompatibilityUpgradeDetail::mainControl, &s_CompatibilityUpgradeDetail::backPlane);
};

} // namespace Velmar::ProtoModel::Auxiliary

#endif // VELMARFIRMWARE_RECORDS_COMPATIBILITYRECORDS_H
