#include "device/versioncomparison.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

ToldVersions told(const char *version)
{
    ProtoModel::Auxiliary::s_DeviceVersionPart part;
    part.type = 2;
    part.slotId = 3;
    part.section.push_back({ 0x0201, version, "N/A" });
    ProtoModel::Auxiliary::s_DeviceVersion versions;
    versions.parts.push_back(part);
    return ToldVersions(versions);
}

} // namespace

class tst_VersionComparison : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void section_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QByteArray>("now");
        QTest::addColumn<QString>("group");
        QTest::addColumn<int>("changed");

        QTest::newRow("new as expected")
            << QByteArray("1") << QByteArray("2") << QByteArray("2") << "as planned" << 1;
        QTest::newRow("the same, as expected")
            << QByteArray("2") << QByteArray("2") << QByteArray("2") << "as planned" << 0;
        QTest::newRow("not told before, as expected")
            << QByteArray() << QByteArray("2") << QByteArray("2") << "as planned" << 0;
        QTest::newRow("new, expected unknown")
            << QByteArray("1") << QByteArray() << QByteArray("2") << "as planned" << 1;
        QTest::newRow("old") << QByteArray("1") << QByteArray("2") << QByteArray("1") << "unchanged"
                             << 0;
        QTest::newRow("neither") << QByteArray("1") << QByteArray("2") << QByteArray("3") << "other"
                                 << 1;
        QTest::newRow("not told before, not as expected")
            << QByteArray() << QByteArray("2") << QByteArray("3") << "other" << 0;
        QTest::newRow("the same, expected unknown")
            << QByteArray("1") << QByteArray() << QByteArray("1") << "unjudged" << 0;
        QTest::newRow("not told before, expected unknown")
            << QByteArray() << QByteArray() << QByteArray("2") << "unjudged" << 0;
        QTest::newRow("not told") << QByteArray("1") << QByteArray("2") << QByteArray("N/A")
                                  << "untold" << 0;
        QTest::newRow("empty") << QByteArray("1") << QByteArray("2") << QByteArray("") << "untold"
                               << 0;
        QTest::newRow("not told, expected unknown")
            << QByteArray("1") << QByteArray() << QByteArray("N/A") << "untold" << 0;
    }
    void section()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, expected);
        QFETCH(QByteArray, now);
        QFETCH(QString, group);
        PlannedSection section;
        section.type = 2;
        section.slotId = 3;
        section.code = 0x0201;
        section.versionBefore = QString::fromLatin1(before);
        section.versionExpected = QString::fromLatin1(expected);
        const auto seen = compareVersions({ section }, told(now.constData()));
        QCOMPARE(seen.count, 1);
        QTEST(seen.changed, "changed");
        QCOMPARE(seen.isAsPlanned(), group == QLatin1String("as planned"));
        QCOMPARE(int(seen.unchanged.size()), group == QLatin1String("unchanged") ? 1 : 0);
        QCOMPARE(int(seen.other.size()), group == QLatin1String("other") ? 1 : 0);
        QCOMPARE(int(seen.unjudged.size()), group == QLatin1String("unjudged") ? 1 : 0);
        QCOMPARE(int(seen.untold.size()), group == QLatin1String("untold") ? 1 : 0);
    }

    void nothingIsNotAsPlanned() { QVERIFY(!compareVersions({}, told("1")).isAsPlanned()); }

    void versionOfWhatIsNotThere_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("slotId");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("version");

        QTest::newRow("there") << 2 << 3 << 0x0201 << "1";
        QTest::newRow("other kind of part") << 1 << 3 << 0x0201 << "";
        QTest::newRow("other slot") << 2 << 4 << 0x0201 << "";
        QTest::newRow("other section") << 2 << 3 << 0x0202 << "";
    }
    void versionOfWhatIsNotThere()
    {
        QFETCH(int, type);
        QFETCH(int, slotId);
        QFETCH(int, code);
        QTEST(told("1").find(type, static_cast<quint8>(slotId), static_cast<quint16>(code)),
              "version");
    }

    void firstOfTwoCounts()
    {
        ProtoModel::Auxiliary::s_DeviceVersion versions;
        ProtoModel::Auxiliary::s_DeviceVersionPart part;
        part.section = { { 0x0102, "1", "N/A" }, { 0x0102, "2", "N/A" } };
        versions.parts.push_back(part);
        part.section = { { 0x0102, "3", "N/A" }, { 0x0103, "4", "N/A" } };
        versions.parts.push_back(part);
        const ToldVersions told(versions);
        QCOMPARE(told.find(1, 0, 0x0102), QStringLiteral("1"));
        QCOMPARE(told.find(1, 0, 0x0103), QString());
    }

    void equality()
    {
        QVERIFY(told("1") == told("1"));
        QVERIFY(told("1") != told("2"));
        QVERIFY(told("1") != ToldVersions());
    }
};

QTEST_GUILESS_MAIN(tst_VersionComparison)
#include "tst_versioncomparison.moc"
