#include "descriptionname.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <random>

#include <sys/stat.h>

using Velmar::Firmware::Internal::descriptionName;

namespace {

bool touch(const QString &path)
{
    return QFile(path).open(QIODevice::WriteOnly);
}

QString firstOfListing(const QString &folder)
{
    const QStringList entries = QDir(folder).entryList();
    const auto entry = std::find_if(entries.begin(), entries.end(),
                                    [](const QString &name) { return name.endsWith(".xml"); });
    return entry == entries.end() ? QString() : *entry;
}

} // namespace

class tst_DescriptionName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void name_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("name");

        QTest::newRow("empty folder") << QStringList() << QString();
        QTest::newRow("none") << QStringList { "a.XML", "xml", "a.xml2" } << QString();
        QTest::newRow("first whatever the case")
            << QStringList { "c.xml", "B.xml", "a.dat" } << "B.xml";
        QTest::newRow("lower case first") << QStringList { "B.xml", "a.xml" } << "a.xml";
        QTest::newRow("by the lower case of other letters")
            << QStringList { QString::fromUtf8("\u00e4.xml"), QString::fromUtf8("\u00c3.xml") }
            << QString::fromUtf8("\u00c3.xml");
        QTest::newRow("hidden ones are none") << QStringList { ".a.xml", "b.xml" } << "b.xml";
    }
    void name()
    {
        QFETCH(QStringList, files);
        const QTemporaryDir folder;
        for (const QString &file : files)
            QVERIFY(touch(folder.filePath(file)));
        QTEST(descriptionName(folder.path()), "name");
        QCOMPARE(descriptionName(folder.path()).isNull(), firstOfListing(folder.path()).isNull());
    }

    void otherThanFiles()
    {
        const QTemporaryDir folder;
        QCOMPARE(::mkfifo(qPrintable(folder.filePath("a.xml")), 0600), 0);
        QVERIFY(QFile::link("nowhere", folder.filePath("b.xml")));
        QVERIFY(touch(folder.filePath("z")));
        QVERIFY(QFile::link(folder.filePath("z"), folder.filePath("d.xml")));
        QCOMPARE(descriptionName(folder.path()), QString("d.xml"));
        QVERIFY(QDir(folder.path()).mkdir("c.xml"));
        QCOMPARE(descriptionName(folder.path()), QString("c.xml"));
    }

    void noFolder()
    {
        const QTemporaryDir folder;
        QVERIFY(touch(folder.filePath("a.xml")));
        QVERIFY(descriptionName(folder.filePath("a.xml")).isNull());
        QVERIFY(descriptionName(folder.filePath("none")).isNull());
    }

    // The name is that which QDir lists first, also among names that differ in case alone.
    void sameAsInTheListing()
    {
        std::mt19937 random(7); // NOLINT: the same folders each time
        const QStringList letters { "a",
                                    "A",
                                    "b",
                                    "B",
                                    "_",
                                    "-",
                                    "1",
                                    QString::fromUtf8("\u00e4"),
                                    QString::fromUtf8("\u00c4"),
                                    QString::fromUtf8("\u0131"),
                                    QString::fromUtf8("\U0001f600") };
        const auto pick = [&random](int count) {
            return int(random() % unsigned(count));
        };
        for (int round = 0; round < 200; ++round) {
            const QTemporaryDir folder;
            for (int i = pick(6); i >= 0; --i) {
                QString name;
                for (int length = pick(3); length >= 0; --length)
                    name += letters.at(pick(letters.size()));
                QVERIFY(touch(folder.filePath(name + (pick(4) == 0 ? ".XML" : ".xml"))));
            }
            QCOMPARE(descriptionName(folder.path()), firstOfListing(folder.path()));
        }
    }
};

QTEST_GUILESS_MAIN(tst_DescriptionName)

#include "tst_descriptionname.moc"
