#include "device/closablelinks.h"

#include "support/stucklink.h"

#include <QtTest>

#include <future>

using namespace Velmar;
using namespace Velmar::Host;
using BizModel::LinkAnswer;

class tst_ClosableLinks : public QObject
{
    Q_OBJECT

    std::shared_ptr<StuckLink> m_inner;
    std::unique_ptr<ClosableLinks> m_links;
    std::shared_ptr<BizModel::DeviceLink> m_link;

private Q_SLOTS:
    void init()
    {
        m_inner = std::make_shared<StuckLink>(false);
        m_links =
            std::make_unique<ClosableLinks>([this](const DeviceAddress &) { return m_inner; });
        m_link = m_links->make({ QStringLiteral("127.0.0.1"), 1 });
    }

    void endsEachWait_data()
    {
        QTest::addColumn<int>("call");

        QTest::newRow("open") << 0;
        QTest::newRow("send") << 1;
        QTest::newRow("pause") << 2;
        QTest::newRow("resume") << 3;
    }
    void endsEachWait()
    {
        QFETCH(int, call);
        auto waiting = std::async(std::launch::async, [this, call] {
            QString errorText;
            switch (call) {
            case 0:
                return !m_link->open(1000, errorText) && errorText == QLatin1String("closed");
            case 1:
                return m_link->send({}).outcome == LinkAnswer::Outcome::Lost;
            case 2:
                m_link->pauseHeartbeat(1);
                return true;
            default:
                m_link->restartHeartbeat();
                return true;
            }
        });
        QTRY_VERIFY_WITH_TIMEOUT(m_inner->isWaiting(), 50000);
        m_links->close();
        // Nobody waits any more, and so this cannot take long.
        QVERIFY(waiting.get());
    }

    void closedWhileACallBegins()
    {
        for (int round = 0; round < 50; ++round) {
            init();
            auto waiting = std::async(std::launch::async, [this] { return m_link->send({}); });
            m_links->close();
            QVERIFY(!waiting.get().isAccepted());
        }
    }

    void nothingGoesThroughAfterwards()
    {
        m_links->close();
        for (const auto &link : { m_link, m_links->make({ QStringLiteral("127.0.0.1"), 2 }) }) {
            QString errorText;
            QVERIFY(!link->open(1000, errorText));
            QCOMPARE(errorText, QStringLiteral("the question was called off"));
            const auto answer = link->send({});
            QVERIFY(answer.outcome == LinkAnswer::Outcome::NotDelivered);
            QCOMPARE(answer.errorText, QStringLiteral("the question was called off"));
            link->pauseHeartbeat(1);
            link->restartHeartbeat();
        }
    }

    void linkThatIsGone()
    {
        m_link.reset();
        m_links->close();
        QVERIFY(m_inner.use_count() == 1);
    }
};

QTEST_GUILESS_MAIN(tst_ClosableLinks)
#include "tst_closablelinks.moc"
