#include "package/offer.h"
#include "package/selection.h"

#include "support/fakedevice.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using Firmware::UpgradeCfg;
using Firmware::UpgradeFileItem;

Q_DECLARE_METATYPE(Velmar::Firmware::UpgradeCfg)

namespace {

constexpr quint16 StrataS8 = 0x7701;
constexpr quint16 HdmiCard = 0x7801; // one board: 1
constexpr quint16 SdiCard = 0x7802; // boards 1 and 2, which number their FPGA differently

UpgradeFileItem item(const QString &section, int boardId = 0, const QString &target = QString())
{
    return { section, QStringLiteral("/package/%1.bin").arg(section), target, boardId };
}

UpgradeCfg unit(int modelId, int stepType, const QVector<UpgradeFileItem> &items)
{
    UpgradeCfg cfg;
    cfg.modelId = modelId;
    cfg.stepType = stepType;
    cfg.files = items;
    return cfg;
}

/*! One line for each section: part, model, board, name, code, type, number of files. */
QStringList lines(const std::vector<PartOffer> &parts)
{
    QStringList texts;
    for (const auto &part : parts) {
        for (const auto &section : part.sections)
            texts.append(QStringLiteral("%1 %2.%3: %4 %5/%6 x%7")
                             .arg(partName(part), QString::number(part.modelId, 16),
                                  QString::number(part.boardId), section.name,
                                  QString::number(section.code, 16), QString::number(section.type),
                                  QString::number(section.items.size())));
    }
    return texts;
}

/*! A record for each part: slot, type, model, board, codes. */
QStringList lines(const std::vector<ProtoModel::Auxiliary::s_CardInfoParts> &records)
{
    QStringList texts;
    for (const auto &record : records) {
        QStringList codes;
        for (const auto &section : record.section)
            codes.append(QString::number(section.code, 16));
        texts.append(QStringLiteral("slot %1 type %2 model %3 board %4: %5")
                         .arg(QString::number(record.slotId), QString::number(record.type),
                              QString::number(record.modelId, 16), QString::number(record.boardId),
                              codes.join(QLatin1Char(' '))));
    }
    return texts;
}

const QVector<UpgradeCfg> WholePackage {
    unit(StrataS8, 0, { item("MCU_Back"), item("MCU"), item("FPGA") }),
    unit(HdmiCard, 1, { item("MCU"), item("EDID") }),
    unit(SdiCard, 1, { item("FPGA", 1), item("FPGA", 2), item("SDI") }),
};

} // namespace

class tst_Selection : public QObject
{
    Q_OBJECT

    const FakeDevice m_device { StrataS8,
                                { { HdmiCard, 2, 1 }, { SdiCard, 3, 2 }, { HdmiCard, 4, 1 } } };

private Q_SLOTS:
    void offers_data()
    {
        QTest::addColumn<QVector<UpgradeCfg>>("units");
        QTest::addColumn<QStringList>("offers");

        using Units = QVector<UpgradeCfg>;
        QTest::newRow("no units") << Units {} << QStringList {};
        QTest::newRow("main control and back plane, in the package's order")
            << Units { unit(StrataS8, 0, { item("MCU_Back"), item("MCU") }) }
            << QStringList { "main control 7701.0: MCU_Back 105/2 x1",
                             "main control 7701.0: MCU 101/1 x1" };
        QTest::newRow("section that the model does not have")
            << Units { unit(StrataS8, 0, { item("RootFS"), item("mcu"), item("FPGA") }) }
            << QStringList { "main control 7701.0: FPGA 102/1 x1" };
        QTest::newRow("the main control has no board")
            << Units { unit(StrataS8, 0, { item("MCU", 1), item("FPGA") }) }
            << QStringList { "main control 7701.0: FPGA 102/1 x1" };
        QTest::newRow("model that is not fitted")
            << Units { unit(0x7811, 1, { item("MCU") }) } << QStringList {};
        QTest::newRow("model whose low 16 bits alone fit")
            << Units { unit(0x17701, 0, { item("MCU") }) } << QStringList {};
        QTest::newRow("a card's section goes to each card of the model")
            << Units { unit(HdmiCard, 1, { item("EDID") }) }
            << QStringList { "card 2 7801.1: EDID 303/3 x1", "card 4 7801.1: EDID 303/3 x1" };
        QTest::newRow("section for another board")
            << Units { unit(HdmiCard, 1, { item("EDID", 2), item("MCU", 1) }) }
            << QStringList { "card 2 7801.1: MCU 301/3 x1", "card 4 7801.1: MCU 301/3 x1" };
        QTest::newRow("section of the board that is fitted")
            << Units { unit(SdiCard, 1, { item("FPGA", 1), item("FPGA", 2) }) }
            << QStringList { "card 3 7802.2: FPGA 322/3 x1" };
        QTest::newRow("for any board, but coded as on a board that is not fitted")
            << Units { unit(SdiCard, 1, { item("FPGA"), item("SDI") }) }
            << QStringList { "card 3 7802.2: SDI 323/3 x1" };
        QTest::newRow("section that the fitted board lacks")
            << Units { unit(SdiCard, 1, { item("EDID") }) } << QStringList {};
        QTest::newRow("one file to several places")
            << Units { unit(StrataS8, 0, { item("MCU", 0, "/a"), item("MCU", 0, "/b") }) }
            << QStringList { "main control 7701.0: MCU 101/1 x2" };
        QTest::newRow("units of one model add up")
            << Units { unit(StrataS8, 0, { item("MCU") }),
                       unit(StrataS8, 0, { item("FPGA"), item("MCU") }) }
            << QStringList { "main control 7701.0: MCU 101/1 x2",
                             "main control 7701.0: FPGA 102/1 x1" };
        QTest::newRow("parts in slot order")
            << Units { unit(SdiCard, 1, { item("SDI") }), unit(HdmiCard, 1, { item("MCU") }),
                       unit(StrataS8, 0, { item("MCU") }) }
            << QStringList { "main control 7701.0: MCU 101/1 x1", "card 2 7801.1: MCU 301/3 x1",
                             "card 3 7802.2: SDI 323/3 x1", "card 4 7801.1: MCU 301/3 x1" };
    }
    void offers()
    {
        QFETCH(QVector<UpgradeCfg>, units);
        QTEST(lines(offeredParts(units, m_device.device())), "offers");
    }

    void offersOfAModelAlone()
    {
        QCOMPARE(lines(offeredParts(WholePackage, m_device.device().deviceConfig())),
                 QStringList({ "main control 7701.0: MCU_Back 105/2 x1",
                               "main control 7701.0: MCU 101/1 x1",
                               "main control 7701.0: FPGA 102/1 x1" }));
    }

    void choice_data()
    {
        QTest::addColumn<QStringList>("sections");
        QTest::addColumn<QStringList>("cards");
        QTest::addColumn<QStringList>("records");

        const QString mainControl = "slot 0 type 1 model 7701 board 0: 101 102";
        const QString backPlane = "slot 0 type 2 model 7701 board 0: 105";
        QTest::newRow("everything")
            << QStringList {} << QStringList {}
            << QStringList { backPlane, mainControl, "slot 2 type 3 model 7801 board 1: 301 303",
                             "slot 3 type 3 model 7802 board 2: 322 323",
                             "slot 4 type 3 model 7801 board 1: 301 303" };
        QTest::newRow("one section wherever it is")
            << QStringList { "MCU" } << QStringList {}
            << QStringList { "slot 0 type 1 model 7701 board 0: 101",
                             "slot 2 type 3 model 7801 board 1: 301",
                             "slot 4 type 3 model 7801 board 1: 301" };
        QTest::newRow("two sections, one named twice")
            << QStringList { "SDI", "MCU_Back", "SDI" } << QStringList {}
            << QStringList { backPlane, "slot 3 type 3 model 7802 board 2: 323" };
        QTest::newRow("one card") << QStringList {} << QStringList { "3" }
                                  << QStringList { "slot 3 type 3 model 7802 board 2: 322 323" };
        QTest::newRow("main control")
            << QStringList {} << QStringList { "main" } << QStringList { backPlane, mainControl };
        QTest::newRow("section on a card")
            << QStringList { "MCU" } << QStringList { "4" }
            << QStringList { "slot 4 type 3 model 7801 board 1: 301" };
    }
    void choice()
    {
        QFETCH(QStringList, sections);
        QFETCH(QStringList, cards);
        Selection selection;
        QString errorText;
        QVERIFY(selection.choose(offeredParts(WholePackage, m_device.device()), { sections, cards },
                                 errorText));
        QVERIFY(errorText.isEmpty());
        QTEST(lines(selection.cardInfoParts()), "records");
    }

    void refusedChoice_data()
    {
        QTest::addColumn<QStringList>("sections");
        QTest::addColumn<QStringList>("cards");
        QTest::addColumn<QString>("errorText");

        const auto fits = QStringLiteral(". What fits: main control: MCU; card 2: MCU, EDID; "
                                         "card 4: MCU, EDID");
        QTest::newRow("unknown section") << QStringList { "MCU", "Kernel" } << QStringList {}
                                         << "Nothing fits for section \"Kernel\"" + fits;
        QTest::newRow("empty slot") << QStringList {} << QStringList { "2", "3", "9" }
                                    << "Nothing fits for card \"3\", \"9\"" + fits;
        QTest::newRow("slot in another spelling")
            << QStringList {} << QStringList { "02" } << "Nothing fits for card \"02\"" + fits;
        QTest::newRow("section that the named card does not get")
            << QStringList { "EDID" } << QStringList { "main" }
            << "Nothing fits for section \"EDID\" and card \"main\"" + fits;
        QTest::newRow("name with control characters")
            << QStringList { "\x1b[0m" } << QStringList {}
            << "Nothing fits for section \"\\x1b[0m\"" + fits;
    }
    void refusedChoice()
    {
        QFETCH(QStringList, sections);
        QFETCH(QStringList, cards);
        const auto offered = offeredParts({ unit(StrataS8, 0, { item("MCU") }),
                                            unit(HdmiCard, 1, { item("MCU"), item("EDID") }) },
                                          m_device.device());
        Selection selection;
        QString errorText;
        QVERIFY(selection.choose(offered, { {}, { "main" } }, errorText));
        QVERIFY(!selection.choose(offered, { sections, cards }, errorText));
        QTEST(errorText, "errorText");
        QCOMPARE(lines(selection.parts()), QStringList("main control 7701.0: MCU 101/1 x1"));
    }

    void nothingOffered()
    {
        Selection selection;
        QString errorText;
        QVERIFY(!selection.choose({}, {}, errorText));
        QCOMPARE(errorText, QStringLiteral("Nothing in the package fits this device"));
        QVERIFY(selection.cardInfoParts().empty());
    }
};

QTEST_GUILESS_MAIN(tst_Selection)
#include "tst_selection.moc"
