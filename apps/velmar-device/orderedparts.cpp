#include "orderedparts.h"

#include "fitting.h"

#include <algorithm>

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
    // So that an order, and the report of its progress, has no more parts than the device.
    const bool isSlotOrdered =
        std::any_of(order.parts.begin(), order.parts.end(),
                    [&part](const PartOrder &other) { return other.slotId == part.slotId; });
    if (part.codes.empty() && isSlotOrdered)
        return {
            LinkAck::Refused,
            QString::fromLatin1("slot %1 is ordered once more, without a section").arg(part.slotId)
        };
    for (const quint16 code : part.codes) {
        const FittedPart *fitted = fitting.findPart(part.type, part.slotId, code);
        if (fitted == nullptr)
            return { LinkAck::Refused,
                     QString::fromLatin1("slot %1 has no section 0x%2")
                         .arg(part.slotId)
                         .arg(code, 4, 16, QLatin1Char('0')) };
        const SectionKey key = fitted->key(code);
        const auto isSame = [&key](const SectionKey &other) {
            return !(key < other) && !(other < key);
        };
        if (std::any_of(order.sections.begin(), order.sections.end(), isSame))
            return { LinkAck::Refused,
                     QString::fromLatin1("section 0x%2 of slot %1 is ordered twice")
                         .arg(part.slotId)
                         .arg(code, 4, 16, QLatin1Char('0')) };
        order.sections.push_back(key);
    }
    order.parts.push_back(part);
    return {};
}

} // namespace Velmar::Simulator
