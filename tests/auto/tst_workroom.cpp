#include "run/workroom.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Velmar::Host;

namespace {

PlannedFile planned(const QString &file, qint64 size)
{
    PlannedFile record;
    record.file = file;
    record.size = size;
    return record;
}

Plan planFor(Road road)
{
    Plan plan;
    plan.road = road;
    plan.files = { planned("main/MCU.dat", 3000), planned("main/kernel", 50000),
                   planned("main/font12.dat", 4000) };
    return plan;
}

} // namespace

Q_DECLARE_METATYPE(Velmar::Host::Road)

class tst_WorkRoom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shortage_data()
    {
        QTest::addColumn<Road>("road");
        QTest::addColumn<qint64>("written");
        QTest::addColumn<qint64>("free");
        QTest::addColumn<bool>("isShort");

        // An image of 57,000 bytes, and 3000 for the largest plain copy: a font of that name is plain.
        QTest::newRow("native, just enough") << Road::Native << qint64(0) << qint64(60000) << false;
        QTest::newRow("native, a byte too few")
            << Road::Native << qint64(0) << qint64(59999) << true;
        QTest::newRow("native, part of it written")
            << Road::Native << qint64(50000) << qint64(10000) << false;
        QTest::newRow("native, full on the way")
            << Road::Native << qint64(50000) << qint64(0) << true;
        QTest::newRow("HTTP") << Road::Http << qint64(0) << qint64(59999) << true;
        // Every file is deciphered, whatever its name.
        QTest::newRow("registers, just enough")
            << Road::Registers << qint64(0) << qint64(50000) << false;
        QTest::newRow("registers, a byte too few")
            << Road::Registers << qint64(0) << qint64(49999) << true;
        QTest::newRow("not told") << Road::Native << qint64(0) << qint64(-1) << false;
    }
    void shortage()
    {
        QFETCH(Road, road);
        QFETCH(qint64, written);
        QFETCH(qint64, free);
        QFETCH(bool, isShort);
        QCOMPARE(!roomShortage(planFor(road), written, free).isEmpty(), isShort);
    }

    void fileThatIsThere()
    {
        auto plan = planFor(Road::Http);
        plan.upload.filePath = "/srv/image";
        QCOMPARE(roomShortage(plan, 0, 0), QString());
    }

    void sentence()
    {
        QCOMPARE(roomShortage(planFor(Road::Native), 10000, 20),
                 QStringLiteral("There is not enough room to prepare the firmware: 48 KiB are "
                                "needed, and 20 B are free"));
    }

    void folder()
    {
        const QTemporaryDir folder;
        QCOMPARE(roomShortage(planFor(Road::Native), folder.path()), QString());
        Plan huge;
        huge.files = { planned("kernel", qint64(1) << 60) };
        QVERIFY(!roomShortage(huge, folder.path()).isEmpty());
        // All but a byte of it is there already, without taking room.
        QFile image(folder.filePath("upgrade"));
        QVERIFY(image.open(QIODevice::WriteOnly) && image.resize(qint64(1) << 40));
        huge.files = { planned("kernel", (qint64(1) << 40) + 1) };
        QCOMPARE(roomShortage(huge, folder.path()), QString());
        QCOMPARE(roomShortage(huge, folder.filePath("nothing")), QString());
    }
};

QTEST_GUILESS_MAIN(tst_WorkRoom)
#include "tst_workroom.moc"
