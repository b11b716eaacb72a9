#include "show/remainingtime.h"

#include <QtTest>

#include <vector>

using namespace Velmar::Host;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

struct Step {
    double second;
    double share;
};

using Steps = std::vector<Step>;

milliseconds at(double second)
{
    return milliseconds(qint64(second * 1000));
}

// A step every \a every seconds for \a time seconds, each by \a share.
Steps steady(double time, double every, double share)
{
    Steps steps;
    for (int i = 0; i * every <= time; ++i)
        steps.push_back({ i * every, i * share });
    return steps;
}

Steps joined(Steps first, const Steps &later)
{
    const auto last = first.back();
    for (const auto &step : later)
        first.push_back({ last.second + step.second, last.share + step.share });
    return first;
}

} // namespace

Q_DECLARE_METATYPE(Steps)

class tst_RemainingTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void forecast_data()
    {
        QTest::addColumn<Steps>("steps");
        QTest::addColumn<double>("now");
        QTest::addColumn<int>("remaining"); // seconds; -1: none

        QTest::newRow("nothing known") << Steps() << 0.0 << -1;
        QTest::newRow("too short") << steady(4.9, 0.1, 0.001) << 4.9 << -1;
        QTest::newRow("just long enough") << steady(5, 0.5, 0.01) << 5.0 << 45;
        QTest::newRow("time goes on between the steps") << steady(5, 0.5, 0.01) << 5.9 << 45;
        QTest::newRow("rounded up to 5 seconds") << steady(6, 0.5, 0.01) << 6.0 << 45;
        QTest::newRow("and to 30 from two minutes on") << steady(10, 1, 0.005) << 10.0 << 210;
        QTest::newRow("too few steps") << steady(8, 4, 0.1) << 8.0 << -1;
        QTest::newRow("few steps are enough") << steady(12, 4, 0.1) << 12.0 << 30;
        QTest::newRow("slows down by less than a quarter")
            << joined(steady(5, 1, 0.04), steady(5, 1, 0.031)) << 10.0 << 20;
        QTest::newRow("slows down by more")
            << joined(steady(5, 1, 0.04), steady(5, 1, 0.029)) << 10.0 << -1;
        QTest::newRow("gets quicker by more")
            << joined(steady(5, 1, 0.029), steady(5, 1, 0.04)) << 10.0 << -1;
        QTest::newRow("was quicker long ago")
            << joined(steady(5, 1, 0.1), steady(20, 1, 0.0105)) << 25.0 << 30;
        QTest::newRow("step is awaited") << steady(6, 2, 0.1) << 10.0 << 10;
        QTest::newRow("step is overdue") << steady(6, 2, 0.1) << 10.1 << -1;
        QTest::newRow("stood still and goes on")
            << joined(steady(5, 1, 0.01), { { 10, 0.01 }, { 11, 0.02 } }) << 16.0 << -1;
        QTest::newRow("never below a second's worth") << steady(10, 1, 0.1) << 11.5 << 5;
        QTest::newRow("begins anew")
            << joined(steady(10, 1, 0.05), { { 1, -0.5 }, { 2, -0.45 } }) << 12.0 << -1;
        QTest::newRow("quick steps") << steady(10, 0.01, 0.0001) << 10.0 << 90;
        QTest::newRow("no steps") << Steps { { 0, 0 }, { 5, 0 }, { 10, 0 } } << 10.0 << -1;
    }
    void forecast()
    {
        QFETCH(Steps, steps);
        QFETCH(double, now);
        RemainingTime remaining;
        for (const auto &step : steps)
            remaining.take(step.share, at(step.second));
        const auto forecast = remaining.forecast(at(now));
        QTEST(forecast ? int(forecast->count()) : -1, "remaining");
    }

    void clearedForecast()
    {
        RemainingTime remaining;
        for (int i = 0; i < 10; ++i)
            remaining.take(i / 100.0, seconds(i));
        QVERIFY(remaining.forecast(seconds(9)));
        remaining.clear();
        QVERIFY(!remaining.forecast(seconds(9)));
    }
};

QTEST_APPLESS_MAIN(tst_RemainingTime)
#include "tst_remainingtime.moc"
