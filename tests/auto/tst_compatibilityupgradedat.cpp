#include "compatibilityupgrade_dat.h"
#include "compatibilityupgrade_dat_p.h"

#include "packageconfig.h"
#include "support/encipheredfile.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"
#include "support/registerlink.h"
#include "support/translationrecorder.h"
#include "support/waituntil.h"

#include <velmarssproxy/devicechannel.h>

#include <QMetaMethod>
#include <QPointer>
#include <QScopedPointer>
#include <QtTest>

using Velmar::BizModel::LinkAnswer;
using Velmar::Firmware::CompatibilityUpgradeDat;
using Velmar::Firmware::PackageConfig;
using Velmar::Firmware::Internal::CompatibilityUpgradeDatPrivate;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;
using Velmar::SSProxy::DeviceChannel;

Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)
Q_DECLARE_METATYPE(Velmar::ProtoModel::Auxiliary::s_CardInfoParts)

namespace {

const QString NotFoundText =
    QStringLiteral("Failed to upgrade:The corresponding configuration file was not found!");
const QString TooLowText =
    QStringLiteral("Failed to upgrade:The upgrade file version is too low, please check!");
const QString NoPartText = QStringLiteral("Failed to upgrade:Please select upgrade part!");

s_CardInfoParts cardPart(int type, quint16 modelId)
{
    s_CardInfoParts part;
    part.type = type;
    part.modelId = modelId;
    return part;
}

/*! One end of a run, as the host hears of it. */
using End = QPair<bool, QString>;

} // namespace

/*
    The package has five units:
    0x1F2  version 3.0.0.0, writes card index and file
    0x1F3  version 2.9.9, writes the same
    0x1F4  version 12.1, writes the file type, once; its files are for "Scanner"
    0x1F5  version 3, has a file without commands
    0x1F6  version 3.1, lacks the device id and so writes nothing
*/
class tst_CompatibilityUpgradeDat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void interface();
    void destructorTakesThePrivatePartAlong();

    void wrongParameters_data();
    void wrongParameters();
    void ownListOfParts();
    void channelGoneAtStart();
    void channelIsHeldThroughTheRun();
    void emptyListAtStart();

    void outcome_data();
    void outcome();
    void versionRule_data();
    void versionRule();
    void partOfAnotherPackageIsSentAfterTheFirst();
    void faultsOfTheDevice_data();
    void faultsOfTheDevice();

    void errorTextIsNeverCleared();
    void runAgainFromTheLastSignal();
    void resultIsReadOnTheOwnersThread();
    void progressComesFromTheWorker();
    void textsAreTranslated_data();
    void textsAreTranslated();

private:
    CompatibilityUpgradeDatPrivate *d() const
    {
        return CompatibilityUpgradeDatPrivate::get(m_upgrade.data());
    }
    bool hasEnded(int count = 1) const
    {
        return waitUntil([this, count] { return m_ends.size() >= count; });
    }
    bool run(const std::vector<s_CardInfoParts> &parts)
    {
        m_ends.clear();
        return m_upgrade->update(parts, m_channel) && hasEnded();
    }

    PackageBuilder m_package;
    QByteArray m_firmware;
    QScopedPointer<CompatibilityUpgradeDat> m_upgrade;
    std::shared_ptr<RegisterLink> m_link;
    std::shared_ptr<DeviceChannel> m_channel;
    QVector<End> m_ends;
    QVector<double> m_progress;
};

void tst_CompatibilityUpgradeDat::initTestCase()
{
    const QByteArray write = "<FileInfo FileName='MCU.dat' FileLabel='MCU'>"
                             "<CommandConfig CmdName='SendCardIndex' Data='1' Address='0x10'/>"
                             "<CommandConfig CmdName='SendDeviceID'/>"
                             "<CommandConfig CmdName='SendFileData' Address='0x40'/></FileInfo>";
    const QByteArray type = "<FileInfo FileName='MCU.dat' FileLabel='MCU'><CommandConfig "
                            "CmdName='SendSenderFileType' Data='9' Address='0x20'/></FileInfo>";
    const QByteArray nothing = "<FileInfo FileName='MCU.dat' FileLabel='MCU'/>";
    const QByteArray noId = "<FileInfo FileName='MCU.dat' FileLabel='MCU'>"
                            "<CommandConfig CmdName='SendCardIndex'/></FileInfo>";
    QVERIFY(m_package.index({ "a", "b", "c", "d", "e" }));
    QVERIFY(m_package.unit("a", "ModuleID='1F2' Version='3.0.0.0'", write));
    QVERIFY(m_package.unit("b", "ModuleID='1F3' Version='2.9.9'", write));
    QVERIFY(m_package.unit("c", "ModuleID='1F4' Version='12.1' DeviceTypes='Scanner'", type));
    QVERIFY(m_package.unit("d", "ModuleID='1F5' Version='3'", nothing));
    QVERIFY(m_package.unit("e", "ModuleID='1F6' Version='3.1'", noId));
    m_firmware = QByteArray(4097, 'f');
    QVERIFY(storeEnciphered(m_package.path("a/MCU.dat"), m_firmware));
    QString errorText;
    QVERIFY2(PackageConfig::instance()->readConfig(m_package.path(), errorText),
             qPrintable(errorText));
}

void tst_CompatibilityUpgradeDat::init()
{
    m_link = std::make_shared<RegisterLink>();
    m_channel = std::make_shared<DeviceChannel>(m_link);
    m_ends.clear();
    m_progress.clear();
    m_upgrade.reset(new CompatibilityUpgradeDat);
    connect(m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateFinished, this,
            [this](bool isDone, const QString &text) {
                m_ends.append({ isDone, text });
            });
    connect(m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateProcessChanged, this,
            [this](int, double process) { m_progress.append(process); });
}

void tst_CompatibilityUpgradeDat::cleanupTestCase()
{
    PackageConfig::destroyInstance();
}

void tst_CompatibilityUpgradeDat::interface()
{
    const QMetaObject &meta = CompatibilityUpgradeDat::staticMetaObject;
    QCOMPARE(meta.className(), "Velmar::Firmware::CompatibilityUpgradeDat");
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 0);
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QCOMPARE(method.methodType(), QMetaMethod::Signal);
        methods.append(QString::fromLatin1(method.methodSignature()) + ' '
                       + QString::fromLatin1(method.parameterNames().join(',')));
    }
    QCOMPARE(methods,
             QStringList({ "signalUpdateProcessChanged(int,double) type,process",
                           "signalUpdateFinished(bool,QString) bResult,errMsg" }));
    QCOMPARE(CompatibilityUpgradeDatPrivate::staticMetaObject.className(),
             "Velmar::Firmware::Internal::CompatibilityUpgradeDatPrivate");
}

void tst_CompatibilityUpgradeDat::destructorTakesThePrivatePartAlong()
{
    const QPointer<CompatibilityUpgradeDatPrivate> privatePart(d());

    m_upgrade.reset();

    QVERIFY(privatePart.isNull());
}

void tst_CompatibilityUpgradeDat::wrongParameters_data()
{
    QTest::addColumn<bool>("isAlive");
    QTest::addColumn<bool>("hasParts");
    QTest::addColumn<QString>("line");

    // 1 stands for a channel that has gone.
    QTest::newRow("channel gone, no parts")
        << false << false << "Update failed : params error, channel valid 1, cfgs empty 1.";
    QTest::newRow("channel gone") << false << true
                                  << "Update failed : params error, channel valid 1, cfgs empty 0.";
    QTest::newRow("no parts") << true << false
                              << "Update failed : params error, channel valid 0, cfgs empty 1.";
}

void tst_CompatibilityUpgradeDat::wrongParameters()
{
    QFETCH(bool, isAlive);
    QFETCH(bool, hasParts);
    QFETCH(QString, line);
    const LogRecorder log;
    QVERIFY(run({ cardPart(1, 0x1F3) }));
    m_ends.clear();
    if (!isAlive)
        m_channel.reset();
    const int writesBefore = m_link->requests().size();
    std::vector<s_CardInfoParts> parts;
    if (hasParts)
        parts.push_back(cardPart(1, 0x1F2));

    QVERIFY(!m_upgrade->update(parts, m_channel));

    QVERIFY(!d()->isRunning());
    QCoreApplication::processEvents();
    QCOMPARE(m_ends.size(), 0);
    QCOMPARE(log.texts(QtWarningMsg), QStringList({ TooLowText, line }));
    QCOMPARE(d()->m_errorMessage, TooLowText);
    QCOMPARE(d()->m_cardParts.size(), std::size_t(hasParts ? 1 : 0));
    QCOMPARE(d()->m_channel.expired(), !isAlive);
    QCOMPARE(m_link->requests().size(), writesBefore);
}

void tst_CompatibilityUpgradeDat::ownListOfParts()
{
    d()->m_cardParts = { cardPart(1, 0x1F2), cardPart(1, 0x1F4) };

    QVERIFY(run(d()->m_cardParts));

    QCOMPARE(m_ends, QVector<End>({ { true, QString() } }));
    QCOMPARE(m_link->writes().size(), 4);
}

void tst_CompatibilityUpgradeDat::channelGoneAtStart()
{
    const LogRecorder log;
    d()->m_result = true;
    d()->m_cardParts = { cardPart(1, 0x1F2) };

    d()->start();

    QVERIFY(hasEnded());
    QCOMPARE(m_ends, QVector<End>({ { false, QString() } }));
    QCOMPARE(log.texts(QtWarningMsg), QStringList({ "Update failed : channel is null." }));
    QCOMPARE(m_link->pauses(), QVector<int>());
    QCOMPARE(m_link->restarts(), 0);
}

void tst_CompatibilityUpgradeDat::channelIsHeldThroughTheRun()
{
    const std::weak_ptr<DeviceChannel> channel = m_channel;
    m_link->handle(QStringLiteral("register.write"), [this](const auto &) {
        m_channel.reset(); // the test thread is waiting for the end
        return ScriptedLink::accepted();
    });

    QVERIFY(run({ cardPart(1, 0x1F2) }));

    QCOMPARE(m_ends, QVector<End>({ { true, QString() } }));
    QCOMPARE(m_link->writes().size(), 3);
    QVERIFY(channel.expired());
}

void tst_CompatibilityUpgradeDat::emptyListAtStart()
{
    const LogRecorder log;
    d()->m_channel = m_channel;

    d()->start();

    QVERIFY(hasEnded());
    QCOMPARE(m_ends, QVector<End>({ { false, NoPartText } }));
    QCOMPARE(log.texts(QtWarningMsg), QStringList(NoPartText));
    QCOMPARE(m_link->pauses(), QVector<int>({ 180000 }));
    QCOMPARE(m_link->restarts(), 1);
}

void tst_CompatibilityUpgradeDat::outcome_data()
{
    using Parts = std::vector<s_CardInfoParts>;
    QTest::addColumn<Parts>("parts");
    QTest::addColumn<End>("end");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<int>("writes");

    const QStringList withoutId { "command config not found:SendDeviceID",
                                  "Fail to send command: SendCardIndex",
                                  "Fail to send command config" };
    QTest::newRow("one part") << Parts { cardPart(1, 0x1F2) } << End(true, QString())
                              << QStringList() << 3;
    QTest::newRow("no part of type 1") << Parts { cardPart(0, 0x1F2), cardPart(2, 0x1F2),
                                                  cardPart(-1, 0xFFFF), cardPart(257, 0x1F2) }
                                       << End(true, QString()) << QStringList() << 0;
    QTest::newRow("some parts of type 1")
        << Parts { cardPart(3, 0xFFFF), cardPart(1, 0x1F4), cardPart(3, 0x1F3) }
        << End(true, QString()) << QStringList() << 1;
    QTest::newRow("same part twice") << Parts { cardPart(1, 0x1F4), cardPart(1, 0x1F4) }
                                     << End(true, QString()) << QStringList() << 2;
    QTest::newRow("no unit for the model")
        << Parts { cardPart(1, 65535) } << End(false, NotFoundText)
        << QStringList(NotFoundText + QStringLiteral("modelId is:65535")) << 0;
    QTest::newRow("version too low")
        << Parts { cardPart(1, 0x1F3) } << End(false, TooLowText) << QStringList(TooLowText) << 0;
    QTest::newRow("file without commands")
        << Parts { cardPart(1, 0x1F5) } << End(true, QString()) << QStringList() << 0;
    QTest::newRow("commands that do not fit together")
        << Parts { cardPart(1, 0x1F6) } << End(false, QString()) << withoutId << 0;
    QTest::newRow("second part has no unit")
        << Parts { cardPart(1, 0x1F4), cardPart(1, 7), cardPart(1, 0x1F4) }
        << End(false, NotFoundText) << QStringList(NotFoundText + QStringLiteral("modelId is:7"))
        << 1;
    QTest::newRow("second part is too old")
        << Parts { cardPart(1, 0x1F4), cardPart(1, 0x1F3), cardPart(1, 0x1F4) }
        << End(false, TooLowText) << QStringList(TooLowText) << 1;
    QTest::newRow("second part fails in sending")
        << Parts { cardPart(1, 0x1F4), cardPart(1, 0x1F6), cardPart(1, 0x1F4) }
        << End(false, QString()) << withoutId << 1;
}

void tst_CompatibilityUpgradeDat::outcome()
{
    QFETCH(std::vector<s_CardInfoParts>, parts);
    QFETCH(End, end);
    QFETCH(QStringList, lines);
    QFETCH(int, writes);
    const LogRecorder log;

    QVERIFY(run(parts));
    QVERIFY(d()->wait());
    QCoreApplication::processEvents(); // there is no second end

    QCOMPARE(m_ends, QVector<End>({ end }));
    QCOMPARE(log.texts(QtWarningMsg), lines);
    QCOMPARE(log.lines().size(), lines.size());
    QCOMPARE(m_link->pauses(), QVector<int>({ 180000 }));
    QCOMPARE(m_link->restarts(), 1);
    QCOMPARE(m_link->operations().first(), QStringLiteral("heartbeat.pause"));
    QCOMPARE(m_link->operations().last(), QStringLiteral("heartbeat.resume"));
    QCOMPARE(m_link->operations().count(QStringLiteral("register.write")), writes);
    QCOMPARE(m_link->operations().size(), writes + 2);
    QCOMPARE(QDir(m_package.path("a")).entryList(QDir::Files),
             QStringList({ "MCU.dat", "unit.xml" }));
}

void tst_CompatibilityUpgradeDat::versionRule_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<bool>("passes");

    QTest::newRow("3") << "3" << true;
    QTest::newRow("3.0.0.0") << "3.0.0.0" << true;
    QTest::newRow("12.1") << "12.1" << true;
    QTest::newRow("3.x") << "3.x" << true;
    QTest::newRow("2.0.0.0") << "2.0.0.0" << false;
    QTest::newRow("2.9.9") << "2.9.9" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("abc.1") << "abc.1" << false;
    QTest::newRow("V4.0") << "V4.0" << false;
    QTest::newRow("-5.0") << "-5.0" << false;
    QTest::newRow("0x10") << "0x10" << false;
    QTest::newRow("empty first component") << ".9" << false;
    QTest::newRow("too large for an int") << "4294967299.0" << false;
}

void tst_CompatibilityUpgradeDat::versionRule()
{
    QFETCH(QString, version);
    QFETCH(bool, passes);
    const LogRecorder log;
    PackageBuilder package;
    QVERIFY(package.index({ "unit" }));
    QVERIFY(package.unit("unit", "ModuleID='10' Version='" + version.toUtf8() + '\'', ""));
    QString errorText;
    QVERIFY(PackageConfig::instance()->readConfig(package.path(), errorText));

    const bool isRun = run({ cardPart(1, 0x10) });

    QVERIFY(PackageConfig::instance()->readConfig(m_package.path(), errorText));
    QVERIFY(isRun);
    QCOMPARE(m_ends, QVector<End>({ { passes, passes ? QString() : TooLowText } }));
    QCOMPARE(log.texts(QtWarningMsg), passes ? QStringList() : QStringList(TooLowText));
    QCOMPARE(m_link->operations(), QStringList({ "heartbeat.pause", "heartbeat.resume" }));
}

void tst_CompatibilityUpgradeDat::partOfAnotherPackageIsSentAfterTheFirst()
{
    QVERIFY(run({ cardPart(1, 0x1F2), cardPart(1, 0x1F4) }));

    QCOMPARE(m_ends, QVector<End>({ { true, QString() } }));
    const QStringList writes = m_link->writes();
    QCOMPARE(writes.size(), 4);
    QCOMPARE(writes.at(0), QStringLiteral("00000010: f2 01 01"));
    QCOMPARE(m_link->payloads().at(1) + m_link->payloads().at(2), m_firmware);
    QCOMPARE(writes.at(3), QStringLiteral("00000020: 09"));
    QVector<int> scanners;
    for (const QCborMap &write : m_link->arguments(QStringLiteral("register.write")))
        scanners.append(int(write.value(QLatin1String("scanner")).toInteger()));
    QCOMPARE(scanners, QVector<int>({ 0, 0, 0, 1 }));
}

void tst_CompatibilityUpgradeDat::faultsOfTheDevice_data()
{
    QTest::addColumn<int>("write");
    QTest::addColumn<LinkAnswer>("answer");
    QTest::addColumn<QVector<double>>("progress");

    const QVector<QPair<const char *, LinkAnswer>> answers {
        { "refuses write %d", ScriptedLink::refused(3, QString()) },
        { "does not answer write %d", ScriptedLink::failed(LinkAnswer::Outcome::TimedOut) },
        { "is lost at write %d", ScriptedLink::failed(LinkAnswer::Outcome::Lost) }
    };
    for (const auto &[name, answer] : answers) {
        QTest::addRow(name, 1) << 1 << answer << QVector<double>();
        QTest::addRow(name, 2) << 2 << answer << QVector<double>();
        QTest::addRow(name, 3) << 3 << answer << QVector<double> { 0.5 };
    }
}

void tst_CompatibilityUpgradeDat::faultsOfTheDevice()
{
    QFETCH(int, write);
    QFETCH(LinkAnswer, answer);
    QFETCH(QVector<double>, progress);
    const LogRecorder log;
    m_link->answerWrite(write, answer);

    QVERIFY(run({ cardPart(1, 0x1F2) }));

    QCOMPARE(m_ends, QVector<End>({ { false, QString() } }));
    QCOMPARE(m_link->payloads().size(), write);
    QCOMPARE(m_progress, progress);
    QCOMPARE(m_link->pauses(), QVector<int>({ 180000 }));
    QCOMPARE(m_link->restarts(), 1);
    QCOMPARE(QDir(m_package.path("a")).entryList(QDir::Files),
             QStringList({ "MCU.dat", "unit.xml" }));
}

void tst_CompatibilityUpgradeDat::errorTextIsNeverCleared()
{
    const LogRecorder log;
    QVERIFY(run({ cardPart(1, 0x1F6) }));
    QCOMPARE(m_ends.first(), End(false, QString()));

    QVERIFY(run({ cardPart(1, 0x1F3) }));
    QCOMPARE(m_ends.first(), End(false, TooLowText));

    QVERIFY(run({ cardPart(1, 0x1F6) }));
    QCOMPARE(m_ends.first(), End(false, TooLowText));

    QVERIFY(run({ cardPart(1, 0x1F4) }));
    QCOMPARE(m_ends.first(), End(true, TooLowText));

    QVERIFY(run({ cardPart(1, 1) }));
    QCOMPARE(m_ends.first(), End(false, NotFoundText));

    QVERIFY(run({ cardPart(0, 0) }));
    QCOMPARE(m_ends.first(), End(true, NotFoundText));
}

void tst_CompatibilityUpgradeDat::runAgainFromTheLastSignal()
{
    const LogRecorder log;
    QVector<quint16> modelIds { 0x1F6, 0x1F4, 0x1F3, 0x1F4 };
    QVector<bool> isStarted;
    connect(m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateFinished, this, [&] {
        if (!modelIds.isEmpty())
            isStarted.append(m_upgrade->update({ cardPart(1, modelIds.takeFirst()) }, m_channel));
    });

    QVERIFY(m_upgrade->update({ cardPart(1, 0x1F4) }, m_channel));
    QVERIFY(hasEnded(5));

    QCOMPARE(isStarted, QVector<bool>({ true, true, true, true }));
    QCOMPARE(m_ends,
             QVector<End>({ { true, QString() },
                            { false, QString() },
                            { true, QString() },
                            { false, TooLowText },
                            { true, TooLowText } }));
    QCOMPARE(m_link->restarts(), 5);
}

void tst_CompatibilityUpgradeDat::resultIsReadOnTheOwnersThread()
{
    QThread *thread = nullptr;
    connect(
        m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateFinished, this,
        [&thread] { thread = QThread::currentThread(); }, Qt::DirectConnection);

    QVERIFY(m_upgrade->update({ cardPart(1, 0x1F4) }, m_channel));
    QVERIFY(d()->wait());
    // The signal reads the members as they are when it is delivered, not when the run ended.
    d()->m_result = false;
    d()->m_errorMessage = QStringLiteral("later");

    QVERIFY(hasEnded());
    QCOMPARE(m_ends, QVector<End>({ { false, QStringLiteral("later") } }));
    QCOMPARE(thread, QThread::currentThread());
}

void tst_CompatibilityUpgradeDat::progressComesFromTheWorker()
{
    QThread *thread = nullptr;
    QVector<int> types;
    connect(
        m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateProcessChanged, this,
        [&](int type, double) {
            thread = QThread::currentThread();
            types.append(type);
        },
        Qt::DirectConnection);

    QVERIFY(run({ cardPart(1, 0x1F2) }));

    QCOMPARE(thread, static_cast<QThread *>(d()));
    QCOMPARE(types, QVector<int>({ 17, 17 }));
    QCOMPARE(m_progress, QVector<double>({ 0.5, 1.0 }));
}

void tst_CompatibilityUpgradeDat::textsAreTranslated_data()
{
    QTest::addColumn<std::vector<s_CardInfoParts>>("parts");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("line");

    const QString mark(QChar(0xAB));
    QTest::newRow("no part") << std::vector<s_CardInfoParts>() << NoPartText << mark + NoPartText;
    QTest::newRow("no unit") << std::vector<s_CardInfoParts> { cardPart(1, 2) } << NotFoundText
                             << mark + NotFoundText + QStringLiteral("modelId is:2");
    QTest::newRow("too old") << std::vector<s_CardInfoParts> { cardPart(1, 0x1F3) } << TooLowText
                             << mark + TooLowText;
}

void tst_CompatibilityUpgradeDat::textsAreTranslated()
{
    QFETCH(std::vector<s_CardInfoParts>, parts);
    QFETCH(QString, text);
    QFETCH(QString, line);
    const LogRecorder log;
    const TranslationRecorder translator;
    d()->m_channel = m_channel;
    d()->m_cardParts = parts;

    d()->start();

    QVERIFY(hasEnded());
    QCOMPARE(m_ends, QVector<End>({ { false, QChar(0xAB) + text } }));
    QCOMPARE(log.texts(QtWarningMsg), QStringList(line));
    const QVector<QPair<QString, QString>> asked {
        { QStringLiteral("Velmar::Firmware::Internal::CompatibilityUpgradeDatPrivate"), text }
    };
    QCOMPARE(translator.asked(), asked);
}

QTEST_GUILESS_MAIN(tst_CompatibilityUpgradeDat)

#include "tst_compatibilityupgradedat.moc"
