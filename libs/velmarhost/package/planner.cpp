#include "package/planner.h"

#include "device/modelnames.h"
#include "device/toldversions.h"
#include "package/leftoutfinder.h"
#include "package/packagelisting.h"
#include "package/packagerules.h"
#include "package/sendingfault.h"

#include <upgradeimage/imagereader.h>
#include <velmarbizmodel/device.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_DeviceVersionPart;

constexpr quint32 NoSuchSection = static_cast<quint32>(-1); // no 16-bit code equals it

QString dotted(quint32 version)
{
    return QStringLiteral("%1.%2.%3.%4")
        .arg(version >> 24)
        .arg((version >> 16) & 0xFF)
        .arg((version >> 8) & 0xFF)
        .arg(version & 0xFF);
}

/*! What the library stamps on an image for a device that tells \a version of itself, as devices
    read it from there; empty for none. */
QString stampedVersion(const QString &version)
{
    const auto parts = version.split(QLatin1Char('.'));
    quint32 packed = 0;
    int shift = parts.size() * 8;
    for (const auto &part : parts) {
        shift -= 8;
        packed += static_cast<quint32>(part.toInt()) << (shift & 31);
    }
    return packed == 0 ? QString() : dotted(packed);
}

/*! The device's own report of the version that images are stamped with. */
QString fileVersion(const BizModel::s_DeviceConfig &config, const s_DeviceVersion &versions)
{
    const auto entry = std::find_if(
        config.upgradeCfgs.cbegin(), config.upgradeCfgs.cend(),
        [](const auto &section) { return section.name == QLatin1String("fileVersion"); });
    if (entry == config.upgradeCfgs.cend())
        return {};
    // Whatever its slot: the library goes by the type alone.
    const auto part = std::find_if(
        versions.parts.cbegin(), versions.parts.cend(),
        [&](const s_DeviceVersionPart &told) { return told.type == (entry->type & 0xFF); });
    if (part == versions.parts.cend())
        return {};
    const auto section =
        std::find_if(part->section.cbegin(), part->section.cend(),
                     [&](const auto &told) { return told.code == entry->upgradeCode; });
    return section == part->section.cend() ? QString() : QString::fromStdString(section->version);
}

bool isDotted(const QString &version)
{
    const auto parts = version.split(QLatin1Char('.'));
    return parts.size() > 1 && std::all_of(parts.cbegin(), parts.cend(), [](const QString &part) {
               return !part.isEmpty() && std::all_of(part.cbegin(), part.cend(), [](QChar c) {
                   return c >= QLatin1Char('0') && c <= QLatin1Char('9');
               });
           });
}

QString quoted(const QString &text)
{
    return QStringLiteral("\"%1\"").arg(text);
}

/*! Follows the library through one order. */
class Planner
{
public:
    Planner(const PlanOrder &order, Plan &plan)
        : m_order(order)
        , m_plan(plan)
        , m_config(order.device.deviceConfig())
    {
        for (const auto &entry : std::as_const(m_config.upgradeCfgs)) {
            if (!m_ownCodes.contains(entry.name)) // the first one counts
                m_ownCodes.insert(entry.name, entry.upgradeCode);
        }
    }

    bool make(VerdictCode &code, QString &errorText)
    {
        describeOrder();
        if (m_order.road == Road::Registers)
            addRegisterFiles();
        else if (!m_order.upload.filePath.isEmpty())
            addUpload();
        else
            addImageFiles();
        addSections();
        m_plan.leftOut = findLeftOut(m_order, m_sent);

        const std::pair<VerdictCode, QString> checks[] = {
            { VerdictCode::NotPlanned, unplannedWish() },
            { VerdictCode::NothingFits, nothingPlanned() },
            { VerdictCode::NotPlanned, unplannedSection() },
            { VerdictCode::PackageRefused, unsendable() },
        };
        for (const auto &[verdictCode, fault] : checks) {
            if (fault.isEmpty())
                continue;
            code = verdictCode;
            errorText = fault;
            return false;
        }
        return true;
    }

private:
    struct ChosenPart {
        quint8 slotId;
        quint16 modelId;
        quint8 boardId;
        QSet<quint32> codes;
    };

    void describeOrder()
    {
        m_plan = Plan();
        m_plan.road = m_order.road;
        m_plan.wish = m_order.wish;
        m_plan.packagePath = m_order.packagePath;
        if (m_order.road == Road::Http)
            m_plan.upload = m_order.upload;
        auto &device = m_plan.device;
        device.address = m_order.address;
        device.modelId = m_config.modelId;
        device.modelName =
            QStringLiteral("%1 (%2)").arg(m_config.name, modelNumber(m_config.modelId));
        device.serial = m_order.serial;
        device.name = m_order.name;
        for (const auto &card : m_order.device.subcards())
            device.cards.push_back(
                { card->slotId(), static_cast<quint16>(card->modelId()), card->boardId() });
    }

    // The board counts for a card only: the device's own sections are on no board.
    quint32 codeOf(const Firmware::UpgradeCfg &unit, const Firmware::UpgradeFileItem &item) const
    {
        if (unit.modelId == m_config.modelId)
            return m_ownCodes.value(item.sectionName, NoSuchSection);
        return static_cast<quint32>(BizModel::InterfaceConfig::instance()->findCodeBySectionName(
            unit.modelId, item.sectionName, item.extendNum));
    }

    void addImageFiles()
    {
        QHash<int, std::vector<ChosenPart>> partsByModel;
        for (const auto &record : m_order.selection.cardInfoParts()) {
            ChosenPart part { record.slotId, record.modelId, record.boardId, {} };
            for (const auto &section : record.section)
                part.codes.insert(section.code);
            partsByModel[record.modelId].push_back(std::move(part));
        }
        for (const auto &unit : m_order.units) {
            const auto parts = partsByModel.constFind(unit.modelId);
            if (parts == partsByModel.constEnd())
                continue;
            for (const auto &part : *parts) {
                for (const auto &item : unit.files)
                    addItem(unit, part, item);
            }
        }
        addDataFiles(partsByModel.value(m_config.modelId));
        m_expected = stampedVersion(fileVersion(m_config, m_order.versions));
    }

    void addItem(const Firmware::UpgradeCfg &unit, const ChosenPart &part,
                 const Firmware::UpgradeFileItem &item)
    {
        if (item.extendNum != 0 && item.extendNum != part.boardId)
            return;
        const quint32 code = codeOf(unit, item);
        if (!part.codes.contains(code))
            return;
        m_renewed.insert({ part.modelId, { part.slotId, quint16(code) } });
        m_sent.items.insert({ item.sectionName, { item.filePath, item.extendNum } });
        const FilePlace place(item.filePath, item.targetPath);
        if (m_sent.places.contains(place))
            return;
        m_sent.places.insert(place);
        PlannedFile file;
        file.section = item.sectionName;
        file.code = static_cast<quint16>(code);
        file.isMainControl = part.modelId == m_config.modelId;
        file.slotId = part.slotId;
        file.modelId = part.modelId;
        file.boardId = part.boardId;
        addFile(file, item.filePath, item.targetPath);
    }

    // The library does not compare them with what is planned already, nor with each other.
    void addDataFiles(const std::vector<ChosenPart> &ownParts)
    {
        const quint32 code = m_ownCodes.value(McuSection, NoSuchSection);
        const bool isMcuChosen =
            std::any_of(ownParts.cbegin(), ownParts.cend(),
                        [code](const ChosenPart &part) { return part.codes.contains(code); });
        if (!isMcuChosen)
            return;
        for (const auto &entry : m_order.dataFilePaths) {
            if (!isMcuDataFile(entry.sourcePath))
                continue;
            const QString path = m_order.packagePath + QDir::separator() + entry.sourcePath;
            m_sent.places.insert({ path, entry.targetPath });
            PlannedFile file;
            file.section = McuSection;
            file.code = static_cast<quint16>(code);
            file.isDataFile = true;
            file.isMainControl = true;
            file.modelId = m_config.modelId;
            addFile(file, path, entry.targetPath);
        }
    }

    void addFile(PlannedFile file, const QString &path, const QString &target)
    {
        const QFileInfo onDisk(path);
        file.file = pathInPackage(path, m_order.packagePath);
        file.target = target;
        file.size = onDisk.isFile() ? onDisk.size() : 0;
        m_plan.files.push_back(std::move(file));
    }

    void addRegisterFiles()
    {
        const auto &units = m_order.listing.units();
        // The first for the model, and of that every file with the label, as the library does.
        const auto unit =
            std::find_if(units.cbegin(), units.cend(), [this](const ListedUnit &candidate) {
                return candidate.problem.isEmpty() && candidate.modelId == m_config.modelId;
            });
        const bool isChosen = !m_order.selection.parts().empty();
        if (unit == units.cend() || !isChosen)
            return;
        m_sent.registerUnit = unit->path;
        m_registerVersion = unit->version;
        m_isRegisterUnitFit =
            std::any_of(m_order.units.cbegin(), m_order.units.cend(),
                        [&](const auto &parsed) { return parsed.path == unit->path; });
        for (const auto &listed : unit->files) {
            if (listed.sectionName != McuSection || !listed.commands.contains(DataCommand)
                || isGoldenFile(listed.fileName))
                continue;
            // The library would find it out behind the writes of the commands before it.
            if (listed.commands.contains(CardCommand) && !listed.commands.contains(DeviceCommand))
                m_packageFault =
                    QStringLiteral("%1 has the command \"%2\" and not \"%3\", without which that "
                                   "cannot be carried out")
                        .arg(pathInPackage(listed.filePath, m_order.packagePath), CardCommand,
                             DeviceCommand);
            m_sent.items.insert({ listed.sectionName, { listed.filePath, listed.boardId } });
            PlannedFile file;
            file.section = McuSection;
            file.code = static_cast<quint16>(m_ownCodes.value(McuSection));
            file.isMainControl = true;
            file.modelId = m_config.modelId;
            m_renewed.insert({ m_config.modelId, { 0, file.code } });
            addFile(file, listed.filePath, {});
        }
        m_expected = isDotted(unit->version) ? unit->version : QString();
    }

    void addUpload()
    {
        const QFileInfo onDisk(m_order.upload.filePath);
        m_plan.upload.filePath = onDisk.absoluteFilePath();
        PlannedFile planned;
        planned.modelId = m_config.modelId;
        planned.isMainControl = true;
        planned.file = m_plan.upload.filePath;
        planned.size = onDisk.isFile() ? onDisk.size() : 0;
        m_plan.files.push_back(planned);
        if (planned.size == 0)
            return;
        QFile file(planned.file);
        if (!file.open(QIODevice::ReadOnly)) {
            m_packageFault = QStringLiteral("%1: %2").arg(planned.file, file.errorString());
            return;
        }
        // Devices may take files of another kind, of which nothing is known.
        UpgradeImage::ImageReader reader(file);
        QString fault;
        if (!reader.readHeader(fault) || !reader.headerFault().isEmpty())
            return;
        if (reader.header().modelId != m_config.modelId) {
            m_packageFault = QStringLiteral("%1 is an image for model %2, and the device is %3")
                                 .arg(planned.file, modelNumber(reader.header().modelId),
                                      modelNumber(m_config.modelId));
        }
        if (reader.header().version != 0)
            m_expected = dotted(reader.header().version);
    }

    void addSections()
    {
        const ToldVersions versions(m_order.versions);
        for (const auto &part : m_order.selection.parts()) {
            for (const auto &offer : part.sections) {
                PlannedSection section;
                section.isMainControl = part.isMainControl;
                section.slotId = part.slotId;
                section.modelId = part.modelId;
                section.type = offer.type;
                section.code = offer.code;
                section.name = offer.name;
                section.versionBefore = versions.find(offer.type, part.slotId, offer.code);
                section.versionExpected = m_expected;
                m_plan.sections.push_back(std::move(section));
            }
        }
    }

    bool isPlanned(const PlannedSection &section) const
    {
        return !m_plan.upload.filePath.isEmpty()
            || m_renewed.contains({ section.modelId, { section.slotId, section.code } });
    }

    QString unplannedWish() const
    {
        QSet<QString> sections;
        QSet<QString> cards;
        for (const auto &section : m_plan.sections) {
            if (!isPlanned(section))
                continue;
            sections.insert(section.name);
            cards.insert(section.isMainControl ? QStringLiteral("main")
                                               : QString::number(section.slotId));
        }
        QStringList sentences;
        for (const auto &name : m_order.wish.sections) {
            if (!sections.contains(name))
                sentences.append(QStringLiteral("The section %1 would not be sent%2")
                                     .arg(quoted(name), explanation(name)));
        }
        for (const auto &card : m_order.wish.cards) {
            if (!cards.contains(card))
                sentences.append(
                    card == QLatin1String("main")
                        ? QStringLiteral("Nothing would be sent for the main control")
                        : QStringLiteral("Nothing would be sent for card %1").arg(quoted(card)));
        }
        return sentences.join(QLatin1String(". "));
    }

    // The first reason that stands in the way; of a section in several units there may be more.
    QString explanation(const QString &sectionName) const
    {
        const LeftOut *best = nullptr;
        for (const auto &leftOut : m_plan.leftOut) {
            if (leftOut.section != sectionName || leftOut.unit.isEmpty())
                continue;
            if (leftOut.reason != LeftOutReason::NotChosen) {
                best = &leftOut;
                break;
            }
            if (!best)
                best = &leftOut;
        }
        if (!best)
            return QStringLiteral(": the package has none of that name");
        return QStringLiteral(", %1: %2").arg(best->file, best->text);
    }

    QString nothingPlanned() const
    {
        return m_plan.files.empty() || m_plan.sections.empty()
            ? QStringLiteral("Nothing in the package would be sent to this device")
            : QString();
    }

    // The device would be told to renew what the image does not hold.
    QString unplannedSection() const
    {
        for (const auto &section : m_plan.sections) {
            if (!isPlanned(section))
                return QStringLiteral("No file would be sent for the section %1%2")
                    .arg(quoted(section.name), explanation(section.name));
        }
        if (m_order.road == Road::Registers && !m_isRegisterUnitFit)
            return QStringLiteral("The unit that would be written by registers is one that does "
                                  "not fit the device: %1")
                .arg(pathInPackage(m_sent.registerUnit, m_order.packagePath));
        return {};
    }

    QString unsendable() const
    {
        return m_packageFault.isEmpty() ? sendingFault(m_plan, m_registerVersion) : m_packageFault;
    }

    const PlanOrder &m_order;
    Plan &m_plan;
    const BizModel::s_DeviceConfig &m_config;
    QHash<QString, quint32> m_ownCodes; // by name, of the device's own model
    SentItems m_sent;
    QSet<QPair<quint16, QPair<quint8, quint16>>> m_renewed; // model, slot and code with a file
    QString m_expected; // version of each section afterwards
    QString m_registerVersion;
    bool m_isRegisterUnitFit = true; // the parse for the device has it, too
    QString m_packageFault; // of the upload, or of a unit's commands
};

} // namespace

bool makePlan(const PlanOrder &order, Plan &plan, VerdictCode &code, QString &errorText)
{
    return Planner(order, plan).make(code, errorText);
}

} // namespace Velmar::Host
