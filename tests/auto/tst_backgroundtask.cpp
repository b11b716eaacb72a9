#include "run/backgroundtask.h"

#include "support/threadshortage.h"

#include <QThread>
#include <QtTest>

#include <atomic>
#include <future>
#include <memory>

using namespace Velmar::Host;

class TestBackgroundTask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void worksElsewhereAndEndsHere();
    void cancelIsSeenByTheWork();
    void destructionCancelsAndWaits();
    void noRoomForAThread();
};

void TestBackgroundTask::worksElsewhereAndEndsHere()
{
    QThread *workThread = nullptr;
    BackgroundTask task(
        [&workThread](const std::atomic<bool> &) { workThread = QThread::currentThread(); });
    QThread *endThread = nullptr;
    connect(&task, &BackgroundTask::signalEnded, this,
            [&endThread] { endThread = QThread::currentThread(); });
    task.start();
    QTRY_VERIFY(endThread != nullptr);
    QCOMPARE(endThread, QThread::currentThread());
    QCOMPARE(task.fault(), QString());
    QVERIFY(workThread != nullptr && workThread != endThread);
}

void TestBackgroundTask::cancelIsSeenByTheWork()
{
    std::promise<void> hasBegun;
    BackgroundTask task([&hasBegun](const std::atomic<bool> &isCancelled) {
        hasBegun.set_value();
        while (!isCancelled)
            std::this_thread::yield();
    });
    bool hasEnded = false;
    connect(&task, &BackgroundTask::signalEnded, this, [&hasEnded] { hasEnded = true; });
    task.start();
    hasBegun.get_future().wait();
    QVERIFY(!hasEnded);
    task.cancel();
    QTRY_VERIFY(hasEnded);
}

void TestBackgroundTask::destructionCancelsAndWaits()
{
    std::promise<void> hasBegun;
    bool hasReturned = false;
    bool hasEnded = false;
    auto task = std::make_unique<BackgroundTask>(
        [&hasBegun, &hasReturned](const std::atomic<bool> &isCancelled) {
            hasBegun.set_value();
            while (!isCancelled)
                std::this_thread::yield();
            hasReturned = true;
        });
    connect(task.get(), &BackgroundTask::signalEnded, this, [&hasEnded] { hasEnded = true; });
    task->start();
    hasBegun.get_future().wait();
    task.reset();
    QVERIFY(hasReturned);
    QCoreApplication::processEvents();
    QVERIFY(!hasEnded);
}

void TestBackgroundTask::noRoomForAThread()
{
    bool hasWorked = false;
    BackgroundTask task([&hasWorked](const std::atomic<bool> &) { hasWorked = true; });
    bool hasEnded = false;
    connect(&task, &BackgroundTask::signalEnded, this, [&hasEnded] { hasEnded = true; });
    {
        const ThreadShortage shortage;
        task.start();
    }
    QVERIFY(!hasEnded); // whoever called is not waiting yet
    QTRY_VERIFY_WITH_TIMEOUT(hasEnded, 30000);
    QVERIFY(!hasWorked);
    QCOMPARE(
        task.fault(),
        QStringLiteral("The system has no room for a thread: Resource temporarily unavailable"));
}

QTEST_GUILESS_MAIN(TestBackgroundTask)
#include "tst_backgroundtask.moc"
