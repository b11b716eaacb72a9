#include "records/compatibilityrecords.h"
#include "records/devicerecords.h"
#include "support/randomrecord.h"
#include "support/samefields.h"
#include "json/json.h"

#include <QByteArray>
#include <QList>
#include <QTest>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

using namespace Velmar::ProtoModel::Auxiliary;

namespace {

QByteArray asBytes(const std::string &text)
{
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

template<class Document> QByteArray encoded(const Document &document)
{
    std::string text;
    ajson::encodeJson(text, document);
    return asBytes(text);
}

// What has been read, written out again, or the error.
template<class Document> QByteArray decoded(const QByteArray &text)
{
    Document document {};
    std::string error;
    if (!ajson::decodeJson(text.toStdString(), document, error))
        return asBytes(error);
    return encoded(document);
}

// Decodes with the name of the record as the choice, for tables of tests.
QByteArray decodedAs(const QByteArray &record, const QByteArray &text)
{
    if (record == "s_DeviceVersion")
        return decoded<s_DeviceVersion>(text);
    if (record == "s_UpgradePercent")
        return decoded<s_UpgradePercent>(text);
    if (record == "s_UpgradeCardParts")
        return decoded<s_UpgradeCardParts>(text);
    if (record == "s_UpgradeDetail")
        return decoded<s_UpgradeDetail>(text);
    if (record == "s_CompatibilityUpgradePercent")
        return decoded<std::vector<s_CompatibilityUpgradePercent>>(text);
    if (record == "s_CompatibilityUpgradeDetail")
        return decoded<std::vector<s_CompatibilityUpgradeDetail>>(text);
    return "unknown record";
}

// Whether the record's members are of these types, in wire order.
template<class Record, class... Type>
constexpr bool HasTypes =
    std::is_same_v<decltype(Record::Members), const std::tuple<Type Record::*...>>;

template<class Document> void checkRoundTrips(std::uint32_t seed)
{
    for (int i = 0; i < 300; ++i) {
        RandomRecord random(seed + static_cast<std::uint32_t>(i));
        Document document {};
        random.fill(document);
        std::string text;
        ajson::encodeJson(text, document);
        Document copy {};
        std::string error;
        QVERIFY2(ajson::decodeJson(text, copy, error), (error + ": " + text).c_str());
        QVERIFY2(sameFields(document, copy), text.c_str());
    }
}

} // namespace

class tst_JsonRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keys_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char *name, const char *keys, const char *expected) {
            QTest::newRow(name) << QByteArray(keys) << QByteArray(expected);
        };

        row("s_DeviceVersion", s_DeviceVersion::Keys, "version, brief, parts");
        row("s_DeviceVersionPart", s_DeviceVersionPart::Keys,
            "type, slotId, modelId, version, brief, section");
        row("s_DeviceVersionSection", s_DeviceVersionSection::Keys, "code, version, brief");
        row("s_UpgradePercent", s_UpgradePercent::Keys, "result, rate, subSections, parts");
        row("s_UpgradeSubSections", s_UpgradeSubSections::Keys, "rate");
        row("s_UpgradeCardParts", s_UpgradeCardParts::Keys, "type, slotId, rate, result, section");
        row("s_SectionPercent", s_SectionPercent::Keys, "code, rate, result");
        row("s_UpgradeDetail", s_UpgradeDetail::Keys,
            "upgradeType, filePath, reboot, deleteUpgradeFile, parts");
        row("s_CardInfoParts", s_CardInfoParts::Keys, "type, slotId, boardId, section");
        row("s_SectionCode", s_SectionCode::Keys, "code");
        row("s_CompatibilityUpgradePercent", s_CompatibilityUpgradePercent::Keys,
            "deviceId, result, updateBaseSections, updateSubSections, mainControl, backPlane");
        row("s_CompatibilityBasePercent", s_CompatibilityBasePercent::Keys,
            "code, rate, type, modelId, slotId");
        row("s_CompatibilitySubCardPercentSection", s_CompatibilitySubCardPercentSection::Keys,
            "modelId, slotId, sections");
        row("s_CompatibilityUpgradeDetail", s_CompatibilityUpgradeDetail::Keys,
            "deviceId, upgradeType, filePath, reboot, deleteUpgradeFile, mainControl, backPlane");
        row("s_CompatibilitySubCardDetail", s_CompatibilitySubCardDetail::Keys,
            "modelId, slotId, sections");
        row("s_CompatibilitySectionDetail", s_CompatibilitySectionDetail::Keys, "code, timeout");
    }
    void keys()
    {
        QFETCH(QByteArray, keys);
        QTEST(keys, "expected");
    }

    // In wire order, with the value that stays when a device leaves the key out.
    void defaults()
    {
        QCOMPARE(encoded(s_DeviceVersion()),
                 QByteArray(R"({"version":"N/A","brief":"N/A","parts":[]})"));
        QCOMPARE(encoded(s_DeviceVersionPart()),
                 QByteArray(R"({"type":1,"slotId":0,"modelId":30465,"version":"N/A",)"
                            R"("brief":"N/A","section":[]})"));
        QCOMPARE(encoded(s_DeviceVersionSection()),
                 QByteArray(R"({"code":258,"version":"N/A","brief":"N/A"})"));
        QCOMPARE(encoded(s_UpgradePercent()),
                 QByteArray(R"({"result":0,"rate":0,"subSections":{"rate":0},"parts":[]})"));
        QCOMPARE(encoded(s_UpgradeSubSections()), QByteArray(R"({"rate":0})"));
        QCOMPARE(encoded(s_UpgradeCardParts()),
                 QByteArray(R"({"type":1,"slotId":0,"rate":0,"result":0,"section":[]})"));
        QCOMPARE(encoded(s_SectionPercent()), QByteArray(R"({"code":258,"rate":0,"result":0})"));
        QCOMPARE(encoded(s_UpgradeDetail()),
                 QByteArray(R"({"upgradeType":0,"filePath":"","reboot":0,)"
                            R"("deleteUpgradeFile":0,"parts":[]})"));
        QCOMPARE(encoded(s_CardInfoParts()),
                 QByteArray(R"({"type":0,"slotId":0,"boardId":0,"section":[]})"));
        QCOMPARE(encoded(s_SectionCode()), QByteArray(R"({"code":0})"));
        QCOMPARE(encoded(s_CompatibilityUpgradePercent()),
                 QByteArray(R"({"deviceId":0,"result":0,"updateBaseSections":{"code":258,)"
                            R"("rate":0,"type":1,"modelId":0,"slotId":0},)"
                            R"("updateSubSections":{"rate":0},"mainControl":[],)"
                            R"("backPlane":[]})"));
        QCOMPARE(encoded(s_CompatibilitySubCardPercentSection()),
                 QByteArray(R"({"modelId":0,"slotId":0,"sections":[]})"));
        QCOMPARE(encoded(s_CompatibilityUpgradeDetail()),
                 QByteArray(R"({"deviceId":0,"upgradeType":0,"filePath":"","reboot":0,)"
                            R"("deleteUpgradeFile":0,"mainControl":[],"backPlane":[]})"));
        QCOMPARE(encoded(s_CompatibilitySubCardDetail()),
                 QByteArray(R"({"modelId":0,"slotId":0,"sections":[]})"));
        QCOMPARE(encoded(s_CompatibilitySectionDetail()), QByteArray(R"({"code":0,"timeout":0})"));
    }

    // The width and kind of every member, in wire order.
    void types()
    {
        QVERIFY((
            HasTypes<s_DeviceVersion, std::string, std::string, std::vector<s_DeviceVersionPart>>));
        QVERIFY((HasTypes<s_DeviceVersionPart, std::uint8_t, std::uint8_t, std::uint32_t,
                          std::string, std::string, std::vector<s_DeviceVersionSection>>));
        QVERIFY((HasTypes<s_DeviceVersionSection, std::uint16_t, std::string, std::string>));
        QVERIFY((HasTypes<s_UpgradePercent, int, std::uint8_t, s_UpgradeSubSections,
                          std::vector<s_UpgradeCardParts>>));
        QVERIFY((HasTypes<s_UpgradeSubSections, std::uint8_t>));
        QVERIFY((HasTypes<s_UpgradeCardParts, int, std::uint8_t, std::uint8_t, std::uint8_t,
                          std::vector<s_SectionPercent>>));
        QVERIFY((HasTypes<s_SectionPercent, std::uint16_t, std::uint8_t, int>));
        QVERIFY(
            (HasTypes<s_UpgradeDetail, int, std::string, int, int, std::vector<s_CardInfoParts>>));
        QVERIFY((HasTypes<s_CardInfoParts, int, std::uint8_t, std::uint8_t,
                          std::vector<s_SectionCode>>));
        QVERIFY((HasTypes<s_SectionCode, std::uint16_t>));
        QVERIFY((HasTypes<s_CompatibilityUpgradePercent, int, int, s_CompatibilityBasePercent,
                          s_UpgradeSubSections, std::vector<s_CompatibilitySubCardPercentSection>,
                          std::vector<s_CompatibilitySubCardPercentSection>>));
        QVERIFY((HasTypes<s_CompatibilityBasePercent, std::uint16_t, std::uint8_t, int,
                          std::uint16_t, std::uint8_t>));
        QVERIFY((HasTypes<s_CompatibilitySubCardPercentSection, std::uint16_t, std::uint8_t,
                          std::vector<s_SectionPercent>>));
        QVERIFY((HasTypes<s_CompatibilityUpgradeDetail, int, int, std::string, int, int,
                          std::vector<s_CompatibilitySubCardDetail>,
                          std::vector<s_CompatibilitySubCardDetail>>));
        QVERIFY((HasTypes<s_CompatibilitySubCardDetail, std::uint16_t, std::uint8_t,
                          std::vector<s_CompatibilitySectionDetail>>));
        QVERIFY((HasTypes<s_CompatibilitySectionDetail, std::uint16_t, int>));
        // Not on the wire.
        QVERIFY((std::is_same_v<decltype(s_CardInfoParts::modelId), std::uint16_t>));
    }

    // The order in memory is not always the one on the wire.
    void memoryOrder_data()
    {
        QTest::addColumn<QList<quint64>>("offsets");

        QTest::newRow("s_DeviceVersion") << QList<quint64> { offsetof(s_DeviceVersion, version),
                                                             offsetof(s_DeviceVersion, brief),
                                                             offsetof(s_DeviceVersion, parts) };
        QTest::newRow("s_DeviceVersionPart") << QList<quint64> {
            offsetof(s_DeviceVersionPart, type),    offsetof(s_DeviceVersionPart, slotId),
            offsetof(s_DeviceVersionPart, modelId), offsetof(s_DeviceVersionPart, version),
            offsetof(s_DeviceVersionPart, brief),   offsetof(s_DeviceVersionPart, section)
        };
        QTest::newRow("s_DeviceVersionSection")
            << QList<quint64> { offsetof(s_DeviceVersionSection, code),
                                offsetof(s_DeviceVersionSection, version),
                                offsetof(s_DeviceVersionSection, brief) };
        QTest::newRow("s_UpgradePercent") << QList<quint64> {
            offsetof(s_UpgradePercent, rate), offsetof(s_UpgradePercent, result),
            offsetof(s_UpgradePercent, subSections), offsetof(s_UpgradePercent, parts)
        };
        QTest::newRow("s_UpgradeSubSections")
            << QList<quint64> { offsetof(s_UpgradeSubSections, rate) };
        QTest::newRow("s_UpgradeCardParts") << QList<quint64> {
            offsetof(s_UpgradeCardParts, rate), offsetof(s_UpgradeCardParts, type),
            offsetof(s_UpgradeCardParts, slotId), offsetof(s_UpgradeCardParts, result),
            offsetof(s_UpgradeCardParts, section)
        };
        QTest::newRow("s_SectionPercent")
            << QList<quint64> { offsetof(s_SectionPercent, code), offsetof(s_SectionPercent, rate),
                                offsetof(s_SectionPercent, result) };
        QTest::newRow("s_UpgradeDetail") << QList<quint64> {
            offsetof(s_UpgradeDetail, upgradeType), offsetof(s_UpgradeDetail, filePath),
            offsetof(s_UpgradeDetail, reboot), offsetof(s_UpgradeDetail, deleteUpgradeFile),
            offsetof(s_UpgradeDetail, parts)
        };
        QTest::newRow("s_CardInfoParts")
            << QList<quint64> { offsetof(s_CardInfoParts, type), offsetof(s_CardInfoParts, slotId),
                                offsetof(s_CardInfoParts, modelId),
                                offsetof(s_CardInfoParts, boardId),
                                offsetof(s_CardInfoParts, section) };
        QTest::newRow("s_SectionCode") << QList<quint64> { offsetof(s_SectionCode, code) };
        QTest::newRow("s_CompatibilityUpgradePercent")
            << QList<quint64> { offsetof(s_CompatibilityUpgradePercent, deviceId),
                                offsetof(s_CompatibilityUpgradePercent, result),
                                offsetof(s_CompatibilityUpgradePercent, updateBaseSections),
                                offsetof(s_CompatibilityUpgradePercent, updateSubSections),
                                offsetof(s_CompatibilityUpgradePercent, mainControl),
                                offsetof(s_CompatibilityUpgradePercent, backPlane) };
        QTest::newRow("s_CompatibilityBasePercent")
            << QList<quint64> { offsetof(s_CompatibilityBasePercent, code),
                                offsetof(s_CompatibilityBasePercent, rate),
                                offsetof(s_CompatibilityBasePercent, slotId),
                                offsetof(s_CompatibilityBasePercent, modelId),
                                offsetof(s_CompatibilityBasePercent, type) };
        QTest::newRow("s_CompatibilitySubCardPercentSection")
            << QList<quint64> { offsetof(s_CompatibilitySubCardPercentSection, slotId),
                                offsetof(s_CompatibilitySubCardPercentSection, modelId),
                                offsetof(s_CompatibilitySubCardPercentSection, sections) };
        QTest::newRow("s_CompatibilityUpgradeDetail")
            << QList<quint64> { offsetof(s_CompatibilityUpgradeDetail, deviceId),
                                offsetof(s_CompatibilityUpgradeDetail, upgradeType),
                                offsetof(s_CompatibilityUpgradeDetail, filePath),
                                offsetof(s_CompatibilityUpgradeDetail, reboot),
                                offsetof(s_CompatibilityUpgradeDetail, deleteUpgradeFile),
                                offsetof(s_CompatibilityUpgradeDetail, mainControl),
                                offsetof(s_CompatibilityUpgradeDetail, backPlane) };
        QTest::newRow("s_CompatibilitySubCardDetail")
            << QList<quint64> { offsetof(s_CompatibilitySubCardDetail, slotId),
                                offsetof(s_CompatibilitySubCardDetail, modelId),
                                offsetof(s_CompatibilitySubCardDetail, sections) };
        QTest::newRow("s_CompatibilitySectionDetail")
            << QList<quint64> { offsetof(s_CompatibilitySectionDetail, code),
                                offsetof(s_CompatibilitySectionDetail, timeout) };
    }
    void memoryOrder()
    {
        QFETCH(QList<quint64>, offsets);
        QCOMPARE(offsets.first(), quint64(0));
        QVERIFY(std::adjacent_find(offsets.cbegin(), offsets.cend(), std::greater_equal<>())
                == offsets.cend());
    }

    void documents_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("result");
        const auto row = [](const char *name, const char *record, const char *text,
                            const char *result) {
            QTest::newRow(name) << QByteArray(record) << QByteArray(text) << QByteArray(result);
        };

        row("version", "s_DeviceVersion",
            R"({"version":"2.0.0.0","brief":"S1.T2","parts":[{"type":2,"slotId":3,)"
            R"("modelId":30466,"version":"1.2","brief":"card","section":[{"code":257,)"
            R"("version":"1.0","brief":"MCU"}]}]})",
            R"({"version":"2.0.0.0","brief":"S1.T2","parts":[{"type":2,"slotId":3,)"
            R"("modelId":30466,"version":"1.2","brief":"card","section":[{"code":257,)"
            R"("version":"1.0","brief":"MCU"}]}]})");
        row("version of an empty answer", "s_DeviceVersion", "{}",
            R"({"version":"N/A","brief":"N/A","parts":[]})");
        row("part without version and model", "s_DeviceVersion", R"({"parts":[{"slotId":3}]})",
            R"({"version":"N/A","brief":"N/A","parts":[{"type":1,"slotId":3,"modelId":30465,)"
            R"("version":"N/A","brief":"N/A","section":[]}]})");
        row("section without anything known", "s_DeviceVersion",
            R"({"parts":[{"section":[{"x":0}]}]})",
            R"({"version":"N/A","brief":"N/A","parts":[{"type":1,"slotId":0,"modelId":30465,)"
            R"("version":"N/A","brief":"N/A","section":[{"code":258,"version":"N/A",)"
            R"("brief":"N/A"}]}]})");
        row("model of a part keeps 32 bits", "s_DeviceVersion", R"({"parts":[{"modelId":66560}]})",
            R"({"version":"N/A","brief":"N/A","parts":[{"type":1,"slotId":0,"modelId":66560,)"
            R"("version":"N/A","brief":"N/A","section":[]}]})");

        row("progress", "s_UpgradePercent",
            R"({"result":1,"rate":42,"subSections":{"rate":7},"parts":[{"type":2,"slotId":3,)"
            R"("rate":50,"result":1,"section":[{"code":257,"rate":60,"result":-1}]}]})",
            R"({"result":1,"rate":42,"subSections":{"rate":7},"parts":[{"type":2,"slotId":3,)"
            R"("rate":50,"result":1,"section":[{"code":257,"rate":60,"result":-1}]}]})");
        row("progress, indented", "s_UpgradePercent",
            "{\n    \"result\": 1,\n    \"rate\": 42,\n    \"subSections\": {\n        \"rate\": "
            "7\n    },\n    \"parts\": [\n        {\n            \"type\": 2,\n            "
            "\"section\": [\n                {\n                    \"code\": 257\n              "
            "  },\n                {\n                    \"rate\": 60\n                }\n      "
            "      ]\n        },\n        {\n            \"slotId\": 9\n        }\n    ]\n}\n",
            R"({"result":1,"rate":42,"subSections":{"rate":7},"parts":[{"type":2,"slotId":0,)"
            R"("rate":0,"result":0,"section":[{"code":257,"rate":0,"result":0},{"code":258,)"
            R"("rate":60,"result":0}]},{"type":1,"slotId":9,"rate":0,"result":0,"section":[]}]})");
        row("array for a version", "s_DeviceVersion", "[{}]",
            "error at line :0 col :1 msg:read object must start with {!");
        row("array for a progress", "s_UpgradePercent", "[{}]",
            "error at line :0 col :1 msg:read object must start with {!");
        row("array for a request", "s_UpgradeDetail", "[{}]",
            "error at line :0 col :1 msg:read object must start with {!");
        row("object for an older progress", "s_CompatibilityUpgradePercent", "{}",
            "error at line :0 col :1 msg:array must start with [.");
        row("object for an older request", "s_CompatibilityUpgradeDetail", "{}",
            "error at line :0 col :1 msg:array must start with [.");
        row("number for the sub-sections", "s_UpgradePercent", R"({"subSections":5})",
            "error at line :0 col :16 msg:read object must start with {!");
        row("negative result of an upgrade", "s_UpgradePercent", R"({"result":-1})",
            R"({"result":-1,"rate":0,"subSections":{"rate":0},"parts":[]})");
        row("negative result of a card", "s_UpgradeCardParts", R"({"result":-1})",
            "error at line :0 col :12 msg:assign a negative signed integral to unsigned integral "
            "number.");
        row("true for the result of a card", "s_UpgradeCardParts", R"({"result":true})",
            R"({"type":1,"slotId":0,"rate":0,"result":1,"section":[]})");
        row("rate is cut to eight bits", "s_UpgradePercent", R"({"rate":300})",
            R"({"result":0,"rate":44,"subSections":{"rate":0},"parts":[]})");

        row("older progress", "s_CompatibilityUpgradePercent",
            R"([{"deviceId":1024,"result":1,"updateBaseSections":{"code":12,"rate":3,"type":2,)"
            R"("modelId":5,"slotId":6},"updateSubSections":{"rate":7},"mainControl":[)"
            R"({"modelId":1024,"slotId":1,"sections":[{"code":12,"rate":13,"result":1}]}],)"
            R"("backPlane":[{"modelId":2048,"slotId":2,"sections":[]}]}])",
            R"([{"deviceId":1024,"result":1,"updateBaseSections":{"code":12,"rate":3,"type":2,)"
            R"("modelId":5,"slotId":6},"updateSubSections":{"rate":7},"mainControl":[)"
            R"({"modelId":1024,"slotId":1,"sections":[{"code":12,"rate":13,"result":1}]}],)"
            R"("backPlane":[{"modelId":2048,"slotId":2,"sections":[]}]}])");
        row("older progress of no device", "s_CompatibilityUpgradePercent", "[]", "[]");
        row("older progress that is an object", "s_CompatibilityUpgradePercent", "{}",
            "error at line :0 col :1 msg:array must start with [.");
        row("model of a part is cut to 16 bits", "s_CompatibilityUpgradePercent",
            R"([{"mainControl":[{"modelId":66560}]}])",
            R"([{"deviceId":0,"result":0,"updateBaseSections":{"code":258,"rate":0,"type":1,)"
            R"("modelId":0,"slotId":0},"updateSubSections":{"rate":0},"mainControl":[)"
            R"({"modelId":1024,"slotId":0,"sections":[]}],"backPlane":[]}])");

        row("request", "s_UpgradeDetail",
            R"({"upgradeType":1,"filePath":"N/A","reboot":1,"deleteUpgradeFile":1,"parts":[)"
            R"({"type":1,"slotId":0,"boardId":0,"modelId":9,"section":[{"code":258}]}]})",
            R"({"upgradeType":1,"filePath":"N/A","reboot":1,"deleteUpgradeFile":1,"parts":[)"
            R"({"type":1,"slotId":0,"boardId":0,"section":[{"code":258}]}]})");
        row("older request", "s_CompatibilityUpgradeDetail",
            R"([{"deviceId":1024,"upgradeType":1,"filePath":"C:\/pkg\/update.bin","reboot":1,)"
            R"("deleteUpgradeFile":1,"mainControl":[{"modelId":1024,"slotId":0,"sections":[)"
            R"({"code":12,"timeout":60}]}],"backPlane":[{"modelId":2048,"slotId":0,"sections":[)"
            R"({"code":13,"timeout":60}]}]}])",
            R"([{"deviceId":1024,"upgradeType":1,"filePath":"C:/pkg/update.bin","reboot":1,)"
            R"("deleteUpgradeFile":1,"mainControl":[{"modelId":1024,"slotId":0,"sections":[)"
            R"({"code":12,"timeout":60}]}],"backPlane":[{"modelId":2048,"slotId":0,"sections":[)"
            R"({"code":13,"timeout":60}]}]}])");
    }
    void documents()
    {
        QFETCH(QByteArray, record);
        QFETCH(QByteArray, text);
        QTEST(decodedAs(record, text), "result");
    }

    void theModelOfAChosenCardStaysAtHome()
    {
        s_CardInfoParts part;
        part.modelId = 1024;
        part.section = { { 258 } };
        QCOMPARE(encoded(part),
                 QByteArray(R"({"type":0,"slotId":0,"boardId":0,"section":[{"code":258}]})"));

        std::string error;
        QVERIFY(ajson::decodeJson(std::string(R"({"modelId":2048,"boardId":3})"), part, error));
        QCOMPARE(int(part.modelId), 1024);
        QCOMPARE(int(part.boardId), 3);
    }

    void pathsOutsideOfAscii()
    {
        s_CompatibilityUpgradeDetail detail;
        detail.filePath = "C:/Ger\xC3\xA4te/\xE3\x83\x95.bin";
        QVERIFY(encoded(detail).contains(R"("filePath":"C:/Ger\u00E4te/\u30D5.bin")"));
    }

    void roundTrips()
    {
        checkRoundTrips<s_DeviceVersion>(1000);
        checkRoundTrips<s_DeviceVersionPart>(2000);
        checkRoundTrips<s_DeviceVersionSection>(3000);
        checkRoundTrips<s_UpgradePercent>(4000);
        checkRoundTrips<s_UpgradeSubSections>(5000);
        checkRoundTrips<s_UpgradeCardParts>(6000);
        checkRoundTrips<s_SectionPercent>(7000);
        checkRoundTrips<s_UpgradeDetail>(8000);
        checkRoundTrips<s_CardInfoParts>(9000);
        checkRoundTrips<s_SectionCode>(10000);
        checkRoundTrips<std::vector<s_CompatibilityUpgradePercent>>(11000);
        checkRoundTrips<s_CompatibilityBasePercent>(12000);
        checkRoundTrips<s_CompatibilitySubCardPercentSection>(13000);
        checkRoundTrips<std::vector<s_CompatibilityUpgradeDetail>>(14000);
        checkRoundTrips<s_CompatibilitySubCardDetail>(15000);
        checkRoundTrips<s_CompatibilitySectionDetail>(16000);
    }
};

QTEST_APPLESS_MAIN(tst_JsonRecords)
#include "tst_jsonrecords.moc"
