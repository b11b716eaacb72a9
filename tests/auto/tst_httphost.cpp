#include "run/httphost.h"

#include <QUrl>
#include <QtTest>

using Velmar::Host::httpHost;

class tst_HttpHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void good_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("inAddress");

        QTest::newRow("IPv4") << "192.168.0.255"
                              << "192.168.0.255";
        QTest::newRow("any") << "0.0.0.0"
                             << "0.0.0.0";
        QTest::newRow("IPv6") << "fe80::1"
                              << "[fe80::1]";
        QTest::newRow("IPv6 with an IPv4 end") << "::ffff:127.0.0.1"
                                               << "[::ffff:127.0.0.1]";
        QTest::newRow("IPv6 with a zone") << "fe80::1%eth0"
                                          << "[fe80::1%25eth0]";
        QTest::newRow("name") << "wall"
                              << "wall";
        QTest::newRow("name with labels") << "Wall-2.stage_1.example"
                                          << "Wall-2.stage_1.example";
        QTest::newRow("digits first") << "2nd"
                                      << "2nd";
        QTest::newRow("long label") << QString(63, 'a') << QString(63, 'a');
    }
    void good()
    {
        QFETCH(QString, host);
        QString errorText;
        const auto inAddress = httpHost(host, errorText);
        QVERIFY2(inAddress, qPrintable(errorText));
        QTEST(*inAddress, "inAddress");
        QCOMPARE(errorText, QString());
        const QUrl url(QStringLiteral("http://%1:8080/getUpgradeRate").arg(*inAddress));
        QVERIFY(url.isValid());
        QCOMPARE(url.host().toLower(), host.toLower());
        QCOMPARE(url.port(), 8080);
        QCOMPARE(url.path(), QString("/getUpgradeRate"));
    }

    void bad_data()
    {
        QTest::addColumn<QString>("host");

        QTest::newRow("empty") << "";
        QTest::newRow("blank") << " ";
        QTest::newRow("blank behind") << "127.0.0.1 ";
        QTest::newRow("line feed behind") << "127.0.0.1\n";
        QTest::newRow("port") << "127.0.0.1:80";
        QTest::newRow("port behind a name") << "wall:80";
        QTest::newRow("port behind IPv6") << "[::1]:80";
        QTest::newRow("brackets") << "[::1]";
        QTest::newRow("path") << "wall/x";
        QTest::newRow("backslash") << "wall\\x";
        QTest::newRow("query") << "wall?x";
        QTest::newRow("fragment") << "wall#x";
        QTest::newRow("user information") << "user@wall";
        QTest::newRow("user and password") << "user:secret@wall";
        QTest::newRow("scheme") << "http://wall";
        QTest::newRow("escape") << "wall%20";
        QTest::newRow("place marker") << "%1";
        QTest::newRow("three numbers") << "127.0.1";
        QTest::newRow("five numbers") << "127.0.0.0.1";
        QTest::newRow("one number") << "2130706433";
        QTest::newRow("octal") << "127.0.0.01";
        QTest::newRow("number too large") << "127.0.0.256";
        QTest::newRow("point last") << "127.0.0.1.";
        QTest::newRow("IPv6 too long") << "1:2:3:4:5:6:7:8:9";
        QTest::newRow("IPv6 with an empty zone") << "fe80::1%";
        QTest::newRow("IPv6 with a path as its zone") << "fe80::1%eth0/x";
        QTest::newRow("point first") << ".wall";
        QTest::newRow("points side by side") << "wall..example";
        QTest::newRow("hyphen first") << "-wall";
        QTest::newRow("hyphen last") << "wall-";
        QTest::newRow("label too long") << QString(64, 'a');
        QTest::newRow("name too long") << QString("a.").repeated(126) + "ab";
        QTest::newRow("beyond ASCII") << QString::fromUtf8("w\u00e4nd");
        QTest::newRow("full-width digits") << QString::fromUtf8("\uff11\uff12");
        QTest::newRow("NUL") << QString("wall") + QChar(0);
    }
    void bad()
    {
        QFETCH(QString, host);
        QString errorText;
        QVERIFY(!httpHost(host, errorText));
        QVERIFY2(errorText.endsWith("is no address of an HTTP service: give a numeric address or a "
                                    "host name, without port or path"),
                 qPrintable(errorText));
    }

    void textIsPrintable()
    {
        QString errorText;
        QVERIFY(!httpHost("\033[2Jwall", errorText));
        QVERIFY(errorText.startsWith("\"\\x1b[2Jwall\" is no address"));
    }
};

QTEST_APPLESS_MAIN(tst_HttpHost)

#include "tst_httphost.moc"
