#include "jsondocuments.h"

#include <cstddef>
#include <cstdint>
#include <random>

namespace JsonDocuments {

namespace {

using namespace Velmar::ProtoModel::Auxiliary;

// Section codes of a device count up from its MCU's.
constexpr int FirstCode = 0x101;

class Values
{
public:
    int upTo(int largest) { return std::uniform_int_distribution<int>(0, largest)(m_engine); }
    std::string version()
    {
        return std::to_string(upTo(4)) + '.' + std::to_string(upTo(20)) + '.'
            + std::to_string(upTo(99)) + '.' + std::to_string(upTo(9));
    }

private:
    std::mt19937 m_engine { 20240229 };
};

std::vector<s_SectionPercent> sectionPercents(Values &values)
{
    std::vector<s_SectionPercent> sections(static_cast<std::size_t>(1 + values.upTo(3)));
    int code = FirstCode;
    for (s_SectionPercent &section : sections) {
        section.code = static_cast<std::uint16_t>(code++);
        section.rate = static_cast<std::uint8_t>(values.upTo(100));
        section.result = section.rate == 100 ? 2 : 1;
    }
    return sections;
}

} // namespace

s_DeviceVersion deviceVersion(int parts)
{
    Values values;
    s_DeviceVersion version;
    version.version = "2.0.0.0";
    version.brief = "S2.M1 main controller";
    for (int i = 0; i < parts; ++i) {
        s_DeviceVersionPart part;
        part.type = static_cast<std::uint8_t>(1 + values.upTo(2));
        part.slotId = static_cast<std::uint8_t>(i % 250);
        part.modelId = static_cast<std::uint32_t>(0x7701 + values.upTo(40));
        part.version = values.version();
        part.brief = values.upTo(1) == 0 ? "4K60 HDMI 2.0 input card" : "DVI output";
        const int sections = 1 + values.upTo(3);
        for (int j = 0; j < sections; ++j) {
            s_DeviceVersionSection section;
            section.code = static_cast<std::uint16_t>(FirstCode + j);
            section.version = values.version();
            section.brief = j == 0 ? "MCU" : "FPGA video pipeline";
            part.section.push_back(section);
        }
        version.parts.push_back(part);
    }
    return version;
}

s_UpgradePercent progress(int parts)
{
    Values values;
    s_UpgradePercent percent;
    percent.result = 1;
    percent.rate = static_cast<std::uint8_t>(parts == 0 ? 0 : 42);
    percent.subSections.rate = percent.rate;
    for (int i = 0; i < parts; ++i) {
        s_UpgradeCardParts part;
        part.type = 1 + values.upTo(2);
        part.slotId = static_cast<std::uint8_t>(i % 250);
        part.rate = static_cast<std::uint8_t>(values.upTo(100));
        part.result = part.rate == 100 ? 2 : 1;
        part.section = sectionPercents(values);
        percent.parts.push_back(part);
    }
    return percent;
}

CompatibilityProgress compatibilityProgress(int devices)
{
    Values values;
    CompatibilityProgress records;
    for (int i = 0; i < devices; ++i) {
        s_CompatibilityUpgradePercent record;
        record.deviceId = 1024 + i;
        record.result = 1;
        record.updateBaseSections.rate = static_cast<std::uint8_t>(values.upTo(100));
        record.updateBaseSections.modelId = 1024;
        record.updateSubSections.rate = static_cast<std::uint8_t>(values.upTo(100));
        record.mainControl.push_back({ 0, 1024, sectionPercents(values) });
        record.backPlane.push_back({ 0, 2048, sectionPercents(values) });
        records.push_back(record);
    }
    return records;
}

s_UpgradeDetail request(int parts)
{
    Values values;
    s_UpgradeDetail detail { 1, "N/A", 1, 1, {} };
    for (int i = 0; i < parts; ++i) {
        s_CardInfoParts part;
        part.type = 1;
        part.slotId = static_cast<std::uint8_t>(i % 250);
        part.boardId = static_cast<std::uint8_t>(values.upTo(3));
        const int sections = 1 + values.upTo(3);
        for (int j = 0; j < sections; ++j)
            part.section.push_back({ static_cast<std::uint16_t>(FirstCode + j) });
        detail.parts.push_back(part);
    }
    return detail;
}

CompatibilityRequest compatibilityRequest(int parts, const std::string &filePath)
{
    Values values;
    s_CompatibilityUpgradeDetail detail { 1024, 1, filePath, 1, 1, {}, {} };
    for (int i = 0; i < parts; ++i) {
        s_CompatibilitySubCardDetail part { 0, static_cast<std::uint16_t>(1024 + i), {} };
        part.sections.push_back({ static_cast<std::uint16_t>(12 + values.upTo(30)), 60 });
        (i % 2 == 0 ? detail.mainControl : detail.backPlane).push_back(part);
    }
    return { detail };
}

std::string indented(const std::string &json)
{
    std::string text;
    std::size_t depth = 0;
    bool isQuoted = false;
    const auto breakLine = [&text, &depth] {
        text += '\n' + std::string(4 * depth, ' ');
    };
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char character = json[i];
        if (isQuoted) {
            text += character;
            if (character == '\\')
                text += json[++i];
            isQuoted = character != '"';
            continue;
        }
        switch (character) {
        case '[':
        case '{':
            text += character;
            if (json[i + 1] == ']' || json[i + 1] == '}') {
                text += json[++i];
            } else {
                ++depth;
                breakLine();
            }
            break;
        case ']':
        case '}':
            --depth;
            breakLine();
            text += character;
            break;
        case ',':
            text += character;
            breakLine();
            break;
        case ':':
            text += ": ";
            break;
        default:
            isQuoted = character == '"';
            text += character;
        }
    }
    return text;
}

} // namespace JsonDocuments
