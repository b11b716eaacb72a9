#include "show/printable.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_Printable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void text_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");

        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("plain") << "Strata S8, \"left\" wall \\ 3"
                               << "Strata S8, \"left\" wall \\ 3";
        QTest::newRow("letters beyond ASCII")
            << QString::fromUtf8("Größe 画面 😀") << QString::fromUtf8("Größe 画面 😀");
        QTest::newRow("terminal sequence") << "\x1b[2Jgone"
                                           << "\\x1b[2Jgone";
        QTest::newRow("line breaks") << "a\r\nb\tc"
                                     << "a\\x0d\\x0ab\\x09c";
        QTest::newRow("delete and one-byte sequence introducer")
            << QString(QChar(0x7f)) + QChar(0x9b) + "31m"
            << "\\x7f\\x9b31m";
        QTest::newRow("null character") << QString(QChar(0)) << "\\x00";
        QTest::newRow("order of writing turned") << QString("a") + QChar(0x202e) + "b"
                                                 << "a\\u{202e}b";
        QTest::newRow("width without a letter") << QString(QChar(0x200b)) << "\\u{200b}";
        QTest::newRow("line separator") << QString(QChar(0x2028)) << "\\u{2028}";
        QTest::newRow("invisible tag beyond 16 bits")
            << QString::fromUtf8("\xf3\xa0\x81\x81") << "\\u{e0041}";
        QTest::newRow("half a surrogate pair")
            << QString(QChar(0xd83d)) + "x" << QString(QChar(0xfffd)) + "x";
    }
    void text()
    {
        QFETCH(QString, text);
        QTEST(printable(text), "shown");
    }

    void cut_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");

        QTest::newRow("as long as allowed") << "abcd"
                                            << "abcd";
        QTest::newRow("one more") << "abcde" << QString::fromUtf8("abcd…");
        QTest::newRow("pairs count once")
            << QString::fromUtf8("😀😀😀😀😀") << QString::fromUtf8("😀😀😀😀…");
        QTest::newRow("what is replaced counts once") << "\n\n\n\n\n"
                                                      << QString::fromUtf8("\\x0a\\x0a\\x0a\\x0a…");
    }
    void cut()
    {
        QFETCH(QString, text);
        QTEST(printable(text, 4), "shown");
    }

    void json_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QByteArray>("shown");

        QTest::newRow("layout stays") << QByteArray("{\n    \"a\": [1, true]\n}\n")
                                      << QByteArray("{\n    \"a\": [1, true]\n}\n");
        QTest::newRow("letters stay") << QByteArray("\"Größe 😀\"") << QByteArray("\"Größe 😀\"");
        QTest::newRow("one-byte sequence introducer")
            << QByteArray("\"\xc2\x9b\"") << QByteArray("\"\\u009b\"");
        QTest::newRow("delete") << QByteArray("\"\x7f\"") << QByteArray("\"\\u007f\"");
        QTest::newRow("order of writing turned")
            << QByteArray("\"\xe2\x80\xae\"") << QByteArray("\"\\u202e\"");
        QTest::newRow("tag beyond 16 bits")
            << QByteArray("\"\xf3\xa0\x81\x81\"") << QByteArray("\"\\udb40\\udc41\"");
    }
    void json()
    {
        QFETCH(QByteArray, json);
        QTEST(printableJson(json), "shown");
    }
};

QTEST_GUILESS_MAIN(tst_Printable)
#include "tst_printable.moc"
