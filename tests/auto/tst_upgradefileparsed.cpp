#include "upgradefileparsed.h"
#include "upgradefileparsed_p.h"

#include "datafilepathconfig.h"
#include "imageconfig.h"
#include "packageconfig.h"
#include "support/fakedevice.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"
#include "support/translationrecorder.h"

#include <QtTest>

#include <QPointer>

#include <memory>
#include <random>

using namespace Velmar::Firmware;
using Velmar::BizModel::Subcard;
using Velmar::Firmware::Internal::UpgradeFileParsedPrivate;

Q_DECLARE_METATYPE(Velmar::Firmware::UpgradeFileItem)

namespace {

// Of the built-in catalogue. The controller has the sections MCU, FPGA, Kernel, fileVersion and
// MCU_Back. The input card has MCU, FPGA and EDID on board 1, FPGA and SDI on board 2.
constexpr unsigned short Controller = 0x7701;
constexpr unsigned short OtherController = 0x7702;
constexpr unsigned short InputCard = 0x7802;
constexpr unsigned short OutputCard = 0x7811;
constexpr unsigned short UnknownCard = 0x7FFF;

const QString Context = QStringLiteral("Velmar::Firmware::Internal::UpgradeFileParsedPrivate");

using Texts = QVector<QPair<QString, QString>>;

/*! A parse and what came of it; frees what the parser leaves behind. */
class Parse : public QObject
{
public:
    Parse(const QString &path, bool isImageFile, bool isGivenModel = false,
          unsigned short modelId = 0, unsigned char dataPathMode = 0)
        : m_parser(new UpgradeFileParsed(path, isImageFile, isGivenModel, modelId, dataPathMode))
        , m_worker(UpgradeFileParsedPrivate::get(m_parser.get()))
    {
        connect(
            m_parser.get(), &UpgradeFileParsed::signalParsedUpgradeFileFinished, this,
            [this](bool result, const QString &errMsg) { ends.append(qMakePair(result, errMsg)); });
    }
    ~Parse() override
    {
        m_worker->wait();
        delete m_worker;
    }

    UpgradeFileParsed &parser() { return *m_parser; }
    UpgradeFileParsedPrivate &worker() { return *m_worker; }

    // False if no end was told.
    bool run()
    {
        const int before = ends.size();
        m_parser->startParseFile();
        if (!QTest::qWaitFor([this, before] { return ends.size() > before; }))
            return false;
        m_worker->wait();
        QCoreApplication::processEvents();
        m_parser->upgradeFileParam(cfgs, dataFilePaths, sections);
        return ends.size() == before + 1;
    }

    // Each unit with its items: section, file below the package, target and board.
    QString units(const QString &folder) const
    {
        QStringList units;
        for (const UpgradeCfg &cfg : cfgs) {
            QStringList items;
            for (const UpgradeFileItem &item : cfg.files) {
                QString text = item.sectionName + u'=' + item.filePath.mid(folder.size() + 1);
                if (!item.targetPath.isNull())
                    text += u'>' + item.targetPath;
                if (item.extendNum != 0)
                    text += u'#' + QString::number(item.extendNum);
                items.append(text);
            }
            units.append(QString::number(cfg.modelId, 16) + u'[' + items.join(u' ') + u']');
        }
        return units.join(u' ');
    }

    QString sectionNames() const
    {
        QStringList names;
        for (const auto &[modelId, name] : sections)
            names.append(QString::number(modelId, 16) + u':' + name);
        return names.join(u' ');
    }

    QVector<QPair<bool, QString>> ends;
    QVector<UpgradeCfg> cfgs;
    QVector<DataFilePath> dataFilePaths;
    QVector<QPair<int, QString>> sections;

private:
    std::unique_ptr<UpgradeFileParsed> m_parser;
    UpgradeFileParsedPrivate *const m_worker;
};

/*! A parse that finds no reader for its package. */
class ReaderlessParse : public UpgradeFileParsedPrivate
{
public:
    using UpgradeFileParsedPrivate::UpgradeFileParsedPrivate;
    UpgradeConfig *upgradeConfig() override { return nullptr; }
};

UpgradeFileItem item(const QString &section, int extendNum, const QString &file = {})
{
    UpgradeFileItem made;
    made.sectionName = section;
    made.filePath = file;
    made.extendNum = extendNum;
    return made;
}

// Sections and boards, as in "MCU0 FPGA3".
QString listed(const QVector<UpgradeFileItem> &items)
{
    QStringList texts;
    for (const UpgradeFileItem &each : items)
        texts.append(each.sectionName + QString::number(each.extendNum));
    return texts.join(u' ');
}

} // namespace

class tst_UpgradeFileParsed : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_builder = std::make_unique<PackageBuilder>(); }
    void cleanup()
    {
        PackageConfig::destroyInstance();
        ImageConfig::destroyInstance();
        DataFilePathConfig::destroyInstance();
    }

    void metaObject()
    {
        const QMetaObject &parser = UpgradeFileParsed::staticMetaObject;
        QCOMPARE(parser.superClass(), &QObject::staticMetaObject);
        QCOMPARE(parser.methodCount() - parser.methodOffset(), 1);
        QCOMPARE(parser.method(parser.methodOffset()).methodSignature(),
                 QByteArray("signalParsedUpgradeFileFinished(bool,QString)"));
        const QMetaObject &worker = UpgradeFileParsedPrivate::staticMetaObject;
        QCOMPARE(QString::fromLatin1(worker.className()), Context);
        QCOMPARE(worker.superClass(), &QThread::staticMetaObject);
        QCOMPARE(worker.methodCount(), worker.methodOffset());
        QCOMPARE(worker.propertyCount(), worker.propertyOffset());
    }

    void parameters()
    {
        Parse parse(QStringLiteral("a"), true, true, 7, 1);
        QVERIFY(!parse.parser().parent());
        QCOMPARE(parse.worker().q, &parse.parser());
        QCOMPARE(parse.worker().path, QStringLiteral("a"));
        QCOMPARE(parse.worker().isImageFile, true);
        QCOMPARE(parse.worker().isGivenModel, true);
        QCOMPARE(parse.worker().modelId, static_cast<unsigned short>(7));
        QCOMPARE(parse.worker().dataPathMode, static_cast<unsigned char>(1));

        parse.parser().initParam(QStringLiteral("b"), false, false, 8, 2);

        QCOMPARE(parse.worker().path, QStringLiteral("b"));
        QCOMPARE(parse.worker().isImageFile, false);
        QCOMPARE(parse.worker().isGivenModel, false);
        QCOMPARE(parse.worker().modelId, static_cast<unsigned short>(8));
        QCOMPARE(parse.worker().dataPathMode, static_cast<unsigned char>(2));
    }

    void choiceOfReader()
    {
        QCOMPARE(Parse(QString(), true).worker().upgradeConfig(), ImageConfig::instance());
        QCOMPARE(Parse(QString(), false).worker().upgradeConfig(), PackageConfig::instance());
    }

    void noReader()
    {
        UpgradeFileParsed parser(QString(), false, false, 0, 0);
        delete UpgradeFileParsedPrivate::get(&parser);
        ReaderlessParse worker(&parser);
        Texts ends;
        connect(&parser, &UpgradeFileParsed::signalParsedUpgradeFileFinished, this,
                [&ends](bool result, const QString &errMsg) {
                    ends.append({ QVariant(result).toString(), errMsg });
                });
        const LogRecorder log;
        const TranslationRecorder translator;

        worker.run();

        QCOMPARE(log.lines(),
                 (QVector<LogRecorder::Line> {
                     { QtWarningMsg, QStringLiteral("upgrade config ptr is nullptr") } }));
        QCOMPARE(ends,
                 (Texts { { QStringLiteral("false"),
                            QStringLiteral("\u00abFailed to parse upgrade config file.") } }));
        QCOMPARE(translator.asked(),
                 (Texts { { Context, QStringLiteral("Failed to parse upgrade config file.") } }));
    }

    void failures_data()
    {
        QTest::addColumn<bool>("isImageFile");
        QTest::addColumn<QStringList>("log"); // %1: the path
        QTest::addColumn<QString>("errMsg");

        const QString unreadable = QStringLiteral(
            "Failed to parse upgrade config file,Please check the validity of the upgrade file.");
        const QString noItems =
            QStringLiteral("There are no upgrade items available in the upgrade package.");
        const QString noMatch = QStringLiteral(
            "The upgrade package configuration does not match the device configuration.");
        QTest::newRow("no package")
            << false
            << QStringList(QStringLiteral("Failed to parse upgrade config file:File is not exist"))
            << unreadable;
        QTest::newRow("no index") << false
                                  << QStringList(QStringLiteral(
                                         "Failed to parse upgrade config file:PackageCfg file is "
                                         "not exist"))
                                  << unreadable;
        QTest::newRow("no image") << true
                                  << QStringList { QStringLiteral("Fail to open file: %1"),
                                                   QStringLiteral(
                                                       "Failed to parse upgrade config file:") }
                                  << unreadable;
        QTest::newRow("no items") << false
                                  << QStringList(QStringLiteral(
                                         "There are no upgrade items available in the upgrade "
                                         "package,file path:%1"))
                                  << noItems;
        QTest::newRow("no match") << false << QStringList(noMatch) << noMatch;
    }
    void failures()
    {
        QFETCH(bool, isImageFile);
        QFETCH(QStringList, log);
        QFETCH(QString, errMsg);
        const QByteArray row(QTest::currentDataTag());
        const FakeDevice device(Controller);
        if (row == "no items")
            QVERIFY(m_builder->index({ QStringLiteral("none") }));
        if (row == "no match") {
            QVERIFY(writeUnit("u", OtherController, 0, { "MCU:m.dat" }));
            QVERIFY(m_builder->index({ QStringLiteral("u") }));
        }
        const QString path = row == "no package" || row == "no image"
            ? m_builder->path(QStringLiteral("none"))
            : m_builder->path();
        QVERIFY(m_builder->paths({ { QStringLiteral("a"), QStringLiteral("/a") } }));
        Parse parse(path, isImageFile);
        const LogRecorder recorder;
        const TranslationRecorder translator;

        QVERIFY(parse.run());

        QCOMPARE(recorder.texts(QtWarningMsg), log.replaceInStrings(QStringLiteral("%1"), path));
        QCOMPARE(recorder.lines().size(), log.size());
        QCOMPARE(parse.ends.first(), qMakePair(false, QChar(0xAB) + errMsg));
        QCOMPARE(translator.asked(), (Texts { { Context, errMsg } }));
        QVERIFY(parse.cfgs.isEmpty());
        QVERIFY(parse.dataFilePaths.isEmpty());
        QVERIFY(parse.sections.isEmpty());
    }

    void imageYieldsNoResults()
    {
        const FakeDevice device(Controller);
        const QByteArray text =
            QByteArray(R"([{"mainControl":[{"modelId":30465,"sections":[{"code":257}]}]}])")
                .toBase64();
        QVERIFY(m_builder->file(QStringLiteral("image"),
                                QByteArray(1, char(text.size())) + QByteArray(3, '\0') + text));
        QVERIFY(m_builder->paths({ { QStringLiteral("a"), QStringLiteral("/a") } }));
        Parse parse(m_builder->path(QStringLiteral("image")), true);
        const LogRecorder log;

        QVERIFY(parse.run());

        QCOMPARE(parse.ends.first(), qMakePair(true, QString()));
        QVERIFY(parse.cfgs.isEmpty());
        QVERIFY(parse.dataFilePaths.isEmpty());
        QVERIFY(parse.sections.isEmpty());
        QVERIFY(log.lines().isEmpty());
    }

    void signalComesFromTheWorker()
    {
        const FakeDevice device(Controller);
        QVERIFY(writeUnit("u", Controller, 0, { "MCU:m.dat" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        Parse parse(m_builder->path(), false);
        QThread *emitter = nullptr;
        connect(
            &parse.parser(), &UpgradeFileParsed::signalParsedUpgradeFileFinished, this,
            [&emitter] { emitter = QThread::currentThread(); }, Qt::DirectConnection);

        QVERIFY(parse.run());

        QCOMPARE(emitter, &parse.worker());
    }

    // A device with an input card of board 1 in it. All files but those called "none" are there.
    void matching_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<int>("stepType");
        QTest::addColumn<QStringList>("items"); // section, file and board
        QTest::addColumn<QString>("units"); // empty: nothing matches
        QTest::addColumn<QString>("sections");

        const auto row = [](const char *name, int modelId, int stepType, const char *items,
                            const char *units, const char *sections) {
            QTest::newRow(name) << modelId << stepType
                                << QString::fromUtf8(items).split(u' ', Qt::SkipEmptyParts)
                                << QString::fromUtf8(units) << QString::fromUtf8(sections);
        };
        row("main unit", Controller, 0, "MCU:m.dat FPGA:f.bin", "7701[MCU=u/m.dat FPGA=u/f.bin]",
            "7701:MCU 7701:FPGA");
        row("main unit without files", Controller, 0, "", "", "");
        row("main unit with unknown sections", Controller, 0, "EDID:e FPGA:f mcu:m Kernel2:k",
            "7701[FPGA=u/f]", "7701:FPGA");
        row("main unit with unknown sections only", Controller, 0, "EDID:e", "", "");
        row("main unit with a missing file", Controller, 0, "MCU:none FPGA:f", "7701[FPGA=u/f]",
            "7701:FPGA");
        row("main unit with missing files only", Controller, 0, "MCU:none FPGA:none", "", "");
        row("main unit with a section twice", Controller, 0, "MCU:m FPGA:f MCU:m2", "", "");
        row("main unit with a section twice, once without its file", Controller, 0,
            "MCU:m FPGA:f MCU:none", "", "");
        row("main unit with an unknown section twice", Controller, 0, "MCU:m EDID:e EDID:e", "",
            "");
        row("main unit with sections that differ in case", Controller, 0, "MCU:m mcu:m",
            "7701[MCU=u/m]", "7701:MCU");
        row("main unit keeps its boards", Controller, 0, "MCU:m:9", "7701[MCU=u/m#9]", "7701:MCU");
        row("main unit for another model", OtherController, 0, "MCU:m", "", "");
        row("main unit for a model that is the device's in its low 16 bits", 0x17701, 0, "MCU:m",
            "", "");
        row("main unit for the model of a fitted card", InputCard, 0, "MCU:m EDID:e SDI:s",
            "7802[MCU=u/m EDID=u/e]", "7802:MCU 7802:EDID");
        row("sub-card unit", InputCard, 1, "MCU:m EDID:e", "7802[MCU=u/m EDID=u/e]",
            "7802:MCU 7802:EDID");
        row("sub-card unit with a section twice", InputCard, 1, "MCU:m EDID:e MCU:m2",
            "7802[MCU=u/m EDID=u/e MCU=u/m2]", "7802:MCU 7802:EDID 7802:MCU");
        row("sub-card unit with a section of a board that is not fitted", InputCard, 1,
            "SDI:s FPGA:f", "7802[FPGA=u/f]", "7802:FPGA");
        row("sub-card unit with items for boards", InputCard, 1, "FPGA:f2:2 FPGA:f1:1 FPGA:f0:0",
            "7802[FPGA=u/f1#1 FPGA=u/f0]", "7802:FPGA 7802:FPGA");
        row("sub-card unit with items for other boards only", InputCard, 1, "FPGA:f:2 FPGA:g:3", "",
            "");
        row("sub-card unit with one file for two boards", InputCard, 1, "FPGA:f:1 FPGA:f:2",
            "7802[FPGA=u/f#2]", "7802:FPGA");
        row("sub-card unit for the device itself", Controller, 1, "MCU:m", "", "");
        row("sub-card unit for a card that is not fitted", OutputCard, 1, "MCU:m", "", "");
        row("sub-card unit for a fitted card that no catalogue knows", UnknownCard, 1, "MCU:m", "",
            "");
        row("sub-card unit for a model that is a card's in its low 16 bits", 0x17802, 1, "MCU:m",
            "", "");
        row("unit for nothing known", Controller, 2, "MCU:m", "", "");
        row("unit of a negative kind", InputCard, -1, "MCU:m", "", "");
    }
    void matching()
    {
        QFETCH(int, modelId);
        QFETCH(int, stepType);
        QFETCH(QStringList, items);
        QFETCH(QString, units);
        const FakeDevice device(Controller,
                                { Subcard(InputCard, 1, 1), Subcard(UnknownCard, 2, 1) });
        QVERIFY(writeUnit("u", modelId, stepType, items));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        Parse parse(m_builder->path(), false);
        const LogRecorder log;

        QVERIFY(parse.run());

        QCOMPARE(parse.units(m_builder->path()), units);
        QTEST(parse.sectionNames(), "sections");
        QCOMPARE(parse.ends.first().first, !units.isEmpty());
        QCOMPARE(log.lines().isEmpty(), !units.isEmpty());
    }

    void unitsKeepTheirOrder()
    {
        const FakeDevice device(
            Controller,
            { Subcard(InputCard, 1, 2), Subcard(InputCard, 2, 1), Subcard(OutputCard, 3, 1) });
        QVERIFY(writeUnit("out", OutputCard, 1, { "FPGA:f" }));
        QVERIFY(writeUnit("other", OtherController, 0, { "MCU:m" }));
        QVERIFY(writeUnit("in", InputCard, 1, { "MCU:m:1", "SDI:s:2" }));
        QVERIFY(writeUnit("main", Controller, 0, { "Kernel:k", "MCU:m" }));
        QVERIFY(
            m_builder->index({ QStringLiteral("out"), QStringLiteral("other"), QStringLiteral("in"),
                               QStringLiteral("main"), QStringLiteral("out") }));
        Parse parse(m_builder->path(), false);

        QVERIFY(parse.run());

        QCOMPARE(parse.units(m_builder->path()),
                 QStringLiteral("7811[FPGA=out/f] 7802[MCU=in/m#1 SDI=in/s#2] "
                                "7701[Kernel=main/k MCU=main/m] 7811[FPGA=out/f]"));
        QCOMPARE(parse.sectionNames(),
                 QStringLiteral("7811:FPGA 7802:MCU 7802:SDI 7701:Kernel 7701:MCU 7811:FPGA"));
    }

    void deviceWithoutSections()
    {
        Velmar::BizModel::s_DeviceConfig config;
        config.modelId = Controller;
        const FakeDevice device(config);
        QVERIFY(writeUnit("u", Controller, 0, { "MCU:m" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        Parse parse(m_builder->path(), false);
        const LogRecorder log;

        QVERIFY(parse.run());

        QCOMPARE(parse.ends.first().first, false);
        QStringList labels;
        parse.worker().sectionsFileLabel(Controller, labels);
        QVERIFY(labels.isEmpty());
    }

    void noDevice_data()
    {
        QTest::addColumn<int>("stepType");
        QTest::addColumn<QStringList>("log");
        const QString noMatch = QStringLiteral(
            "The upgrade package configuration does not match the device configuration.");
        QTest::newRow("main unit")
            << 0 << QStringList { QStringLiteral("activedDevice is nullptr"), noMatch };
        QTest::newRow("sub-card unit") << 1 << QStringList { noMatch };
    }
    void noDevice()
    {
        QFETCH(int, stepType);
        FakeDevice device(Controller);
        device.expire();
        QVERIFY(writeUnit("u", Controller, stepType, { "MCU:m" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        Parse parse(m_builder->path(), false);
        const LogRecorder log;

        QVERIFY(parse.run());

        QTEST(log.texts(QtWarningMsg), "log");
        QCOMPARE(parse.ends.first().first, false);
    }

    void labels_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<QString>("expected");
        QTest::newRow("device") << int(Controller)
                                << QStringLiteral("MCU FPGA Kernel fileVersion MCU_Back");
        QTest::newRow("boards in slot order, names not made unique")
            << int(InputCard) << QStringLiteral("FPGA SDI MCU FPGA EDID");
        QTest::newRow("card that is not fitted") << int(OutputCard) << QString();
        QTest::newRow("card that no catalogue knows") << int(UnknownCard) << QString();
        QTest::newRow("model -1") << -1 << QString();
    }
    void labels()
    {
        QFETCH(int, modelId);
        const FakeDevice device(Controller,
                                { Subcard(InputCard, 1, 2), Subcard(InputCard, 2, 1),
                                  Subcard(UnknownCard, 3, 1), Subcard(0xFFFFFFFF, 4, 1) });
        Parse parse(QString(), false);
        QStringList labels;

        parse.worker().sectionsFileLabel(modelId, labels);

        QTEST(labels.join(u' '), "expected");
    }

    void givenModel_data()
    {
        QTest::addColumn<int>("givenModel");
        QTest::addColumn<int>("modelId");
        QTest::addColumn<int>("stepType");
        QTest::addColumn<QString>("units");
        QTest::newRow("unit for the model") << int(OtherController) << int(OtherController) << 0
                                            << QStringLiteral("7702[MCU=u/m RootFS=u/r]");
        QTest::newRow("unit for the model of the device in use")
            << int(OtherController) << int(Controller) << 0 << QString();
        QTest::newRow("unit for a model that is the same in its low 16 bits")
            << int(OtherController) << 0x17702 << 0 << QString();
        QTest::newRow("sub-card unit")
            << int(OtherController) << int(OtherController) << 1 << QString();
        QTest::newRow("sub-card unit for a card in the device in use")
            << int(OtherController) << int(InputCard) << 1 << QString();
        QTest::newRow("model that no catalogue knows") << 0x7FFE << 0x7FFE << 0 << QString();
    }
    void givenModel()
    {
        QFETCH(int, givenModel);
        QFETCH(int, modelId);
        QFETCH(int, stepType);
        QFETCH(QString, units);
        const FakeDevice device(Controller, { Subcard(InputCard, 1, 1) });
        QVERIFY(writeUnit("u", modelId, stepType, { "MCU:m", "RootFS:r" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        Parse parse(m_builder->path(), false, true, static_cast<unsigned short>(givenModel));
        const LogRecorder log;

        QVERIFY(parse.run());

        QCOMPARE(parse.units(m_builder->path()), units);
        QCOMPARE(parse.ends.first().first, !units.isEmpty());
        // No device was asked for.
        QCOMPARE(log.lines().size(), units.isEmpty() ? 1 : 0);
    }

    // A host without a device can look a package through.
    void givenModelNeedsNoDevice()
    {
        QVERIFY(writeUnit("u", Controller, 0, { "MCU:m" }));
        QVERIFY(writeUnit("c", InputCard, 1, { "MCU:m" }));
        QVERIFY(m_builder->index({ QStringLiteral("u"), QStringLiteral("c") }));
        Parse parse(m_builder->path(), false, true, Controller);
        const LogRecorder log;

        QVERIFY(parse.run());

        QVERIFY(parse.ends.first().first);
        QVERIFY(log.lines().isEmpty());
    }

    void dataPathMode_data()
    {
        QTest::addColumn<bool>("isGivenModel");
        QTest::addColumn<int>("dataPathMode");
        QTest::addColumn<bool>("isRead");
        QTest::newRow("device in use, 0") << false << 0 << true;
        QTest::newRow("device in use, 2") << false << 2 << true;
        QTest::newRow("given model, 0") << true << 0 << false;
        QTest::newRow("given model, 1") << true << 1 << true;
        QTest::newRow("given model, 2") << true << 2 << false;
        QTest::newRow("given model, 255") << true << 255 << false;
    }
    void dataPathMode()
    {
        QFETCH(bool, isGivenModel);
        QFETCH(int, dataPathMode);
        QFETCH(bool, isRead);
        const FakeDevice device(Controller);
        QVERIFY(writeUnit("u", Controller, 0, { "MCU:m" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QVERIFY(m_builder->paths({ { QStringLiteral("u/m"), QStringLiteral("/m") } }));
        Parse parse(m_builder->path(), false, isGivenModel, Controller,
                    static_cast<unsigned char>(dataPathMode));

        QVERIFY(parse.run());

        QCOMPARE(parse.ends.first(), qMakePair(true, QString()));
        QCOMPARE(parse.dataFilePaths.size(), isRead ? 1 : 0);
        QCOMPARE(parse.units(m_builder->path()),
                 isRead ? QStringLiteral("7701[MCU=u/m>/m]") : QStringLiteral("7701[MCU=u/m]"));
        QCOMPARE(parse.cfgs.first().files.first().targetPath.isNull(), !isRead);
    }

    void targetPaths_data()
    {
        QTest::addColumn<QStringList>("items");
        QTest::addColumn<QByteArray>("paths"); // null: no file
        QTest::addColumn<int>("entries");
        QTest::addColumn<QString>("units");
        QTest::addColumn<QString>("sections");

        const auto row = [](const char *name, const char *items, const QByteArray &paths,
                            int entries, const char *units, const char *sections) {
            QTest::newRow(name) << QString::fromUtf8(items).split(u' ') << paths << entries
                                << QString::fromUtf8(units) << QString::fromUtf8(sections);
        };
        const QByteArray twice("<Velmar><F><SrcPath>u/f</SrcPath><DestPath>/1</DestPath></F>"
                               "<F><SrcPath>u/m</SrcPath><DestPath>/m</DestPath></F>"
                               "<F><SrcPath>u/f</SrcPath><DestPath>/2</DestPath></F>"
                               "<F><SrcPath>u/e</SrcPath><DestPath>/e</DestPath></F>"
                               "<F><SrcPath>u/f</SrcPath><DestPath>/3</DestPath></F>"
                               "<F><SrcPath>u/e</SrcPath><DestPath>/e</DestPath></F></Velmar>");
        row("for any board to each place, further ones at the end", "FPGA:f MCU:m EDID:e", twice, 6,
            "7802[FPGA=u/f>/1 MCU=u/m>/m EDID=u/e>/e FPGA=u/f>/2 FPGA=u/f>/3 EDID=u/e>/e]",
            "7802:FPGA 7802:MCU 7802:EDID");
        row("for one board to the first place", "FPGA:f:1 MCU:m:1", twice, 6,
            "7802[FPGA=u/f>/1#1 MCU=u/m>/m#1]", "7802:FPGA 7802:MCU");
        row("one file for any board and for one", "FPGA:f:1 FPGA:f", twice, 6,
            "7802[FPGA=u/f>/1#1 FPGA=u/f>/1 FPGA=u/f>/2 FPGA=u/f>/3]", "7802:FPGA 7802:FPGA");
        row("files without a place", "FPGA:F MCU:x", twice, 6, "7802[FPGA=u/F MCU=u/x]",
            "7802:FPGA 7802:MCU");
        row("no path file", "FPGA:f", QByteArray(), 0, "7802[FPGA=u/f]", "7802:FPGA");
        row("path file without entries", "FPGA:f", "<Velmar/>", 0, "7802[FPGA=u/f]", "7802:FPGA");
        row("path file that is no XML", "FPGA:f", "Velmar", 0, "7802[FPGA=u/f]", "7802:FPGA");
        row("broken path file: the entries before the fault count", "FPGA:f MCU:m",
            "<Velmar><F><SrcPath>u/f</SrcPath><DestPath>/1</DestPath></F><F/>"
            "<F><SrcPath>u/m</SrcPath><DestPath>/m</DestPath></F></Velmar>",
            1, "7802[FPGA=u/f>/1 MCU=u/m]", "7802:FPGA 7802:MCU");
        row("empty target", "FPGA:f", "<Velmar><F><SrcPath>u/f</SrcPath><DestPath/></F></Velmar>",
            1, "7802[FPGA=u/f>]", "7802:FPGA");
    }
    void targetPaths()
    {
        QFETCH(QStringList, items);
        QFETCH(QByteArray, paths);
        const FakeDevice device(Controller, { Subcard(InputCard, 1, 1) });
        QVERIFY(writeUnit("u", InputCard, 1, items));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        if (!paths.isNull())
            QVERIFY(m_builder->file(QStringLiteral("DataFilPathCfg.xml"), paths));
        Parse parse(m_builder->path(), false);
        const LogRecorder log;

        QVERIFY(parse.run());

        QCOMPARE(parse.ends.first(), qMakePair(true, QString()));
        QTEST(parse.dataFilePaths.size(), "entries");
        QTEST(parse.units(m_builder->path()), "units");
        QTEST(parse.sectionNames(), "sections");
        QVERIFY(log.lines().isEmpty());
    }

    void packagePathGoesWhereverItStands()
    {
        const FakeDevice device(Controller);
        const QString nested = QStringLiteral("u") + m_builder->path() + QStringLiteral("/m");
        QVERIFY(m_builder->file(nested));
        QVERIFY(m_builder->unit(QStringLiteral("u"), "ModuleID='7701'",
                                "<FileInfo FileLabel='MCU' FileName='"
                                    + m_builder->path().mid(1).toUtf8() + "/m'/>"));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QVERIFY(m_builder->paths({ { nested, QStringLiteral("/kept") },
                                   { QStringLiteral("um"), QStringLiteral("/removed") } }));
        Parse parse(m_builder->path(), false);

        QVERIFY(parse.run());

        QCOMPARE(parse.cfgs.value(0).files.value(0).targetPath, QStringLiteral("/removed"));
    }

    void unfittedBoards_data()
    {
        QTest::addColumn<QVector<UpgradeFileItem>>("items");
        QTest::addColumn<QString>("left");

        const auto row = [](const char *name, const QVector<UpgradeFileItem> &items,
                            const char *left) {
            QTest::newRow(name) << items << QString::fromUtf8(left);
        };
        const QString m = QStringLiteral("MCU");
        const QString f = QStringLiteral("FPGA");
        row("none", {}, "");
        row("fitted boards and any board", { item(m, 1), item(f, 0), item(f, 2) },
            "MCU1 FPGA0 FPGA2");
        row("unfitted board", { item(m, 1), item(f, 3), item(f, 2, QStringLiteral("x")) },
            "MCU1 FPGA2");
        row("the fitted equal in front goes instead", { item(m, 1), item(f, 0), item(m, 3) },
            "FPGA0 MCU3");
        row("the fitted equal behind stays", { item(m, 3), item(f, 0), item(m, 1) }, "FPGA0 MCU1");
        row("two unfitted take the two in front",
            { item(m, 1), item(m, 2), item(f, 1), item(m, 3), item(m, 4) }, "FPGA1 MCU3 MCU4");
        row("no item left", { item(m, 3), item(f, 4), item(m, -1) }, "");
        row("the file tells items apart",
            { item(m, 1, QStringLiteral("a")), item(m, 3, QStringLiteral("b")) }, "MCU1");
    }
    void unfittedBoards()
    {
        QFETCH(QVector<UpgradeFileItem>, items);
        const FakeDevice device(Controller, { Subcard(InputCard, 1, 2), Subcard(InputCard, 2, 1) });
        Parse parse(QString(), false);
        UpgradeCfg cfg;
        cfg.modelId = InputCard;
        cfg.stepType = 1;
        cfg.files = items;

        QVERIFY(parse.worker().isMatchedCfg(cfg));

        QTEST(listed(cfg.files), "left");
    }

    void unfittedBoardsInAnyOrder()
    {
        const FakeDevice device(Controller, { Subcard(InputCard, 1, 2), Subcard(InputCard, 2, 1) });
        Parse parse(QString(), false);
        std::mt19937 random(1);
        for (int round = 0; round < 500; ++round) {
            UpgradeCfg cfg;
            cfg.modelId = InputCard;
            cfg.stepType = 1;
            for (unsigned i = 0, size = unsigned(random() % 12); i < size; ++i)
                cfg.files.append(item(QString(QChar(u'A' + int(random() % 3))), int(random() % 5)));
            const QString before = listed(cfg.files);
            // Item by item, as the list shrinks.
            QVector<UpgradeFileItem> expected = cfg.files;
            for (int i = 0; i < expected.size();) {
                const int board = expected.at(i).extendNum;
                if (board > 2)
                    expected.removeAt(expected.indexOf(UpgradeFileItem(expected.at(i))));
                else
                    ++i;
            }

            QVERIFY(parse.worker().isMatchedSubCardCfg(cfg));

            QVERIFY2(listed(cfg.files) == listed(expected), qPrintable(before));
        }
    }

    void parserIsUsedAgain()
    {
        const FakeDevice device(Controller);
        QVERIFY(writeUnit("u", Controller, 0, { "MCU:m" }));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QVERIFY(m_builder->paths({ { QStringLiteral("u/m"), QStringLiteral("/m") } }));
        Parse parse(m_builder->path(), false);
        for (int round = 0; round < 2; ++round) {
            QVERIFY(parse.run());
            QCOMPARE(parse.units(m_builder->path()), QStringLiteral("7701[MCU=u/m>/m]"));
            QCOMPARE(parse.sections.size(), 1);
            QCOMPARE(parse.dataFilePaths.size(), 1);
        }

        parse.parser().initParam(m_builder->path(QStringLiteral("none")), false, false, 0, 0);
        const LogRecorder log;
        QVERIFY(parse.run());

        QCOMPARE(parse.ends.size(), 3);
        QCOMPARE(parse.ends.last().first, false);
        QVERIFY(parse.cfgs.isEmpty());
        QVERIFY(parse.dataFilePaths.isEmpty());
        QVERIFY(parse.sections.isEmpty());
    }

    void privateObjectOutlivesTheParser()
    {
        auto parser = std::make_unique<UpgradeFileParsed>(QString(), false, false, 0, 0);
        const QPointer<UpgradeFileParsedPrivate> worker(
            UpgradeFileParsedPrivate::get(parser.get()));

        parser.reset();

        QVERIFY(worker);
        delete worker;
    }

private:
    // A unit of items such as "MCU:m.dat:3", section, file and board, with their files but "none".
    bool writeUnit(const char *folder, int modelId, int stepType, const QStringList &items)
    {
        const QString unit = QString::fromUtf8(folder);
        QByteArray content;
        for (const QString &text : items) {
            const QStringList parts = text.split(u':');
            content += "<FileInfo FileLabel='" + parts.at(0).toUtf8() + "' FileName='"
                + parts.at(1).toUtf8() + "' ExtendNum='"
                + (parts.size() > 2 ? parts.at(2).toUtf8() : QByteArray("0")) + "'/>";
            if (parts.at(1) != QLatin1String("none") && !m_builder->file(unit + u'/' + parts.at(1)))
                return false;
        }
        return m_builder->unit(unit,
                               "ModuleID='" + QByteArray::number(modelId, 16) + "' StepType='"
                                   + QByteArray::number(stepType) + '\'',
                               content);
    }

    std::unique_ptr<PackageBuilder> m_builder;
};

QTEST_GUILESS_MAIN(tst_UpgradeFileParsed)
#include "tst_upgradefileparsed.moc"
