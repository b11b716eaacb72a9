#include "package/plan.h"

#include "device/modelnames.h"
#include "package/packagemanifest.h"
#include "package/sha256.h"

#include <QFile>
#include <QHash>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr std::array<std::pair<LeftOutReason, const char *>, 17> ReasonWords { {
    { LeftOutReason::UnreadableUnit, "unreadable-unit" },
    { LeftOutReason::OtherModel, "other-model" },
    { LeftOutReason::NoSuchCard, "no-such-card" },
    { LeftOutReason::UnfittedBoard, "unfitted-board" },
    { LeftOutReason::UnknownSection, "unknown-section" },
    { LeftOutReason::DoubledSection, "doubled-section" },
    { LeftOutReason::UnknownStep, "unknown-step" },
    { LeftOutReason::GoldenFile, "golden-file" },
    { LeftOutReason::MissingFile, "missing-file" },
    { LeftOutReason::NotChosen, "not-chosen" },
    { LeftOutReason::OtherUnit, "other-unit" },
    { LeftOutReason::NotByRegisters, "not-by-registers" },
    { LeftOutReason::NoCommands, "no-commands" },
    { LeftOutReason::NotByOlderService, "not-by-older-service" },
    { LeftOutReason::FurtherTarget, "further-target" },
    { LeftOutReason::Unused, "unused" },
    { LeftOutReason::NotUploaded, "not-uploaded" },
} };

bool hashFile(PlannedFile &planned, QString &errorText)
{
    constexpr qint64 BlockSize = 1024 * 1024;
    QFile file(planned.file);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        errorText = QStringLiteral("%1: %2").arg(planned.file, file.errorString());
        return false;
    }
    Sha256 hash;
    QByteArray block(BlockSize, Qt::Uninitialized);
    qint64 size = 0;
    qint64 length = 0;
    while ((length = file.read(block.data(), BlockSize)) > 0) {
        hash.add(block.constData(), static_cast<std::size_t>(length));
        size += length;
    }
    if (length < 0) {
        errorText = QStringLiteral("%1: %2").arg(planned.file, file.errorString());
        return false;
    }
    planned.size = size;
    planned.sha256 = hash.result();
    return true;
}

QString partText(bool isMainControl, quint8 slotId)
{
    PartOffer part;
    part.isMainControl = isMainControl;
    part.slotId = slotId;
    return partName(part);
}

QString versionText(const QString &version)
{
    return version.isEmpty() ? QStringLiteral("unknown") : version;
}

void compareDevices(const PlannedDevice &then, const PlannedDevice &now,
                    std::vector<QString> &sentences)
{
    if (then.modelId != now.modelId) {
        sentences.push_back(QStringLiteral("The plan is for a device of model %1, and this is %2")
                                .arg(modelNumber(then.modelId), modelNumber(now.modelId)));
    }
    if (then.serial != now.serial) {
        sentences.push_back(
            QStringLiteral("The plan is for the device with serial \"%1\", and this is \"%2\"")
                .arg(then.serial, now.serial));
    }
    QHash<int, PlannedCard> gone;
    for (const auto &card : then.cards)
        gone.insert(card.slotId, card);
    for (const auto &card : now.cards) {
        const auto former = gone.find(card.slotId);
        if (former == gone.end()) {
            sentences.push_back(QStringLiteral("Card %1 is new").arg(card.slotId));
            continue;
        }
        if (former->modelId != card.modelId || former->boardId != card.boardId) {
            sentences.push_back(QStringLiteral("Card %1 was model %2, board %3, and is model %4, "
                                               "board %5")
                                    .arg(QString::number(card.slotId), modelNumber(former->modelId),
                                         QString::number(former->boardId),
                                         modelNumber(card.modelId), QString::number(card.boardId)));
        }
        gone.erase(former);
    }
    for (const auto &card : then.cards) {
        if (gone.contains(card.slotId))
            sentences.push_back(QStringLiteral("Card %1 is gone").arg(card.slotId));
    }
}

using SectionKey = std::pair<int, quint16>; // slot, −1 for the main control, and code

SectionKey keyOf(const PlannedSection &section)
{
    return { section.isMainControl ? -1 : section.slotId, section.code };
}

QString sectionText(const PlannedSection &section)
{
    return QStringLiteral("\"%1\" of %2")
        .arg(section.name, partText(section.isMainControl, section.slotId));
}

void compareSections(const std::vector<PlannedSection> &then,
                     const std::vector<PlannedSection> &now, std::vector<QString> &sentences)
{
    QHash<SectionKey, const PlannedSection *> gone;
    for (const auto &section : then)
        gone.insert(keyOf(section), &section);
    for (const auto &section : now) {
        const auto *former = gone.take(keyOf(section));
        if (!former) {
            sentences.push_back(
                QStringLiteral("Section %1 is not in the plan").arg(sectionText(section)));
        } else if (former->versionBefore != section.versionBefore) {
            sentences.push_back(QStringLiteral("Section %1 had version %2, and has %3")
                                    .arg(sectionText(section), versionText(former->versionBefore),
                                         versionText(section.versionBefore)));
        } else if (former->versionExpected != section.versionExpected) {
            sentences.push_back(QStringLiteral("Section %1 was to get version %2, and would get %3")
                                    .arg(sectionText(section), versionText(former->versionExpected),
                                         versionText(section.versionExpected)));
        }
    }
    for (const auto &section : then) {
        if (gone.contains(keyOf(section)))
            sentences.push_back(
                QStringLiteral("Section %1 would not be renewed").arg(sectionText(section)));
    }
}

// What a file given for the upload is called does not count: its content does.
QString nameOf(const PlannedFile &file, const Plan &plan)
{
    return plan.upload.filePath.isEmpty() ? file.file : QStringLiteral("the file to upload");
}

void compareFiles(const Plan &then, const Plan &now, std::vector<QString> &sentences)
{
    const auto before = sentences.size();
    QHash<QString, QByteArray> gone;
    for (const auto &file : then.files)
        gone.insert(nameOf(file, then), file.sha256);
    QHash<QString, bool> told;
    for (const auto &file : now.files) {
        const QString name = nameOf(file, now);
        if (told.contains(name))
            continue;
        told.insert(name, true);
        const auto former = gone.find(name);
        if (former == gone.end()) {
            sentences.push_back(QStringLiteral("File %1 is not in the plan").arg(name));
            continue;
        }
        if (*former != file.sha256)
            sentences.push_back(QStringLiteral("File %1 has changed").arg(name));
        gone.erase(former);
    }
    for (const auto &file : then.files) {
        if (gone.remove(nameOf(file, then)) > 0)
            sentences.push_back(
                QStringLiteral("File %1 would not be sent").arg(nameOf(file, then)));
    }
    const auto isSamePlace = [&](const PlannedFile &left, const PlannedFile &right) {
        return nameOf(left, then) == nameOf(right, now) && left.target == right.target;
    };
    if (sentences.size() == before
        && !std::equal(then.files.cbegin(), then.files.cend(), now.files.cbegin(), now.files.cend(),
                       isSamePlace)) {
        sentences.push_back(QStringLiteral("The files would go to other places on the device, or "
                                           "in another order"));
    }
    if (sentences.size() == before && then.packageDigest != now.packageDigest) {
        sentences.push_back(
            QStringLiteral("The package has changed, although not in a file that is sent"));
    }
}

} // namespace

QString leftOutWord(LeftOutReason reason)
{
    for (const auto &[code, word] : ReasonWords) {
        if (code == reason)
            return QString::fromLatin1(word);
    }
    return {};
}

std::optional<LeftOutReason> leftOutReasonOf(const QString &word)
{
    for (const auto &[code, known] : ReasonWords) {
        if (word == QLatin1String(known))
            return code;
    }
    return std::nullopt;
}

qint64 Plan::totalSize() const
{
    return std::accumulate(files.cbegin(), files.cend(), qint64(0),
                           [](qint64 sum, const PlannedFile &file) { return sum + file.size; });
}

bool Plan::addHashes(const PackageManifest &manifest, QString &errorText)
{
    for (auto &planned : files) {
        if (!upload.filePath.isEmpty()) {
            if (!hashFile(planned, errorText))
                return false;
            continue;
        }
        const auto *known = manifest.find(planned.file);
        if (!known) {
            errorText = QStringLiteral("There is no file %1 in the package").arg(planned.file);
            return false;
        }
        planned.size = known->size;
        planned.sha256 = known->sha256;
    }
    packageDigest = manifest.digest();
    return true;
}

std::vector<QString> Plan::differences(const Plan &now) const
{
    std::vector<QString> sentences;
    if (road != now.road) {
        sentences.push_back(QStringLiteral("The plan is for the road \"%1\", and this run takes "
                                           "\"%2\"")
                                .arg(roadWord(road), roadWord(now.road)));
    }
    compareDevices(device, now.device, sentences);
    compareSections(sections, now.sections, sentences);
    compareFiles(*this, now, sentences);
    return sentences;
}

} // namespace Velmar::Host
