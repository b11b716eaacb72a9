#include "device/guardedlink.h"

#include "support/scriptedlink.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfig.h>
#include <velmarmodelcontrol/auxiliary.h>
#include <velmarmodelcontrol/linkpolicy.h>

#include <QtTest>

#include <memory>
#include <optional>
#include <thread>

using namespace Velmar;
using namespace Velmar::Host;
using BizModel::LinkAnswer;
using BizModel::LinkRequest;
using Outcome = BizModel::LinkAnswer::Outcome;

Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)
Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer::Outcome)

namespace {

const QString Announce = QStringLiteral("file.announce");
const QString Configure = QStringLiteral("upgrade.configure");
const QString Progress = QStringLiteral("upgrade.progress");
const QString Shutdown = QStringLiteral("device.shutdown");
const QString Write = QStringLiteral("register.write");

const auto NotTold = QStringLiteral("the device has not told the end of an installation, and is "
                                    "not restarted while it may be at work");
const auto Stopped = QStringLiteral("the host has stopped the upgrade");

LinkRequest request(const QString &operation, const QCborMap &arguments = {})
{
    return { operation, arguments, 1000 };
}

LinkAnswer told(int result)
{
    return ScriptedLink::accepted({ { QStringLiteral("result"), result } });
}

LinkAnswer told(int result, qint64 run)
{
    return ScriptedLink::accepted(
        { { QStringLiteral("result"), result }, { QStringLiteral("run"), run } });
}

LinkAnswer ordered(qint64 run)
{
    return ScriptedLink::accepted({ { QStringLiteral("run"), run } });
}

} // namespace

class tst_GuardedLink : public QObject
{
    Q_OBJECT

    std::shared_ptr<ScriptedLink> m_link;

    // What arrived at the device but for the looks at the progress.
    QStringList arrived() const
    {
        auto operations = m_link->operations();
        operations.removeAll(Progress);
        return operations;
    }

private Q_SLOTS:
    void init()
    {
        m_link = std::make_shared<ScriptedLink>();
        m_link->answer(Shutdown, ScriptedLink::accepted());
        m_link->answer(Configure, ordered(7));
        m_link->answer(Progress, told(0));
    }

    void passesTheRest()
    {
        m_link->answer(QStringLiteral("version.read"),
                       ScriptedLink::accepted({ { QStringLiteral("version"), "1.2.3.4" } }));
        m_link->answer(QStringLiteral("command"), ScriptedLink::refused(1, QStringLiteral("no")));
        GuardedLink guard(m_link);
        QCOMPARE(guard.send(request(QStringLiteral("version.read")))
                     .values.value(QLatin1String("version"))
                     .toString(),
                 QStringLiteral("1.2.3.4"));
        const auto answer = guard.send(request(QStringLiteral("command")));
        QCOMPARE(answer.ack, quint16(1));
        QCOMPARE(answer.errorText, QStringLiteral("no"));
        guard.pauseHeartbeat(180000);
        guard.restartHeartbeat();
        QCOMPARE(m_link->operations(),
                 QStringList({ "version.read", "command", "heartbeat.pause", "heartbeat.resume" }));
        guard.close();
        QVERIFY(!m_link->isOpen());
        QVERIFY(!guard.isOpen());
    }

    void restart_data()
    {
        QTest::addColumn<bool>("isOrdered");
        QTest::addColumn<LinkAnswer>("last"); // answer to the last look at the progress
        QTest::addColumn<bool>("isRestarted");
        QTest::newRow("installed") << true << told(2, 7) << true;
        QTest::newRow("failed") << true << told(3, 7) << true;
        QTest::newRow("a later installation ended") << true << told(2, 8) << true;
        QTest::newRow("running") << true << told(1, 7) << false;
        QTest::newRow("not begun") << true << told(0, 7) << false;
        QTest::newRow("another result") << true << told(4, 7) << false;
        QTest::newRow("an older installation ended") << true << told(2, 6) << false;
        QTest::newRow("refused") << true << ScriptedLink::refused(4, QString()) << false;
        QTest::newRow("not answered") << true << ScriptedLink::failed(Outcome::TimedOut) << false;
        QTest::newRow("no result") << true << ScriptedLink::accepted() << false;
        QTest::newRow("a result that is no number")
            << true << ScriptedLink::accepted({ { QStringLiteral("result"), "2" } }) << false;
        QTest::newRow("a number that is none")
            << true
            << ScriptedLink::accepted(
                   { { QStringLiteral("result"), 2 }, { QStringLiteral("run"), "7" } })
            << false;
        QTest::newRow("an end without a number") << true << told(2) << false;
        QTest::newRow("watched, installed") << false << told(2, 7) << true;
        QTest::newRow("watched, failed") << false << told(3) << true;
        QTest::newRow("watched, running") << false << told(1, 7) << false;
        QTest::newRow("watched, nothing") << false << told(0, 7) << false;
    }
    void restart()
    {
        QFETCH(bool, isOrdered);
        QFETCH(LinkAnswer, last);
        QFETCH(bool, isRestarted);
        GuardedLink guard(m_link);
        if (isOrdered)
            QVERIFY(guard.send(request(Configure)).isAccepted());
        m_link->queue(Progress, last);
        guard.send(request(Progress));
        const auto answer = guard.send(request(Shutdown));
        QCOMPARE(answer.isAccepted(), isRestarted);
        QCOMPARE(arrived().contains(Shutdown), isRestarted);
        QCOMPARE(guard.traffic().isRestartOrdered, isRestarted);
        QCOMPARE(guard.traffic().isEndTold, isRestarted);
        if (!isRestarted) {
            QCOMPARE(answer.outcome, Outcome::Answered); // so that nobody repeats it
            QCOMPARE(answer.ack, quint16(4));
            QCOMPARE(answer.errorText, NotTold);
        }
    }

    void noRestartWithoutALook()
    {
        GuardedLink guard(m_link);
        QCOMPARE(guard.send(request(Shutdown)).ack, quint16(4));
        QCOMPARE(m_link->operations(), QStringList());
    }

    void noRestartBehindAnEndThatIsTakenBack()
    {
        GuardedLink guard(m_link);
        guard.send(request(Configure));
        m_link->queue(Progress, told(2, 7));
        m_link->queue(Progress, told(1, 8)); // another host has begun
        guard.send(request(Progress));
        guard.send(request(Progress));
        QCOMPARE(guard.send(request(Shutdown)).errorText, NotTold);
        QCOMPARE(arrived(), QStringList { Configure });
    }

    void anOrderForgetsTheEnd()
    {
        GuardedLink guard(m_link);
        m_link->queue(Progress, told(2, 6));
        guard.send(request(Progress));
        QVERIFY(guard.traffic().isEndTold);
        guard.send(request(Configure));
        QVERIFY(!guard.traffic().isEndTold);
        QCOMPARE(guard.send(request(Shutdown)).ack, quint16(4));
    }

    // Over a new connection the device may be at something else, or be another one.
    void endOnAnotherConnection_data()
    {
        QTest::addColumn<LinkAnswer>("answer"); // to the question behind the reconnection
        QTest::addColumn<Outcome>("outcome");
        QTest::addColumn<bool>("isRestarted");
        QTest::newRow("still ended") << told(2, 7) << Outcome::Answered << true;
        QTest::newRow("running") << told(1, 8) << Outcome::Answered << false;
        QTest::newRow("restarted meanwhile") << told(0, 7) << Outcome::Answered << false;
        QTest::newRow("refused") << ScriptedLink::refused(2, QString()) << Outcome::Answered
                                 << false;
        QTest::newRow("silent") << ScriptedLink::failed(Outcome::TimedOut) << Outcome::NotDelivered
                                << false;
        QTest::newRow("lost") << ScriptedLink::failed(Outcome::Lost) << Outcome::NotDelivered
                              << false;
    }
    void endOnAnotherConnection()
    {
        QFETCH(LinkAnswer, answer);
        GuardedLink guard(m_link);
        guard.send(request(Configure));
        m_link->queue(Progress, told(2, 7));
        guard.send(request(Progress));
        guard.close();
        QString errorText;
        QVERIFY(guard.open(1000, errorText));
        m_link->queue(Progress, answer);
        const auto restarted = guard.send(request(Shutdown));
        QTEST(restarted.outcome, "outcome");
        QTEST(restarted.isAccepted(), "isRestarted");
        QTEST(arrived().contains(Shutdown), "isRestarted");
    }

    // The control layer repeats what was not delivered over a new connection.
    void restartIsRepeatedWithAnotherLook()
    {
        const auto former = ModelControl::linkPolicy();
        ModelControl::LinkPolicy quick;
        quick.repeatPause = 1;
        ModelControl::setLinkPolicy(quick);
        const auto guard = std::make_shared<GuardedLink>(m_link);
        const auto device = std::make_shared<BizModel::Device>(
            BizModel::s_DeviceConfig(), std::vector<std::shared_ptr<BizModel::Subcard>>(), guard);
        guard->send(request(Configure));
        m_link->queue(Progress, told(2, 7));
        guard->send(request(Progress));
        m_link->queue(Shutdown, ScriptedLink::failed(Outcome::NotDelivered));
        m_link->answer(Progress, told(2, 7));
        QVERIFY(ModelControl::Auxiliary(device).setDeviceShutDownMode(0));
        QCOMPARE(m_link->operations(),
                 QStringList({ Configure, Progress, Shutdown, Progress, Shutdown }));
        ModelControl::setLinkPolicy(former);
    }

    void orderState_data()
    {
        QTest::addColumn<LinkAnswer>("answer");
        QTest::addColumn<bool>("isOrdered");
        QTest::newRow("accepted") << ordered(7) << true;
        QTest::newRow("no answer in time") << ScriptedLink::failed(Outcome::TimedOut) << true;
        QTest::newRow("connection lost") << ScriptedLink::failed(Outcome::Lost) << true;
        QTest::newRow("refused") << ScriptedLink::refused(1, QString()) << false;
        QTest::newRow("not delivered") << ScriptedLink::failed(Outcome::NotDelivered) << false;
        QTest::newRow("unsendable") << ScriptedLink::failed(Outcome::Unsendable) << false;
    }
    void orderState()
    {
        QFETCH(LinkAnswer, answer);
        QVector<bool> toldOrders;
        QStringList arrivedBefore;
        GuardedLink guard(m_link, { {}, [&](const LinkTraffic &traffic) {
                                       toldOrders.append(traffic.isOrdered);
                                       arrivedBefore = arrived();
                                   } });
        m_link->queue(Configure, answer);
        QCOMPARE(guard.send(request(Configure)).outcome, answer.outcome);
        QTEST(guard.traffic().isOrdered, "isOrdered");
        QCOMPARE(toldOrders, QVector<bool> { true });
        QCOMPARE(arrivedBefore, QStringList()); // the host knows first
        QCOMPARE(guard.send(request(Shutdown)).ack, quint16(4));
    }

    void aLostOrderStaysOne()
    {
        GuardedLink guard(m_link);
        m_link->queue(Configure, ScriptedLink::failed(Outcome::TimedOut));
        m_link->queue(Configure, ScriptedLink::refused(4, QString()));
        guard.send(request(Configure));
        guard.send(request(Configure));
        QVERIFY(guard.traffic().isOrdered);
    }

    // A device that does not number its installations shows the last one until the next begins.
    void oldEnd_data()
    {
        QTest::addColumn<QVector<int>>("shown"); // behind the order
        QTest::addColumn<QVector<int>>("heard");
        QTest::addColumn<bool>("isEndTold");
        QTest::newRow("an old end, then the run")
            << QVector<int> { 2, 2, 1, 2 } << QVector<int> { 1, 1, 1, 2 } << true;
        QTest::newRow("an old failure, then nothing yet, then success")
            << QVector<int> { 3, 0, 2 } << QVector<int> { 1, 0, 2 } << true;
        QTest::newRow("an old end alone")
            << QVector<int> { 2, 2 } << QVector<int> { 1, 1 } << false;
        QTest::newRow("the run at once") << QVector<int> { 1, 3 } << QVector<int> { 1, 3 } << true;
    }
    void oldEnd()
    {
        QFETCH(QVector<int>, shown);
        GuardedLink guard(m_link);
        m_link->queue(Configure, ScriptedLink::accepted());
        QVERIFY(guard.send(request(Configure)).isAccepted());
        QVector<int> heard;
        for (const int result : shown) {
            m_link->queue(Progress, told(result));
            const auto answer = guard.send(request(Progress));
            heard.append(int(answer.values.value(QLatin1String("result")).toInteger()));
        }
        QTEST(heard, "heard");
        QTEST(guard.traffic().isEndTold, "isEndTold");
        QCOMPARE(guard.traffic().result, shown.constLast()); // as the device told it
        QTEST(guard.send(request(Shutdown)).isAccepted(), "isEndTold");
    }

    void numberedEndAtOnce()
    {
        GuardedLink guard(m_link);
        guard.send(request(Configure));
        m_link->queue(Progress, told(2, 7)); // installed before the first look
        QCOMPARE(guard.send(request(Progress)).values.value(QLatin1String("result")).toInteger(),
                 qint64(2));
        QVERIFY(guard.traffic().isEndTold);
    }

    // A device that never tells that it has begun is not waited for, and not restarted.
    void oldEndPassesInTime()
    {
        GuardedLink guard(m_link);
        guard.setOldEndLimit(std::chrono::milliseconds(0));
        m_link->answer(Progress, told(2));
        m_link->queue(Configure, ScriptedLink::accepted());
        guard.send(request(Configure));
        const auto answer = guard.send(request(Progress));
        QCOMPARE(answer.values.value(QLatin1String("result")).toInteger(), qint64(2));
        QVERIFY(!guard.traffic().isEndTold);
        QCOMPARE(guard.send(request(Shutdown)).errorText, NotTold);
    }

    void idle_data()
    {
        QTest::addColumn<bool>("isOrdered");
        QTest::addColumn<QVector<int>>("results");
        QTest::addColumn<bool>("isIdle");
        QTest::newRow("not begun") << true << QVector<int> { 0 } << false;
        QTest::newRow("begun and gone") << true << QVector<int> { 0, 1, 0 } << true;
        QTest::newRow("back again") << true << QVector<int> { 1, 0, 1 } << false;
        QTest::newRow("ended") << true << QVector<int> { 1, 2 } << false;
        QTest::newRow("nothing to watch") << false << QVector<int> { 0 } << true;
        QTest::newRow("watched") << false << QVector<int> { 1 } << false;
    }
    void idle()
    {
        QFETCH(bool, isOrdered);
        QFETCH(QVector<int>, results);
        GuardedLink guard(m_link);
        if (isOrdered)
            guard.send(request(Configure));
        for (const int result : results) {
            m_link->queue(Progress, told(result, 7));
            guard.send(request(Progress));
        }
        QTEST(guard.traffic().isIdle, "isIdle");
    }

    void announcementFault()
    {
        m_link->answer(Announce, ScriptedLink::accepted());
        QString fault = QStringLiteral("it holds another file");
        GuardedLink guard(m_link, { [&fault] { return fault; }, {} });
        const auto answer = guard.send(request(Announce));
        QCOMPARE(answer.outcome, Outcome::Answered);
        QCOMPARE(answer.ack, quint16(5));
        QCOMPARE(answer.errorText, QStringLiteral("it holds another file"));
        QCOMPARE(guard.announcementFault(), QStringLiteral("it holds another file"));
        QCOMPARE(m_link->operations(), QStringList());

        GuardedLink other(m_link, { [] { return QString(); }, {} });
        QVERIFY(other.send(request(Announce)).isAccepted());
        QCOMPARE(other.announcementFault(), QString());
    }

    void countsBytes()
    {
        m_link->answer(QStringLiteral("file.open"), ScriptedLink::accepted());
        m_link->answer(QStringLiteral("file.data"), ScriptedLink::accepted());
        GuardedLink guard(m_link);
        QCOMPARE(guard.traffic().totalBytes, qint64(-1));
        guard.send(request(QStringLiteral("file.open"), { { QStringLiteral("size"), 12 } }));
        const auto piece = request(QStringLiteral("file.data"),
                                   { { QStringLiteral("bytes"), QByteArray(5, 'x') } });
        guard.send(piece);
        m_link->queue(QStringLiteral("file.data"), ScriptedLink::failed(Outcome::TimedOut));
        guard.send(piece);
        m_link->queue(QStringLiteral("file.data"), ScriptedLink::refused(1, QString()));
        guard.send(piece);
        guard.send(piece);
        QCOMPARE(guard.traffic().sentBytes, qint64(10)); // what the device has taken
        QCOMPARE(guard.traffic().totalBytes, qint64(12));
        QCOMPARE(guard.traffic().requests, qint64(5));
        QCOMPARE(guard.traffic().answers, qint64(4));
        guard.send(request(QStringLiteral("file.open"), { { QStringLiteral("size"), 3 } }));
        QCOMPARE(guard.traffic().sentBytes, qint64(0));
        QCOMPARE(guard.traffic().totalBytes, qint64(3));
    }

    void countsOverdueAnswers()
    {
        GuardedLink guard(m_link);
        for (const auto outcome : { Outcome::TimedOut, Outcome::Lost, Outcome::NotDelivered }) {
            m_link->queue(Progress, ScriptedLink::failed(outcome));
            QString errorText;
            guard.open(1000, errorText);
            guard.send(request(Progress));
        }
        QCOMPARE(guard.traffic().overdue, 3);
        QString errorText;
        guard.open(1000, errorText);
        guard.send(request(Progress));
        QCOMPARE(guard.traffic().overdue, 0);
    }

    void registers()
    {
        m_link->answer(Write, ScriptedLink::accepted());
        int orders = 0;
        GuardedLink guard(m_link, { {}, [&orders](const LinkTraffic &) {
                                       ++orders;
                                   } });
        const auto write = request(Write, { { QStringLiteral("body"), QByteArray(4, 'x') } });
        m_link->queue(Write, ScriptedLink::refused(101, QString()));
        guard.send(write);
        QVERIFY(!guard.traffic().isOrdered); // nothing has changed
        guard.send(write);
        guard.send(write);
        QVERIFY(guard.traffic().isOrdered);
        QCOMPARE(orders, 2);
        QCOMPARE(guard.traffic().sentBytes, qint64(8));
        QVERIFY(!guard.stopBeforeOrder());
        guard.stop();
        QCOMPARE(guard.send(write).errorText, Stopped);
        QCOMPARE(m_link->operations(), QStringList({ Write, Write, Write }));
    }

    void stop()
    {
        GuardedLink guard(m_link);
        guard.stop();
        QVERIFY(m_link->isOpen()); // what is under way gets its answer
        for (const auto &operation : { Announce, Configure, Progress, Shutdown, Write }) {
            const auto answer = guard.send(request(operation));
            QCOMPARE(answer.outcome, Outcome::Answered);
            QCOMPARE(answer.ack, quint16(4));
            QCOMPARE(answer.errorText, Stopped);
        }
        guard.close();
        QVERIFY(guard.isOpen());
        QString errorText;
        QVERIFY(!guard.open(1000, errorText));
        QCOMPARE(errorText, Stopped);
        QCOMPARE(m_link->operations(), QStringList());
    }

    void stopBeforeOrder()
    {
        GuardedLink guard(m_link);
        QVERIFY(guard.stopBeforeOrder());
        QVERIFY(!m_link->isOpen());
        QCOMPARE(guard.send(request(Configure)).errorText, Stopped);
        QCOMPARE(m_link->operations(), QStringList());
    }

    void noStopBehindTheOrder()
    {
        GuardedLink guard(m_link);
        guard.send(request(Configure));
        QVERIFY(!guard.stopBeforeOrder());
        QVERIFY(m_link->isOpen());
        m_link->queue(Progress, told(2, 7));
        guard.send(request(Progress));
        QVERIFY(guard.send(request(Shutdown)).isAccepted());
    }

    // Either the stop comes first and the order never leaves, or the order is told.
    void stopDuringTheOrder()
    {
        for (int i = 0; i < 200; ++i) {
            const auto link = std::make_shared<ScriptedLink>();
            link->answer(Progress, told(0));
            link->answer(Configure, ordered(1));
            GuardedLink guard(link);
            std::thread worker([&guard] { guard.send(request(Configure)); });
            const bool isStopped = guard.stopBeforeOrder();
            worker.join();
            QCOMPARE(link->operations().contains(Configure), !isStopped);
            QCOMPARE(guard.traffic().isOrdered, !isStopped);
        }
    }
};

QTEST_GUILESS_MAIN(tst_GuardedLink)
#include "tst_guardedlink.moc"
