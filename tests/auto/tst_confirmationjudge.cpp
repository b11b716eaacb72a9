#include "device/confirmationjudge.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr int Installing = 1;
constexpr int Installed = 2;
constexpr quint16 McuCode = 0x0102;
constexpr quint16 CardCode = 0x0201;

/*! What a device shows from a moment on. */
struct Scene {
    int fromMs = 0;
    DeviceLook look;
};
using Scenes = std::vector<Scene>;

DeviceLook away()
{
    DeviceLook look;
    look.errorText = QStringLiteral("wall:9720 cannot be reached");
    return look;
}

DeviceLook noDevice()
{
    DeviceLook look;
    look.kind = DeviceLook::Kind::NoDevice;
    look.errorText = QStringLiteral("it speaks nonsense");
    return look;
}

DeviceLook noVersions(std::optional<int> installation = 0)
{
    DeviceLook look;
    look.kind = DeviceLook::Kind::NoVersions;
    look.serial = QStringLiteral("S8-0001");
    look.errorText = QStringLiteral("The device does not tell its versions: not now");
    look.installation = installation;
    return look;
}

/*! A device with \a mcu in its main control and, unless that is empty, \a card in slot 3. */
DeviceLook has(const char *mcu, std::optional<int> installation = 0, const char *card = "")
{
    DeviceLook look;
    look.kind = DeviceLook::Kind::Versions;
    look.serial = QStringLiteral("S8-0001");
    look.installation = installation;
    ProtoModel::Auxiliary::s_DeviceVersionPart main;
    main.section.push_back({ McuCode, mcu, "N/A" });
    look.versions.parts.push_back(main);
    if (*card != '\0') {
        ProtoModel::Auxiliary::s_DeviceVersionPart part;
        part.type = 2;
        part.slotId = 3;
        part.section.push_back({ CardCode, card, "N/A" });
        look.versions.parts.push_back(part);
    }
    return look;
}

DeviceLook interrupted(DeviceLook look)
{
    look.isInterrupted = true;
    return look;
}

DeviceLook of(const char *serial, DeviceLook look)
{
    look.serial = QString::fromLatin1(serial);
    return look;
}

PlannedSection mcu(const char *before, const char *expected)
{
    PlannedSection section;
    section.isMainControl = true;
    section.type = 1;
    section.code = McuCode;
    section.name = QStringLiteral("MCU");
    section.versionBefore = QString::fromLatin1(before);
    section.versionExpected = QString::fromLatin1(expected);
    return section;
}

PlannedSection card(const char *before, const char *expected)
{
    PlannedSection section;
    section.slotId = 3;
    section.type = 2;
    section.code = CardCode;
    section.name = QStringLiteral("FPGA");
    section.versionBefore = QString::fromLatin1(before);
    section.versionExpected = QString::fromLatin1(expected);
    return section;
}

ConfirmationOrder orderFor(std::vector<PlannedSection> sections)
{
    ConfirmationOrder order;
    order.serial = QStringLiteral("S8-0001");
    order.sections = std::move(sections);
    return order;
}

ConfirmationOrder native()
{
    return orderFor({ mcu("1.0.0.0", "1.1.0.0") });
}

ConfirmationOrder sameVersion()
{
    return orderFor({ mcu("1.1.0.0", "1.1.0.0") });
}

ConfirmationOrder unknownVersion()
{
    return orderFor({ mcu("1.0.0.0", "") });
}

ConfirmationOrder withCard()
{
    return orderFor({ mcu("1.0.0.0", "1.1.0.0"), card("1.0.0.0", "1.1.0.0") });
}

ConfirmationOrder notTaken(ConfirmationOrder order)
{
    order.restart = RestartNews::NotTaken;
    return order;
}

ConfirmationOrder lost(ConfirmationOrder order)
{
    order.road = Road::Http;
    order.restart = RestartNews::Unknown;
    return order;
}

ConfirmationOrder over(Road road, ConfirmationOrder order)
{
    order.road = road;
    return order;
}

struct End {
    QString word;
    int atMs = -1;
    QString sentence;
};

/*! Looks twice a second until there is a verdict, for ten minutes at most. */
End play(const ConfirmationOrder &order, const Scenes &scenes)
{
    ConfirmationJudge judge(order, {});
    std::size_t scene = 0;
    for (int at = 0; at <= 600000; at += 500) {
        bool isFirst = at == 0;
        while (scene + 1 < scenes.size() && scenes[scene + 1].fromMs <= at) {
            ++scene;
            isFirst = true;
        }
        auto look = scenes[scene].look;
        look.isInterrupted = look.isInterrupted && isFirst;
        judge.note(look, std::chrono::milliseconds(at));
        if (const auto verdict = judge.verdictAt(std::chrono::milliseconds(at)))
            return { verdictWord(verdict->code), at, verdict->sentence };
    }
    return {};
}

} // namespace

Q_DECLARE_METATYPE(ConfirmationOrder)
Q_DECLARE_METATYPE(DeviceLook)
Q_DECLARE_METATYPE(Scenes)

class tst_ConfirmationJudge : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void end_data()
    {
        QTest::addColumn<ConfirmationOrder>("order");
        QTest::addColumn<Scenes>("scenes");
        QTest::addColumn<QString>("word");
        QTest::addColumn<int>("atMs");

        const auto none = std::optional<int>();

        QTest::newRow("restarts with the new version") << native()
                                                       << Scenes { { 0, has("1.0.0.0", Installed) },
                                                                   { 3000, away() },
                                                                   { 8000, has("1.1.0.0") } }
                                                       << "confirmed" << 10000;
        QTest::newRow("restarts before the first look")
            << native() << Scenes { { 0, has("1.1.0.0") } } << "confirmed" << 2000;
        QTest::newRow("restarts between two looks")
            << native()
            << Scenes { { 0, has("1.0.0.0", Installed) }, { 3000, interrupted(has("1.1.0.0")) } }
            << "confirmed" << 5000;
        QTest::newRow("restarts between two looks, tells no progress")
            << native()
            << Scenes { { 0, has("1.0.0.0", none) }, { 3000, interrupted(has("1.1.0.0", none)) } }
            << "confirmed" << 5000;
        QTest::newRow("tells no progress, and the new version from the first look on")
            << native() << Scenes { { 0, has("1.1.0.0", none) } } << "confirmed" << 2000;
        QTest::newRow("tells the new version without a restart")
            << native() << Scenes { { 0, has("1.1.0.0", Installed) } } << "confirmed" << 30000;
        QTest::newRow("restarts twice") << native()
                                        << Scenes { { 0, away() },
                                                    { 5000, has("1.0.0.0") },
                                                    { 10000, away() },
                                                    { 20000, has("1.1.0.0") } }
                                        << "confirmed" << 22000;
        QTest::newRow("goes back to its old firmware") << native()
                                                       << Scenes { { 0, away() },
                                                                   { 5000, has("1.1.0.0") },
                                                                   { 6000, away() },
                                                                   { 20000, has("1.0.0.0") } }
                                                       << "not-installed" << 35000;
        QTest::newRow("installs nothing") << native()
                                          << Scenes { { 0, has("1.0.0.0", Installed) },
                                                      { 3000, away() },
                                                      { 8000, has("1.0.0.0") } }
                                          << "not-installed" << 23000;
        QTest::newRow("installs nothing, tells no progress")
            << native() << Scenes { { 0, away() }, { 5000, has("1.0.0.0", none) } }
            << "not-installed" << 30000;
        QTest::newRow("took the order to restart, never seen away, tells no progress")
            << native() << Scenes { { 0, has("1.0.0.0", none) } } << "not-installed" << 30000;
        QTest::newRow("never restarts")
            << native() << Scenes { { 0, has("1.0.0.0", Installed) } } << "not-restarted" << 30000;
        QTest::newRow("did not take the order to restart")
            << notTaken(native()) << Scenes { { 0, has("1.0.0.0", none) } } << "not-restarted"
            << 30000;
        QTest::newRow("did not take the order, and is restarted by hand")
            << notTaken(native())
            << Scenes { { 0, has("1.0.0.0", Installed) },
                        { 20000, away() },
                        { 28000, has("1.1.0.0") } }
            << "confirmed" << 30000;
        QTest::newRow("loses a connection before it restarts")
            << native()
            << Scenes { { 0, has("1.0.0.0", Installed) },
                        { 3000, interrupted(has("1.0.0.0", Installed)) },
                        { 25000, away() },
                        { 29000, has("1.1.0.0") } }
            << "confirmed" << 31000;
        QTest::newRow("loses a connection before it restarts by itself")
            << over(Road::Http, native())
            << Scenes { { 0, has("1.0.0.0", none) },
                        { 3000, interrupted(has("1.0.0.0", none)) },
                        { 25000, away() },
                        { 28000, has("1.1.0.0", none) } }
            << "confirmed" << 30000;
        QTest::newRow("lost, and never seen away")
            << lost(native()) << Scenes { { 0, has("1.0.0.0", none) } } << "not-restarted" << 30000;
        // It may have been lost by the same fault of the network.
        QTest::newRow("lost, and away for a while")
            << lost(native()) << Scenes { { 0, away() }, { 8000, has("1.0.0.0", none) } }
            << "not-restarted" << 30000;
        QTest::newRow("lost, and a connection ends")
            << lost(native())
            << Scenes { { 0, has("1.0.0.0") }, { 29000, interrupted(has("1.0.0.0")) } }
            << "not-restarted" << 44000;
        QTest::newRow("lost, and restarts with the new version")
            << lost(native())
            << Scenes { { 0, has("1.0.0.0", none) },
                        { 25000, away() },
                        { 40000, has("1.1.0.0", none) } }
            << "confirmed" << 42000;
        QTest::newRow("lost, and back with another version")
            << lost(native()) << Scenes { { 0, away() }, { 8000, has("0.9.0.0", none) } }
            << "versions-differ" << 30000;
        QTest::newRow("lost, same version, away for a while")
            << lost(sameVersion()) << Scenes { { 0, away() }, { 8000, has("1.1.0.0", none) } }
            << "not-restarted" << 30000;

        QTest::newRow("same version, seen to restart") << sameVersion()
                                                       << Scenes { { 0, has("1.1.0.0", Installed) },
                                                                   { 3000, away() },
                                                                   { 8000, has("1.1.0.0") } }
                                                       << "confirmed" << 10000;
        QTest::newRow("same version, has forgotten its result")
            << sameVersion() << Scenes { { 0, has("1.1.0.0") } } << "confirmed" << 2000;
        QTest::newRow("same version, never seen away, tells no progress")
            << sameVersion() << Scenes { { 0, has("1.1.0.0", none) } } << "confirmed" << 30000;
        QTest::newRow("same version, connection ends, tells no progress")
            << sameVersion()
            << Scenes { { 0, has("1.1.0.0", none) }, { 3000, interrupted(has("1.1.0.0", none)) } }
            << "confirmed" << 5000;
        QTest::newRow("same version, did not take the order to restart")
            << notTaken(sameVersion()) << Scenes { { 0, has("1.1.0.0", none) } } << "not-restarted"
            << 30000;
        QTest::newRow("same version, never restarts")
            << sameVersion() << Scenes { { 0, has("1.1.0.0", Installed) } } << "not-restarted"
            << 30000;
        QTest::newRow("same version, keeps its result over the restart")
            << sameVersion() << Scenes { { 0, away() }, { 5000, has("1.1.0.0", Installed) } }
            << "confirmed" << 30000;
        QTest::newRow("result of an installation over HTTP is no sign")
            << over(Road::Http, sameVersion()) << Scenes { { 0, has("1.1.0.0", 0) } } << "confirmed"
            << 30000;

        QTest::newRow("card starts later") << withCard()
                                           << Scenes { { 0, away() },
                                                       { 5000, has("1.1.0.0", 0) },
                                                       { 9000, has("1.1.0.0", 0, "N/A") },
                                                       { 15000, has("1.1.0.0", 0, "1.1.0.0") } }
                                           << "confirmed" << 17000;
        QTest::newRow("card stays away")
            << withCard() << Scenes { { 0, has("1.1.0.0") } } << "versions-unreadable" << 15000;
        QTest::newRow("card has its old version")
            << withCard() << Scenes { { 0, has("1.1.0.0", 0, "1.0.0.0") } } << "versions-differ"
            << 15000;
        QTest::newRow("old version, and a card that stays away")
            << withCard() << Scenes { { 0, has("1.0.0.0") } } << "versions-differ" << 15000;
        QTest::newRow("other version")
            << native() << Scenes { { 0, has("0.9.0.0") } } << "versions-differ" << 15000;
        QTest::newRow("version N/A")
            << native() << Scenes { { 0, has("N/A") } } << "versions-unreadable" << 15000;
        QTest::newRow("version that nobody foretold")
            << unknownVersion() << Scenes { { 0, has("1.0.1.0") } } << "confirmed" << 2000;
        QTest::newRow("same version, which nobody foretold")
            << unknownVersion() << Scenes { { 0, has("1.0.0.0") } } << "not-comparable" << 15000;
        QTest::newRow("nothing known")
            << orderFor({}) << Scenes { { 0, has("1.0.0.0") } } << "not-comparable" << 15000;

        QTest::newRow("never back")
            << native() << Scenes { { 0, away() } } << "not-returned" << 300000;
        QTest::newRow("back as no device")
            << native() << Scenes { { 0, away() }, { 5000, noDevice() } } << "not-returned"
            << 300000;
        QTest::newRow("restarts for ever") << native() << [] {
            Scenes scenes;
            for (int at = 0; at < 600000; at += 4000) {
                scenes.push_back({ at, away() });
                scenes.push_back({ at + 2000, has("1.0.0.0") });
            }
            return scenes;
        }() << "not-returned" << 304000; // it first goes away at 4000
        QTest::newRow("back late")
            << native() << Scenes { { 0, away() }, { 299500, has("1.1.0.0") } } << "confirmed"
            << 301500;
        QTest::newRow("back late with its old version")
            << native() << Scenes { { 0, away() }, { 299500, has("1.0.0.0") } } << "not-installed"
            << 314500;
        QTest::newRow("another device")
            << native() << Scenes { { 0, away() }, { 5000, of("S8-0002", has("1.1.0.0")) } }
            << "other-device" << 20000;
        QTest::newRow("another device for a while")
            << native()
            << Scenes { { 0, away() },
                        { 5000, of("S8-0002", has("1.1.0.0")) },
                        { 15000, has("1.1.0.0") } }
            << "confirmed" << 17000;
        QTest::newRow("device without a serial number") <<
            [] {
                auto order = native();
                order.serial.clear();
                return order;
            }() << Scenes { { 0, of("", has("1.1.0.0")) } }
                                                        << "confirmed" << 2000;
        QTest::newRow("refuses its versions")
            << native() << Scenes { { 0, away() }, { 5000, noVersions() } } << "versions-unreadable"
            << 35000;
        QTest::newRow("refuses its versions over two connections")
            << native()
            << Scenes { { 0, away() },
                        { 5000, noVersions() },
                        { 20000, interrupted(noVersions()) } }
            << "versions-unreadable" << 50000;
        QTest::newRow("refuses its versions for a while")
            << native()
            << Scenes { { 0, away() }, { 5000, noVersions() }, { 20000, has("1.1.0.0") } }
            << "confirmed" << 22000;
        QTest::newRow("installs for longer than it may be away")
            << over(Road::Http, native())
            << Scenes { { 0, has("1.0.0.0", Installing) },
                        { 330000, away() },
                        { 340000, has("1.1.0.0", none) } }
            << "confirmed" << 342000;
        QTest::newRow("installs for long, and stays away")
            << over(Road::Http, native())
            << Scenes { { 0, has("1.0.0.0", Installing) }, { 200000, away() } } << "not-returned"
            << 500000;
        QTest::newRow("still installing")
            << native() << Scenes { { 0, has("1.0.0.0", Installing) } } << "no-progress" << 345000;
    }
    void end()
    {
        QFETCH(ConfirmationOrder, order);
        QFETCH(Scenes, scenes);
        const auto end = play(order, scenes);
        QTEST(end.word, "word");
        QTEST(end.atMs, "atMs");
    }

    void sentence_data()
    {
        QTest::addColumn<ConfirmationOrder>("order");
        QTest::addColumn<Scenes>("scenes");
        QTest::addColumn<QString>("sentence");

        QTest::newRow("new firmware")
            << native() << Scenes { { 0, has("1.1.0.0") } } << "The device has the new firmware";
        QTest::newRow("same version") << sameVersion() << Scenes { { 0, has("1.1.0.0") } }
                                      << "The device has the firmware that was planned, of the "
                                         "same version as before";
        QTest::newRow("not installed")
            << native() << Scenes { { 0, has("1.0.0.0") } }
            << "The device has the versions from before: \"MCU\" of the main control has 1.0.0.0 "
               "instead of 1.1.0.0";
        QTest::newRow("partly") << withCard() << Scenes { { 0, has("1.1.0.0", 0, "1.0.0.0") } }
                                << "The device has versions from before, but not all: \"FPGA\" of "
                                   "the card in slot 3 has 1.0.0.0 instead of 1.1.0.0";
        QTest::newRow("version that is no text for a terminal")
            << native() << Scenes { { 0, has("\x1b[31m9") } }
            << "The device has other versions than planned: \"MCU\" of the main control has "
               "\\x1b[31m9 instead of 1.1.0.0";
        QTest::newRow("untold") << native() << Scenes { { 0, has("N/A") } }
                                << "The device does not tell the version of \"MCU\" of the main "
                                   "control";
        QTest::newRow("refused") << native() << Scenes { { 0, noVersions() } }
                                 << "The device does not tell its versions: not now";
        QTest::newRow("not comparable")
            << unknownVersion() << Scenes { { 0, has("1.0.0.0") } }
            << "No version tells the old firmware from the new: \"MCU\" of the main control has "
               "1.0.0.0";
        QTest::newRow("not returned") << native() << Scenes { { 0, away() } }
                                      << "The device has not come back in 300 s: wall:9720 cannot "
                                         "be reached";
        QTest::newRow("no device") << native() << Scenes { { 0, noDevice() } }
                                   << "The device has not come back in 300 s: it speaks nonsense";
        QTest::newRow("other device") << native() << Scenes { { 0, of("S8-0002", has("1.1.0.0")) } }
                                      << "The device S8-0002 answers at the address of S8-0001";
        QTest::newRow("not restarted")
            << native() << Scenes { { 0, has("1.0.0.0", Installed) } }
            << "The device has not restarted, and tells versions from before";
        QTest::newRow("not known whether restarted")
            << lost(native()) << Scenes { { 0, away() }, { 8000, has("1.0.0.0") } }
            << "It is not known whether the device has restarted; it tells versions from before";
        QTest::newRow("many sections")
            << orderFor(
                   { mcu("1", "2"), mcu("1", "2"), mcu("1", "2"), mcu("1", "2"), mcu("1", "2") })
            << Scenes { { 0, has("1") } }
            << "The device has the versions from before: \"MCU\" of the main control has 1 instead "
               "of 2, \"MCU\" of the main control has 1 instead of 2, \"MCU\" of the main control "
               "has 1 instead of 2, and 2 more";
    }
    void sentence()
    {
        QFETCH(ConfirmationOrder, order);
        QFETCH(Scenes, scenes);
        QTEST(play(order, scenes).sentence, "sentence");
    }

    void status_data()
    {
        QTest::addColumn<DeviceLook>("look");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("hasReturned");

        QTest::newRow("away") << away() << "Waiting for the device to come back" << false;
        QTest::newRow("no device")
            << noDevice() << "Waiting for the device to answer as one" << false;
        QTest::newRow("another") << of("S8-\x1b", has("1.1.0.0"))
                                 << "The device S8-\\x1b answers instead of S8-0001" << false;
        QTest::newRow("installing")
            << has("1.0.0.0", Installing) << "The device is still installing" << false;
        QTest::newRow("no versions")
            << noVersions() << "Waiting for the device to tell its versions" << false;
        QTest::newRow("not restarted")
            << has("1.0.0.0", Installed) << "Waiting for the device to restart" << false;
        QTest::newRow("restarted")
            << has("1.0.0.0") << "Comparing the versions of the device" << true;
    }
    void status()
    {
        QFETCH(DeviceLook, look);
        ConfirmationJudge judge(native(), {});
        const std::chrono::milliseconds now(500);
        QCOMPARE(judge.statusAt(now), QStringLiteral("Looking for the device"));
        QVERIFY(!judge.hasReturnedAt(now));
        judge.note(look, now);
        QTEST(judge.statusAt(now), "text");
        QTEST(judge.hasReturnedAt(now), "hasReturned");
    }

    void verdictWithoutAnyLook()
    {
        const ConfirmationJudge judge(native(), {});
        QVERIFY(!judge.verdictAt(std::chrono::milliseconds(299999)));
        const auto verdict = judge.verdictAt(std::chrono::milliseconds(300000));
        QVERIFY(verdict);
        QCOMPARE(verdictWord(verdict->code), QStringLiteral("not-returned"));
        QCOMPARE(verdict->sentence, QStringLiteral("The device has not come back in 300 s"));
    }
};

QTEST_GUILESS_MAIN(tst_ConfirmationJudge)
#include "tst_confirmationjudge.moc"
