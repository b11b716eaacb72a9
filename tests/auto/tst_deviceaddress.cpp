#include "device/deviceaddress.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_DeviceAddress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void accepted_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port");
        QTest::addColumn<QString>("whole");

        QTest::newRow("name") << "wall-3.example"
                              << "wall-3.example" << 9720 << "wall-3.example:9720";
        QTest::newRow("name and port") << "wall:65535"
                                       << "wall" << 65535 << "wall:65535";
        QTest::newRow("IPv4 and port") << "127.0.0.1:1"
                                       << "127.0.0.1" << 1 << "127.0.0.1:1";
        QTest::newRow("bare IPv6") << "::1"
                                   << "::1" << 9720 << "[::1]:9720";
        QTest::newRow("numbered zone") << "fe80::1%2"
                                       << "fe80::1%2" << 9720 << "[fe80::1%2]:9720";
        QTest::newRow("bracketed IPv6") << "[fe80::1%eth0]"
                                        << "fe80::1%eth0" << 9720 << "[fe80::1%eth0]:9720";
        QTest::newRow("bracketed IPv6 and port") << "[::1]:80"
                                                 << "::1" << 80 << "[::1]:80";
    }
    void accepted()
    {
        QFETCH(QString, text);
        QString errorText;
        const auto address = DeviceAddress::parse(text, 9720, errorText);
        QVERIFY2(address, qPrintable(errorText));
        QTEST(address->host, "host");
        QTEST(int(address->port), "port");
        QTEST(address->toString(), "whole");
        QVERIFY(errorText.isEmpty());
    }

    void refused_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("errorText");

        const auto noAddress = QStringLiteral("\"%1\" is no address: give HOST or HOST:PORT");
        const auto noBracket =
            QStringLiteral("\"%1\" is no address: a bracketed host looks like [::1] or [::1]:9720");
        const auto noPort = QStringLiteral("\"%1\" is no port: give a number from 1 to 65535");
        QTest::newRow("empty") << "" << noAddress.arg("");
        QTest::newRow("port alone") << ":9720" << noAddress.arg(":9720");
        QTest::newRow("blank in the name") << "my wall" << noAddress.arg("my wall");
        QTest::newRow("scheme") << "http://wall" << noPort.arg("//wall");
        QTest::newRow("path") << "wall/3" << noAddress.arg("wall/3");
        QTest::newRow("control character") << "a\x1b"
                                              "b"
                                           << noAddress.arg("a\\x1bb");
        QTest::newRow("empty brackets") << "[]" << noAddress.arg("[]");
        QTest::newRow("bracket left open") << "[::1" << noBracket.arg("[::1");
        QTest::newRow("word behind the bracket") << "[::1]9720" << noBracket.arg("[::1]9720");
        QTest::newRow("port 0") << "wall:0" << noPort.arg("0");
        QTest::newRow("port too large") << "wall:65536" << noPort.arg("65536");
        QTest::newRow("port missing behind the colon") << "wall:" << noPort.arg("");
        QTest::newRow("port with a sign") << "[::1]:-1" << noPort.arg("-1");
    }
    void refused()
    {
        QFETCH(QString, text);
        QString errorText;
        QVERIFY(!DeviceAddress::parse(text, 9720, errorText));
        QTEST(errorText, "errorText");
    }
};

QTEST_GUILESS_MAIN(tst_DeviceAddress)
#include "tst_deviceaddress.moc"
