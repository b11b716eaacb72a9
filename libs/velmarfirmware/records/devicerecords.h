#ifndef VELMARFIRMWARE_RECORDS_DEVICERECORDS_H
#define VELMARFIRMWARE_RECORDS_DEVICERECORDS_H

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

/*!
    The records that a device and a host exchange: versions, progress and the upgrade request.

    Plain values without any lock. A member's default is what a fresh list element starts with and
    what stays in place if the device leaves the key out. \c Keys names the members on the wire, in
    wire order, which is not always the order in memory; \c Members are the same members in the same
    order. The JSON binding refuses to compile if the two differ in length.
*/
namespace Velmar::ProtoModel::Auxiliary {

/*! Version of one firmware section of a part. */
struct s_DeviceVersionSection {
    std::uint16_t code = 0x102; //!< section code of the device
    std::string version = "N/A";
    std::string brief = "N/A";

    static constexpr char Keys[] = "code, version, brief";
    static constexpr auto Members =
        std::make_tuple(&s_DeviceVersionSection::code, &s_DeviceVersionSection::version,
                        &s_DeviceVersionSection::brief);
};

/*! Versions of one part of a device: the main control, the back plane or a card. */
struct s_DeviceVersionPart {
    std::uint8_t type = 1; //!< kind of part, as in the section table of the device model
    std::uint8_t slotId = 0;
    std::uint32_t modelId = 0x7701;
    std::string version = "N/A";
    std::string brief = "N/A";
    std::vector<s_DeviceVersionSection> section;

    static constexpr char Keys[] = "type, slotId, modelId, version, brief, section";
    static constexpr auto Members = std::make_tuple(
        &s_DeviceVersionPart::type, &s_DeviceVersionPart::slotId, &s_DeviceVersionPart::modelId,
        &s_DeviceVersionPart::version, &s_DeviceVersionPart::brief, &s_DeviceVersionPart::section);
};

/*! What a device answers to the question for its version. */
struct s_DeviceVersion {
    std::string version = "N/A";
    std::string brief = "N/A"; //!< hardware description
    std::vector<s_DeviceVersionPart> parts;

    static constexpr char Keys[] = "version, brief, parts";
    static constexpr auto Members = std::make_tuple(
        &s_DeviceVersion::version, &s_DeviceVersion::brief, &s_DeviceVersion::parts);
};

/*! Progress of one section, in percent. */
struct s_SectionPercent {
    std::uint16_t code = 0x102;
    std::uint8_t rate = 0;
    int result = 0;

    static constexpr char Keys[] = "code, rate, result";
    static constexpr auto Members = std::make_tuple(
        &s_SectionPercent::code, &s_SectionPercent::rate, &s_SectionPercent::result);
};

/*! Progress of one card, in percent. */
struct s_UpgradeCardParts {
    std::uint8_t rate = 0;
    int type = 1;
    std::uint8_t slotId = 0;
    std::uint8_t result = 0;
    std::vector<s_SectionPercent> section;

    static constexpr char Keys[] = "type, slotId, rate, result, section";
    static constexpr auto Members = std::make_tuple(
        &s_UpgradeCardParts::type, &s_UpgradeCardParts::slotId, &s_UpgradeCardParts::rate,
        &s_UpgradeCardParts::result, &s_UpgradeCardParts::section);
};

/*! Progress of the sub-sections together, in percent. */
struct s_UpgradeSubSections {
    std::uint8_t rate = 0;

    static constexpr char Keys[] = "rate";
    static constexpr auto Members = std::make_tuple(&s_UpgradeSubSections::rate);
};

/*! Progress of an upgrade as the device reports it while it installs. */
struct s_UpgradePercent {
    std::uint8_t rate = 0; //!< overall percentage, 0 to 100
    int result = 0; //!< 2: installed; 3: failed; any other value: still running
    s_UpgradeSubSections subSections;
    std::vector<s_UpgradeCardParts> parts;

    static constexpr char Keys[] = "result, rate, subSections, parts";
    static constexpr auto Members =
        std::make_tuple(&s_UpgradePercent::result, &s_UpgradePercent::rate,
                        &s_UpgradePercent::subSections, &s_UpgradePercent::parts);
};

/*! One chosen section of a card. */
struct s_SectionCode {
    std::uint16_t code = 0;

    static constexpr char Keys[] = "code";
    static constexpr auto Members = std::make_tuple(&s_SectionCode::code);
};

/*! One card to upgrade, with the sections chosen for it. */
struct s_CardInfoParts {
    int type = 0;
    std::uint8_t slotId = 0;
    std::uint16_t modelId = 0; //!< model of the card; known to the host only, never on the wire
    std::uint8_t boardId = 0;
    std::vector<s_SectionCode> section;

    static constexpr char Keys[] = "type, slotId, boardId, section";
    static constexpr auto Members =
        std::make_tuple(&s_CardInfoParts::type, &s_CardInfoParts::slotId, &s_CardInfoParts::boardId,
                        &s_CardInfoParts::section);
};

/*! What a device is asked to do with an image that it has received. */
struct s_UpgradeDetail {
    int upgradeType = 0;
    std::string filePath;
    int reboot = 0;
    int deleteUpgradeFile = 0;
    std::vector<s_CardInfoParts> parts;

    static constexpr char Keys[] = "upgradeType, filePath, reboot, deleteUpgradeFile, parts";
    static constexpr auto Members = std::make_tuple(
        &s_UpgradeDetail::upgradeType, &s_UpgradeDetail::filePath, &s_UpgradeDetail::reboot,
        &s_UpgradeDetail::deleteUpgradeFile, &s_UpgradeDetail::parts);
};

} // namespace Velmar::ProtoModel::Auxiliary

#endif // VELMARFIRMWARE_RECORDS_DEVICERECORDS_H
