#include "orderedparts.h"

#include "fitting.h"

namespace Velmar::Simulator {

Outcome addToOrder(const Fitting &fitting, const PartOrder &part, quint8 boardId,
                   InstallationOrder &order)
{
    const std::optional<quint8> fittedBoard = fitting.boardInSlot(part.slotId);
    if (!fittedBoard)
        return { LinkAck::Refused, QString::fromLatin1("slot %1 is empty").arg(part.slotId) };
    if (part.slotId != 0 && *fittedBoard != boardId)
        return { LinkAck::Refused,
                 QString::fromLatin1("slot %1 has board %2, not %3")
                     .arg(part.slotId)
                     .arg(*fittedBoard)
                     .arg(boardId) };
    for (const quint16 code : part.codes) {
        const FittedPart *fitted = fitting.findPart(part.type, part.slotId, code);
        if (fitted == nullptr)
            return { LinkAck::Refused,
                     QString::fromLatin1("slot %1 has no section 0x%2")
                         .arg(part.slotId)
                         .arg(code, 4, 16, QLatin1Char('0')) };
        order.sections.push_back(fitted->key(code));
    }
    order.parts.push_back(part);
    return {};
}

} // namespace Velmar::Simulator
