#include "run/preparation.h"

#include "support/stucklink.h"

#include <QtTest>

#include <optional>

using namespace Velmar::Host;

/*! What is asked of a device before an upgrade, of one that says nothing; the rest is seen by
    tst_upgrade. */
class tst_Preparation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cancelledWhileTheDeviceIsSilent_data()
    {
        QTest::addColumn<bool>("isReachable");

        QTest::newRow("connects and says nothing") << true;
        QTest::newRow("does not even connect") << false;
    }
    void cancelledWhileTheDeviceIsSilent()
    {
        QFETCH(bool, isReachable);
        const auto link = std::make_shared<StuckLink>(isReachable);
        PreparationOrder order;
        order.device = { QStringLiteral("wall"), 9720 };
        Preparation preparation(order, [link](const DeviceAddress &) { return link; });
        std::optional<Verdict> refusal;
        connect(&preparation, &Preparation::signalRefused, this,
                [&refusal](const Verdict &verdict) { refusal = verdict; });
        preparation.start();
        QTRY_VERIFY_WITH_TIMEOUT(link->isWaiting(), 50000);

        preparation.cancel();

        QTRY_VERIFY_WITH_TIMEOUT(refusal.has_value(), 50000);
        QVERIFY(refusal->code == VerdictCode::Interrupted);
    }

    void goesWhileTheDeviceIsSilent()
    {
        const auto link = std::make_shared<StuckLink>(true);
        {
            Preparation preparation({ QString(), QString(), { QStringLiteral("wall"), 9720 } },
                                    [link](const DeviceAddress &) { return link; });
            preparation.start();
            QTRY_VERIFY_WITH_TIMEOUT(link->isWaiting(), 50000);
        }
        QVERIFY(link.use_count() == 1); // nobody waits for the device any more
    }
};

QTEST_GUILESS_MAIN(tst_Preparation)
#include "tst_preparation.moc"
