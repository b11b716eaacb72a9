#include "run/httpprogress.h"

#include <QJsonDocument>
#include <QtTest>

using namespace Velmar::Host;

Q_DECLARE_METATYPE(Velmar::Host::ProgressForm)

namespace {

/*! JSON with ' in place of each quote. */
QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

} // namespace

class tst_HttpProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void good_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<ProgressForm>("form");
        QTest::addColumn<QByteArray>("told");
        const auto newer = ProgressForm::Newer;
        const auto either = ProgressForm::Either;

        QTest::newRow("all of the newer generation")
            << json("{'result':1,'rate':42,'subSections':{'rate':7},'parts':[{'type':1,"
                    "'slotId':2,'rate':40,'result':1,'section':[{'code':257,'rate':100,"
                    "'result':2}]}]}")
            << newer
            << json("{'parts':[{'rate':40,'result':1,'section':[{'code':257,'rate':100,"
                    "'result':2}],'slotId':2,'type':1}],'rate':42,'result':1,"
                    "'subSections':{'rate':7}}");
        QTest::newRow("the result alone") << json("{'result':3}") << newer << json("{'result':3}");
        QTest::newRow("object where either may come")
            << json("{'result':2}") << either << json("{'result':2}");
        QTest::newRow("the largest values")
            << json("{'result':255,'rate':100,'parts':[{'type':2147483647,'slotId':255,"
                    "'section':[{'code':65535}]}]}")
            << newer
            << json("{'parts':[{'section':[{'code':65535}],'slotId':255,"
                    "'type':2147483647}],'rate':100,'result':255}");
        QTest::newRow("white space, byte order mark, escapes in a key, another way to write 1")
            << QByteArray("\xEF\xBB\xBF {\r\n\t\"r\\u0065sult\" : 1.0e0 } \n") << newer
            << json("{'result':1}");
        QTest::newRow("unknown keys are left out")
            << json("{'result':1,'time':-1.5e99,'note':'\\u0000','parts':[{'slotId':1,"
                    "'name':['\\'',null]}]}")
            << newer << json("{'parts':[{'slotId':1}],'result':1}");
        // Correct JSON on which the library's reader never ends, as it takes the key for a bracket.
        QTest::newRow("unknown key that never ends")
            << json("{'x':[{'a':1,'}':2}],'result':1}") << newer << json("{'result':1}");
        // The library takes an empty object for the end of the one around it.
        QTest::newRow("empty object") << json("{'subSections':{},'result':1,'parts':[]}") << newer
                                      << json("{'parts':[],'result':1}");
        QTest::newRow("all of the older generation")
            << json("[{'deviceId':30465,'result':1,'updateBaseSections':{'code':258,"
                    "'rate':5,'type':1,'modelId':30465,'slotId':0},"
                    "'updateSubSections':{'rate':6},'mainControl':[{'modelId':30465,"
                    "'slotId':0,'sections':[{'code':3,'rate':9,'result':1}]}],"
                    "'backPlane':[{'modelId':1,'slotId':0,'sections':[]}]}]")
            << either
            << json("[{'backPlane':[{'modelId':1,'sections':[],'slotId':0}],"
                    "'deviceId':30465,'mainControl':[{'modelId':30465,"
                    "'sections':[{'code':3,'rate':9,'result':1}],'slotId':0}],'result':1,"
                    "'updateBaseSections':{'code':258,'modelId':30465,'rate':5,'slotId':0,"
                    "'type':1},'updateSubSections':{'rate':6}}]");
        QTest::newRow("done, of the older generation")
            << json("[{'result':0}]") << either << json("[{'result':0}]");
        QTest::newRow("nothing going on, of the older generation")
            << QByteArray("[]") << either << QByteArray("[]");
        QTest::newRow("the first element counts")
            << json("[{'result':1},{'result':0}]") << either << json("[{'result':1}]");
    }
    void good()
    {
        QFETCH(QByteArray, body);
        QFETCH(ProgressForm, form);
        QString errorText;
        const auto told = judgedProgress(body, form, errorText);
        QVERIFY2(told, qPrintable(errorText));
        QTEST(*told, "told");
        QCOMPARE(errorText, QString());
    }

    void bad_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<ProgressForm>("form");
        QTest::addColumn<QString>("text");
        const auto newer = ProgressForm::Newer;
        const auto either = ProgressForm::Either;

        QTest::newRow("nothing") << QByteArray() << newer << "is empty";
        QTest::newRow("blanks") << QByteArray(" \r\n") << newer << "is empty";
        QTest::newRow("a word") << QByteArray("ok") << newer
                                << "is no JSON: illegal value at byte 1";
        QTest::newRow("a number") << QByteArray("1") << newer
                                  << "is no JSON: illegal value at byte 1";
        QTest::newRow("cut off") << json("{'result':1") << newer
                                 << "is no JSON: invalid termination by number at byte 11";
        QTest::newRow("array that breaks off within an unknown key")
            << json("{'result':1,'x':[1,2") << newer
            << "is no JSON: invalid termination by number at byte 20";
        QTest::newRow("something behind")
            << json("{'result':1} {") << newer
            << "is no JSON: garbage at the end of the document at byte 13";
        QTest::newRow("NUL behind") << QByteArray("{\"result\":1}\0", 13) << newer
                                    << "is no JSON: garbage at the end of the document at byte 12";
        QTest::newRow("comment") << QByteArray("{\"result\":1/**/}") << newer
                                 << "is no JSON: unterminated object at byte 12";
        QTest::newRow("comma behind the last")
            << json("{'result':1,}") << newer
            << "is no JSON: object is missing after a comma at byte 13";
        QTest::newRow("not UTF-8")
            << QByteArray("{\"result\":1,\"x\":\"\xFF\"}") << newer << "is not UTF-8";
        QTest::newRow("Latin-1 in a key")
            << QByteArray("{\"result\":1,\"\xE4\":1}") << newer << "is not UTF-8";
        QTest::newRow("UTF-16") << QByteArray("\xFF\xFE{\0}\0", 6) << newer << "is not UTF-8";
        QTest::newRow("half a surrogate pair in UTF-8")
            << QByteArray("{\"result\":1,\"x\":\"\xED\xA0\x80\"}") << newer << "is not UTF-8";
        QTest::newRow("deeply nested")
            << json("{'result':1,'x':") + QByteArray(5000, '[') + QByteArray(5000, ']') + "}"
            << newer << "is nested too deeply";
        QTest::newRow("deeply nested without an end")
            << QByteArray(65536, '[') << either << "is nested too deeply";
        QTest::newRow("result twice")
            << json("{'result':1,'result':2}") << newer << "has the key \"result\" twice";
        QTest::newRow("result twice, once with an escape")
            << json("{'result':1,'r\\u0065sult':2}") << newer << "has the key \"result\" twice";
        QTest::newRow("key twice in a part") << json("{'result':1,'parts':[{'rate':1,'rate':1}]}")
                                             << newer << "has the key \"parts.0.rate\" twice";
        QTest::newRow("no result") << json("{'rate':5}") << newer << "\"result\" is missing";
        QTest::newRow("empty object") << QByteArray("{}") << newer << "\"result\" is missing";
        QTest::newRow("result as text")
            << json("{'result':'2'}") << newer << "\"result\" is no number";
        QTest::newRow("result true")
            << json("{'result':true}") << newer << "\"result\" is no number";
        QTest::newRow("result null")
            << json("{'result':null}") << newer << "\"result\" is no number";
        QTest::newRow("result in a list")
            << json("{'result':[2]}") << newer << "\"result\" is no number";
        QTest::newRow("result that is 2 in eight bits")
            << json("{'result':258}") << newer << "\"result\" is no whole number from 0 to 255";
        QTest::newRow("result that is 2 in 32 bits")
            << json("{'result':4294967298}") << newer
            << "\"result\" is no whole number from 0 to 255";
        QTest::newRow("result below 0")
            << json("{'result':-1}") << newer << "\"result\" is no whole number from 0 to 255";
        QTest::newRow("result with a fraction")
            << json("{'result':2.5}") << newer << "\"result\" is no whole number from 0 to 255";
        QTest::newRow("rate above 100") << json("{'result':1,'rate':101}") << newer
                                        << "\"rate\" is no whole number from 0 to 100";
        QTest::newRow("parts as an object")
            << json("{'result':1,'parts':{}}") << newer << "\"parts\" is no list";
        QTest::newRow("part that is a number") << json("{'result':1,'parts':[{'slotId':1},7]}")
                                               << newer << "\"parts[1]\" is no object";
        QTest::newRow("empty part")
            << json("{'result':1,'parts':[{}]}") << newer << "\"parts[0]\" tells nothing";
        QTest::newRow("slot too large") << json("{'result':1,'parts':[{'slotId':256}]}") << newer
                                        << "\"parts[0].slotId\" is no whole number from 0 to 255";
        QTest::newRow("code too large")
            << json("{'result':1,'parts':[{'section':[{'code':65536}]}]}") << newer
            << "\"parts[0].section[0].code\" is no whole number from 0 to 65535";
        QTest::newRow("sub-sections as a list")
            << json("{'result':1,'subSections':[]}") << newer << "\"subSections\" is no object";
        QTest::newRow("list for the newer generation")
            << json("[{'result':0}]") << newer << "is a list in place of an object";
        // 0 is success, and an absent key is 0.
        QTest::newRow("no result in the older generation")
            << json("[{'deviceId':30465}]") << either << "\"[0].result\" is missing";
        QTest::newRow("no result of an older section")
            << json("[{'result':1,'mainControl':[{'sections':[{'code':3}]}]}]") << either
            << "\"[0].mainControl[0].sections[0].result\" is missing";
        QTest::newRow("element that is no object")
            << QByteArray("[0]") << either << "\"[0]\" is no object";
        QTest::newRow("base section as a list")
            << json("[{'result':1,'updateBaseSections':[1]}]") << either
            << "\"[0].updateBaseSections\" is no object";
    }
    void bad()
    {
        QFETCH(QByteArray, body);
        QFETCH(ProgressForm, form);
        QString errorText;
        QVERIFY(!judgedProgress(body, form, errorText));
        QTEST(errorText, "text");
    }

    void allCutsAreBad()
    {
        const QByteArray body = json("{'result':2,'x':[1,{'a':'b'}],'parts':[{'slotId':1}]}");
        for (int length = 0; length < body.size(); ++length) {
            QString errorText;
            QVERIFY(!judgedProgress(body.left(length), ProgressForm::Either, errorText));
            QVERIFY(!errorText.isEmpty());
        }
    }

    void keysAreTakenForWhatTheyAre()
    {
        QString errorText;
        const auto told = judgedProgress("{\"result\":1,\"\\u001b[2J\":1,\"\\u001b[2J\":1}",
                                         ProgressForm::Newer, errorText);
        QVERIFY(!told);
        QCOMPARE(errorText, QString("has the key \"\\x1b[2J\" twice"));
    }
};

QTEST_APPLESS_MAIN(tst_HttpProgress)

#include "tst_httpprogress.moc"
