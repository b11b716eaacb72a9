#ifndef VELMARBIZMODEL_SUBCARD_H
#define VELMARBIZMODEL_SUBCARD_H

#include "velmarbizmodel_export.h"

namespace Velmar::BizModel {

/*! One card that is fitted in a device. Immutable, so safe to read from any thread. */
class VELMARBIZMODEL_EXPORT Subcard
{
public:
    Subcard(unsigned int modelId, unsigned char slotId, unsigned char boardId);

    unsigned int modelId() const;
    unsigned char slotId() const;
    unsigned char boardId() const;

private:
    unsigned int m_modelId;
    unsigned char m_slotId;
    unsigned char m_boardId;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_SUBCARD_H
