#include "devicestate.h"
#include "faults.h"
#include "filereceiver.h"
#include "installer.h"
#include "statefolder.h"
#include "support/imagebuilder.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmar::Simulator;
using Velmar::ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

constexpr quint16 ModelId = 0x7701;

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

InstallationOrder order(bool deletesImage = true)
{
    InstallationOrder order;
    order.deletesImage = deletesImage;
    order.parts = { { 1, 0, { 0x0101, 0x0102 } }, { 3, 2, { 0x0301 } }, { 4, 5, {} } };
    order.sections = { { 1, 0, ModelId, 0x0101 }, { 3, 2, 0x7801, 0x0301 } };
    return order;
}

/*! "rate result" of a progress, its parts and their sections. */
QStringList summary(const s_UpgradePercent &progress)
{
    QStringList lines { QString("all %1 %2").arg(progress.rate).arg(progress.result) };
    for (const auto &part : progress.parts) {
        lines.append(QString("type %1 slot %2: %3 %4")
                         .arg(part.type)
                         .arg(part.slotId)
                         .arg(part.rate)
                         .arg(part.result));
        for (const auto &section : part.section)
            lines.append(QString("0x%1: %2 %3")
                             .arg(section.code, 0, 16)
                             .arg(section.rate)
                             .arg(section.result));
    }
    return lines;
}

} // namespace

/*! How the simulated device installs, and what it tells of it. */
class tst_DeviceInstaller : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QString errorText;
        m_root = std::make_unique<QTemporaryDir>();
        m_folder = StateFolder::open(m_root->path(), errorText);
        QVERIFY2(m_folder, qPrintable(errorText));
        m_state = DeviceState::load(*m_folder, ModelId, errorText);
        QVERIFY2(m_state, qPrintable(errorText));
        m_faults = Faults();
        m_results.clear();
        m_errorText.clear();
    }
    void cleanup()
    {
        m_installer.reset();
        m_state.reset();
        m_folder.reset();
        m_root.reset();
    }

    void beforeTheFirst()
    {
        makeInstaller(0);
        QCOMPARE(summary(m_installer->progress()), QStringList { "all 0 0" });
        QCOMPARE(m_installer->run(), 0u);
        QVERIFY(!m_installer->isRunning());
    }

    void everyFileInItsPlace()
    {
        receive({ { "/app/mcu.bin", QByteArray(200000, 'm') },
                  { "data/font12.dat", "glyphs" },
                  { "data/deeper/still/x.json", "{}" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QVERIFY(m_installer->isRunning());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QVERIFY(!m_installer->isRunning());
        QCOMPARE(installed("app/mcu.bin"), QByteArray(200000, 'm'));
        QCOMPARE(installed("data/font12.dat"), QByteArray("glyphs"));
        QCOMPARE(installed("data/deeper/still/x.json"), QByteArray("{}"));
        QCOMPARE(summary(m_installer->progress()),
                 (QStringList { "all 100 2", "type 1 slot 0: 100 2", "0x101: 100 2", "0x102: 100 2",
                                "type 3 slot 2: 100 2", "0x301: 100 2", "type 4 slot 5: 100 2" }));
        const SectionVersions versions = m_state->record().sections.at({ 1, 0, ModelId, 0x0101 });
        QCOMPARE(versions.installed, QString("1.2.3.4"));
        QCOMPARE(m_state->runningVersion({ 1, 0, ModelId, 0x0101 }), versions.running);
    }

    void versionsRunAfterARestartOnly()
    {
        receive({ { "a", "b" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QCOMPARE(m_state->runningVersion({ 3, 2, 0x7801, 0x0301 }), QString("1.0.0.0"));
        QCOMPARE(m_state->record().sections.at({ 3, 2, 0x7801, 0x0301 }).installed,
                 QString("1.2.3.4"));
        QCOMPARE(m_state->record().sections.size(), std::size_t(2)); // no others
    }

    void laterFileOfOnePathHolds()
    {
        receive({ { "a", "first" }, { "b", "x" }, { "/a", "second" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QCOMPARE(installed("a"), QByteArray("second"));
    }

    void fileReplacesTheOneBefore()
    {
        receive({ { "a", "a long first file" }, { "old", "stays" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        receive({ { "a", "second" } });
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, (QVector<int> { 2, 2 }));
        QCOMPARE(installed("a"), QByteArray("second"));
        QCOMPARE(installed("old"), QByteArray("stays"));
        QCOMPARE(m_installer->run(), 2u);
    }

    void imageGoesOrStaysAsOrdered_data()
    {
        QTest::addColumn<bool>("deletesImage");
        QTest::addColumn<int>("imagesLeft");
        QTest::newRow("goes") << true << 0;
        QTest::newRow("stays") << false << 1;
    }
    void imageGoesOrStaysAsOrdered()
    {
        QFETCH(bool, deletesImage);
        receive({ { "a", "b" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order(deletesImage)).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QTEST(QDir(m_folder->images()).entryList(QDir::Files).size(), "imagesLeft");
        QCOMPARE(bool(m_state->record().image), !deletesImage);
        QVERIFY(!QDir(m_folder->staging()).exists());
    }

    void nothingToInstall()
    {
        makeInstaller(0);
        const Outcome outcome = m_installer->start(order());
        QCOMPARE(outcome.ack, LinkAck::NotNow);
        QCOMPARE(outcome.errorText, QString("no image waits to be installed"));
        QCOMPARE(m_installer->run(), 0u);
    }

    void oneAtATime()
    {
        receive({ { "a", "b" } });
        makeInstaller(3600000);
        QVERIFY(m_installer->start(order()).isAccepted());
        const Outcome outcome = m_installer->start(order());
        QCOMPARE(outcome.ack, LinkAck::NotNow);
        QCOMPARE(outcome.errorText, QString("an installation is running"));
        QCOMPARE(m_installer->run(), 1u);
    }

    void imageThatWasDamagedOnTheDevice()
    {
        receive({ { "a", "b" } });
        QFile image(m_folder->images() + "/image");
        QVERIFY(image.open(QIODevice::ReadWrite));
        QVERIFY(image.seek(256));
        QVERIFY(image.putChar('c'));
        image.close();
        makeInstaller(0);
        const Outcome outcome = m_installer->start(order());
        QCOMPARE(outcome.ack, LinkAck::WrongContents);
        QVERIFY2(outcome.errorText.startsWith("the sum is 0x"), qPrintable(outcome.errorText));
        QCOMPARE(m_installer->run(), 0u);
    }

    void fileInTheWay_data()
    {
        QTest::addColumn<QByteArray>("installedBefore");
        QTest::addColumn<QByteArray>("destination");
        QTest::addColumn<QString>("error");

        QTest::newRow("folder where a file belongs")
            << QByteArray("a/b/c") << QByteArray("a/b") << "\"a/b\" is a folder on this device";
        QTest::newRow("file where a folder belongs")
            << QByteArray("a/b") << QByteArray("a/b/c/d") << "\"a/b\" is a file on this device";
    }
    void fileInTheWay()
    {
        QFETCH(QByteArray, installedBefore);
        QFETCH(QByteArray, destination);
        receive({ { installedBefore, "before" } });
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        receive({ { "z", "z" }, { destination, "after" } });
        const Outcome outcome = m_installer->start(order());
        QCOMPARE(outcome.ack, LinkAck::Refused);
        QTEST(outcome.errorText, "error");
        QCOMPARE(m_installer->run(), 1u);
        QVERIFY(!QFile::exists(m_folder->files() + "/z"));
    }

    void diskThatFailsMeanwhile()
    {
        receive({ { "a", "new" }, { "b", "new" } });
        makeInstaller(30);
        QVERIFY(m_installer->start(order()).isAccepted());
        QVERIFY(QDir(m_folder->staging()).removeRecursively());
        QTRY_COMPARE(m_results, QVector<int> { 3 });
        QVERIFY2(m_errorText.contains("cannot be written: "), qPrintable(m_errorText));
        QCOMPARE(m_installer->progress().result, 3);
        QVERIFY(!QFile::exists(m_folder->files() + "/a"));
    }

    void progressAt_data()
    {
        QTest::addColumn<int>("percent");
        QTest::addColumn<QStringList>("lines");

        QTest::newRow("begun") << 0
                               << QStringList {
                                      "all 0 1",           "type 1 slot 0: 0 1", "0x101: 0 1",
                                      "0x102: 0 0",        "type 3 slot 2: 0 1", "0x301: 0 0",
                                      "type 4 slot 5: 0 1"
                                  };
        QTest::newRow("in the first section")
            << 11 << QStringList { "all 11 1",           "type 1 slot 0: 16 1", "0x101: 33 1",
                                   "0x102: 0 0",         "type 3 slot 2: 0 1",  "0x301: 0 0",
                                   "type 4 slot 5: 11 1" };
        QTest::newRow("in the second section")
            << 50 << QStringList { "all 50 1",           "type 1 slot 0: 75 1", "0x101: 100 2",
                                   "0x102: 50 1",        "type 3 slot 2: 0 1",  "0x301: 0 0",
                                   "type 4 slot 5: 50 1" };
        QTest::newRow("in the last section")
            << 90 << QStringList { "all 90 1",           "type 1 slot 0: 100 2", "0x101: 100 2",
                                   "0x102: 100 2",       "type 3 slot 2: 70 1",  "0x301: 70 1",
                                   "type 4 slot 5: 90 1" };
    }
    void progressAt()
    {
        QFETCH(int, percent);
        QFETCH(QStringList, lines);
        QString errorText;
        QVERIFY(m_faults.add(QString("never-ends=%1").arg(percent), errorText));
        receive({ { "a", QByteArray(1000, 'a') } });
        makeInstaller(1);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(summary(m_installer->progress()), lines);
        QVERIFY(m_installer->isRunning());
    }

    void progressNeverGoesBack()
    {
        receive({ { "a", QByteArray(100000, 'a') }, { "b", QByteArray(1000, 'b') } });
        makeInstaller(40);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(m_installer->start(order()).isAccepted());
        int rate = 0;
        while (m_installer->isRunning()) {
            const s_UpgradePercent progress = m_installer->progress();
            QCOMPARE(progress.result, 1);
            QVERIFY(progress.rate >= rate && progress.rate < 100);
            rate = progress.rate;
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        QCOMPARE(m_results, QVector<int> { 2 });
        QVERIFY(clock.elapsed() >= 38); // timers may be 5 % early
    }

    void failure_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("at once") << "install-fails=0";
        QTest::newRow("in the middle") << "install-fails=50";
        QTest::newRow("in the end") << "install-fails=99";
    }
    void failure()
    {
        QFETCH(QString, fault);
        QString errorText;
        QVERIFY(m_faults.add(fault, errorText));
        receive({ { "a", "b" } });
        makeInstaller(3);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 3 });
        const s_UpgradePercent progress = m_installer->progress();
        QCOMPARE(progress.result, 3);
        for (const auto &part : progress.parts) {
            QCOMPARE(part.result, quint8(3));
            for (const auto &section : part.section)
                QCOMPARE(section.result, 3);
        }
        QVERIFY(!QFile::exists(m_folder->files() + "/a"));
        QVERIFY(!QDir(m_folder->staging()).exists());
        QVERIFY(m_state->record().sections.empty());
        QVERIFY(m_state->record().image); // may be tried again
    }

    void brokenOffAndTakenBack()
    {
        receive({ { "a", "b" } });
        makeInstaller(3600000);
        QVERIFY(m_installer->start(order()).isAccepted());
        m_installer->breakOff();
        QVERIFY(!m_installer->isRunning());
        QString errorText;
        QVERIFY(Installation::recover(*m_folder, *m_state, errorText));
        QCOMPARE(m_installer->progress().result, 3);
        QCOMPARE(m_results, QVector<int>());
        QVERIFY(m_installer->start(order()).isAccepted());
        QCOMPARE(m_installer->run(), 2u);
    }

    void restartThatIsDueComesFirst()
    {
        receive({ { "a", "b" } });
        makeInstaller(0);
        m_installer->waitForRestart();
        const Outcome outcome = m_installer->start(order());
        QCOMPARE(outcome.ack, LinkAck::NotNow);
        QCOMPARE(outcome.errorText, QString("the device is about to restart"));
        QCOMPARE(m_installer->run(), 0u);
        m_installer->breakOff();
        QVERIFY(m_installer->start(order()).isAccepted());
    }

    void uploadWhileABoundInstallationWaits()
    {
        receive({ { "a", "first" }, { "b", "first" } });
        {
            QString errorText;
            Installation stopped(*m_folder, *m_state, [](Installation::Step) {});
            QVERIFY(stopped.begin(order(true)).isAccepted());
            while (!stopped.isStaged())
                QVERIFY2(stopped.stageNext(65536, errorText), qPrintable(errorText));
            QVERIFY2(stopped.bind(errorText), qPrintable(errorText));
        }
        const QString obstacle = m_folder->files() + "/a";
        QVERIFY(QDir().mkpath(obstacle));
        QString errorText;
        QVERIFY(!Installation::recover(*m_folder, *m_state, errorText));

        makeInstaller(0);
        QCOMPARE(m_installer->readiness().ack, LinkAck::NotNow);
        QCOMPARE(m_installer->start(order()).errorText, QString("an installation has not ended"));
        FileReceiver receiver(*m_folder, *m_state);
        const QByteArray second = image({ { "c", "second" } });
        const QByteArray hash = QCryptographicHash::hash(second, QCryptographicHash::Sha256);
        QVERIFY(receiver.announce({ { 0, 13, second.size() } }).isAccepted());
        QVERIFY(receiver.open(0, 13, quint64(second.size()), hash).isAccepted());
        QVERIFY(receiver.append(0, 0, second).isAccepted());
        QVERIFY(receiver.close(0).isAccepted());
        QVERIFY(!Installation::recover(*m_folder, *m_state, errorText)); // still in the way

        QVERIFY(QDir().rmdir(obstacle));
        QVERIFY2(Installation::recover(*m_folder, *m_state, errorText), qPrintable(errorText));
        QCOMPARE(installed("a"), QByteArray("first"));
        QCOMPARE(installed("b"), QByteArray("first"));
        QVERIFY(m_installer->start(order(true)).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QCOMPARE(installed("c"), QByteArray("second"));
        QCOMPARE(QDir(m_folder->images()).entryList(QDir::Files), QStringList());
    }

    void manyFiles()
    {
        QVector<QPair<QByteArray, QByteArray>> files;
        for (int i = 0; i < 300; ++i)
            files.append({ "d" + QByteArray::number(i % 7) + "/f" + QByteArray::number(i),
                           QByteArray::number(i) });
        receive(files);
        makeInstaller(0);
        QVERIFY(m_installer->start(order()).isAccepted());
        QTRY_COMPARE(m_results, QVector<int> { 2 });
        QCOMPARE(installed("d5/f299"), QByteArray("299"));
        QCOMPARE(installed("d0/f0"), QByteArray("0"));
    }

private:
    void makeInstaller(int durationMs)
    {
        m_installer = std::make_unique<Installer>(*m_folder, *m_state, m_faults, durationMs);
        connect(m_installer.get(), &Installer::finished, this,
                [this](int result, const QString &errorText) {
                    m_results.append(result);
                    m_errorText = errorText;
                });
    }

    static QByteArray image(const QVector<QPair<QByteArray, QByteArray>> &files)
    {
        ImageBuilder builder;
        builder.files = files;
        return builder.build();
    }

    /*! Puts an image into the folder as if it had been received. */
    void receive(const QVector<QPair<QByteArray, QByteArray>> &files)
    {
        QFile file(m_folder->images() + "/image");
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(image(files));
        file.close();
        QString errorText;
        QVERIFY(m_state->update(
            [](DeviceRecord &record) {
                record.image = ReceivedImage { QStringLiteral("image"), QStringLiteral("1.2.3.4") };
            },
            errorText));
    }

    QByteArray installed(const char *path) const
    {
        return contents(m_folder->files() + '/' + QLatin1String(path));
    }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<StateFolder> m_folder;
    std::unique_ptr<DeviceState> m_state;
    Faults m_faults;
    std::unique_ptr<Installer> m_installer;
    QVector<int> m_results;
    QString m_errorText;
};

QTEST_GUILESS_MAIN(tst_DeviceInstaller)
#include "tst_deviceinstaller.moc"
