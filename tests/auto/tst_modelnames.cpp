#include "device/modelnames.h"

#include <velmarbizmodel/catalogue.h>

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

class tst_ModelNames : public QObject
{
    Q_OBJECT

    const ModelNames m_names { BizModel::Catalogue::builtin() };

private Q_SLOTS:
    void description_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<QString>("text");

        QTest::newRow("device") << 0x7701 << "Strata S8 (0x7701)";
        QTest::newRow("card") << 0x7801 << "SI-H4 HDMI input card (0x7801)";
        QTest::newRow("unknown") << 0xabc << "0x0abc";
        QTest::newRow("more than 16 bits") << 0x17701 << "0x17701";
    }
    void description()
    {
        QFETCH(int, modelId);
        QTEST(m_names.describe(modelId), "text");
    }

    void deviceModel_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("modelId"); // -1: none

        QTest::newRow("name") << "Strata S16" << 0x7702;
        QTest::newRow("name in another case") << "strata s8" << 0x7701;
        QTest::newRow("hexadecimal number") << "0x7702" << 0x7702;
        QTest::newRow("decimal number") << "30465" << 0x7701;
        QTest::newRow("unknown number") << "1" << -1;
        QTest::newRow("number whose low 16 bits alone fit") << "0x17701" << -1;
        QTest::newRow("card") << "SI-H4 HDMI input card" << -1;
        QTest::newRow("part of a name") << "Strata" << -1;
        QTest::newRow("empty") << "" << -1;
    }
    void deviceModel()
    {
        QFETCH(QString, text);
        const auto model = m_names.findDeviceModel(text);
        QTEST(model ? int(*model) : -1, "modelId");
    }

    void listOfDeviceModels()
    {
        QCOMPARE(m_names.deviceModels(), QStringLiteral("Strata S8 (0x7701), Strata S16 (0x7702)"));
    }
};

QTEST_GUILESS_MAIN(tst_ModelNames)
#include "tst_modelnames.moc"
