#include "run/sendingpercent.h"

#include <QTranslator>
#include <QtTest>

using namespace Velmar::Host;

namespace {

/*! A language that has the number first. */
class OtherLanguage : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        const bool isSending =
            qstrcmp(context, "Velmar::Firmware::Internal::UpgradeProcessPrivate") == 0
            && qstrcmp(sourceText, "Sending upgrade files,current progress is %1%") == 0;
        return isSending ? QStringLiteral("%1 Prozent gesendet") : QString();
    }
};

} // namespace

class tst_SendingPercent : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void percent_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("percent"); // -1: none

        QTest::newRow("start") << "Sending upgrade files,current progress is 0%" << 0;
        QTest::newRow("end") << "Sending upgrade files,current progress is 100%" << 100;
        QTest::newRow("another text") << "Upgrading file processing" << -1;
        QTest::newRow("empty") << "" << -1;
        QTest::newRow("no number") << "Sending upgrade files,current progress is %" << -1;
        QTest::newRow("a word") << "Sending upgrade files,current progress is x%" << -1;
        QTest::newRow("beginning alone") << "Sending upgrade files,current progress is 4" << -1;
    }
    void percent()
    {
        QFETCH(QString, text);
        QTEST(sendingPercent(text).value_or(-1), "percent");
    }

    void translated()
    {
        OtherLanguage language;
        QVERIFY(QCoreApplication::installTranslator(&language));
        QCOMPARE(sendingPercent(QStringLiteral("42 Prozent gesendet")).value_or(-1), 42);
        QVERIFY(!sendingPercent(QStringLiteral("Sending upgrade files,current progress is 42%")));
        QCoreApplication::removeTranslator(&language);
    }
};

QTEST_GUILESS_MAIN(tst_SendingPercent)
#include "tst_sendingpercent.moc"
