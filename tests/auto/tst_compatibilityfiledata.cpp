#include "compatibilityupgrade_dat.h"
#include "compatibilityupgrade_dat_p.h"

#include "support/encipheredfile.h"
#include "support/logrecorder.h"
#include "support/logtext.h"
#include "support/registerlink.h"
#include "support/unprivileged.h"

#include <velmarssproxy/devicechannel.h>

#include <QScopedPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using TZ::ZLoad::CommandConfig;
using Velmar::BizModel::LinkAnswer;
using Velmar::Firmware::CompatibilityUpgradeDat;
using Velmar::Firmware::Internal::CompatibilityUpgradeDatPrivate;
using Velmar::SSProxy::DeviceChannel;

Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)

namespace {

const QString RegisterWrite = QStringLiteral("register.write");

QByteArray firmware(int size)
{
    QByteArray bytes;
    bytes.reserve(size);
    for (int i = 0; i < size; ++i)
        bytes.append(static_cast<char>(i % 251));
    return bytes;
}

// Without what the cipher library says of a file that it cannot decipher.
QStringList warnings(const LogRecorder &log)
{
    return log.texts(QtWarningMsg).filter(QRegularExpression(QStringLiteral("^(?!Failed to dec)")));
}

} // namespace

class tst_CompatibilityFileData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void sizes_data();
    void sizes();
    void progressFollowsItsWrite();
    void commandSaysOnlyWhereAndHowLong();
    void plainCopyStandsThroughTheTransfer();
    void leftoverIsOverwritten();
    void nextRunBeginsAgain();

    void partIsNotAccepted_data();
    void partIsNotAccepted();
    void onlyWriteIsNotAccepted();
    void decodeFails_data();
    void decodeFails();
    void plainCopyCannotBeOpened();

    void decodedLength_data();
    void decodedLength();
    void decodedLengthOfUnreadablePlainCopy();

private:
    QString path(const QString &name = QStringLiteral("MCU.dat")) const
    {
        return m_folder->filePath(name);
    }
    QStringList entries() const
    {
        return QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    }
    bool send();

    QScopedPointer<QTemporaryDir> m_folder;
    QScopedPointer<CompatibilityUpgradeDat> m_upgrade;
    CompatibilityUpgradeDatPrivate *d = nullptr; // of m_upgrade; works on the thread of the test
    std::shared_ptr<RegisterLink> m_link;
    std::shared_ptr<DeviceChannel> m_channel;
    CommandConfig m_command;
    QVector<double> m_progress;
};

void tst_CompatibilityFileData::init()
{
    m_folder.reset(new QTemporaryDir);
    QVERIFY(m_folder->isValid());
    m_link = std::make_shared<RegisterLink>();
    m_channel = std::make_shared<DeviceChannel>(m_link);
    m_upgrade.reset(new CompatibilityUpgradeDat);
    d = CompatibilityUpgradeDatPrivate::get(m_upgrade.data());
    d->m_channel = m_channel;
    d->m_currentFilePath = path();
    m_command.CmdName = QStringLiteral("SendFileData");
    m_command.Address = 0x01001000;
    m_command.TimeOut = 3000;
    m_progress.clear();
    connect(m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateProcessChanged, this,
            [this](int type, double process) {
                QCOMPARE(type, 17);
                m_progress.append(process);
            });
}

bool tst_CompatibilityFileData::send()
{
    return d->sendFileDataCommand({ &m_command });
}

void tst_CompatibilityFileData::sizes_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QVector<int>>("writeSizes");
    QTest::addColumn<QVector<double>>("progress");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("empty") << 0 << QVector<int> { 0 } << QVector<double> {}
                           << QStringList({ "Fail to send command: data is empty" });
    QTest::newRow("one byte") << 1 << QVector<int> { 1 } << QVector<double> {} << QStringList();
    QTest::newRow("just one write")
        << 4096 << QVector<int> { 4096 } << QVector<double> {} << QStringList();
    QTest::newRow("one byte more")
        << 4097 << QVector<int> { 4096, 1 } << QVector<double> { 0.5, 1.0 } << QStringList();
    QTest::newRow("two whole writes")
        << 8192 << QVector<int> { 4096, 4096 } << QVector<double> { 0.5, 1.0 } << QStringList();
    QTest::newRow("five writes") << 16390 << QVector<int> { 4096, 4096, 4096, 4096, 6 }
                                 << QVector<double> { 0.2, 0.4, 0.6, 0.8, 1.0 } << QStringList();
}

void tst_CompatibilityFileData::sizes()
{
    QFETCH(int, size);
    QFETCH(QVector<int>, writeSizes);
    QFETCH(QVector<double>, progress);
    QFETCH(QStringList, lines);
    const LogRecorder log;
    QVERIFY(storeEnciphered(path(), firmware(size)));

    QVERIFY(send());

    const QVector<QByteArray> payloads = m_link->payloads();
    QVector<int> sizes;
    QByteArray sent;
    for (const QByteArray &payload : payloads) {
        sizes.append(payload.size());
        sent += payload;
    }
    QCOMPARE(sizes, writeSizes);
    QCOMPARE(sent, firmware(size));
    for (int i = 0; i < writeSizes.size(); ++i) {
        const QCborMap arguments = m_link->arguments(RegisterWrite).at(i);
        QCOMPARE(arguments.value(QLatin1String("address")), QCborValue(0x01001000));
        QCOMPARE(arguments.value(QLatin1String("length")), QCborValue(writeSizes.at(i)));
    }
    QCOMPARE(m_progress, progress);
    QCOMPARE(log.texts(QtWarningMsg), lines);
    QCOMPARE(log.lines().size(), lines.size());
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::progressFollowsItsWrite()
{
    QVector<int> writesBefore;
    connect(m_upgrade.data(), &CompatibilityUpgradeDat::signalUpdateProcessChanged, this,
            [&] { writesBefore.append(m_link->requests().size()); });
    QVERIFY(storeEnciphered(path(), firmware(12288)));

    QVERIFY(send());

    QCOMPARE(writesBefore, QVector<int>({ 1, 2, 3 }));
    QCOMPARE(m_progress.last(), 1.0);
}

void tst_CompatibilityFileData::commandSaysOnlyWhereAndHowLong()
{
    QVERIFY(storeEnciphered(path(), firmware(4)));
    QFile stored(path());
    QVERIFY(stored.open(QIODevice::ReadOnly));
    const QByteArray before = stored.readAll();
    m_command.Data = QStringLiteral("other.dat");
    m_command.ExecuteTimes = 3;
    m_command.WaitTime = 60000;
    m_command.TimeOut = 1750;

    QVERIFY(send());

    QCOMPARE(m_link->writes(), QStringList({ "01001000: 00 01 02 03" }));
    QCOMPARE(m_link->requests().first().timeout, 1750);
    QVERIFY(stored.seek(0));
    QCOMPARE(stored.readAll(), before);
}

void tst_CompatibilityFileData::plainCopyStandsThroughTheTransfer()
{
    QVector<QStringList> seen;
    m_link->handle(RegisterWrite, [&](const auto &) {
        seen.append(entries());
        return ScriptedLink::accepted();
    });
    QVERIFY(storeEnciphered(path(), firmware(4097)));

    QVERIFY(send());

    const QStringList both { "MCU.dat", "MCU.dat_dn" };
    QCOMPARE(seen, QVector<QStringList>({ both, both }));
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::leftoverIsOverwritten()
{
    QVERIFY(storeEnciphered(path(), firmware(3)));
    QFile leftover(path(QStringLiteral("MCU.dat_dn")));
    QVERIFY(leftover.open(QIODevice::WriteOnly) && leftover.write("longer than three") > 3);
    leftover.close();

    QVERIFY(send());

    QCOMPARE(m_link->writes(), QStringList({ "01001000: 00 01 02" }));
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::nextRunBeginsAgain()
{
    const LogRecorder log;
    QVERIFY(storeEnciphered(path(), firmware(12288)));
    m_link->answerWrite(2, ScriptedLink::refused(1, QString()));

    QVERIFY(!send());
    QVERIFY(send());

    const QVector<QByteArray> payloads = m_link->payloads();
    QCOMPARE(payloads.size(), 5);
    QCOMPARE(payloads.at(2) + payloads.at(3) + payloads.at(4), firmware(12288));
}

void tst_CompatibilityFileData::partIsNotAccepted_data()
{
    QTest::addColumn<LinkAnswer>("answer");
    QTest::addColumn<QString>("line");

    QTest::newRow("refused") << ScriptedLink::refused(9, QString())
                             << "Fail to send command: send to hardware failed, ack is 9";
    QTest::newRow("not answered") << ScriptedLink::failed(LinkAnswer::Outcome::TimedOut)
                                  << "Fail to send command: invalid response cmd";
    QTest::newRow("connection lost") << ScriptedLink::failed(LinkAnswer::Outcome::Lost)
                                     << "Fail to send command: invalid response cmd";
}

void tst_CompatibilityFileData::partIsNotAccepted()
{
    QFETCH(LinkAnswer, answer);
    QFETCH(QString, line);
    const LogRecorder log;
    QVERIFY(storeEnciphered(path(), firmware(40960)));
    m_link->answerWrite(3, answer);

    QVERIFY(!send());

    QCOMPARE(m_link->requests().size(), 3);
    QCOMPARE(m_progress, QVector<double>({ 0.1, 0.2 }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ line,
                           "Fail to send command(SendFileData): send to hardware failed,"
                           " current/total "
                               + path() + " 3/10" }));
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::onlyWriteIsNotAccepted()
{
    const LogRecorder log;
    QVERIFY(storeEnciphered(path(), firmware(4096)));
    m_link->answerWrite(1, ScriptedLink::refused(2, QString()));

    QVERIFY(!send());

    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Fail to send command: send to hardware failed, ack is 2" }));
    QCOMPARE(m_progress, QVector<double>());
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::decodeFails_data()
{
    QTest::addColumn<bool>("isThere");
    QTest::addColumn<bool>("isDamaged");
    QTest::addColumn<bool>("isInTheWay"); // a folder, where the plain copy belongs
    QTest::addColumn<bool>("hasLeftover"); // a plain copy of an earlier run
    QTest::addColumn<QStringList>("left");

    QTest::newRow("no file") << false << false << false << false << QStringList();
    QTest::newRow("damaged file") << true << true << false << false << QStringList({ "MCU.dat" });
    QTest::newRow("no file, but a leftover") << false << false << false << true << QStringList();
    QTest::newRow("damaged file and a leftover")
        << true << true << false << true << QStringList({ "MCU.dat" });
    QTest::newRow("folder in the place of the copy")
        << true << false << true << false << QStringList({ "MCU.dat", "MCU.dat_dn" });
}

void tst_CompatibilityFileData::decodeFails()
{
    QFETCH(bool, isThere);
    QFETCH(bool, isDamaged);
    QFETCH(bool, isInTheWay);
    QFETCH(bool, hasLeftover);
    QFETCH(QStringList, left);
    const LogRecorder log;
    const auto leaveCopy = [this] {
        QFile leftover(path(QStringLiteral("MCU.dat_dn")));
        return leftover.open(QIODevice::WriteOnly) && leftover.write("earlier") == 7;
    };
    QVERIFY(!isThere || storeEnciphered(path(), firmware(5000)));
    QVERIFY(!isDamaged || QFile::resize(path(), QFileInfo(path()).size() - 1));
    QVERIFY(!isInTheWay || QDir(m_folder->path()).mkdir(QStringLiteral("MCU.dat_dn")));

    QVERIFY(!hasLeftover || leaveCopy());
    QVERIFY(!send());
    QCOMPARE(entries(), left);
    QVERIFY(!hasLeftover || leaveCopy());
    QCOMPARE(d->decodedFileLength(path()), 0);
    QCOMPARE(entries(), left);

    QCOMPARE(m_link->requests().size(), 0);
    QCOMPARE(warnings(log),
             QStringList({ "Fail to send command(SendFileData): decode failed " + path() }));
}

void tst_CompatibilityFileData::plainCopyCannotBeOpened()
{
    QVERIFY(storeEnciphered(path(), firmware(10)));
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));
    QVERIFY(Unprivileged::own(QFile::encodeName(path())));

    const QByteArray outcome = Unprivileged::run([this] {
        const LogRecorder log;
        ::umask(0777);
        const bool isSent = send();
        return QByteArray::number(isSent) + ' ' + QByteArray::number(m_link->requests().size())
            + ' ' + logText(log);
    });

    QCOMPARE(outcome,
             "0 0 warning: Fail to send command(SendFileData): open file failed " + path().toUtf8()
                 + "\n");
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::decodedLength_data()
{
    QTest::addColumn<int>("size");

    QTest::newRow("empty") << 0;
    QTest::newRow("one byte") << 1;
    QTest::newRow("a block of the cipher") << 8;
    QTest::newRow("more than 16 bits") << 70001;
}

void tst_CompatibilityFileData::decodedLength()
{
    QFETCH(int, size);
    const LogRecorder log;
    QVERIFY(storeEnciphered(path(), firmware(size)));

    QCOMPARE(d->decodedFileLength(path()), size);

    QCOMPARE(log.lines().size(), 0);
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityFileData::decodedLengthOfUnreadablePlainCopy()
{
    QVERIFY(storeEnciphered(path(), firmware(10)));
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));
    QVERIFY(Unprivileged::own(QFile::encodeName(path())));

    const QByteArray outcome = Unprivileged::run([this] {
        const LogRecorder log;
        ::umask(0777);
        const int length = d->decodedFileLength(path());
        return QByteArray::number(length) + logText(log);
    });

    QCOMPARE(outcome, QByteArray("0"));
    QCOMPARE(entries(), QStringList({ "MCU.dat" }));
}

QTEST_GUILESS_MAIN(tst_CompatibilityFileData)

#include "tst_compatibilityfiledata.moc"
