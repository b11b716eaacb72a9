#include <velmarbizmodel/subcard.h>

namespace Velmar::BizModel {

Subcard::Subcard(unsigned int modelId, unsigned char slotId, unsigned char boardId)
    : m_modelId(modelId)
    , m_slotId(slotId)
    , m_boardId(boardId)
{
}

unsigned int Subcard::modelId() const
{
    return m_modelId;
}

unsigned char Subcard::slotId() const
{
    return m_slotId;
}

unsigned char Subcard::boardId() const
{
    return m_boardId;
}

} // namespace Velmar::BizModel
