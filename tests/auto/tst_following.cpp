#include "run/following.h"

#include "support/scriptedlink.h"
#include "support/stucklink.h"
#include "support/wallgreeting.h"

#include <QtTest>

#include <optional>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

const DeviceAddress Wall { QStringLiteral("wall"), 9720 };

std::shared_ptr<ScriptedLink> deviceWithResult(int result)
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting()));
    link->answer(QStringLiteral("upgrade.progress"),
                 ScriptedLink::accepted(
                     { { QStringLiteral("result"), result }, { QStringLiteral("rate"), 40 } }));
    return link;
}

std::shared_ptr<ScriptedLink> silentDevice()
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::refused(1, QStringLiteral("starting")));
    return link;
}

} // namespace

class TestFollowing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answer_data();
    void answer();
    void asksUntilTheDeviceAnswers();
    void givesUpBehindTheLimit();
    void goesWithoutAnAnswer();
};

void TestFollowing::answer_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("found");

    QTest::newRow("nothing since its restart") << 0 << int(Following::Found::Idle);
    QTest::newRow("installing") << 1 << int(Following::Found::AtWork);
    QTest::newRow("installed") << 2 << int(Following::Found::AtEnd);
    QTest::newRow("failed") << 3 << int(Following::Found::AtEnd);
}

void TestFollowing::answer()
{
    QFETCH(int, result);
    QFETCH(int, found);
    const auto link = deviceWithResult(result);
    Following following(Wall, [link](const DeviceAddress &) { return link; });
    std::optional<Following::Found> told;
    connect(&following, &Following::signalFound, this,
            [&told](Following::Found now) { told = now; });

    following.start(std::chrono::minutes(1));

    QTRY_VERIFY(told.has_value());
    QCOMPARE(int(*told), found);
}

void TestFollowing::asksUntilTheDeviceAnswers()
{
    int asked = 0; // by one task after the other
    Following following(Wall, [&asked](const DeviceAddress &) {
        return ++asked < 3 ? silentDevice() : deviceWithResult(1);
    });
    following.setInterval(std::chrono::milliseconds(1));
    std::optional<Following::Found> told;
    connect(&following, &Following::signalFound, this,
            [&told](Following::Found now) { told = now; });

    following.start(std::chrono::minutes(1));

    QTRY_VERIFY(told.has_value());
    QCOMPARE(int(*told), int(Following::Found::AtWork));
    QCOMPARE(asked, 3);
}

void TestFollowing::givesUpBehindTheLimit()
{
    Following following(Wall, [](const DeviceAddress &) { return silentDevice(); });
    std::optional<Following::Found> told;
    connect(&following, &Following::signalFound, this,
            [&told](Following::Found now) { told = now; });

    following.start(std::chrono::milliseconds(0));

    QTRY_VERIFY(told.has_value());
    QCOMPARE(int(*told), int(Following::Found::Nothing));
}

void TestFollowing::goesWithoutAnAnswer()
{
    const auto link = std::make_shared<StuckLink>(true);
    {
        Following following(Wall, [link](const DeviceAddress &) { return link; });
        following.start(std::chrono::minutes(1));
        QTRY_VERIFY_WITH_TIMEOUT(link->isWaiting(), 50000);
    }
    QVERIFY(link.use_count() == 1); // nobody waits for the device any more
}

QTEST_GUILESS_MAIN(TestFollowing)
#include "tst_following.moc"
