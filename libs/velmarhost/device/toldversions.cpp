#include "device/toldversions.h"

namespace Velmar::Host {

ToldVersions::ToldVersions(const ProtoModel::Auxiliary::s_DeviceVersion &versions)
{
    for (const auto &part : versions.parts) {
        const auto key = qMakePair(int(part.type), int(part.slotId));
        if (m_parts.contains(key))
            continue;
        auto &sections = m_parts[key];
        for (const auto &section : part.section) {
            const auto version = QString::fromStdString(section.version);
            if (!sections.contains(section.code))
                sections.insert(section.code,
                                version == QLatin1String("N/A") ? QString() : version);
        }
    }
}

QString ToldVersions::find(int type, quint8 slotId, quint16 code) const
{
    const auto part = m_parts.constFind({ type, slotId });
    return part == m_parts.constEnd() ? QString() : part->value(code);
}

bool ToldVersions::operator==(const ToldVersions &other) const
{
    return m_parts == other.m_parts;
}

} // namespace Velmar::Host
