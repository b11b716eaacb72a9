#include "package/packageparse.h"

#include "support/fakedevice.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"

#include <QSemaphore>
#include <QTranslator>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr std::chrono::seconds Ample { 30 };

/*! Keeps a worker where it words its outcome for as long as this object is there. */
class HeldWorker : public QTranslator
{
public:
    HeldWorker() { QCoreApplication::installTranslator(this); }

    ~HeldWorker() override
    {
        m_release.release();
        QCoreApplication::removeTranslator(this); // waits for the worker to have left
    }

    bool isEmpty() const override { return false; }

    QString translate(const char * /*context*/, const char *sourceText, const char * /*comment*/,
                      int /*count*/) const override
    {
        m_release.acquire();
        return QString::fromUtf8(sourceText);
    }

private:
    mutable QSemaphore m_release;
};

} // namespace

class tst_PackageParse : public QObject
{
    Q_OBJECT

    std::unique_ptr<PackageBuilder> m_package;

    /*! Runs \a start, and returns the parse's end: "good", or its text. */
    QString ended(PackageParse &parse, const std::function<void()> &start)
    {
        QStringList ends;
        QObject receiver;
        connect(&parse, &PackageParse::signalEnded, &receiver,
                [&ends](bool result, const QString &errorText) {
                    ends.append(result ? QStringLiteral("good") : errorText);
                });
        start();
        [&] {
            QTRY_VERIFY(!ends.isEmpty());
        }();
        return ends.join(QLatin1Char('|'));
    }

private Q_SLOTS:
    void init()
    {
        m_package = std::make_unique<PackageBuilder>();
        QVERIFY(m_package->index({ "main", "card" }));
        QVERIFY(m_package->unit("main", "ModuleID='7701' StepType='0'",
                                "<FileInfo FileLabel='MCU' FileName='mcu.bin'/>"));
        QVERIFY(m_package->file("main/mcu.bin"));
        QVERIFY(m_package->unit("card", "ModuleID='7801' StepType='1'",
                                "<FileInfo FileLabel='EDID' FileName='edid.bin'/>"));
        QVERIFY(m_package->file("card/edid.bin"));
        QVERIFY(m_package->paths({ { "main/mcu.bin", "/fw/mcu" } }));
    }

    void forTheActiveDevice()
    {
        const FakeDevice device(quint16(0x7701), { { 0x7801, 1, 1 } });
        PackageParse parse(m_package->path());
        QVERIFY(!parse.isImageFile());
        QCOMPARE(ended(parse, [&] { parse.start(Ample); }), QStringLiteral("good"));
        QVERIFY(!parse.isWorkerLeftBehind());
        QCOMPARE(parse.units().size(), 2);
        QCOMPARE(parse.units().at(0).modelId, 0x7701);
        QCOMPARE(parse.units().at(0).files.at(0).targetPath, QStringLiteral("/fw/mcu"));
        QCOMPARE(parse.units().at(1).modelId, 0x7801);
        QCOMPARE(parse.dataFilePaths().size(), 1);
    }

    void forAModel()
    {
        PackageParse parse(m_package->path());
        QCOMPARE(ended(parse, [&] { parse.startForModel(0x7701, Ample); }), QStringLiteral("good"));
        QCOMPARE(parse.units().size(), 1); // cards are known on a connected device alone
        QCOMPARE(parse.units().at(0).modelId, 0x7701);
        QCOMPARE(parse.units().at(0).files.at(0).targetPath, QStringLiteral("/fw/mcu"));
    }

    void failureKeepsTheLibrarysText()
    {
        const LogRecorder log;
        PackageParse parse(m_package->path());
        QCOMPARE(ended(parse, [&] { parse.startForModel(0x7702, Ample); }),
                 QStringLiteral("The upgrade package configuration does not match the device "
                                "configuration."));
        QVERIFY(parse.units().isEmpty());
        QCOMPARE(log.texts(QtWarningMsg).size(), 1);
    }

    void imageConfigurationFile()
    {
        // Length of the text, and the text: Base64 of [{}].
        QVERIFY(m_package->file("image.cfg", QByteArray("\x08\0\0\0W3t9XQ==", 12)));
        const FakeDevice device(quint16(0x7701));
        PackageParse parse(m_package->path("image.cfg"));
        QVERIFY(parse.isImageFile());
        QCOMPARE(ended(parse, [&] { parse.start(Ample); }), QStringLiteral("good"));
        QVERIFY(parse.units().isEmpty());
    }

    void timeLimit()
    {
        QVERIFY(QFile::remove(m_package->path("PackageCfg.xml")));
        const HeldWorker held;
        const LogRecorder log;
        PackageParse parse(m_package->path());
        QCOMPARE(ended(parse, [&] { parse.startForModel(0x7701, std::chrono::milliseconds(50)); }),
                 QStringLiteral("Reading the package took longer than the time limit."));
        QVERIFY(parse.isWorkerLeftBehind());
    }
};

QTEST_GUILESS_MAIN(tst_PackageParse)
#include "tst_packageparse.moc"
