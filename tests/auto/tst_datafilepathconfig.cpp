#include "datafilepathconfig.h"
#include "support/logrecorder.h"
#include "support/singletonrace.h"
#include "support/translationrecorder.h"
#include "support/unprivileged.h"

#include <QPointer>
#include <QtTest>

#include <sys/stat.h>

#include <QTemporaryDir>

#include <type_traits>

using Velmar::Firmware::DataFilePath;
using Velmar::Firmware::DataFilePathConfig;

// Only instance() and destroyInstance() make and end the object.
static_assert(!std::is_constructible_v<DataFilePathConfig, QObject *>);
static_assert(!std::is_destructible_v<DataFilePathConfig>);

Q_DECLARE_METATYPE(QFileDevice::Permissions)

namespace {

const QString Untouched = QStringLiteral("untouched");

QString contents(const QVector<DataFilePath> &paths)
{
    QStringList pairs;
    for (const DataFilePath &path : paths)
        pairs.append(path.sourcePath + QLatin1Char('>') + path.targetPath);
    return pairs.join(u'|');
}

} // namespace

class tst_DataFilePathConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_folder.isValid());
        m_path = m_folder.filePath(QStringLiteral("DataFilPathCfg.xml"));
        QFile::remove(m_path);
        m_paths.clear();
        m_errorText = Untouched;
    }
    void cleanupTestCase() { DataFilePathConfig::destroyInstance(); }

    void metaObject()
    {
        const QMetaObject &metaObject = DataFilePathConfig::staticMetaObject;
        QCOMPARE(metaObject.className(), "Velmar::Firmware::DataFilePathConfig");
        QCOMPARE(metaObject.superClass(), &QObject::staticMetaObject);
        QCOMPARE(metaObject.methodCount(), metaObject.methodOffset());
        QCOMPARE(metaObject.propertyCount(), metaObject.propertyOffset());
    }

    void singleton()
    {
        QVERIFY(threadsShareFirstInstance<DataFilePathConfig>());
        QVERIFY(!DataFilePathConfig::instance()->parent());
        const QPointer<DataFilePathConfig> first(DataFilePathConfig::instance());
        DataFilePathConfig::destroyInstance();
        QVERIFY(first.isNull());
        DataFilePathConfig::destroyInstance();
        QVERIFY(DataFilePathConfig::instance());
    }

    void entries_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("expected");

        const auto row = [](const char *name, const char *xml, const char *expected) {
            QTest::newRow(name) << QByteArray(xml) << QString::fromUtf8(expected);
        };
        row("no entries", "<Velmar/>", "");
        row("no elements", "<Velmar>text<!-- and a comment --></Velmar>", "");
        row("in file order",
            "<Velmar><F><SrcPath>b</SrcPath><DestPath>/b</DestPath></F>"
            "<F><SrcPath>a</SrcPath><DestPath>/a</DestPath></F></Velmar>",
            "b>/b|a>/a");
        row("entries of any name, among text and comments",
            "<Velmar>x<!-- c --><A><SrcPath>a</SrcPath><DestPath>/a</DestPath></A>y"
            "<SrcPath><SrcPath>b</SrcPath><DestPath>/b</DestPath></SrcPath></Velmar>",
            "a>/a|b>/b");
        row("children in any order, others ignored",
            "<Velmar><F><X>x</X><DestPath>/a</DestPath><SrcPath>a</SrcPath></F></Velmar>", "a>/a");
        row("the first of two counts",
            "<Velmar><F><SrcPath>a</SrcPath><SrcPath>b</SrcPath><DestPath>/a</DestPath>"
            "<DestPath>/b</DestPath></F></Velmar>",
            "a>/a");
        row("empty texts", "<Velmar><F><SrcPath/><DestPath></DestPath></F></Velmar>", ">");
        row("blanks count",
            "<Velmar><F><SrcPath> a </SrcPath><DestPath>\n/a\n</DestPath></F></Velmar>",
            " a >\n/a\n");
        row("text in pieces",
            "<Velmar><F><SrcPath>a<!-- - --><i>b</i><![CDATA[c&]]></SrcPath>"
            "<DestPath>/&lt;&#x41;</DestPath></F></Velmar>",
            "abc&>/<A");
        row("characters outside ASCII",
            "<Velmar><F><SrcPath>\xc3\xa9</SrcPath><DestPath>/\xe2\x82\xac</DestPath></F></Velmar>",
            "\xc3\xa9>/\xe2\x82\xac");
        row("a namespace of its own",
            "<Velmar xmlns='v'><F><SrcPath>a</SrcPath><DestPath>/a</DestPath></F></Velmar>",
            "a>/a");
        row("a prefix is no part of a name",
            "<v:Velmar xmlns:v='v'><v:F><v:SrcPath>a</v:SrcPath><v:DestPath>/a</v:DestPath></v:F>"
            "</v:Velmar>",
            "a>/a");
        row("source listed twice",
            "<Velmar><F><SrcPath>a</SrcPath><DestPath>/a</DestPath></F>"
            "<F><SrcPath>a</SrcPath><DestPath>/b</DestPath></F></Velmar>",
            "a>/a|a>/b");
    }
    void entries()
    {
        QFETCH(QByteArray, xml);
        QVERIFY(write(xml));
        const LogRecorder log;

        QVERIFY(read());

        QTEST(contents(m_paths), "expected");
        QCOMPARE(m_errorText, Untouched);
        QVERIFY(log.lines().isEmpty());
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("xml"); // null: no file
        QTest::addColumn<QString>("source"); // as given to the translator
        QTest::addColumn<QString>("argument"); // what stands for %1 in the end; null: the path
        QTest::addColumn<QString>("kept");

        const auto row = [](const char *name, const QByteArray &xml, const QString &source,
                            const QString &argument = {}, const QString &kept = {}) {
            QTest::newRow(name) << xml << source << argument << kept;
        };
        const QString noDevice =
            QStringLiteral("The file is not a valid configuration file for device.");
        const QString noSource = QStringLiteral("src path is null.");
        const QString noTarget = QStringLiteral("dest path is null.");
        row("missing", QByteArray(), QStringLiteral("Fail to open file [%1]!"));
        row("root in lower case", "<velmar/>", noDevice);
        row("root of a longer name", "<VelmarPaths/>", noDevice);
        row("no SrcPath", "<Velmar><F><DestPath>/a</DestPath></F></Velmar>", noSource);
        row("neither", "<Velmar><F/></Velmar>", noSource);
        row("prefix of no namespace", "<Velmar><v:F/></Velmar>", noSource);
        row("no DestPath in the third entry",
            "<Velmar><F><SrcPath>a</SrcPath><DestPath>/a</DestPath></F>"
            "<F><SrcPath>b</SrcPath><DestPath>/b</DestPath></F><F><SrcPath>c</SrcPath></F>"
            "<F><SrcPath>d</SrcPath><DestPath>/d</DestPath></F></Velmar>",
            noTarget, QString(), QStringLiteral("a>/a|b>/b"));
        row("paths one level too deep",
            "<Velmar><F><G><SrcPath>a</SrcPath><DestPath>/a</DestPath></G></F></Velmar>", noSource);
        row("paths in the wrong case", "<Velmar><F><srcpath/><destpath/></F></Velmar>", noSource);
        row("nested beyond all measure", QByteArray("<Velmar>").repeated(100000),
            QStringLiteral("Parse error :%1"),
            QStringLiteral("elements are nested more than 256 deep"));
    }
    void failures()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, source);
        QFETCH(QString, argument);
        if (!xml.isNull())
            QVERIFY(write(xml));
        const LogRecorder log;
        const TranslationRecorder translator;

        QVERIFY(!read());

        QCOMPARE(translator.asked(), (QVector<QPair<QString, QString>> { { Context, source } }));
        QCOMPARE(m_errorText,
                 QChar(0xAB) + source.replace("%1", argument.isNull() ? m_path : argument));
        QTEST(contents(m_paths), "kept");
        QVERIFY(log.lines().isEmpty());
    }

    void emptyPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << QStringLiteral("");
    }
    void emptyPath()
    {
        QFETCH(QString, path);
        const LogRecorder log;
        const TranslationRecorder translator;

        QVERIFY(!DataFilePathConfig::instance()->readConfig(path, m_paths, m_errorText));

        QCOMPARE(m_errorText, QStringLiteral("\u00abInvalid file path!\n"));
        QCOMPARE(translator.asked(),
                 (QVector<QPair<QString, QString>> {
                     { Context, QStringLiteral("Invalid file path!\n%1") } }));
        QVERIFY(log.lines().isEmpty());
    }

    void parserMessage_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("message");
        QTest::newRow("empty file") << QByteArray("") << QStringLiteral("unexpected end of file");
        QTest::newRow("cut off") << QByteArray("<Velmar><F>")
                                 << QStringLiteral("unexpected end of file");
        QTest::newRow("cut off behind many entries")
            << QByteArray("<Velmar>" + QByteArray("<F/>").repeated(300))
            << QStringLiteral("unexpected end of file");
        // Few tags in the text, many in the document.
        QTest::newRow("nested by entities")
            << QByteArray("<!DOCTYPE Velmar [<!ENTITY a '" + QByteArray("<i>").repeated(80)
                          + "'>]><Velmar>" + QByteArray("&a;").repeated(2000) + "</Velmar>")
            << QStringLiteral("elements are nested more than 256 deep");
        QTest::newRow("nested groups of a document type")
            << QByteArray("<!DOCTYPE Velmar [<!ELEMENT Velmar " + QByteArray("(").repeated(200000)
                          + "b" + QByteArray(")").repeated(200000) + ">]><Velmar/>")
            << QStringLiteral("elements are nested more than 256 deep");
        QTest::newRow("tags that do not match")
            << QByteArray("<Velmar><F></G></Velmar>") << QStringLiteral("tag mismatch");
    }
    void parserMessage()
    {
        QFETCH(QByteArray, xml);
        QVERIFY(write(xml));
        const TranslationRecorder translator;

        QVERIFY(!read());

        const QString start = QStringLiteral("\u00abParse error :");
        QVERIFY2(m_errorText.startsWith(start), qPrintable(m_errorText));
        QTEST(m_errorText.mid(start.size()), "message");
        QCOMPARE(translator.asked().last(), qMakePair(Context, QStringLiteral("Parse error :%1")));
    }

    void pipeIsRefused()
    {
        const QString pipe = m_folder.filePath(QStringLiteral("pipe"));
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QVERIFY(!DataFilePathConfig::instance()->readConfig(pipe, m_paths, m_errorText));
        QCOMPARE(m_errorText, QStringLiteral("Fail to open file [%1]!").arg(pipe));
    }

    void parenthesesWithoutADocumentType()
    {
        const QByteArray path(300, '(');
        QVERIFY(write("<Velmar><F><SrcPath>" + path
                      + "</SrcPath><DestPath>/a</DestPath></F></Velmar>"));
        QVERIFY(read());
        QCOMPARE(m_paths.first().sourcePath, QString::fromLatin1(path));
    }

    void pathsAreAppendedTo()
    {
        QVERIFY(write("<Velmar><F><SrcPath>a</SrcPath><DestPath>/a</DestPath></F></Velmar>"));
        QVERIFY(read());
        QVERIFY(write("<Velmar><F><SrcPath>b</SrcPath><DestPath>/b</DestPath></F><F/></Velmar>"));
        QVERIFY(!read());

        QCOMPARE(contents(m_paths), QStringLiteral("a>/a|b>/b"));
    }

    void fileThatMayNotBeRead_data()
    {
        QTest::addColumn<QFileDevice::Permissions>("permissions");
        QTest::addColumn<QByteArray>("outcome");
        QTest::newRow("write-only") << QFileDevice::Permissions(QFileDevice::WriteOwner)
                                    << QByteArray("Fail to open file [%1]!");
        QTest::newRow("read-only")
            << QFileDevice::Permissions(QFileDevice::ReadOwner) << QByteArray("untouched");
    }
    void fileThatMayNotBeRead()
    {
        QFETCH(QFileDevice::Permissions, permissions);
        QFETCH(QByteArray, outcome);
        QVERIFY(write("<Velmar/>"));
        QVERIFY(QFile::setPermissions(m_path, permissions));
        QVERIFY(Unprivileged::own(QFile::encodeName(m_folder.path())));
        QVERIFY(Unprivileged::own(QFile::encodeName(m_path)));

        const QByteArray told = Unprivileged::run([this] {
            read();
            return m_errorText.toUtf8();
        });

        QCOMPARE(told, outcome.replace("%1", m_path.toUtf8()));
    }

private:
    bool write(const QByteArray &xml)
    {
        QFile file(m_path);
        return file.open(QIODevice::WriteOnly) && file.write(xml) == xml.size();
    }
    bool read() { return DataFilePathConfig::instance()->readConfig(m_path, m_paths, m_errorText); }

    const QString Context = QStringLiteral("Velmar::Firmware::DataFilePathConfig");

    QTemporaryDir m_folder;
    QString m_path;
    QVector<DataFilePath> m_paths;
    QString m_errorText;
};

QTEST_GUILESS_MAIN(tst_DataFilePathConfig)
#include "tst_datafilepathconfig.moc"
