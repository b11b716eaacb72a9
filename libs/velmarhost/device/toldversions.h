#ifndef VELMARHOST_TOLDVERSIONS_H
#define VELMARHOST_TOLDVERSIONS_H

#include "records/devicerecords.h"

#include <QHash>
#include <QPair>
#include <QString>

namespace Velmar::Host {

/*! The versions of sections that a device tells, quick to ask. */
class ToldVersions
{
public:
    ToldVersions() = default;
    explicit ToldVersions(const ProtoModel::Auxiliary::s_DeviceVersion &versions);

    /*! That of the section \a code on the part of \a type in a slot, as the device tells it; empty
        if it does not, or tells "N/A". Of two parts or sections that are alike, the first counts. */
    QString find(int type, quint8 slotId, quint16 code) const;

    bool operator==(const ToldVersions &other) const;
    bool operator!=(const ToldVersions &other) const { return !(*this == other); }

private:
    QHash<QPair<int, int>, QHash<quint16, QString>> m_parts; // by type and slot, then by code
};

} // namespace Velmar::Host

#endif // VELMARHOST_TOLDVERSIONS_H
