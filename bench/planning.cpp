#include "pairedrounds.h"

#include "upgradeprocess_p.h"

#include <velmarbizmodel/catalogue.h>
#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>

#include <cstdio>
#include <cstdlib>

namespace {

using namespace Velmar::Firmware;
using Internal::UpgradeProcessPrivate;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;

using FilePaths = QVector<QPair<QString, QString>>;

constexpr quint16 DeviceModel = 0x7701;
constexpr quint16 CardModel = 0x7801;
constexpr int SectionCount = 1000; // few, so that the files are what counts
constexpr int FilesOfUnit = 1000;

// Ten times the files may take this much more than ten times the time, because they no longer fit a
// cache; 10 would be quadratic.
constexpr double LinearLimit = 3.0;

// Planning asks the device's model only, never the device.
class NoLink : public Velmar::BizModel::DeviceLink
{
public:
    bool open(int, QString &) override { return false; }
    void close() override { }
    bool isOpen() const override { return false; }
    Velmar::BizModel::LinkAnswer send(const Velmar::BizModel::LinkRequest &) override { return {}; }
    void pauseHeartbeat(int) override { }
    void restartHeartbeat() override { }
};

QString sectionName(int section)
{
    return QStringLiteral("Section %1").arg(section);
}

std::shared_ptr<Velmar::BizModel::Device> device()
{
    Velmar::BizModel::s_DeviceConfig config;
    config.modelId = DeviceModel;
    for (int i = 0; i < SectionCount; ++i)
        config.upgradeCfgs.append({ sectionName(i), 1, static_cast<unsigned short>(i), 0, 0 });
    return std::make_shared<Velmar::BizModel::Device>(
        config, std::vector<std::shared_ptr<Velmar::BizModel::Subcard>>(),
        std::make_shared<NoLink>());
}

// A catalogue whose one card model has as many sections as the device.
void installCatalogue()
{
    QByteArray sections;
    for (int i = 0; i < SectionCount; ++i) {
        sections += QStringLiteral("%1{\"name\":\"%2\",\"type\":3,\"upgradeCode\":\"0x%3\","
                                   "\"compatibilityCode\":\"0x0001\",\"order\":1}")
                        .arg(QLatin1String(i > 0 ? ",\n" : ""), sectionName(i))
                        .arg(i, 4, 16, QLatin1Char('0'))
                        .toUtf8();
    }
    QString errorText;
    const auto catalogue = Velmar::BizModel::Catalogue::fromJson(
        R"({"catalogueVersion":1,"deviceModels":[],"subCardModels":[{"modelId":"0x7801",)"
        R"("name":"Card","boards":[{"boardId":1,"sections":[)"
            + sections + "]}]}]}",
        QStringLiteral("benchmark"), errorText);
    if (!catalogue) {
        std::fprintf(stderr, "%s\n", qPrintable(errorText));
        std::exit(EXIT_FAILURE);
    }
    catalogue->install();
}

// Units for one model with so many files together, no two of them equal.
QVector<UpgradeCfg> units(int modelId, int fileCount)
{
    QVector<UpgradeCfg> units;
    for (int i = 0; i < fileCount; ++i) {
        if (i % FilesOfUnit == 0) {
            units.append(UpgradeCfg());
            units.last().modelId = modelId;
        }
        UpgradeFileItem item;
        item.sectionName = sectionName(i % SectionCount);
        item.filePath =
            QStringLiteral("/var/lib/host/package/unit%1/file%2.dat").arg(units.size()).arg(i);
        item.targetPath = QStringLiteral("/firmware/unit%1/file%2").arg(units.size()).arg(i);
        units.last().files.append(item);
    }
    return units;
}

// Two cards of the model, all sections chosen: each file is wanted twice and planned once.
std::vector<s_CardInfoParts> cards(quint16 modelId)
{
    s_CardInfoParts card;
    card.modelId = modelId;
    card.boardId = 1;
    for (int i = 0; i < SectionCount; ++i)
        card.section.push_back({ static_cast<std::uint16_t>(i) });
    return { card, card };
}

void plan(UpgradeProcessPrivate &planning, int fileCount)
{
    FilePaths filePaths;
    planning.datDataFilePath(filePaths);
    if (filePaths.size() != fileCount) {
        std::fprintf(stderr, "%d files planned instead of %d\n", filePaths.size(), fileCount);
        std::exit(EXIT_FAILURE);
    }
}

void tenTimesTheFiles(benchmark::State &state, quint16 modelId)
{
    constexpr int Few = 10000;
    constexpr int Many = 100000;
    const auto target = device();
    UpgradeProcessPrivate few(nullptr);
    UpgradeProcessPrivate many(nullptr);
    for (UpgradeProcessPrivate *planning : { &few, &many }) {
        planning->activedDevice = target;
        planning->upgradeParts = cards(modelId);
        planning->upgradeCfgs = units(modelId, planning == &few ? Few : Many);
    }
    PairedRounds::run(
        state, LinearLimit, [&many] { plan(many, Many); },
        [&few] {
            for (int i = 0; i < Many / Few; ++i)
                plan(few, Few);
        });
    state.SetItemsProcessed(state.iterations() * Many);
}

} // namespace

BENCHMARK_CAPTURE(tenTimesTheFiles, own_sections, DeviceModel)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tenTimesTheFiles, card_sections, CardModel)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    installCatalogue();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
