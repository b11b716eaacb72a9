#include "show/formerplan.h"

#include "show/runrecord.h"

#include <QtTest>

using namespace Velmar::Host;

namespace {

Plan planFor(const QString &serial, const QString &section)
{
    Plan plan;
    plan.device.address = { QStringLiteral("127.0.0.1"), 9720 };
    plan.device.modelId = 0x7701;
    plan.device.modelName = QStringLiteral("Strata S8 (0x7701)");
    plan.device.serial = serial;
    plan.device.name = QStringLiteral("left wall");
    plan.packagePath = QStringLiteral("/packages/wall");
    plan.packageDigest = QByteArray(32, 'd');
    PlannedFile file;
    file.section = section;
    file.code = 257;
    file.isMainControl = true;
    file.modelId = 0x7701;
    file.file = QStringLiteral("main/mcu.bin");
    file.target = QStringLiteral("/app/mcu.bin");
    file.size = 3;
    file.sha256 = QByteArray(32, 'h');
    plan.files = { file };
    PlannedSection planned;
    planned.isMainControl = true;
    planned.modelId = 0x7701;
    planned.type = 1;
    planned.code = 257;
    planned.name = section;
    planned.versionBefore = QStringLiteral("1.0.0.0");
    planned.versionExpected = QStringLiteral("1.1.0.0");
    plan.sections = { planned };
    return plan;
}

} // namespace

class TestFormerPlan : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;
    int m_runs = 0;

    /*! Records a run with \a plan, if there is one, that ends with \a code, if it does. */
    void record(const std::optional<Plan> &plan, const std::optional<VerdictCode> &code)
    {
        RunRecordOptions options;
        options.baseFolder = m_folder.path();
        QString errorText;
        const auto run = RunRecord::begin(
            QStringLiteral("20260102T030405%1Z-0123abcd").arg(++m_runs, 3, 10, QLatin1Char('0')),
            options, errorText);
        QVERIFY2(run, qPrintable(errorText));
        if (plan) {
            RunEvent event;
            event.kind = RunEvent::Kind::Plan;
            event.data = plan->toJson();
            run->take(event);
        }
        if (code) {
            RunEvent event;
            event.kind = RunEvent::Kind::Verdict;
            event.summary.emplace();
            event.summary->verdict = verdict(*code, QStringLiteral("It ended"));
            run->take(event);
        }
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(QDir(m_folder.path()).removeRecursively());
        QVERIFY(QDir().mkpath(m_folder.path()));
        QFile::setPermissions(m_folder.path(),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    void lastRun_data()
    {
        QTest::addColumn<QString>("end");
        QTest::addColumn<bool>("isFound");

        QTest::newRow("killed: without an end") << QString() << true;
        QTest::newRow("left") << "left" << true;
        QTest::newRow("its process died") << "worker-lost" << true;
        QTest::newRow("confirmed") << "confirmed" << false;
        QTest::newRow("failed") << "install-failed" << false;
    }
    void lastRun()
    {
        QFETCH(QString, end);
        QFETCH(bool, isFound);
        record(planFor(QStringLiteral("S8-0001"), QStringLiteral("MCU")), verdictOf(end));

        const auto plan = formerPlan(QStringLiteral("S8-0001"), m_folder.path());

        QCOMPARE(plan.has_value(), isFound);
        if (isFound)
            QCOMPARE(plan->sections.front().name, QStringLiteral("MCU"));
    }

    void theLastOneOfTheDeviceCounts()
    {
        record(planFor(QStringLiteral("S8-0001"), QStringLiteral("MCU")), VerdictCode::Left);
        record(planFor(QStringLiteral("S8-0001"), QStringLiteral("FPGA")), VerdictCode::Left);
        record(planFor(QStringLiteral("S8-0002"), QStringLiteral("Kernel")), VerdictCode::Left);
        record(std::nullopt, VerdictCode::DeviceLost); // a run that watched

        const auto plan = formerPlan(QStringLiteral("S8-0001"), m_folder.path());

        QVERIFY(plan);
        QCOMPARE(plan->sections.front().name, QStringLiteral("FPGA"));
    }

    void anEndHidesWhatWasBefore()
    {
        record(planFor(QStringLiteral("S8-0001"), QStringLiteral("MCU")), VerdictCode::Left);
        record(planFor(QStringLiteral("S8-0001"), QStringLiteral("MCU")), VerdictCode::Confirmed);
        QVERIFY(!formerPlan(QStringLiteral("S8-0001"), m_folder.path()));
    }

    void aDeviceWithoutASerialNumberIsNobody()
    {
        record(planFor(QString(), QStringLiteral("MCU")), VerdictCode::Left);
        QVERIFY(!formerPlan(QString(), m_folder.path()));
    }
};

QTEST_GUILESS_MAIN(TestFormerPlan)
#include "tst_formerplan.moc"
