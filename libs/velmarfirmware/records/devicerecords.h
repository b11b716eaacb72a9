#ifndef VELMARFIRMWARE_RECORDS_DEVICERECORDS_H
#define VELMARFIRMWARE_RECORDS_DEVICERECORDS_H

#include <cstdint>
#include <string>
#include <vector>

/*!
    The records that a device and a host exchange: versions, progress and the upgrade request.

    Plain values without any lock. A member's default is what a fresh list element starts with and
    what stays in place if the device leaves the key out. \c Keys names the members on the wire, in
    wire order, which is not always the order in memory.
*/
namespace Velmar::ProtoModel::Auxiliary {

/*! Version of one firmware section of a part. */
struct s_DeviceVersionSection {
    static constexpr char Keys[] = "code, version, brief";

    std::uint16_t code = 0x102; //!< section code of the device
    std::string version = "N/A";
    std::string brief = "N/A";
};

/*! Versions of one part of a device: the main control, the back plane or a card. */
struct s_DeviceVersionPart {
    static constexpr char Keys[] = "type, slotId, modelId, version, brief, section";

    std::uint8_t type = 1; //!< kind of part, as in the section table of the device model
    std::uint8_t slotId = 0;
    std::uint32_t modelId = 0x7701;
    std::string version = "N/A";
    std::string brief = "N/A";
    std::vector<s_DeviceVersionSection> section;
};

/*! What a device answers to the question for its version. */
struct s_DeviceVersion {
    static constexpr char Keys[] = "version, brief, parts";

    std::string version = "N/A";
    std::string brief = "N/A"; //!< hardware description
    std::vector<s_DeviceVersionPart> parts;
};

/*! Progress of one section, in percent. */
struct s_SectionPercent {
    static constexpr char Keys[] = "code, rate, result";

    std::uint16_t code = 0x102;
    std::uint8_t rate = 0;
    int result = 0;
};

/*! Progress of one card, in percent. */
struct s_UpgradeCardParts {
    static constexpr char Keys[] = "type, slotId, rate, result, section";

    std::uint8_t rate = 0;
    int type = 1;
    std::uint8_t slotId = 0;
    std::uint8_t result = 0;
    std::vector<s_SectionPercent> section;
};

/*! Progress of the sub-sections together, in percent. */
struct s_UpgradeSubSections {
    static constexpr char Keys[] = "rate";

    std::uint8_t rate = 0;
};

/*! Progress of an upgrade as the device reports it while it installs. */
struct s_UpgradePercent {
    static constexpr char Keys[] = "result, rate, subSections, parts";

    std::uint8_t rate = 0; //!< overall percentage, 0 to 100
    int result = 0; //!< 2: installed; 3: failed; any other value: still running
    s_UpgradeSubSections subSections;
    std::vector<s_UpgradeCardParts> parts;
};

/*! One chosen section of a card. */
struct s_SectionCode {
    static constexpr char Keys[] = "code";

    std::uint16_t code = 0;
};

/*! One card to upgrade, with the sections chosen for it. */
struct s_CardInfoParts {
    static constexpr char Keys[] = "type, slotId, boardId, section";

    int type = 0;
    std::uint8_t slotId = 0;
    std::uint16_t modelId = 0; //!< model of the card; known to the host only, never on the wire
    std::uint8_t boardId = 0;
    std::vector<s_SectionCode> section;
};

/*! What a device is asked to do with an image that it has received. */
struct s_UpgradeDetail {
    static constexpr char Keys[] = "upgradeType, filePath, reboot, deleteUpgradeFile, parts";

    int upgradeType = 0;
    std::string filePath;
    int reboot = 0;
    int deleteUpgradeFile = 0;
    std::vector<s_CardInfoParts> parts;
};

} // namespace Velmar::ProtoModel::Auxiliary

#endif // VELMARFIRMWARE_RECORDS_DEVICERECORDS_H
