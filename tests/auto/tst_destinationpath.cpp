#include "destinationpath.h"

#include <QTest>

using Velmar::Simulator::installedPath;

/*! Where the simulated device keeps a file of an image. */
class tst_DestinationPath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mapping_data()
    {
        QTest::addColumn<QByteArray>("destination");
        QTest::addColumn<QString>("path");

        QTest::newRow("plain") << QByteArray("mcu.bin") << "mcu.bin";
        QTest::newRow("in folders") << QByteArray("app/fw/mcu.bin") << "app/fw/mcu.bin";
        QTest::newRow("absolute") << QByteArray("/app/mcu.bin") << "app/mcu.bin";
        QTest::newRow("doubled slashes") << QByteArray("//app///mcu.bin") << "app/mcu.bin";
        QTest::newRow("this folder") << QByteArray("./app/./mcu.bin") << "app/mcu.bin";
        QTest::newRow("slash at the end") << QByteArray("app/") << "app";
        QTest::newRow("parent folder")
            << QByteArray("../../etc/passwd") << "%2E%2E/%2E%2E/etc/passwd";
        QTest::newRow("parent folder in the middle") << QByteArray("a/../b") << "a/%2E%2E/b";
        QTest::newRow("three dots are a name") << QByteArray("...") << "...";
        QTest::newRow("hidden file") << QByteArray(".config") << ".config";
        QTest::newRow("what an escape looks like") << QByteArray("%2E%2E/a") << "%252E%252E/a";
        QTest::newRow("backslash is a letter") << QByteArray("C:\\fw\\a") << "C:\\fw\\a";
        QTest::newRow("blanks stay") << QByteArray(" a b ") << " a b ";
        QTest::newRow("control characters") << QByteArray("a\n\x01\x7F") << "a%0A%01%7F";
        QTest::newRow("two-byte letter")
            << QByteArray("caf\xC3\xA9") << QString::fromUtf8("caf\xC3\xA9");
        QTest::newRow("four-byte letter")
            << QByteArray("\xF0\x9F\x98\x80") << QString::fromUtf8("\xF0\x9F\x98\x80");
        QTest::newRow("letter that was cut off") << QByteArray("caf\xC3") << "caf%C3";
        QTest::newRow("three-byte letter that was cut off") << QByteArray("\xE2\x82") << "%E2%82";
        QTest::newRow("stray continuation") << QByteArray("\x80z") << "%80z";
        QTest::newRow("overlong slash") << QByteArray("\xC0\xAF") << "%C0%AF";
        QTest::newRow("overlong three bytes") << QByteArray("\xE0\x80\xAF") << "%E0%80%AF";
        QTest::newRow("overlong four bytes") << QByteArray("\xF0\x80\x80\xAF") << "%F0%80%80%AF";
        QTest::newRow("surrogate") << QByteArray("\xED\xA0\x80") << "%ED%A0%80";
        QTest::newRow("beyond Unicode") << QByteArray("\xF4\x90\x80\x80") << "%F4%90%80%80";
        QTest::newRow("no name") << QByteArray("") << "";
        QTest::newRow("root") << QByteArray("/") << "";
        QTest::newRow("this folder alone") << QByteArray("./") << "";
        QTest::newRow("255 bytes fit") << QByteArray(255, 'n') << QString(255, 'n');
        QTest::newRow("256 bytes do not")
            << QByteArray(256, 'n') << QString(221, 'n') + "%#342aaaf5a0fcb18cba413f00ff46ffc9";
    }
    void mapping()
    {
        QFETCH(QByteArray, destination);
        QTEST(installedPath(destination), "path");
    }

    void longNamesStayApart()
    {
        const QString first = installedPath(QByteArray(256, 'n') + "1");
        const QString second = installedPath(QByteArray(256, 'n') + "2");
        QCOMPARE(first.size(), 255);
        QCOMPARE(second.size(), 255);
        QVERIFY(first != second);
    }

    void longNameIsCutBetweenLetters()
    {
        const QString path = installedPath(QByteArray("\xE2\x82\xAC").repeated(100));
        QCOMPARE(path.left(73), QString(73, QChar(0x20AC))); // 219 of 221 bytes
        QCOMPARE(path.mid(73, 2), QString("%#"));
    }
};

QTEST_GUILESS_MAIN(tst_DestinationPath)
#include "tst_destinationpath.moc"
