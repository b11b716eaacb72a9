#include "show/phasedurations.h"

#include <QtTest>

using namespace Velmar::Host;
using std::chrono::milliseconds;
using Durations = std::map<Phase, milliseconds>;

class tst_PhaseDurations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void phasesAddUp()
    {
        milliseconds now(1000);
        PhaseDurations durations([&now] { return now; });
        QVERIFY(durations.phases().empty());
        now += milliseconds(5);
        durations.enter(Phase::Installing);
        QVERIFY((durations.phases() == Durations { { Phase::Installing, milliseconds(0) } }));
        now += milliseconds(10);
        durations.enter(Phase::Restarting);
        now += milliseconds(20);
        QVERIFY((durations.phases()
                 == Durations { { Phase::Installing, milliseconds(10) },
                                { Phase::Restarting, milliseconds(20) } }));
        // A device that is followed again behind a lost connection.
        durations.enter(Phase::Installing);
        now += milliseconds(40);
        QVERIFY((durations.phases()
                 == Durations { { Phase::Installing, milliseconds(50) },
                                { Phase::Restarting, milliseconds(20) } }));
        QCOMPARE(durations.whole().count(), milliseconds(75).count());
    }

    void clockGoesOn()
    {
        const auto begin = monotonicTime();
        QTRY_VERIFY(monotonicTime() > begin);
    }
};

QTEST_GUILESS_MAIN(tst_PhaseDurations)
#include "tst_phasedurations.moc"
