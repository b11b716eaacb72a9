#include "package/olderservicechoice.h"

#include <QtTest>

using namespace Velmar::Host;

Q_DECLARE_METATYPE(Velmar::Host::Wish)

namespace {

SectionOffer section(const QString &name, quint16 code)
{
    return { name, code, 1, {} };
}

const PartOffer Main { true,
                       0,
                       0x7701,
                       0,
                       { section("FPGA", 0x102), section("MCU", 0x101),
                         section("MCU_Back", 0x105) } };
const PartOffer Card { false, 2, 0x7801, 1, { section("MCU", 0x101) } };

} // namespace

class tst_OlderServiceChoice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choices_data()
    {
        QTest::addColumn<Wish>("wish");
        QTest::addColumn<QString>("chosen");

        QTest::newRow("everything") << Wish() << "main control: MCU, MCU_Back";
        QTest::newRow("one") << Wish { { "MCU_Back" }, {} } << "main control: MCU_Back";
        QTest::newRow("main control") << Wish { {}, { "main" } } << "main control: MCU, MCU_Back";
        QTest::newRow("another section") << Wish { { "FPGA" }, {} } << "";
        QTest::newRow("a card") << Wish { {}, { "2" } } << "";
    }
    void choices()
    {
        QFETCH(Wish, wish);
        QFETCH(QString, chosen);
        Selection selection;
        QString errorText;
        QCOMPARE(chooseForOlderService({ Main, Card }, wish, selection, errorText),
                 !chosen.isEmpty());
        QCOMPARE(summary(selection.parts()), chosen);
        QCOMPARE(errorText.isEmpty(), !chosen.isEmpty());
    }

    void nothingThatItRenews()
    {
        Selection selection;
        QString errorText;
        QVERIFY(!chooseForOlderService({ Card }, {}, selection, errorText));
        QCOMPARE(errorText,
                 QStringLiteral("The device's HTTP service renews the main control's and the back "
                                "plane's MCU alone, and the package has neither"));
    }

    void nothingThatFits()
    {
        Selection selection;
        QString errorText;
        QVERIFY(!chooseForOlderService({}, {}, selection, errorText));
        QCOMPARE(errorText, QStringLiteral("Nothing in the package fits this device"));
    }
};

QTEST_APPLESS_MAIN(tst_OlderServiceChoice)
#include "tst_olderservicechoice.moc"
