#include "devicestate.h"
#include "installation.h"
#include "statefolder.h"
#include "support/imagebuilder.h"
#include "support/unprivileged.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmar::Simulator;
using Phase = InstallationRecord::Phase;

namespace {

constexpr quint16 ModelId = 0x7701;
const SectionKey Mcu { 1, 0, ModelId, 0x0101 };

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

DeviceRecord fullRecord()
{
    DeviceRecord record;
    record.modelId = 0xFFFF;
    record.serial = QString::fromUtf8("S\xC3\xA9rie 1");
    record.runs = 4294967295u;
    record.restarts = 3;
    record.image = ReceivedImage { "aa55", "1.2.3.4" };
    InstallationRecord installation;
    installation.run = 4294967295u;
    installation.phase = Phase::Committing;
    installation.result = 3;
    installation.image = { "bb66", "255.0.0.1" };
    installation.deletesImage = true;
    installation.parts = { { -5, 255, { 0, 65535 } }, { 1, 0, {} } };
    installation.sections = { Mcu };
    record.installation = installation;
    record.sections[Mcu] = { "1.0.0.0", "1.2.3.4" };
    return record;
}

/*! Puts an image into the folder as if it had been received. */
void receiveImage(const StateFolder &folder, DeviceState &state, const QByteArray &firmware,
                  quint32 version)
{
    ImageBuilder builder;
    builder.version = version;
    builder.files = { { "mcu.bin", firmware },
                      { "data/a", firmware + "a" },
                      { "data/b", firmware + "b" },
                      { "mcu.bin", firmware + "!" } }; // in the image twice: the later one holds
    const QString name = QString("image-%1").arg(version);
    write(folder.images() + '/' + name, builder.build());
    QString errorText;
    QVERIFY2(state.update(
                 [&](DeviceRecord &record) {
                     record.image = ReceivedImage { name, QString("%1.0.0.0").arg(version >> 24) };
                 },
                 errorText),
             qPrintable(errorText));
}

bool install(const StateFolder &folder, DeviceState &state, Installation::StepObserver observer)
{
    InstallationOrder order;
    order.deletesImage = true;
    order.parts = { { 1, 0, { 0x0101 } } };
    order.sections = { Mcu };
    Installation installation(folder, state, std::move(observer));
    QString errorText;
    bool isGood = installation.begin(order).isAccepted();
    while (isGood && !installation.isStaged())
        isGood = installation.stageNext(3, errorText);
    isGood = isGood && installation.bind(errorText);
    while (isGood && !installation.isPlaced())
        isGood = installation.placeNext(errorText);
    return isGood && installation.complete(errorText);
}

} // namespace

/*! What the simulated device remembers, and what a stop at any moment leaves of it. */
class tst_DeviceState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_root = std::make_unique<QTemporaryDir>(); }
    void cleanup() { m_root.reset(); }

    void recordReadsAsWritten()
    {
        QString errorText;
        const DeviceRecord written = fullRecord();
        const auto read = DeviceRecord::fromJson(written.toJson(), errorText);
        QVERIFY2(read, qPrintable(errorText));
        QCOMPARE(read->modelId, quint16(0xFFFF));
        QCOMPARE(read->serial, QString::fromUtf8("S\xC3\xA9rie 1"));
        QCOMPARE(read->runs, 4294967295u);
        QCOMPARE(read->restarts, 3u);
        QCOMPARE(read->image->fileName, QString("aa55"));
        QCOMPARE(read->image->version, QString("1.2.3.4"));
        QCOMPARE(read->installation->run, 4294967295u);
        QCOMPARE(read->installation->phase, Phase::Committing);
        QCOMPARE(read->installation->result, 3);
        QCOMPARE(read->installation->image.fileName, QString("bb66"));
        QCOMPARE(read->installation->deletesImage, true);
        QCOMPARE(read->installation->parts.size(), std::size_t(2));
        QCOMPARE(read->installation->parts[0].type, -5);
        QCOMPARE(read->installation->parts[0].slotId, quint8(255));
        QCOMPARE(read->installation->parts[0].codes, (std::vector<quint16> { 0, 65535 }));
        QCOMPARE(read->installation->sections[0].code, quint16(0x0101));
        QCOMPARE(read->sections.at(Mcu).running, QString("1.0.0.0"));
        QCOMPARE(read->sections.at(Mcu).installed, QString("1.2.3.4"));
        QCOMPARE(read->toJson(), written.toJson());
    }

    void brokenRecords_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("fault");

        const auto changed = [](const char *key, const QJsonValue &value) {
            QJsonObject object = QJsonDocument::fromJson(fullRecord().toJson()).object();
            object.insert(QLatin1String(key), value);
            return QJsonDocument(object).toJson();
        };
        const auto changedInstallation = [&changed](const char *key, const QJsonValue &value) {
            QJsonObject installation = QJsonDocument::fromJson(fullRecord().toJson())
                                           .object()
                                           .value("installation")
                                           .toObject();
            installation.insert(QLatin1String(key), value);
            return changed("installation", installation);
        };
        QTest::newRow("nothing") << QByteArray() << "illegal value";
        QTest::newRow("cut off") << fullRecord().toJson().left(100) << "unterminated object";
        QTest::newRow("list") << QByteArray("[]") << "not an object";
        QTest::newRow("later format")
            << changed("format", 2) << "\"format\" is not a number in its range";
        QTest::newRow("model id of 17 bits")
            << changed("modelId", 65536) << "\"modelId\" is not a number in its range";
        QTest::newRow("broken count")
            << changed("runs", 1.5) << "\"runs\" is not a number in its range";
        QTest::newRow("negative count")
            << changed("restarts", -1) << "\"restarts\" is not a number in its range";
        QTest::newRow("serial that is a number")
            << changed("serial", 5) << "\"serial\" is not a text";
        QTest::newRow("sections that are none")
            << changed("sections", QJsonObject()) << "\"sections\" is not a list";
        QTest::newRow("section without a number")
            << changed("sections", QJsonArray { 5 }) << "\"type\" is not a number in its range";
        QTest::newRow("image that is a text")
            << changed("image", "aa55") << "\"image\" is not an object";
        QTest::newRow("image elsewhere")
            << changed("image", QJsonObject { { "fileName", "../x" }, { "version", "" } })
            << "\"fileName\" is not the name of a file";
        QTest::newRow("image that is a folder")
            << changed("image", QJsonObject { { "fileName", ".." }, { "version", "" } })
            << "\"fileName\" is not the name of a file";
        QTest::newRow("unknown phase")
            << changedInstallation("phase", "waiting") << "\"phase\" is not the name of a phase";
        QTest::newRow("unknown result")
            << changedInstallation("result", 4) << "\"result\" is not a number in its range";
        QTest::newRow("neither true nor false")
            << changedInstallation("deletesImage", 1) << "\"deletesImage\" is not true or false";
        QTest::newRow("section code of 17 bits") << changedInstallation(
            "parts",
            QJsonArray {
                QJsonObject { { "type", 1 }, { "slotId", 0 }, { "codes", QJsonArray { 65536 } } } })
                                                 << "\"codes\" is not a list of section codes";
    }
    void brokenRecords()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, fault);
        const auto folder = openFolder();
        QVERIFY(folder);
        write(folder->stateFile(), json);
        QString errorText;
        QVERIFY(!DeviceState::load(*folder, 0xFFFF, errorText));
        QCOMPARE(
            errorText,
            QString("The device state \"%1\" cannot be read: %2.").arg(folder->stateFile(), fault));
        QCOMPARE(contents(folder->stateFile()), json); // left for people to look at
    }

    void newDevice()
    {
        const auto folder = openFolder();
        QString errorText;
        const auto state = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY2(state, qPrintable(errorText));
        QCOMPARE(state->record().modelId, ModelId);
        QCOMPARE(state->record().runs, 0u);
        QVERIFY(QRegularExpression("^SIM-[0-9A-F]{8}$").match(state->record().serial).hasMatch());
        QCOMPARE(state->runningVersion(Mcu), QString("1.0.0.0"));
    }

    void updateOutlivesTheObject()
    {
        const auto folder = openFolder();
        QString errorText;
        auto state = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY(state->update([](DeviceRecord &record) { record.restarts = 5; }, errorText));
        const QString serial = state->record().serial;
        state = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY(state);
        QCOMPARE(state->record().restarts, 5u);
        QCOMPARE(state->record().serial, serial);
    }

    void otherModelIsRefused()
    {
        const auto folder = openFolder();
        QString errorText;
        QVERIFY(DeviceState::load(*folder, ModelId, errorText)
                    ->update([](DeviceRecord &) {}, errorText));
        QVERIFY(!DeviceState::load(*folder, 0x7702, errorText));
        QCOMPARE(errorText,
                 QString("The state folder \"%1\" belongs to a device of model 0x7701, not of "
                         "model 0x7702.")
                     .arg(folder->path()));
    }

    void unfinishedRecordsAreRemoved()
    {
        const auto folder = openFolder();
        write(folder->path() + "/state.json.Xa12bc", "{");
        QString errorText;
        QVERIFY(DeviceState::load(*folder, ModelId, errorText));
        QVERIFY(!QFile::exists(folder->path() + "/state.json.Xa12bc"));
    }

    void folderIsTakenOnce()
    {
        auto first = openFolder();
        QVERIFY(first);
        QString errorText;
        QVERIFY(!StateFolder::open(path(), errorText));
        QCOMPARE(errorText,
                 QString("The state folder \"%1\" is in use by another device.").arg(path()));
        first.reset();
        QVERIFY(StateFolder::open(path(), errorText));
    }

    void folderCannotBeMade()
    {
        write(path(), "a file");
        QString errorText;
        QVERIFY(!StateFolder::open(path(), errorText));
        QCOMPARE(errorText, QString("The state folder \"%1\" cannot be made.").arg(path()));
    }

    void recordStaysIfTheDiskDoesNotTakeIt()
    {
        const auto folder = openFolder();
        QString errorText;
        const auto state = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY(state->update([](DeviceRecord &record) { record.runs = 1; }, errorText));
        QVERIFY(QFile::setPermissions(folder->path(), QFile::ReadOwner | QFile::ExeOwner));
        QVERIFY(Unprivileged::own(m_root->path().toUtf8())
                && Unprivileged::own(folder->path().toUtf8()));
        const QByteArray outcome = Unprivileged::run([&state] {
            QString fault;
            const bool isWritten =
                state->update([](DeviceRecord &record) { record.runs = 2; }, fault);
            return QByteArray::number(isWritten) + ' ' + QByteArray::number(state->record().runs)
                + ' ' + fault.toUtf8();
        });
        QVERIFY2(outcome.startsWith("0 1 The device state "), outcome.constData());
        QVERIFY(QFile::setPermissions(folder->path(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        const auto reread = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY(reread);
        QCOMPARE(reread->record().runs, 1u);
    }

    void killedAt_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<bool>("isInstalled");

        QTest::newRow("ordered") << int(Installation::Step::Ordered) << false;
        QTest::newRow("half of the files staged") << int(Installation::Step::HalfStaged) << false;
        QTest::newRow("all files staged") << int(Installation::Step::Staged) << false;
        QTest::newRow("bound to complete") << int(Installation::Step::Bound) << true;
        QTest::newRow("half of the files placed") << int(Installation::Step::HalfPlaced) << true;
        QTest::newRow("all files placed") << int(Installation::Step::Placed) << true;
        QTest::newRow("completed") << int(Installation::Step::Completed) << true;
        QTest::newRow("tidied up") << int(Installation::Step::TidiedUp) << true;
    }
    void killedAt()
    {
        QFETCH(int, step);
        QFETCH(bool, isInstalled);
        QString errorText;
        const auto folder = openFolder();
        {
            const auto state = DeviceState::load(*folder, ModelId, errorText);
            receiveImage(*folder, *state, "old", 0x01000000);
            QVERIFY(install(*folder, *state, [](Installation::Step) {}));
            receiveImage(*folder, *state, "new", 0x02000000);

            const pid_t child = ::fork();
            if (child == 0) {
                install(*folder, *state, [step](Installation::Step reached) {
                    if (int(reached) == step)
                        std::raise(SIGKILL);
                });
                ::_exit(0);
            }
            int status = 0;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QVERIFY(WIFSIGNALED(status));
            QCOMPARE(WTERMSIG(status), SIGKILL);
        }
        const auto state = DeviceState::load(*folder, ModelId, errorText);
        QVERIFY2(state, qPrintable(errorText));
        QVERIFY2(Installation::recover(*folder, *state, errorText), qPrintable(errorText));

        const QByteArray firmware = isInstalled ? "new" : "old";
        QCOMPARE(contents(folder->files() + "/mcu.bin"), firmware + "!");
        QCOMPARE(contents(folder->files() + "/data/a"), firmware + "a");
        QCOMPARE(contents(folder->files() + "/data/b"), firmware + "b");
        const InstallationRecord &installation = *state->record().installation;
        QCOMPARE(installation.run, 2u);
        QCOMPARE(installation.phase, Phase::Over);
        QCOMPARE(installation.result, isInstalled ? 2 : 3);
        QCOMPARE(state->record().sections.at(Mcu).installed,
                 QString(isInstalled ? "2.0.0.0" : "1.0.0.0"));
        QVERIFY(!QDir(folder->staging()).exists());
        QCOMPARE(QDir(folder->images()).entryList(QDir::Files),
                 isInstalled ? QStringList() : QStringList { "image-33554432" });
        QCOMPARE(bool(state->record().image), !isInstalled);

        // And nothing keeps the next one from being installed.
        receiveImage(*folder, *state, "newest", 0x03000000);
        QVERIFY(install(*folder, *state, [](Installation::Step) {}));
        QCOMPARE(contents(folder->files() + "/mcu.bin"), QByteArray("newest!"));
        QCOMPARE(state->record().runs, 3u);
    }

    void recoveryOfWhatCannotBeCompletedIsTriedAgain()
    {
        QString errorText;
        const auto folder = openFolder();
        const auto state = DeviceState::load(*folder, ModelId, errorText);
        receiveImage(*folder, *state, "new", 0x02000000);
        Installation interrupted(*folder, *state, [](Installation::Step) {});
        QVERIFY(interrupted.begin({}).isAccepted());
        while (!interrupted.isStaged())
            QVERIFY(interrupted.stageNext(100, errorText));
        QVERIFY(interrupted.bind(errorText));
        QVERIFY(QDir().mkpath(folder->files() + "/data/b/in the way"));

        QVERIFY(!Installation::recover(*folder, *state, errorText));
        QVERIFY2(errorText.endsWith("cannot be put in its place: Is a directory"),
                 qPrintable(errorText));
        QCOMPARE(state->record().installation->result, 3);
        QCOMPARE(state->record().installation->phase, Phase::Committing);
        Installation next(*folder, *state, [](Installation::Step) {});
        QCOMPARE(next.begin({}).errorText, QString("an installation has not ended"));

        QVERIFY(QDir(folder->files() + "/data/b").removeRecursively());
        QVERIFY2(Installation::recover(*folder, *state, errorText), qPrintable(errorText));
        QCOMPARE(state->record().installation->result, 2);
        QCOMPARE(state->record().installation->phase, Phase::Over);
        QCOMPARE(contents(folder->files() + "/data/b"), QByteArray("newb"));
        QCOMPARE(contents(folder->files() + "/mcu.bin"), QByteArray("new!"));
    }

    void whatNothingRefersToIsRemoved()
    {
        QString errorText;
        const auto folder = openFolder();
        const auto state = DeviceState::load(*folder, ModelId, errorText);
        receiveImage(*folder, *state, "new", 0x02000000);
        write(folder->images() + "/orphan", "image");
        write(folder->incoming() + "/0", "half an image");
        QVERIFY(QDir().mkpath(folder->staging()));
        write(folder->staging() + "/0", "a file");
        QVERIFY(Installation::recover(*folder, *state, errorText));
        QCOMPARE(QDir(folder->images()).entryList(QDir::Files), QStringList { "image-33554432" });
        QCOMPARE(QDir(folder->incoming()).entryList(QDir::Files), QStringList());
        QVERIFY(!QDir(folder->staging()).exists());
    }

private:
    QString path() const { return m_root->filePath("state"); }

    std::unique_ptr<StateFolder> openFolder()
    {
        QString errorText;
        return StateFolder::open(path(), errorText);
    }

    std::unique_ptr<QTemporaryDir> m_root;
};

QTEST_GUILESS_MAIN(tst_DeviceState)
#include "tst_devicestate.moc"
