#include "package/leftoutfinder.h"

#include "device/modelnames.h"
#include "package/offer.h"
#include "package/olderservicechoice.h"
#include "package/packagelisting.h"
#include "package/packagerules.h"
#include "package/planner.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QDir>
#include <QHash>

#include <utility>

namespace Velmar::Host {

namespace {

constexpr int ForMainControl = 0; // step types of a unit
constexpr int ForCard = 1;

struct Cause {
    LeftOutReason reason;
    QString text;
};

/*! Follows the upgrade library's rules in its order, to find the one by which something falls. */
class Finder
{
public:
    Finder(const PlanOrder &order, const SentItems &sent)
        : m_order(order)
        , m_sent(sent)
        , m_config(order.device.deviceConfig())
    {
        for (const auto &entry : std::as_const(m_config.upgradeCfgs))
            m_sections[m_config.modelId].insert(entry.name);
        for (const auto &card : order.device.subcards()) {
            const int modelId = static_cast<int>(card->modelId());
            m_boards[modelId].insert(card->boardId());
            const auto sections = BizModel::InterfaceConfig::instance()->findUpgradeCfgByBoardId(
                modelId, card->boardId());
            for (const auto &entry : sections)
                m_sections[modelId].insert(entry.name);
        }
        for (const auto &unit : order.units) {
            for (const auto &item : unit.files)
                m_parsed.insert(keyOf(item));
        }
        const auto offered = offeredParts(order.units, order.device);
        for (const auto &part : offered) {
            for (const auto &section : part.sections) {
                for (const auto &item : section.items)
                    m_offered.insert(keyOf(item));
                if (order.isOlderService && !isOfOlderService(part, section))
                    continue;
                for (const auto &item : section.items)
                    m_renewable.insert(keyOf(item));
            }
        }
        for (const auto &part : order.selection.parts()) {
            for (const auto &section : part.sections) {
                for (const auto &item : section.items)
                    m_chosen.insert(keyOf(item));
            }
        }
        for (const auto &entry : order.dataFilePaths)
            m_places[entry.sourcePath].append(entry.targetPath);
    }

    std::vector<LeftOut> find()
    {
        for (const auto &unit : m_order.listing.units())
            addUnit(unit);
        addUnlistedPlaces();
        return std::move(m_leftOut);
    }

private:
    static ItemKey keyOf(const Firmware::UpgradeFileItem &item)
    {
        return { item.sectionName, { item.filePath, item.extendNum } };
    }
    static ItemKey keyOf(const ListedFile &file)
    {
        return { file.sectionName, { file.filePath, file.boardId } };
    }

    void addUnit(const ListedUnit &unit)
    {
        const auto unitCause = causeOf(unit);
        if (unit.files.isEmpty()) {
            if (unitCause)
                m_leftOut.push_back({ unit.folder, {}, {}, unitCause->reason, unitCause->text });
            return;
        }
        for (const auto &file : unit.files) {
            const QString path = pathInPackage(file.filePath, m_order.packagePath);
            m_listed.insert(path);
            if (isSent(unit, file)) {
                addFurtherPlaces(unit, file, path);
                continue;
            }
            const auto cause = unitCause ? *unitCause : causeOf(unit, file);
            m_leftOut.push_back({ unit.folder, file.sectionName, path, cause.reason, cause.text });
        }
    }

    bool isSent(const ListedUnit &unit, const ListedFile &file) const
    {
        return m_sent.items.contains(keyOf(file))
            && (m_order.road != Road::Registers || unit.path == m_sent.registerUnit);
    }

    std::optional<Cause> causeOf(const ListedUnit &unit) const
    {
        if (!unit.problem.isEmpty())
            return Cause { LeftOutReason::UnreadableUnit,
                           QStringLiteral("The unit cannot be read: %1").arg(unit.problem) };
        if (unit.stepType != ForMainControl && unit.stepType != ForCard)
            return Cause { LeftOutReason::UnknownStep,
                           QStringLiteral("The unit has the step type %1, and is neither for the "
                                          "main control (0) nor for a card (1)")
                               .arg(unit.stepType) };
        if (unit.stepType == ForMainControl) {
            const auto doubled = doubledSection(unit);
            if (doubled)
                return Cause { LeftOutReason::DoubledSection,
                               QStringLiteral("The unit names the section \"%1\" twice, for which "
                                              "it is left out as a whole")
                                   .arg(*doubled) };
        }
        if (unit.modelId == m_config.modelId) {
            if (unit.stepType == ForCard)
                return Cause { LeftOutReason::OtherModel,
                               QStringLiteral("The unit is for a card, and %1 is the device itself")
                                   .arg(modelName(unit.modelId)) };
            return std::nullopt;
        }
        if (m_boards.contains(unit.modelId))
            return std::nullopt;
        for (const auto &card : m_config.subCardConfigs) {
            if (card.modelId == unit.modelId)
                return Cause { LeftOutReason::NoSuchCard,
                               QStringLiteral("The unit is for the card %1, and none is fitted")
                                   .arg(modelName(unit.modelId)) };
        }
        return Cause { LeftOutReason::OtherModel,
                       QStringLiteral("The unit is for %1, and the device is %2")
                           .arg(modelName(unit.modelId), modelName(m_config.modelId)) };
    }

    static std::optional<QString> doubledSection(const ListedUnit &unit)
    {
        QSet<QString> names;
        for (const auto &file : unit.files) {
            if (isGoldenFile(file.fileName))
                continue;
            if (names.contains(file.sectionName))
                return file.sectionName;
            names.insert(file.sectionName);
        }
        return std::nullopt;
    }

    Cause causeOf(const ListedUnit &unit, const ListedFile &file) const
    {
        if (isGoldenFile(file.fileName))
            return { LeftOutReason::GoldenFile,
                     QStringLiteral("A factory file, by its name, which no upgrade sends") };
        const bool isForMain = unit.modelId == m_config.modelId;
        if (file.boardId != 0 && (isForMain || !m_boards[unit.modelId].contains(file.boardId)))
            return { LeftOutReason::UnfittedBoard,
                     isForMain ? QStringLiteral("It is for board %1, and the main control is none")
                                     .arg(file.boardId)
                               : QStringLiteral("It is for board %1 of %2, and none is fitted")
                                     .arg(QString::number(file.boardId), modelName(unit.modelId)) };
        if (!m_sections[unit.modelId].contains(file.sectionName))
            return { LeftOutReason::UnknownSection,
                     QStringLiteral("%1 has no section \"%2\"")
                         .arg(modelName(unit.modelId), file.sectionName) };
        if (file.size < 0)
            return { LeftOutReason::MissingFile, QStringLiteral("The package has no such file") };
        if (m_order.road == Road::Registers && unit.modelId == m_config.modelId
            && file.sectionName == McuSection)
            return registerCause(unit);
        if (!m_parsed.contains(keyOf(file)))
            return unparsedCause(unit);
        if (!m_offered.contains(keyOf(file)))
            return { LeftOutReason::UnknownSection,
                     QStringLiteral("No fitted board of %1 has the section \"%2\" under the code "
                                    "by which it would be ordered")
                         .arg(modelName(unit.modelId), file.sectionName) };
        if (m_order.road == Road::Registers)
            return { LeftOutReason::NotByRegisters,
                     QStringLiteral("Only the main control's \"MCU\" is written by registers") };
        if (!m_renewable.contains(keyOf(file)))
            return { LeftOutReason::NotByOlderService,
                     QStringLiteral("The device's HTTP service renews the main control's and the "
                                    "back plane's MCU alone") };
        return unchosenCause(file);
    }

    Cause registerCause(const ListedUnit &unit) const
    {
        if (!m_sent.registerUnit.isEmpty() && unit.path != m_sent.registerUnit)
            return { LeftOutReason::OtherUnit,
                     QStringLiteral("Another unit for the model stands before it") };
        return { LeftOutReason::NoCommands,
                 QStringLiteral("The unit has no command that sends the file by registers") };
    }

    static Cause unparsedCause(const ListedUnit &unit)
    {
        // An entry for a board that is not fitted takes the first that equals it away with it.
        if (unit.stepType == ForCard)
            return { LeftOutReason::UnfittedBoard,
                     QStringLiteral("The unit names section and file once more, for a board that "
                                    "is not fitted, for which this entry is left out") };
        return { LeftOutReason::UnreadableUnit,
                 QStringLiteral("The upgrade library does not take the unit") };
    }

    Cause unchosenCause(const ListedFile &file) const
    {
        if (m_chosen.contains(keyOf(file)))
            return { LeftOutReason::NotUploaded,
                     QStringLiteral("Another file is uploaded in its place") };
        return { LeftOutReason::NotChosen, QStringLiteral("It was not chosen") };
    }

    void addFurtherPlaces(const ListedUnit &unit, const ListedFile &file, const QString &path)
    {
        if (m_order.road == Road::Registers)
            return;
        const auto places = m_places.value(path);
        for (const auto &place : places) {
            if (m_sent.places.contains({ file.filePath, place }))
                continue;
            m_leftOut.push_back({ unit.folder, file.sectionName, path, LeftOutReason::FurtherTarget,
                                  QStringLiteral("It is for one board, and does not go to \"%1\" "
                                                 "as well")
                                      .arg(place) });
        }
    }

    void addUnlistedPlaces()
    {
        for (const auto &entry : m_order.dataFilePaths) {
            const QString path = entry.sourcePath;
            if (m_listed.contains(path)
                || m_sent.places.contains(
                    { m_order.packagePath + QDir::separator() + path, entry.targetPath }))
                continue;
            const auto cause = causeOfPlace(path);
            m_leftOut.push_back({ {}, {}, path, cause.reason, cause.text });
        }
    }

    Cause causeOfPlace(const QString &path) const
    {
        if (!isMcuDataFile(path))
            return { LeftOutReason::Unused, QStringLiteral("No unit uses it") };
        if (m_order.road == Road::Registers)
            return { LeftOutReason::NotByRegisters,
                     QStringLiteral("Data files are not written by registers") };
        if (!m_order.upload.filePath.isEmpty())
            return { LeftOutReason::NotUploaded,
                     QStringLiteral("Another file is uploaded in its place") };
        return { LeftOutReason::NotChosen,
                 QStringLiteral("It goes with the main control's \"MCU\", which was not chosen") };
    }

    QString modelName(int modelId) const
    {
        return m_order.modelNames ? m_order.modelNames->describe(modelId)
                                  : QStringLiteral("model %1").arg(modelNumber(modelId));
    }

    const PlanOrder &m_order;
    const SentItems &m_sent;
    const BizModel::s_DeviceConfig &m_config;
    QHash<int, QSet<int>> m_boards; // fitted boards by card model
    QHash<int, QSet<QString>> m_sections; // that the library knows of the device, by model
    QSet<ItemKey> m_parsed; // what the library kept of the package
    QSet<ItemKey> m_offered; // what of it fits
    QSet<ItemKey> m_renewable; // what of that the device's service renews
    QSet<ItemKey> m_chosen; // what of that was chosen
    QHash<QString, QStringList> m_places; // by path in the package
    QSet<QString> m_listed; // paths in the package that units name
    std::vector<LeftOut> m_leftOut;
};

} // namespace

QString pathInPackage(const QString &path, const QString &packagePath)
{
    const QString folder = packagePath + QLatin1Char('/');
    QString relative = path.startsWith(folder) ? path.mid(folder.size()) : path;
    // A unit whose folder is the package itself has an empty name between two slashes.
    while (relative.startsWith(QLatin1Char('/')))
        relative.remove(0, 1);
    return QDir::cleanPath(relative);
}

std::vector<LeftOut> findLeftOut(const PlanOrder &order, const SentItems &sent)
{
    return Finder(order, sent).find();
}

} // namespace Velmar::Host
