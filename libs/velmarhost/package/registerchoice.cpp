#include "package/registerchoice.h"

#include "package/packagelisting.h"
#include "package/packagerules.h"

#include <algorithm>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_CardInfoParts;

constexpr int WriteRegisters = 1; // s_CardInfoParts::type of the parts that the library writes

bool hasCommands(const PackageListing &listing, quint16 modelId)
{
    const auto &units = listing.units();
    // Of several units for one model the library takes the first.
    const auto unit =
        std::find_if(units.cbegin(), units.cend(), [modelId](const ListedUnit &candidate) {
            return candidate.modelId == modelId;
        });
    return unit != units.cend()
        && std::any_of(unit->files.cbegin(), unit->files.cend(), [](const ListedFile &file) {
               return file.sectionName == McuSection && file.commands.contains(DataCommand)
                   && !isGoldenFile(file.fileName);
           });
}

} // namespace

bool chooseForRegisters(const std::vector<PartOffer> &offered, const PackageListing &listing,
                        quint16 modelId, Selection &selection, QString &errorText)
{
    Selection choice;
    if (!choice.choose(offered, { { McuSection }, { QStringLiteral("main") } }, errorText))
        return false;
    if (!hasCommands(listing, modelId)) {
        errorText = QStringLiteral("The package has no commands by which the \"MCU\" of model 0x%1 "
                                   "could be written register by register")
                        .arg(modelId, 4, 16, QLatin1Char('0'));
        return false;
    }
    selection = choice;
    return true;
}

std::vector<s_CardInfoParts> registerParts(const Selection &selection)
{
    auto parts = selection.cardInfoParts();
    for (auto &part : parts)
        part.type = WriteRegisters;
    return parts;
}

} // namespace Velmar::Host
