#include "compatibilityupgrade_dat.h"
#include "compatibilityupgrade_dat_p.h"

#include "support/encipheredfile.h"
#include "support/logrecorder.h"
#include "support/registerlink.h"

#include <velmarssproxy/devicechannel.h>

#include <QTemporaryDir>
#include <QtTest>

#include <limits>

using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::FileInfo;
using Velmar::BizModel::LinkAnswer;
using Velmar::Firmware::CompatibilityUpgradeDat;
using Velmar::Firmware::Internal::CompatibilityUpgradeDatPrivate;
using Velmar::SSProxy::DeviceChannel;

Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)

namespace {

constexpr int CardIndexAddress = 0x01000010;
constexpr int FileTypeAddress = 0x01000014;
constexpr int LengthAddress = 0x01000020;
constexpr int CountAddress = 0x01000030;
constexpr int DataAddress = 0x01001000;

const QString Mcu = QStringLiteral("MCU");
const QString McuDat = QStringLiteral("MCU.dat");
const QString RegisterWrite = QStringLiteral("register.write");

/*! What a command of a package says. */
struct Command {
    QString name;
    int address = 0;
    QString data {};
    int timeout = 0; // ms
};

const Command CardIndex { QStringLiteral("SendCardIndex"), CardIndexAddress, QStringLiteral("2") };
const Command DeviceId { QStringLiteral("SendDeviceID"), 0x02000000 };
const Command FileType { QStringLiteral("SendSenderFileType"), FileTypeAddress,
                         QStringLiteral("1-0") };
const Command FileLength { QStringLiteral("SendFileLength"), LengthAddress };
const Command FileCount { QStringLiteral("SendFileCount"), CountAddress };
const Command FileData { QStringLiteral("SendFileData"), DataAddress };

/*! A run that the test takes step by step, on its own thread. */
class Run
{
public:
    Run()
        : d(*CompatibilityUpgradeDatPrivate::get(&m_owner))
        , link(std::make_shared<RegisterLink>())
        , channel(std::make_shared<DeviceChannel>(link))
    {
        d.m_dataPackage.FilePath = folder.path();
        d.m_dataPackage.ModuleID = QStringLiteral("1F2");
        d.m_channel = channel;
    }

    void add(const QString &label, const QString &fileName, const QVector<Command> &commands)
    {
        auto *file = new FileInfo;
        file->FileLabel = label;
        file->FileName = fileName;
        for (const Command &command : commands) {
            auto *config = new CommandConfig;
            config->CmdName = command.name;
            config->Address = command.address;
            config->Data = command.data;
            config->TimeOut = command.timeout;
            file->commandConfigs.append(config);
        }
        d.m_dataPackage.fileInfos.append(file);
    }

    bool store(const QString &fileName, int size) const
    {
        return storeEnciphered(folder.filePath(fileName), QByteArray(size, 'x'));
    }

private:
    CompatibilityUpgradeDat m_owner;

public:
    CompatibilityUpgradeDatPrivate &d;
    QTemporaryDir folder;
    std::shared_ptr<RegisterLink> link;
    std::shared_ptr<DeviceChannel> channel;
};

// Without what the cipher library says of a file that is not there.
QStringList warnings(const LogRecorder &log)
{
    return log.texts(QtWarningMsg).filter(QRegularExpression(QStringLiteral("^(?!Failed to dec)")));
}

} // namespace

class tst_CompatibilityCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handlers();

    void wholeFile();
    void orderIsThatOfThePackage();
    void filesAreChosenByLabel();
    void everyFileWithTheLabelIsSent();
    void fileWithoutCommands();
    void commandsWithoutTraffic_data();
    void commandsWithoutTraffic();
    void nullCommand();
    void nullCommandBeforeDeviceId();
    void commandsAroundTheFileAreNotUsed();
    void otherFieldsAreNotUsed();
    void nameTwice();
    void failureEndsTheWalk_data();
    void failureEndsTheWalk();
    void commandNotFound_data();
    void commandNotFound();

    void cardIndexPayload_data();
    void cardIndexPayload();
    void cardIndexWantsDeviceId();
    void fileTypePayload_data();
    void fileTypePayload();
    void fileCountPayload();
    void lengthWrites();
    void lengthsOfMissingFile();
    void totalCountsByName_data();
    void totalCountsByName();
    void totalIsCountedAnew();
    void lengthWriteRefused_data();
    void lengthWriteRefused();

    void oneWrite();
    void lengthIsCutToSixteenBits_data();
    void lengthIsCutToSixteenBits();
    void timeout_data();
    void timeout();
    void targetFlag_data();
    void targetFlag();
    void emptyWriteIsSent();
    void noAnswer_data();
    void noAnswer();
    void refusedWrite_data();
    void refusedWrite();
    void channelInNoStateToSend();
    void channelGone();
    void channelIsLockedForEachWrite();
    void channelIsAskedOnceForEachWrite();
};

void tst_CompatibilityCommands::handlers()
{
    const Run run;

    QCOMPARE(run.d.m_commandHandlers.keys(),
             QStringList({ "SendCardIndex", "SendFileCount", "SendFileData", "SendFileLength",
                           "SendSenderFileType" }));
}

void tst_CompatibilityCommands::wholeFile()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { CardIndex, DeviceId, FileType, FileLength, FileCount, FileData });
    QByteArray plain;
    for (int i = 0; i < 5000; ++i)
        plain.append(static_cast<char>(i % 251));
    QVERIFY(storeEnciphered(run.folder.filePath(McuDat), plain));

    QVERIFY(run.d.sendFileInfo());

    const QStringList writes = run.link->writes();
    QCOMPARE(writes.mid(0, 7),
             QStringList({ "01000010: f2 01 02", "01000014: 01 00", "01000024: 00 00 00 00",
                           "01000020: 88 13 00 00", "01000024: 00 00 00 00",
                           "0100002c: 88 13 00 00", "01000030: 01 00 01 00" }));
    QCOMPARE(writes.size(), 9);
    QVERIFY(writes.at(7).startsWith(QLatin1String("01001000: ")));
    QVERIFY(writes.at(8).startsWith(QLatin1String("01001000: ")));
    QCOMPARE(run.link->payloads().at(7), plain.left(4096));
    QCOMPARE(run.link->payloads().at(8), plain.mid(4096));
    QCOMPARE(run.link->requests().size(), 9);
    QCOMPARE(run.d.m_currentFilePath, run.folder.path() + QStringLiteral("/MCU.dat"));
    QCOMPARE(log.lines().size(), 0);
}

void tst_CompatibilityCommands::orderIsThatOfThePackage()
{
    Run run;
    run.add(Mcu, McuDat, { FileCount, FileData, FileType, CardIndex, DeviceId });
    QVERIFY(run.store(McuDat, 1));

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(),
             QStringList({ "01000030: 01 00 01 00", "01001000: 78", "01000014: 01 00",
                           "01000010: f2 01 02" }));
}

void tst_CompatibilityCommands::filesAreChosenByLabel()
{
    const LogRecorder log;
    Run run;
    run.add(QStringLiteral("mcu"), McuDat, { FileCount });
    run.add(QStringLiteral("MCU_Back"), McuDat, { FileCount });
    run.add(QString(), McuDat, { FileCount });

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->requests().size(), 0);
    QCOMPARE(run.d.m_currentFilePath, QString());
    QCOMPARE(log.lines().size(), 0);
}

void tst_CompatibilityCommands::everyFileWithTheLabelIsSent()
{
    Run run;
    run.add(Mcu, QStringLiteral("one.dat"), { FileData });
    run.add(QStringLiteral("FPGA"), QStringLiteral("two.dat"), { FileData });
    run.add(Mcu, QStringLiteral("three.dat"), { FileCount });
    QVERIFY(run.store(QStringLiteral("one.dat"), 1));

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01001000: 78", "01000030: 01 00 01 00" }));
    QCOMPARE(run.d.m_currentFilePath, run.folder.path() + QStringLiteral("/three.dat"));
}

void tst_CompatibilityCommands::fileWithoutCommands()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, {});

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->requests().size(), 0);
    QCOMPARE(log.lines().size(), 0);
}

void tst_CompatibilityCommands::commandsWithoutTraffic_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("device id alone") << QStringLiteral("SendDeviceID");
    QTest::newRow("sub-card index") << QStringLiteral("SendSubCarIndex");
    QTest::newRow("other case") << QStringLiteral("sendFileCount");
    QTest::newRow("blank behind it") << QStringLiteral("SendFileCount ");
    QTest::newRow("unnamed") << QString();
}

void tst_CompatibilityCommands::commandsWithoutTraffic()
{
    QFETCH(QString, name);
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { { name, CountAddress } });

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->requests().size(), 0);
    QCOMPARE(log.lines().size(), 0);
}

void tst_CompatibilityCommands::nullCommand()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { FileCount, CardIndex, DeviceId });
    QList<CommandConfig *> &commands = run.d.m_dataPackage.fileInfos.first()->commandConfigs;
    commands.insert(1, nullptr);

    QVERIFY(!run.d.sendCommandConfig(commands));

    QCOMPARE(run.link->writes(), QStringList({ "01000030: 01 00 01 00" }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Fail to send command: invalid command config" }));
}

void tst_CompatibilityCommands::nullCommandBeforeDeviceId()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { CardIndex, DeviceId });
    QList<CommandConfig *> &commands = run.d.m_dataPackage.fileInfos.first()->commandConfigs;
    commands.insert(1, nullptr);

    QVERIFY(!run.d.sendCommandConfig(commands));

    QCOMPARE(run.link->writes(), QStringList({ "01000010: f2 01 02" }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Fail to send command: invalid command config" }));
}

void tst_CompatibilityCommands::commandsAroundTheFileAreNotUsed()
{
    Run run;
    run.add(Mcu, McuDat, { FileCount });
    const auto fileType = [] {
        auto *command = new CommandConfig;
        command->CmdName = FileType.name;
        command->Address = FileTypeAddress;
        return command;
    };
    run.d.m_dataPackage.beforeStartCmd->commandConfigs.append(fileType());
    run.d.m_dataPackage.endSendCmd->commandConfigs.append(fileType());

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01000030: 01 00 01 00" }));
}

void tst_CompatibilityCommands::otherFieldsAreNotUsed()
{
    Run run;
    run.add(Mcu, McuDat, { FileCount });
    FileInfo &file = *run.d.m_dataPackage.fileInfos.first();
    file.Address = 0x00000BAD;
    CommandConfig &command = *file.commandConfigs.first();
    command.IsCommonCmd = true;
    command.WaitTime = 600000; // the test would not live to see it
    command.ExecuteTimes = 3;
    command.CmdFromNoneType = 4;
    command.SpecialPackID = 5;

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01000030: 01 00 01 00" }));
}

void tst_CompatibilityCommands::nameTwice()
{
    Run run;
    run.add(Mcu, McuDat,
            { FileType,
              { FileType.name, 0x00000099, QStringLiteral("7-8-9"), 4000 },
              { QStringLiteral("SendDeviceID") } });
    run.d.m_dataPackage.fileInfos.first()->commandConfigs.first()->TimeOut = 1500;

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01000014: 01 00", "01000014: 01 00" }));
    QCOMPARE(run.link->requests().at(0).timeout, 1500);
    QCOMPARE(run.link->requests().at(1).timeout, 1500);
}

void tst_CompatibilityCommands::failureEndsTheWalk_data()
{
    QTest::addColumn<int>("write");
    QTest::addColumn<QStringList>("lines");

    const QString refusal =
        QStringLiteral("Fail to send command: send to hardware failed, ack is 7");
    QTest::newRow("card index") << 1
                                << QStringList({ refusal, "Fail to send command: SendCardIndex",
                                                 "Fail to send command config" });
    QTest::newRow("file type") << 2
                               << QStringList({ refusal, "Fail to send command: SendSenderFileType",
                                                "Fail to send command config" });
    QTest::newRow("first length")
        << 3
        << QStringList({ refusal, "Fail to send command(SendFileLength): address 16777252",
                         "Fail to send command: SendFileLength", "Fail to send command config" });
    QTest::newRow("last length")
        << 6
        << QStringList({ refusal, "Fail to send command(SendFileLength): address 16777260",
                         "Fail to send command: SendFileLength", "Fail to send command config" });
    QTest::newRow("file count") << 7
                                << QStringList({ refusal, "Fail to send command: SendFileCount",
                                                 "Fail to send command config" });
    QTest::newRow("data") << 8
                          << QStringList({ refusal, "Fail to send command: SendFileData",
                                           "Fail to send command config" });
    QTest::newRow("second file") << 9
                                 << QStringList({ refusal, "Fail to send command: SendFileCount",
                                                  "Fail to send command config" });
}

void tst_CompatibilityCommands::failureEndsTheWalk()
{
    QFETCH(int, write);
    QFETCH(QStringList, lines);
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { CardIndex, DeviceId, FileType, FileLength, FileCount, FileData });
    run.add(Mcu, McuDat, { FileCount });
    run.add(Mcu, McuDat, { FileCount });
    QVERIFY(run.store(McuDat, 10));
    run.link->answerWrite(write, ScriptedLink::refused(7, QString()));

    QVERIFY(!run.d.sendFileInfo());

    QCOMPARE(run.link->requests().size(), write);
    QCOMPARE(log.texts(QtWarningMsg), lines);
    QCOMPARE(log.lines().size(), lines.size());
    QCOMPARE(run.d.m_errorMessage, QString());
}

void tst_CompatibilityCommands::commandNotFound_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("line");

    QTest::newRow("card index") << 0 << QStringLiteral("command config not found:SendCardIndex");
    QTest::newRow("file type") << 1
                               << QStringLiteral("command config not found:SendSenderFileType");
    QTest::newRow("file length") << 2 << QStringLiteral("command config not found:SendFileLength");
    QTest::newRow("file count") << 3 << QStringLiteral("command config not found:SendFileCount");
    QTest::newRow("file data") << 4
                               << QStringLiteral(
                                      "command config not found(SendFileData):SendFileData");
}

void tst_CompatibilityCommands::commandNotFound()
{
    QFETCH(int, index);
    QFETCH(QString, line);
    using Handler = bool (CompatibilityUpgradeDatPrivate::*)(const QList<CommandConfig *> &);
    const Handler handlers[] = { &CompatibilityUpgradeDatPrivate::sendCardIndexCommand,
                                 &CompatibilityUpgradeDatPrivate::sendSenderFileTypeCommand,
                                 &CompatibilityUpgradeDatPrivate::sendFileLengthCommand,
                                 &CompatibilityUpgradeDatPrivate::sendFileCountCommand,
                                 &CompatibilityUpgradeDatPrivate::sendFileDataCommand };
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { DeviceId, { QStringLiteral("SendFile") } });

    QVERIFY(!(run.d.*handlers[index])(run.d.m_dataPackage.fileInfos.first()->commandConfigs));

    QCOMPARE(log.texts(QtWarningMsg), QStringList(line));
    QCOMPARE(run.link->requests().size(), 0);
}

void tst_CompatibilityCommands::cardIndexPayload_data()
{
    QTest::addColumn<QString>("moduleId");
    QTest::addColumn<QString>("data");
    QTest::addColumn<QString>("write");

    QTest::newRow("hexadecimal id") << "1F2"
                                    << "2"
                                    << "01000010: f2 01 02";
    QTest::newRow("with prefix, in lower case") << "0x7a01"
                                                << "0"
                                                << "01000010: 01 7a 00";
    QTest::newRow("id of more than 16 bits") << "12345"
                                             << "1"
                                             << "01000010: 45 23 01";
    QTest::newRow("id that is no number") << "XYZ"
                                          << "5"
                                          << "01000010: 00 00 05";
    QTest::newRow("no id") << ""
                           << "5"
                           << "01000010: 00 00 05";
    QTest::newRow("index of more than 8 bits") << "1"
                                               << "300"
                                               << "01000010: 01 00 2c";
    QTest::newRow("index below zero") << "1"
                                      << "-1"
                                      << "01000010: 01 00 ff";
    QTest::newRow("no index") << "1"
                              << ""
                              << "01000010: 01 00 00";
    QTest::newRow("hexadecimal index") << "1"
                                       << "0x10"
                                       << "01000010: 01 00 00";
    QTest::newRow("index that is no number") << "1"
                                             << "two"
                                             << "01000010: 01 00 00";
}

void tst_CompatibilityCommands::cardIndexPayload()
{
    QFETCH(QString, moduleId);
    QFETCH(QString, data);
    QFETCH(QString, write);
    Run run;
    run.d.m_dataPackage.ModuleID = moduleId;
    run.add(Mcu, McuDat,
            { { CardIndex.name, CardIndexAddress, data, 1234 },
              { DeviceId.name, 0x02000000, QStringLiteral("9"), 4321 } });

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList(write));
    QCOMPARE(run.link->requests().first().timeout, 1234);
}

void tst_CompatibilityCommands::cardIndexWantsDeviceId()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { CardIndex, FileCount });

    QVERIFY(!run.d.sendFileInfo());

    QCOMPARE(run.link->requests().size(), 0);
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "command config not found:SendDeviceID",
                           "Fail to send command: SendCardIndex", "Fail to send command config" }));
}

void tst_CompatibilityCommands::fileTypePayload_data()
{
    QTest::addColumn<QString>("data");
    QTest::addColumn<QString>("write");

    QTest::newRow("three bytes") << "1-0-16"
                                 << "01000014: 01 00 10";
    QTest::newRow("one byte") << "255"
                              << "01000014: ff";
    QTest::newRow("nothing") << ""
                             << "01000014: 00";
    QTest::newRow("empty parts") << "-7-"
                                 << "01000014: 00 07 00";
    QTest::newRow("more than 8 bits") << "300-511"
                                      << "01000014: 2c ff";
    QTest::newRow("hexadecimal") << "0x10-1"
                                 << "01000014: 00 01";
    QTest::newRow("no numbers") << "a-b"
                                << "01000014: 00 00";
}

void tst_CompatibilityCommands::fileTypePayload()
{
    QFETCH(QString, data);
    QFETCH(QString, write);
    Run run;
    run.add(Mcu, McuDat, { { FileType.name, FileTypeAddress, data, 700 } });

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList(write));
    QCOMPARE(run.link->requests().first().timeout, 700);
}

void tst_CompatibilityCommands::fileCountPayload()
{
    Run run;
    run.add(Mcu, McuDat, { { FileCount.name, CountAddress, QStringLiteral("5-5-5"), 800 } });

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01000030: 01 00 01 00" }));
    QCOMPARE(run.link->requests().first().timeout, 800);
}

void tst_CompatibilityCommands::lengthWrites()
{
    Run run;
    run.add(Mcu, McuDat, { { FileLength.name, LengthAddress, QStringLiteral("1"), 900 } });
    QVERIFY(run.store(McuDat, 70000));

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(),
             QStringList({ "01000024: 00 00 00 00", "01000020: 70 11 01 00",
                           "01000024: 00 00 00 00", "0100002c: 70 11 01 00" }));
    for (const auto &request : run.link->requests())
        QCOMPARE(request.timeout, 900);
    QCOMPARE(run.d.m_totalFileLength, 70000);
    QCOMPARE(QDir(run.folder.path()).entryList(QDir::Files), QStringList({ "MCU.dat" }));
}

void tst_CompatibilityCommands::lengthsOfMissingFile()
{
    Run run;
    run.add(Mcu, McuDat, { FileLength });

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to decipher .*/MCU.dat: "));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Failed to decipher .*/MCU.dat: "));
    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes(),
             QStringList({ "01000024: 00 00 00 00", "01000020: 00 00 00 00",
                           "01000024: 00 00 00 00", "0100002c: 00 00 00 00" }));
}

void tst_CompatibilityCommands::totalCountsByName_data()
{
    QTest::addColumn<QString>("currentName");
    QTest::addColumn<QStringList>("otherNames");
    QTest::addColumn<QString>("total");

    QTest::newRow("no file of that name")
        << "Main.dat" << QStringList({ "mcu.dat", "MCU.dat.bak" }) << "01000020: 00 00 00 00";
    QTest::newRow("only a file of another label")
        << "Main.dat" << QStringList({ "MCU.dat" }) << "01000020: e8 03 00 00";
    QTest::newRow("listed with two labels")
        << "MCU.dat" << QStringList({ "MCU.dat" }) << "01000020: d0 07 00 00";
}

void tst_CompatibilityCommands::totalCountsByName()
{
    QFETCH(QString, currentName);
    QFETCH(QStringList, otherNames);
    QFETCH(QString, total);
    Run run;
    QVERIFY(run.store(QStringLiteral("Main.dat"), 100));
    QVERIFY(run.store(McuDat, 1000));
    QVERIFY(run.store(QStringLiteral("mcu.dat"), 10));
    QVERIFY(run.store(QStringLiteral("MCU.dat.bak"), 20));
    run.add(Mcu, currentName, { FileLength });
    for (const QString &name : otherNames)
        run.add(QStringLiteral("FPGA"), name, {});

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes().at(1), total);
    QCOMPARE(run.link->writes().at(3),
             currentName == McuDat ? QStringLiteral("0100002c: e8 03 00 00")
                                   : QStringLiteral("0100002c: 64 00 00 00"));
}

void tst_CompatibilityCommands::totalIsCountedAnew()
{
    Run run;
    run.add(Mcu, McuDat, { FileLength, FileLength });
    QVERIFY(run.store(McuDat, 5));

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->writes().at(1), QStringLiteral("01000020: 05 00 00 00"));
    QCOMPARE(run.link->writes().at(5), QStringLiteral("01000020: 05 00 00 00"));
}

void tst_CompatibilityCommands::lengthWriteRefused_data()
{
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("write");
    QTest::addColumn<QString>("lastWrite");
    QTest::addColumn<QString>("line");

    // Tools look for the guard's address when the total was refused.
    QTest::newRow("guard of the total") << 0x100 << 1 << "00000104: 00 00 00 00"
                                        << "Fail to send command(SendFileLength): address 260";
    QTest::newRow("total") << 0x100 << 2 << "00000100: 05 00 00 00"
                           << "Fail to send command(SendFileLength): address 260";
    QTest::newRow("guard of the current file")
        << 0x100 << 3 << "00000104: 00 00 00 00"
        << "Fail to send command(SendFileLength): address 260";
    QTest::newRow("current file") << 0x100 << 4 << "0000010c: 05 00 00 00"
                                  << "Fail to send command(SendFileLength): address 268";
    QTest::newRow("address in the upper half")
        << 0x7FFFFFFE << 1 << "80000002: 00 00 00 00"
        << "Fail to send command(SendFileLength): address -2147483646";
    QTest::newRow("address that wraps") << -2 << 4 << "0000000a: 05 00 00 00"
                                        << "Fail to send command(SendFileLength): address 10";
    QTest::newRow("address below the end") << -2 << 2 << "fffffffe: 05 00 00 00"
                                           << "Fail to send command(SendFileLength): address 2";
}

void tst_CompatibilityCommands::lengthWriteRefused()
{
    QFETCH(int, address);
    QFETCH(int, write);
    QFETCH(QString, lastWrite);
    QFETCH(QString, line);
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { { FileLength.name, address } });
    QVERIFY(run.store(McuDat, 5));
    run.link->answerWrite(write, ScriptedLink::refused(1, QString()));

    QVERIFY(!run.d.sendFileInfo());

    QCOMPARE(run.link->writes().size(), write);
    QCOMPARE(run.link->writes().last(), lastWrite);
    QCOMPARE(
        log.texts(QtWarningMsg),
        QStringList({ "Fail to send command: send to hardware failed, ack is 1", line,
                      "Fail to send command: SendFileLength", "Fail to send command config" }));
}

void tst_CompatibilityCommands::oneWrite()
{
    const LogRecorder log;
    Run run;

    QVERIFY(run.d.sendUpdatePackage(0xFEDCBA98U, 2500, QByteArray("\x00\xFF\x01", 3)));

    QCOMPARE(run.link->operations(), QStringList(RegisterWrite));
    QCOMPARE(run.link->requests().first().timeout, 2500);
    QCborMap expected;
    expected.insert(QLatin1String("scanner"), 0);
    expected.insert(QLatin1String("write"), 1);
    expected.insert(QLatin1String("reserved"), 0);
    expected.insert(QLatin1String("address"), Q_INT64_C(4275878552));
    expected.insert(QLatin1String("length"), 3);
    expected.insert(QLatin1String("trailing"), 0);
    expected.insert(QLatin1String("body"), QByteArray("\x00\xFF\x01", 3));
    QCOMPARE(run.link->requests().first().arguments, expected);
    QCOMPARE(log.lines().size(), 0);
}

void tst_CompatibilityCommands::lengthIsCutToSixteenBits_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("length");

    QTest::newRow("just fits") << 65535 << 65535;
    QTest::newRow("one more") << 65536 << 0;
    QTest::newRow("two more") << 65537 << 1;
}

void tst_CompatibilityCommands::lengthIsCutToSixteenBits()
{
    QFETCH(int, size);
    QFETCH(int, length);
    Run run;

    QVERIFY(run.d.sendUpdatePackage(1, 1, QByteArray(size, 'x')));

    QCOMPARE(run.link->requests().first().arguments.value(QLatin1String("length")),
             QCborValue(length));
    QCOMPARE(run.link->payloads().first().size(), size);
}

void tst_CompatibilityCommands::timeout_data()
{
    QTest::addColumn<unsigned int>("timeout");
    QTest::addColumn<int>("asked");

    QTest::newRow("none") << 0U << 0;
    QTest::newRow("longest") << 0x7FFFFFFFU << 2147483647;
    // The request's time-out is signed.
    QTest::newRow("in the upper half") << 0x80000000U << std::numeric_limits<int>::min();
    QTest::newRow("all bits") << 0xFFFFFFFFU << -1;
}

void tst_CompatibilityCommands::timeout()
{
    QFETCH(unsigned int, timeout);
    QFETCH(int, asked);
    Run run;
    run.add(Mcu, McuDat, { FileCount });
    run.d.m_dataPackage.fileInfos.first()->commandConfigs.first()->TimeOut =
        static_cast<int>(timeout);

    QVERIFY(run.d.sendFileInfo());

    QCOMPARE(run.link->requests().first().timeout, asked);
}

void tst_CompatibilityCommands::targetFlag_data()
{
    QTest::addColumn<QString>("deviceTypes");
    QTest::addColumn<int>("flag");

    QTest::newRow("scanner") << "Scanner" << 1;
    QTest::newRow("in lower case") << "scanner" << 0;
    QTest::newRow("in upper case") << "SCANNER" << 0;
    QTest::newRow("among others") << "Scanner,Sender" << 0;
    QTest::newRow("another") << "Controller" << 0;
    QTest::newRow("none") << QString() << 0;
}

void tst_CompatibilityCommands::targetFlag()
{
    QFETCH(QString, deviceTypes);
    QFETCH(int, flag);
    Run run;
    run.d.m_dataPackage.DeviceTypes = deviceTypes;

    QVERIFY(run.d.sendUpdatePackage(1, 1, QByteArray("x")));

    QCOMPARE(run.link->requests().first().arguments.value(QLatin1String("scanner")),
             QCborValue(flag));
}

void tst_CompatibilityCommands::emptyWriteIsSent()
{
    const LogRecorder log;
    Run run;

    QVERIFY(run.d.sendUpdatePackage(0x10, 1, QByteArray()));

    QCOMPARE(run.link->writes(), QStringList({ "00000010: " }));
    QCOMPARE(run.link->requests().first().arguments.value(QLatin1String("length")), QCborValue(0));
    QCOMPARE(log.texts(QtWarningMsg), QStringList({ "Fail to send command: data is empty" }));
}

void tst_CompatibilityCommands::noAnswer_data()
{
    QTest::addColumn<LinkAnswer>("answer");

    QTest::newRow("time-out") << ScriptedLink::failed(LinkAnswer::Outcome::TimedOut);
    QTest::newRow("connection lost") << ScriptedLink::failed(LinkAnswer::Outcome::Lost);
    QTest::newRow("not delivered") << ScriptedLink::failed(LinkAnswer::Outcome::NotDelivered);
    // Judged as no answer before anyone looks at its word.
    LinkAnswer malformed = ScriptedLink::refused(5, QString());
    malformed.values.insert(QLatin1String("body"), 1);
    QTest::newRow("answer of the wrong shape") << malformed;
}

void tst_CompatibilityCommands::noAnswer()
{
    QFETCH(LinkAnswer, answer);
    const LogRecorder log;
    Run run;
    run.link->answerWrite(1, answer);

    QVERIFY(!run.d.sendUpdatePackage(0x10, 1, QByteArray("x")));

    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Fail to send command: invalid response cmd" }));
    QCOMPARE(run.link->requests().size(), 1);
}

void tst_CompatibilityCommands::refusedWrite_data()
{
    QTest::addColumn<int>("ack");
    QTest::addColumn<QString>("line");

    QTest::newRow("lowest") << 1 << "Fail to send command: send to hardware failed, ack is 1";
    QTest::newRow("highest") << 65535
                             << "Fail to send command: send to hardware failed, ack is 65535";
}

void tst_CompatibilityCommands::refusedWrite()
{
    QFETCH(int, ack);
    QFETCH(QString, line);
    const LogRecorder log;
    Run run;
    run.link->answerWrite(1, ScriptedLink::refused(static_cast<quint16>(ack), QString()));

    QVERIFY(!run.d.sendUpdatePackage(0x10, 1, QByteArray("x")));

    QCOMPARE(log.texts(QtWarningMsg), QStringList(line));
    QCOMPARE(run.link->requests().size(), 1);
}

void tst_CompatibilityCommands::channelInNoStateToSend()
{
    const LogRecorder log;
    Run run;
    run.link->close();

    QVERIFY(!run.d.sendUpdatePackage(0x10, 1, QByteArray()));

    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Fail to send command: data is empty",
                           "Fail to send command: channel is abnormal" }));
    QCOMPARE(run.link->requests().size(), 0);
}

void tst_CompatibilityCommands::channelGone()
{
    const LogRecorder log;
    Run run;
    run.channel.reset();

    QVERIFY(!run.d.sendUpdatePackage(0x10, 1, QByteArray("x")));

    QCOMPARE(log.texts(QtWarningMsg), QStringList({ "Fail to send command: channel is abnormal" }));
    QCOMPARE(run.link->requests().size(), 0);
}

void tst_CompatibilityCommands::channelIsLockedForEachWrite()
{
    const LogRecorder log;
    Run run;
    run.add(Mcu, McuDat, { FileLength });
    run.link->handle(RegisterWrite, [&run](const auto &) {
        if (run.link->writes().size() == 2)
            run.channel.reset();
        return ScriptedLink::accepted();
    });
    QVERIFY(run.store(McuDat, 5));

    QVERIFY(!run.d.sendFileInfo());

    QCOMPARE(run.link->writes(), QStringList({ "01000024: 00 00 00 00", "01000020: 05 00 00 00" }));
    QCOMPARE(
        warnings(log),
        QStringList({ "Fail to send command: channel is abnormal",
                      "Fail to send command(SendFileLength): address 16777252",
                      "Fail to send command: SendFileLength", "Fail to send command config" }));
}

void tst_CompatibilityCommands::channelIsAskedOnceForEachWrite()
{
    class AskedLink : public RegisterLink
    {
    public:
        bool isOpen() const override
        {
            ++asked;
            return asked != 2;
        }
        mutable int asked = 0;
    };
    const LogRecorder log;
    const auto link = std::make_shared<AskedLink>();
    Run run;
    run.channel = std::make_shared<DeviceChannel>(link);
    run.d.m_channel = run.channel;

    QVERIFY(run.d.sendUpdatePackage(0x10, 1, QByteArray("x")));
    QCOMPARE(link->asked, 1);
    QVERIFY(!run.d.sendUpdatePackage(0x10, 1, QByteArray("x")));
    QCOMPARE(link->asked, 2);

    QCOMPARE(link->writes(), QStringList({ "00000010: 78" }));
    QCOMPARE(log.texts(QtWarningMsg), QStringList({ "Fail to send command: channel is abnormal" }));
}

QTEST_GUILESS_MAIN(tst_CompatibilityCommands)

#include "tst_compatibilitycommands.moc"
