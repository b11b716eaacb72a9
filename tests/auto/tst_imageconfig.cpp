#include "imageconfig.h"
#include "support/fakedevice.h"
#include "support/logrecorder.h"
#include "support/singletonrace.h"

#include <QtTest>

#include <QTemporaryDir>

#include <memory>

using Velmar::BizModel::s_DeviceConfig;
using Velmar::Firmware::ImageConfig;
using Velmar::Firmware::UpgradeCfg;
using Velmar::Firmware::UpgradeFileItem;

namespace {

// Model 30465 with two sections of one code. The two kinds of codes are crossed.
s_DeviceConfig controller()
{
    s_DeviceConfig config;
    config.modelId = 30465;
    config.upgradeCfgs = {
        { QStringLiteral("MCU"), 1, 257, 258, 0 },
        { QStringLiteral("FPGA"), 1, 258, 257, 0 },
        { QStringLiteral("Second FPGA"), 1, 258, 259, 0 },
        { QStringLiteral("Last"), 1, 65535, 260, 0 },
        { QStringLiteral("Zero"), 1, 0, 261, 0 },
    };
    return config;
}

QByteArray header(quint32 length)
{
    QByteArray bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.append(char(length >> shift));
    return bytes;
}

QByteArray image(const QByteArray &json)
{
    const QByteArray text = json.toBase64();
    return header(quint32(text.size())) + text;
}

// Model id, number of items and item names of each record; a null name is a dash.
QString contents(const QVector<UpgradeCfg> &cfgs)
{
    QStringList records;
    for (const UpgradeCfg &cfg : cfgs) {
        QStringList names;
        for (const UpgradeFileItem &item : cfg.files)
            names.append(item.sectionName.isNull() ? QStringLiteral("-") : item.sectionName);
        records.append(QStringLiteral("%1:%2").arg(QString::number(cfg.modelId), names.join(u',')));
    }
    return records.join(u' ');
}

} // namespace

class tst_ImageConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_folder.isValid()); }
    void init()
    {
        m_path = m_folder.filePath(QStringLiteral("image"));
        QFile::remove(m_path);
        m_device = std::make_unique<FakeDevice>(controller());
    }
    void cleanup()
    {
        m_device.reset();
        ImageConfig::destroyInstance();
    }

    void metaObject()
    {
        const QMetaObject &metaObject = ImageConfig::staticMetaObject;
        QCOMPARE(metaObject.className(), "Velmar::Firmware::ImageConfig");
        QCOMPARE(metaObject.superClass()->className(), "Velmar::Firmware::UpgradeConfig");
        QCOMPARE(metaObject.methodCount(), QObject::staticMetaObject.methodCount());
        QCOMPARE(metaObject.propertyCount(), QObject::staticMetaObject.propertyCount());
    }

    void singleton()
    {
        QVERIFY(threadsShareFirstInstance<ImageConfig>());
        QVERIFY(!ImageConfig::instance()->parent());
        QVERIFY(write(image("[{}]")));
        QVERIFY(read());
        QCOMPARE(ImageConfig::instance()->upgradeCfgs().size(), 3);

        ImageConfig::destroyInstance();
        ImageConfig::destroyInstance();

        QVERIFY(ImageConfig::instance()->upgradeCfgs().isEmpty());
    }

    // Each leaves what was read before in place.
    void outerFailures_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("log"); // %1: the path

        const QString headerError = QStringLiteral("read file: %1 json data header error!");
        const QString jsonError = QStringLiteral("json data  error!");
        QTest::newRow("missing") << QByteArray() << QStringLiteral("Fail to open file: %1");
        QTest::newRow("empty") << QByteArray("") << jsonError;
        QTest::newRow("header only, length 0") << header(0) << jsonError;
        QTest::newRow("length beyond the file") << header(1000) + "W3t9XQ==" << headerError;
        // "W3t9XQ==" is the text of "[{}]"; the file has 12 bytes.
        QTest::newRow("length one beyond the file") << header(14) + "W3t9XQ==1" << headerError;
        QTest::newRow("short header, length beyond the file") << QByteArray("\x02") << headerError;
        QTest::newRow("short header, length 1 of a file of 1 byte")
            << QByteArray("\x01") << jsonError;
        QTest::newRow("highest length") << header(0x7FFFFFFF) + "W3t9XQ==" << headerError;
        QTest::newRow("lowest length") << header(0x80000000) + "W3t9XQ==" << jsonError;
        QTest::newRow("length -1") << header(0xFFFFFFFF) + "W3t9XQ==" << jsonError;
        QTest::newRow("length with the highest byte above 127")
            << header(0xF0000008) + "W3t9XQ==" << jsonError;
        QTest::newRow("length too short for the text") << header(4) + "W3t9XQ==" << jsonError;
        QTest::newRow("no Base64") << header(4) + "[{}]" << jsonError;
        QTest::newRow("no JSON") << image("[{}") << jsonError;
        QTest::newRow("an object instead of an array")
            << image("{\"mainControl\":[]}") << jsonError;
        QTest::newRow("an empty array") << image("[]") << jsonError;
        // A carriage return is no byte of a text file: this length loses its first byte and takes
        // in the first of the text.
        QTest::newRow("carriage return in the header")
            << header(13) + "W3t9XQ==     " << headerError;
    }
    void outerFailures()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, log);
        QVERIFY(write(image("[{\"mainControl\":[{\"modelId\":30465}]}]")));
        QVERIFY(read());
        QFile::remove(m_path);
        if (!file.isNull())
            QVERIFY(write(file));
        const LogRecorder recorder;

        QVERIFY(!read());

        QCOMPARE(recorder.lines(),
                 (QVector<LogRecorder::Line> { { QtWarningMsg, log.replace("%1", m_path) } }));
        QCOMPARE(contents(ImageConfig::instance()->upgradeCfgs()), QStringLiteral("30465: 0: 0:"));
    }

    void folderInsteadOfFile()
    {
        m_path = m_folder.path();
        const LogRecorder recorder;

        QVERIFY(!read());

        QCOMPARE(recorder.lines(),
                 (QVector<LogRecorder::Line> {
                     { QtWarningMsg, QStringLiteral("Fail to open file: ") + m_path } }));
    }

    void acceptedFiles_data()
    {
        QTest::addColumn<QByteArray>("file");

        QTest::newRow("exact length") << header(8) + "W3t9XQ==";
        QTest::newRow("more behind the text") << header(8) + "W3t9XQ==more";
        QTest::newRow("length 4 too large") << header(12) + "W3t9XQ==";
        QTest::newRow("length with a byte above 127")
            << header(200) + "W3t9XQ==" + QByteArray(192, '=');
        QTest::newRow("line feeds in the text") << header(9) + "W3t9\nXQ==";
        QTest::newRow("carriage returns in the text are not counted")
            << header(9) + "W3t9\r\nXQ\r==";
        QTest::newRow("more elements") << image("[{},{\"mainControl\":[{\"modelId\":1}]},7]");
        QTest::newRow("first element is no object") << image("[7]");
        QTest::newRow("more keys") << image("[{\"other\":[{\"modelId\":1}]}]");
        QTest::newRow("keys of another type")
            << image("[{\"mainControl\":7,\"inputCard\":{},\"outputCard\":\"\"}]");
    }
    void acceptedFiles()
    {
        QFETCH(QByteArray, file);
        QVERIFY(write(file));
        const LogRecorder recorder;

        QVERIFY(read());

        QVERIFY(recorder.lines().isEmpty());
        QCOMPARE(contents(ImageConfig::instance()->upgradeCfgs()), QStringLiteral("0: 0: 0:"));
        for (const UpgradeCfg &cfg : ImageConfig::instance()->upgradeCfgs()) {
            QCOMPARE(cfg.path, m_path);
            QCOMPARE(cfg.stepType, 0);
            QVERIFY(cfg.otherValues.isEmpty());
        }
    }

    void mainControl_data()
    {
        QTest::addColumn<QByteArray>("entries");
        QTest::addColumn<QString>("expected");

        const auto row = [](const char *name, const char *entries, const char *expected) {
            QTest::newRow(name) << QByteArray(entries) << QString::fromUtf8(expected);
        };
        row("no sections", R"({"modelId":30465})", "30465: 0: 0:");
        row("by upgrade code", R"({"modelId":30465,"sections":[{"code":258},{"code":257}]})",
            "30465:FPGA,MCU 0: 0:");
        row("highest code and code 0",
            R"({"modelId":30465,"sections":[{"code":65535},{"code":0}]})", "30465:Last,Zero 0: 0:");
        row("codes that are not 16 bits wide",
            R"({"modelId":30465,"sections":[{"code":-1},{"code":65793},{"code":4294967553}]})",
            // The last one is not even 32 bits wide and reads as 0.
            "30465:-,-,Zero 0: 0:");
        row("unknown codes stay in the list",
            R"({"modelId":30465,"sections":[{"code":259},{"code":257}]})", "30465:-,MCU 0: 0:");
        row("what is no whole number reads as 0",
            R"({"modelId":30465,"sections":[{},{"code":"257"},{"code":257.5},7]})",
            "30465:Zero,Zero,Zero,Zero 0: 0:");
        row("entries pile up in one record",
            R"({"modelId":30465,"sections":[{"code":257}]},)"
            R"({"modelId":30465,"sections":[{"code":257}]})",
            "30465:MCU,MCU 0: 0:");
    }
    void mainControl()
    {
        QFETCH(QByteArray, entries);
        QVERIFY(write(image("[{\"mainControl\":[" + entries + "]}]")));
        const LogRecorder recorder;

        QVERIFY(read());

        QTEST(contents(ImageConfig::instance()->upgradeCfgs()), "expected");
        QVERIFY(recorder.lines().isEmpty());
        const QVector<UpgradeCfg> cfgs = ImageConfig::instance()->upgradeCfgs();
        for (const UpgradeFileItem &item : cfgs.first().files) {
            QVERIFY(item.filePath.isNull());
            QVERIFY(item.targetPath.isNull());
            QCOMPARE(item.extendNum, 0);
        }
    }

    // Each leaves nothing of what was read before, and logs nothing.
    void foreignMainControl_data()
    {
        QTest::addColumn<QByteArray>("entries");
        QTest::newRow("another model") << QByteArray(R"({"modelId":30466})");
        QTest::newRow("the second of two")
            << QByteArray(R"({"modelId":30465,"sections":[{"code":257}]},{"modelId":30466})");
        QTest::newRow("no model") << QByteArray("{}");
        QTest::newRow("no object") << QByteArray("30465");
        QTest::newRow("equal in its low 16 bits") << QByteArray(R"({"modelId":96001})");
    }
    void foreignMainControl()
    {
        QFETCH(QByteArray, entries);
        QVERIFY(write(image("[{}]")));
        QVERIFY(read());
        QVERIFY(write(image("[{\"mainControl\":[" + entries + "],\"inputCard\":[]}]")));
        const LogRecorder recorder;

        QVERIFY(!read());

        QVERIFY(recorder.lines().isEmpty());
        QVERIFY(ImageConfig::instance()->upgradeCfgs().isEmpty());
    }

    void noDevice()
    {
        QVERIFY(write(image("[{}]")));
        QVERIFY(read());
        m_device->expire();
        const LogRecorder recorder;

        QVERIFY(!read());

        QCOMPARE(recorder.lines(),
                 (QVector<LogRecorder::Line> {
                     { QtWarningMsg, QStringLiteral("actived device is nullptr") } }));
        QVERIFY(ImageConfig::instance()->upgradeCfgs().isEmpty());
    }

    // Cards 0x7801 (30721), 0x7802 (30722) and 0x7811 (30737) of the built-in catalogue.
    void cards_data()
    {
        QTest::addColumn<QByteArray>("root");
        QTest::addColumn<QString>("expected");

        const auto row = [](const char *name, const char *root, const char *expected) {
            QTest::newRow(name) << QByteArray(root) << QString::fromUtf8(expected);
        };
        row("inputs and outputs",
            R"("outputCard":[{"modelId":30737,"sections":[{"code":1025}]}],)"
            R"("inputCard":[{"modelId":30721,"sections":[{"code":770},{"code":769}]}])",
            "0: 30721:FPGA,MCU 30737:MCU");
        row("sections pile up, the last model stands",
            R"("inputCard":[{"modelId":30721,"sections":[{"code":771}]},)"
            R"({"modelId":30722,"sections":[{"code":785}]},{"modelId":5}])",
            "0: 5:EDID,MCU 0:");
        row("any board of the model",
            R"("inputCard":[{"modelId":30722,"sections":[{"code":803}]}])", "0: 30722:SDI 0:");
        row("a card is compared with nothing",
            R"("mainControl":[{"modelId":30465}],"outputCard":[{"modelId":30737}])",
            "30465: 0: 30737:");
    }
    void cards()
    {
        QFETCH(QByteArray, root);
        QVERIFY(write(image("[{" + root + "}]")));

        QVERIFY(read());

        QTEST(contents(ImageConfig::instance()->upgradeCfgs()), "expected");
    }

    void unknownCardSectionsStayInTheList()
    {
        QVERIFY(write(image(R"([{"inputCard":[{"modelId":30721,"sections":[{"code":1}]},)"
                            R"({"modelId":1,"sections":[{"code":769}]}]}])")));

        QVERIFY(read());

        const QVector<UpgradeFileItem> items = ImageConfig::instance()->upgradeCfgs().at(1).files;
        QCOMPARE(items.size(), 2);
        QVERIFY(items.at(0).sectionName.isEmpty());
        QVERIFY(items.at(1).sectionName.isEmpty());
    }

    void secondReadReplacesTheFirst()
    {
        QVERIFY(write(image(R"([{"mainControl":[{"modelId":30465,"sections":[{"code":257}]}]}])")));
        QVERIFY(read());
        QVERIFY(write(image("[{}]")));

        QVERIFY(read());

        QCOMPARE(contents(ImageConfig::instance()->upgradeCfgs()), QStringLiteral("0: 0: 0:"));
    }

private:
    bool write(const QByteArray &bytes)
    {
        QFile file(m_path);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }

    // The error text is nobody's business here, whatever comes of it.
    bool read()
    {
        QString errorText = QStringLiteral("untouched");
        const bool isRead = ImageConfig::instance()->readConfig(m_path, errorText);
        if (errorText != QLatin1String("untouched"))
            QTest::qFail("the error text was touched", __FILE__, __LINE__);
        return isRead;
    }

    QTemporaryDir m_folder;
    QString m_path;
    std::unique_ptr<FakeDevice> m_device;
};

QTEST_GUILESS_MAIN(tst_ImageConfig)
#include "tst_imageconfig.moc"
