#include "devicetext.h"

#include "show/printable.h"
#include "steps.h"

#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QJsonArray>

#include <algorithm>

using namespace Velmar;
using namespace Velmar::Host;

HostExitCode askDevice(const CommandLine &options, const Teller &tell)
{
    const auto address = options.deviceAddress();
    if (!address)
        return HostExitCode::Usage;
    const auto catalogue = useCatalogue(options);
    if (!catalogue)
        return HostExitCode::Usage;
    Inquiry inquiry(options);
    if (!inquiry.begin())
        return HostExitCode::Usage;
    QString errorText;
    std::optional<DeviceFacts> facts;
    inquiry.await([&](const std::atomic<bool> &) {
        facts = readDeviceFacts(
            *address, AnswerLimit, errorText,
            [&inquiry](const DeviceAddress &device) { return inquiry.links().make(device); });
    });
    if (!facts)
        return inquiry.fail(VerdictCode::Unreachable, errorText, inquiry.logLines());
    return tell(inquiry, *facts, ModelNames(*catalogue));
}

QString deviceLine(const DeviceFacts &facts, const ModelNames &names)
{
    return QStringLiteral("%1 \"%2\", serial %3, at %4")
        .arg(printable(names.describe(facts.modelId)), printable(facts.name),
             printable(facts.serial), facts.address.toString());
}

QString sectionName(const DeviceFacts &facts,
                    const ProtoModel::Auxiliary::s_DeviceVersionPart &part, quint16 code)
{
    QString name;
    if (part.slotId != 0) {
        name = BizModel::InterfaceConfig::instance()->findSectionNameByCode(int(part.modelId), code,
                                                                            0);
    } else if (const auto *config =
                   BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(facts.modelId)) {
        // The device's table has the sections of its back plane, too.
        const auto section =
            std::find_if(config->upgradeCfgs.cbegin(), config->upgradeCfgs.cend(),
                         [code](const auto &candidate) { return candidate.upgradeCode == code; });
        if (section != config->upgradeCfgs.cend())
            name = section->name;
    }
    return name.isEmpty() ? modelNumber(code) : name;
}

QJsonObject deviceObject(const DeviceFacts &facts, const ModelNames &names)
{
    QJsonArray cards;
    for (const auto &card : facts.cards)
        cards.append(QJsonObject { { QStringLiteral("slotId"), card.slotId },
                                   { QStringLiteral("modelId"), card.modelId },
                                   { QStringLiteral("model"), names.describe(card.modelId) },
                                   { QStringLiteral("boardId"), card.boardId } });
    return { { QStringLiteral("address"), facts.address.toString() },
             { QStringLiteral("modelId"), facts.modelId },
             { QStringLiteral("model"), names.describe(facts.modelId) },
             { QStringLiteral("serial"), facts.serial },
             { QStringLiteral("name"), facts.name },
             { QStringLiteral("cards"), cards } };
}
