#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <unistd.h>

namespace {

const QStringList Walkers = QStringLiteral(VELMAR_WALKERS).split(QLatin1Char('|'));

// The processor time that a process has used, in ms.
qint64 processorTime(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = file.readAll();
    // Behind the name of the program, which is in brackets: the 12th and 13th are the time used.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return (fields.value(11).toLongLong() + fields.value(12).toLongLong()) * 1000
        / sysconf(_SC_CLK_TCK);
}

} // namespace

class tst_JsonWalk : public QObject
{
    Q_OBJECT

private:
    // Each text with each way of building the reader.
    void addRows(const QVector<QPair<const char *, QByteArray>> &texts)
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QByteArray>("text");
        for (const QString &program : Walkers) {
            for (const auto &[name, text] : texts) {
                const QString row = QFileInfo(program).fileName() + ": " + QLatin1String(name);
                QTest::newRow(row.toUtf8().constData()) << program << text;
            }
        }
    }

private Q_SLOTS:
    void neverReturns_data()
    {
        addRows({ { "array breaks off", "{\"x\":[1,2" },
                  { "array breaks off behind a comma", "{\"x\":[1," },
                  { "array breaks off in an array", "{\"x\":[[]" },
                  { "array breaks off at a comment", "{\"x\":[1 /* ]}" },
                  { "colon in an array", "{\"x\":[\"a\":1]}" },
                  { "brace in an array", "{\"x\":[1}]}" },
                  { "in an object", "{\"x\":{\"y\":[:]}}" } });
    }
    void neverReturns()
    {
        QFETCH(QString, program);
        QFETCH(QByteArray, text);
        QProcess walker;
        walker.start(program, { QString::fromUtf8(text) });
        QVERIFY2(walker.waitForStarted(), qPrintable(walker.errorString()));

        // Thousands of times what a text of this length takes, and it still turns.
        QTRY_VERIFY_WITH_TIMEOUT(
            walker.state() != QProcess::Running || processorTime(walker.processId()) >= 50, 30000);
        QCOMPARE(walker.state(), QProcess::Running);

        walker.kill();
        QVERIFY(walker.waitForFinished());
        QCOMPARE(walker.readAll(), QByteArray("reading\n"));
    }

    void returns_data()
    {
        addRows({ { "closed array", "{\"x\":[1,2]}" },
                  { "object breaks off", "{\"x\":{\"y\":1" },
                  { "object in an array breaks off", "{\"x\":[{\"y\":1" },
                  { "known array breaks off", "{\"parts\":[" } });
    }
    void returns()
    {
        QFETCH(QString, program);
        QFETCH(QByteArray, text);
        QProcess walker;
        walker.start(program, { QString::fromUtf8(text) });
        QVERIFY(walker.waitForFinished());
        QCOMPARE(walker.exitStatus(), QProcess::NormalExit);
        QCOMPARE(walker.readAll(), QByteArray("reading\nreturned\n"));
    }
};

QTEST_GUILESS_MAIN(tst_JsonWalk)
#include "tst_jsonwalk.moc"
