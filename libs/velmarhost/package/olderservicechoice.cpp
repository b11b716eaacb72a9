#include "package/olderservicechoice.h"

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr quint16 McuCode = 0x101;
constexpr quint16 McuBackCode = 0x105;

} // namespace

bool isOfOlderService(const PartOffer &part, const SectionOffer &section)
{
    return part.isMainControl && (section.code == McuCode || section.code == McuBackCode);
}

bool chooseForOlderService(const std::vector<PartOffer> &offered, const Wish &wish,
                           Selection &selection, QString &errorText)
{
    std::vector<PartOffer> renewable;
    for (auto part : offered) {
        part.sections.erase(std::remove_if(part.sections.begin(), part.sections.end(),
                                           [&part](const SectionOffer &section) {
                                               return !isOfOlderService(part, section);
                                           }),
                            part.sections.end());
        if (!part.sections.empty())
            renewable.push_back(std::move(part));
    }
    if (renewable.empty() && !offered.empty()) {
        errorText = QStringLiteral("The device's HTTP service renews the main control's and the "
                                   "back plane's MCU alone, and the package has neither");
        return false;
    }
    return selection.choose(renewable, wish, errorText);
}

} // namespace Velmar::Host
