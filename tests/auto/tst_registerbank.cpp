#include "devicestate.h"
#include "firmwarestore.h"
#include "fitting.h"
#include "registerbank.h"
#include "statefolder.h"
#include "support/unprivileged.h"

#include <velmarbizmodel/catalogue.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <csignal>
#include <sys/resource.h>

using namespace Velmar::Simulator;
using Velmar::BizModel::Catalogue;

namespace {

constexpr quint32 Card = 0x01000010;
constexpr quint32 FileType = 0x01000014;
constexpr quint32 TotalLength = 0x01000020;
constexpr quint32 LengthLock = 0x01000024;
constexpr quint32 FileLength = 0x0100002C;
constexpr quint32 FileCount = 0x01000030;
constexpr quint32 Data = 0x01001000;

constexpr SectionKey MainMcu { 1, 0, 0x7701, 0x0101 };

const QByteArray Firmware = QByteArrayLiteral("Controller MCU 3.2.1.0\nfirmware");

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(number, bytes.data());
    return bytes;
}

RegisterWrite writeTo(quint32 address, const QByteArray &body)
{
    RegisterWrite write;
    write.write = 1;
    write.address = address;
    write.length = quint16(body.size());
    write.body = body;
    return write;
}

/*! One write of a sequence, and what the device says to it. */
struct Step {
    quint32 address;
    QByteArray body;
    int ack = 0;
};

} // namespace

Q_DECLARE_METATYPE(QVector<Step>)
Q_DECLARE_METATYPE(Velmar::Simulator::RegisterWrite)

/*! The registers by which the simulated device takes firmware for an MCU. */
class tst_RegisterBank : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void wholeTransfer();
    void firmwareOfACard();
    void registersOfAnotherModel();
    void version_data();
    void version();
    void sameFirmwareAgain();
    void newFirmwareReplacesTheOld();

    void frame_data();
    void frame();
    void sequence_data();
    void sequence();
    void cardBeginsAnew();
    void refusalChangesNothing();
    void encipheredFile();

    void restartForgetsTheTransfer();
    void leftoversAreRemoved();
    void diskIsFull();
    void recordCannotBeWritten();

private:
    bool makeDevice(const QString &model = QString());
    int write(quint32 address, const QByteArray &body);
    bool prepare(quint32 length);
    bool send(const QByteArray &firmware);
    QStringList storedFiles() const;
    QByteArray stored(const SectionKey &key) const;
    QString installedVersion(const SectionKey &key) const;

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<StateFolder> m_folder;
    std::unique_ptr<DeviceState> m_state;
    std::optional<Fitting> m_fitting;
    std::unique_ptr<FirmwareStore> m_store;
    std::unique_ptr<RegisterBank> m_bank;
};

void tst_RegisterBank::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(makeDevice());
}

void tst_RegisterBank::cleanup()
{
    m_bank.reset();
    m_store.reset();
    m_state.reset();
    m_folder.reset();
    m_root.reset();
}

bool tst_RegisterBank::makeDevice(const QString &model)
{
    m_bank.reset();
    m_store.reset();
    m_state.reset();
    m_folder.reset();
    QString errorText;
    m_fitting = Fitting::fullyFitted(Catalogue::builtin(), model, errorText);
    m_folder = StateFolder::open(m_root->path(), errorText);
    if (!m_fitting || !m_folder)
        return false;
    m_state = DeviceState::load(*m_folder, m_fitting->model().modelId, errorText);
    if (!m_state)
        return false;
    m_store = std::make_unique<FirmwareStore>(*m_folder, *m_state);
    m_bank = std::make_unique<RegisterBank>(*m_fitting, *m_store);
    return true;
}

int tst_RegisterBank::write(quint32 address, const QByteArray &body)
{
    return int(m_bank->write(writeTo(address, body)).ack);
}

/*! All that comes before the data. */
bool tst_RegisterBank::prepare(quint32 length)
{
    return write(Card, QByteArray("\x01\x77\x00", 3)) == 0
        && write(FileType, QByteArray("\x01\x00", 2)) == 0
        && write(LengthLock, littleEndian(0)) == 0 && write(TotalLength, littleEndian(length)) == 0
        && write(LengthLock, littleEndian(0)) == 0 && write(FileLength, littleEndian(length)) == 0
        && write(FileCount, QByteArray("\x01\x00\x01\x00", 4)) == 0;
}

bool tst_RegisterBank::send(const QByteArray &firmware)
{
    if (!prepare(quint32(firmware.size())))
        return false;
    for (int offset = 0; offset < firmware.size(); offset += 4096) {
        if (write(Data, firmware.mid(offset, 4096)) != 0)
            return false;
    }
    return true;
}

QStringList tst_RegisterBank::storedFiles() const
{
    return QDir(m_folder->firmware()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

QByteArray tst_RegisterBank::stored(const SectionKey &key) const
{
    const auto &firmware = m_state->record().firmware;
    const auto found = firmware.find(key);
    if (found == firmware.end())
        return QByteArrayLiteral("nothing");
    QFile file(m_folder->firmware() + '/' + found->second);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("no file");
}

QString tst_RegisterBank::installedVersion(const SectionKey &key) const
{
    const auto &sections = m_state->record().sections;
    const auto found = sections.find(key);
    return found == sections.end() ? QString() : found->second.installed;
}

void tst_RegisterBank::wholeTransfer()
{
    QByteArray firmware = Firmware;
    for (int i = firmware.size(); i < 10000; ++i)
        firmware.append(char(i % 251));

    QVERIFY(prepare(10000));
    QCOMPARE(write(Data, firmware.mid(0, 4096)), 0);
    QCOMPARE(write(Data, firmware.mid(4096, 4096)), 0);
    QVERIFY(!m_bank->isComplete());
    QVERIFY(storedFiles().isEmpty());
    QCOMPARE(write(Data, firmware.mid(8192)), 0);

    QVERIFY(m_bank->isComplete());
    QCOMPARE(stored(MainMcu), firmware);
    QCOMPARE(storedFiles().size(), 1);
    QVERIFY(storedFiles().first().startsWith("main-"));
    QCOMPARE(QDir(m_folder->incoming()).entryList(QDir::Files), QStringList());
    QCOMPARE(installedVersion(MainMcu), QString("3.2.1.0"));
    QCOMPARE(m_state->runningVersion(MainMcu), QString("1.0.0.0"));
    // Until the restart.
    const RegisterAnswer answer = m_bank->write(writeTo(Card, QByteArray("\x01\x77\x00", 3)));
    QCOMPARE(int(answer.ack), 111);
    QCOMPARE(answer.errorText, QString("the device is about to restart"));
}

void tst_RegisterBank::firmwareOfACard()
{
    const FittedCard card = m_fitting->cards().front();
    QCOMPARE(card.modelId, quint16(0x7801));
    QVERIFY(prepare(quint32(Firmware.size())));
    QCOMPARE(write(Card, QByteArray("\x01\x78", 2) + char(card.slotId)), 0);
    QCOMPARE(write(FileType, QByteArray("\x01\x00", 2)), 0);
    QCOMPARE(write(LengthLock, littleEndian(0)), 0);
    QCOMPARE(write(TotalLength, littleEndian(quint32(Firmware.size()))), 0);
    QCOMPARE(write(LengthLock, littleEndian(0)), 0);
    QCOMPARE(write(FileLength, littleEndian(quint32(Firmware.size()))), 0);
    QCOMPARE(write(FileCount, QByteArray("\x01\x00\x01\x00", 4)), 0);
    QCOMPARE(write(Data, Firmware), 0);

    const SectionKey mcu { 3, card.slotId, 0x7801, 0x0301 };
    QCOMPARE(stored(mcu), Firmware);
    QVERIFY(storedFiles().first().startsWith("slot1-"));
    QCOMPARE(installedVersion(mcu), QString("3.2.1.0"));
    QCOMPARE(installedVersion(MainMcu), QString());
}

void tst_RegisterBank::registersOfAnotherModel()
{
    cleanup();
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(makeDevice("0x7702"));

    QCOMPARE(write(Card, QByteArray("\x02\x77\x00", 3)), 101);
    QCOMPARE(write(0x01100010, QByteArray("\x02\x77\x00", 3)), 0);
    QCOMPARE(write(0x01100014, QByteArray("\x01\x00", 2)), 0);
    QCOMPARE(write(0x01100024, littleEndian(0)), 0);
    QCOMPARE(write(0x01100020, littleEndian(5)), 0);
    QCOMPARE(write(0x01100024, littleEndian(0)), 0);
    QCOMPARE(write(0x0110002C, littleEndian(5)), 0);
    QCOMPARE(write(0x01100030, QByteArray("\x01\x00\x01\x00", 4)), 0);
    QCOMPARE(write(0x01101000, "bytes"), 0);
    QCOMPARE(stored({ 1, 0, 0x7702, 0x0101 }), QByteArray("bytes"));
}

void tst_RegisterBank::version_data()
{
    QTest::addColumn<QByteArray>("firmware");
    QTest::addColumn<QString>("installed");

    QTest::newRow("in the first line") << QByteArray("Strata S8 MCU 3.2.1.0\nrest") << "3.2.1.0";
    QTest::newRow("as the whole line") << QByteArray("10.0.255.7\n") << "10.0.255.7";
    // The first four bytes of the hash of what was sent.
    QTest::newRow("not the last word") << QByteArray("MCU 3.2.1.0 beta\n") << "179.119.55.204";
    QTest::newRow("within a word") << QByteArray("MCU-3.2.1.0\n") << "194.89.194.179";
    QTest::newRow("in the second line") << QByteArray("MCU\n3.2.1.0\n") << "75.239.156.227";
    QTest::newRow("no line at all") << QByteArray("abc") << "186.120.22.191";
    QTest::newRow("line of more than 64 bytes")
        << QByteArray(57, 'x') + QByteArray(" 3.2.1.0\n") << "85.176.80.147";
}

void tst_RegisterBank::version()
{
    QFETCH(QByteArray, firmware);
    QVERIFY(send(firmware));
    QTEST(installedVersion(MainMcu), "installed");
    QCOMPARE(stored(MainMcu), firmware);
}

void tst_RegisterBank::sameFirmwareAgain()
{
    QVERIFY(send(Firmware));
    const QStringList files = storedFiles();
    m_bank->reset();
    QVERIFY(send(Firmware));
    QCOMPARE(storedFiles(), files);
    QCOMPARE(stored(MainMcu), Firmware);
}

void tst_RegisterBank::newFirmwareReplacesTheOld()
{
    QVERIFY(send(Firmware));
    m_bank->reset();
    QVERIFY(send("Controller MCU 4.0.0.0\n"));
    QCOMPARE(storedFiles().size(), 1);
    QCOMPARE(stored(MainMcu), QByteArray("Controller MCU 4.0.0.0\n"));
    QCOMPARE(installedVersion(MainMcu), QString("4.0.0.0"));

    QVERIFY(makeDevice()); // from what the folder holds
    QCOMPARE(stored(MainMcu), QByteArray("Controller MCU 4.0.0.0\n"));
}

void tst_RegisterBank::frame_data()
{
    QTest::addColumn<RegisterWrite>("write");
    QTest::addColumn<int>("ack");
    QTest::addColumn<QString>("errorText");

    const RegisterWrite good = writeTo(Card, QByteArray("\x01\x77\x00", 3));
    QTest::newRow("as it should be") << good << 0 << QString();
    RegisterWrite write = good;
    write.scanner = 1;
    QTest::newRow("for a scanner") << write << 102 << "the device has no scanner behind it";
    write = good;
    write.write = 0;
    QTest::newRow("no write") << write << 102 << "the flags are not those of a write";
    write = good;
    write.reserved = 1;
    QTest::newRow("reserved flag") << write << 102 << "the flags are not those of a write";
    write = good;
    write.trailing = 1;
    QTest::newRow("trailing flag") << write << 102 << "the flags are not those of a write";
    write = good;
    write.length = 4;
    QTest::newRow("other length than the payload's")
        << write << 103 << "the length says 4 bytes, the payload has 3";
    write = good;
    write.address = 0x01000011;
    QTest::newRow("unknown address") << write << 101 << "there is no register at 0x01000011";
    QTest::newRow("payload too short")
        << writeTo(Card, QByteArray("\x01\x77", 2)) << 103 << "the register takes 3 bytes, not 2";
    QTest::newRow("payload too long") << writeTo(Card, QByteArray("\x01\x77\x00\x00", 4)) << 103
                                      << "the register takes 3 bytes, not 4";
    QTest::newRow("other model") << writeTo(Card, QByteArray("\x02\x77\x00", 3)) << 104
                                 << "card 0 is not of model 0x7702 with an MCU";
    QTest::newRow("high byte of the model first")
        << writeTo(Card, QByteArray("\x77\x01\x00", 3)) << 104
        << "card 0 is not of model 0x0177 with an MCU";
    QTest::newRow("empty slot") << writeTo(Card, QByteArray("\x01\x78\xFA", 3)) << 104
                                << "card 250 is not of model 0x7801 with an MCU";
}

void tst_RegisterBank::frame()
{
    QFETCH(RegisterWrite, write);
    const RegisterAnswer answer = m_bank->write(write);
    QTEST(int(answer.ack), "ack");
    QTEST(answer.errorText, "errorText");
}

void tst_RegisterBank::sequence_data()
{
    QTest::addColumn<QVector<Step>>("steps");

    const Step card { Card, QByteArray("\x01\x77\x00", 3) };
    const Step type { FileType, QByteArray("\x01\x00", 2) };
    const Step lock { LengthLock, littleEndian(0) };
    const Step total { TotalLength, littleEndian(5) };
    const Step length { FileLength, littleEndian(5) };
    const Step count { FileCount, QByteArray("\x01\x00\x01\x00", 4) };
    const auto wrong = [](const Step &step, int ack) {
        return Step { step.address, step.body, ack };
    };

    QTest::newRow("count and type last")
        << QVector<Step> { card, lock, total, lock, length, count, type, { Data, "12345" } };
    QTest::newRow("no card") << QVector<Step> {
        wrong(type, 109), wrong(lock, 109), wrong(total, 109), wrong(count, 109), { Data, "1", 109 }
    };
    QTest::newRow("other file type") << QVector<Step> {
        card, { FileType, QByteArray("\x02\x00", 2), 105 }, { FileType, "\x01", 103 }
    };
    QTest::newRow("lock with a value") << QVector<Step> { card,
                                                          { LengthLock, littleEndian(1), 107 },
                                                          { LengthLock, "\x01\x02", 103 },
                                                          wrong(total, 106) };
    QTest::newRow("total not unlocked") << QVector<Step> { card, wrong(total, 106) };
    QTest::newRow("one lock, two lengths")
        << QVector<Step> { card, lock, total, wrong(length, 106) };
    QTest::newRow("length of the file first") << QVector<Step> { card, lock, wrong(length, 109) };
    QTest::newRow("length of 0") << QVector<Step> { card,
                                                    lock,
                                                    { TotalLength, littleEndian(0), 107 } };
    QTest::newRow("length of all the room")
        << QVector<Step> { card, lock, { TotalLength, littleEndian(67108864) } };
    QTest::newRow("length of more than the room")
        << QVector<Step> { card, lock, { TotalLength, littleEndian(67108865), 107 } };
    QTest::newRow("high byte of a length first")
        << QVector<Step> { card, lock, { TotalLength, QByteArray("\0\0\x13\x88", 4), 107 } };
    QTest::newRow("length in two bytes")
        << QVector<Step> { card, lock, { TotalLength, QByteArray("\x05\0", 2), 103 } };
    QTest::newRow("lengths that differ")
        << QVector<Step> { card, lock, total, lock, { FileLength, littleEndian(4), 107 } };
    QTest::newRow("length of all files once more")
        << QVector<Step> { card,
                           type,
                           lock,
                           total,
                           lock,
                           length,
                           count,
                           lock,
                           { TotalLength, littleEndian(9) },
                           { Data, "12345", 109 },
                           lock,
                           wrong(length, 107),
                           { FileLength, littleEndian(9) },
                           { Data, "123456789" } };
    QTest::newRow("length of all files refused once more")
        << QVector<Step> { card,
                           type,
                           lock,
                           total,
                           lock,
                           length,
                           count,
                           lock,
                           { TotalLength, littleEndian(0), 107 },
                           { Data, "12345" } };
    QTest::newRow("two files") << QVector<Step> { card,
                                                  { FileCount, QByteArray("\x02\x00\x01\x00", 4),
                                                    108 },
                                                  { FileCount, QByteArray("\x01\x00", 2), 103 } };
    QTest::newRow("data without type")
        << QVector<Step> { card, lock, total, lock, length, count, { Data, "1", 109 } };
    QTest::newRow("data without lengths")
        << QVector<Step> { card, type, lock, total, count, { Data, "1", 109 } };
    QTest::newRow("data without count")
        << QVector<Step> { card, type, lock, total, lock, length, { Data, "1", 109 } };
    QTest::newRow("no data") << QVector<Step> { card, type,   lock,  total,
                                                lock, length, count, { Data, "", 103 } };
    QTest::newRow("too much at a time")
        << QVector<Step> { card,  type,
                           lock,  { TotalLength, littleEndian(9000) },
                           lock,  { FileLength, littleEndian(9000) },
                           count, { Data, QByteArray(4097, 'x'), 103 } };
    QTest::newRow("more than announced") << QVector<Step> {
        card, type, lock, total, lock, length, count, { Data, "12" }, { Data, "3456", 110 }
    };
    QTest::newRow("in pieces of any size")
        << QVector<Step> { card,   type,  lock,          total,          lock,
                           length, count, { Data, "1" }, { Data, "23" }, { Data, "45" } };
    QTest::newRow("settings behind the first data") << QVector<Step> { card,
                                                                       type,
                                                                       lock,
                                                                       total,
                                                                       lock,
                                                                       length,
                                                                       count,
                                                                       { Data, "1" },
                                                                       wrong(type, 109),
                                                                       wrong(lock, 109),
                                                                       wrong(count, 109) };
    QTest::newRow("behind the last data") << QVector<Step> { card,
                                                             type,
                                                             lock,
                                                             total,
                                                             lock,
                                                             length,
                                                             count,
                                                             { Data, "12345" },
                                                             { Data, "6", 111 },
                                                             wrong(card, 111) };
}

void tst_RegisterBank::sequence()
{
    QFETCH(QVector<Step>, steps);
    for (const Step &step : steps) {
        const RegisterAnswer answer = m_bank->write(writeTo(step.address, step.body));
        QCOMPARE(int(answer.ack), step.ack);
        QCOMPARE(answer.errorText.isEmpty(), step.ack == 0);
    }
}

void tst_RegisterBank::cardBeginsAnew()
{
    QVERIFY(prepare(8));
    QCOMPARE(write(Data, "lost"), 0);
    QVERIFY(prepare(3));
    QCOMPARE(write(Data, "new"), 0);
    QCOMPARE(stored(MainMcu), QByteArray("new"));
}

void tst_RegisterBank::refusalChangesNothing()
{
    QVERIFY(prepare(6));
    QCOMPARE(write(Data, "abc"), 0);
    QCOMPARE(write(Data, "defg"), 110);
    QCOMPARE(write(Card, QByteArray("\x02\x77\x00", 3)), 104);
    QCOMPARE(write(0, "x"), 101);
    QCOMPARE(write(FileCount, QByteArray("\x01\x00\x01\x00", 4)), 109);
    QCOMPARE(write(Data, "def"), 0);
    QCOMPARE(stored(MainMcu), QByteArray("abcdef"));
}

void tst_RegisterBank::encipheredFile()
{
    QVERIFY(prepare(8));
    QCOMPARE(write(Data, "VRC2"), 0);
    const RegisterAnswer answer = m_bank->write(writeTo(Data, "\x01\x02\x03\x04"));
    QCOMPARE(int(answer.ack), 112);
    QCOMPARE(answer.errorText, QString("the firmware is still enciphered"));
    QVERIFY(!m_bank->isComplete());
    QCOMPARE(stored(MainMcu), QByteArray("nothing"));
    QCOMPARE(write(Data, "x"), 109); // the transfer is over
    QVERIFY(send(Firmware));
}

void tst_RegisterBank::restartForgetsTheTransfer()
{
    QVERIFY(prepare(8));
    QCOMPARE(write(Data, "lost"), 0);
    m_bank->reset();
    QCOMPARE(write(Data, "more"), 109);
    QCOMPARE(QDir(m_folder->incoming()).entryList(QDir::Files), QStringList());
}

void tst_RegisterBank::leftoversAreRemoved()
{
    QVERIFY(send(Firmware));
    const QStringList files = storedFiles();
    for (const QString &path : { m_folder->incoming() + "/firmware",
                                 m_folder->firmware() + "/main-0123456789abcdef.bin" }) {
        QFile leftover(path);
        QVERIFY(leftover.open(QIODevice::WriteOnly) && leftover.write("old") == 3);
    }

    QVERIFY(makeDevice());

    QCOMPARE(storedFiles(), files);
    QCOMPARE(stored(MainMcu), Firmware);
    QCOMPARE(QDir(m_folder->incoming()).entryList(QDir::Files), QStringList());
}

void tst_RegisterBank::diskIsFull()
{
    for (const QString &folder : { m_root->path(), m_folder->incoming() })
        QVERIFY(Unprivileged::own(QFile::encodeName(folder)));
    const QByteArray outcome = Unprivileged::run([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit { 20000, 20000 };
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0 || !prepare(40960))
            return QByteArray("not prepared");
        QByteArray acks;
        for (int i = 0; i < 10; ++i)
            acks += QByteArray::number(write(Data, QByteArray(4096, 'x'))) + ' ';
        // What was refused left nothing behind: a smaller piece still fits.
        return acks + QByteArray::number(write(Data, QByteArray(3616, 'x')));
    });
    QCOMPARE(outcome, QByteArray("0 0 0 0 113 113 113 113 113 113 0"));
}

void tst_RegisterBank::recordCannotBeWritten()
{
    QVERIFY(send(Firmware));
    m_bank->reset();
    QVERIFY(prepare(3));
    // A folder in its place: even root cannot write the record.
    QVERIFY(QFile::remove(m_folder->stateFile()));
    QVERIFY(QDir().mkpath(m_folder->stateFile() + "/sub"));

    QCOMPARE(write(Data, "new"), 113);

    QVERIFY(!m_bank->isComplete());
    QCOMPARE(stored(MainMcu), Firmware);
    QCOMPARE(storedFiles().size(), 1);
    QCOMPARE(installedVersion(MainMcu), QString("3.2.1.0"));
}

QTEST_GUILESS_MAIN(tst_RegisterBank)

#include "tst_registerbank.moc"
