#include <tzserializer/serializetoxml.h>

#include <QtTest>

#include <QFile>
#include <QTemporaryDir>

namespace {

/*! Stands for the root of a unit: properties of every type that a file can set, and some others. */
class Crate : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString Label MEMBER label)
    Q_PROPERTY(int Count MEMBER count)
    Q_PROPERTY(bool IsOpen MEMBER isOpen)
    Q_PROPERTY(double Weight MEMBER weight)
    Q_PROPERTY(int Sealed READ sealed)

public:
    explicit Crate(QObject *parent = nullptr)
        : QObject(parent)
    {
        setObjectName(QStringLiteral("Crate"));
    }
    int sealed() const { return 5; }

    QString label = QStringLiteral("none");
    int count = 7;
    bool isOpen = true;
    double weight = 1.5;
};

class Bottle : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString Label MEMBER label)
    Q_PROPERTY(int Address MEMBER address)
    Q_PROPERTY(bool IsFull MEMBER isFull)

public:
    Bottle()
    {
        ++alive;
        setObjectName(QStringLiteral("Bottle"));
    }
    ~Bottle() override { --alive; }

    QString label;
    int address = 0;
    bool isFull = false;

    static int alive;
};

int Bottle::alive = 0;

TZ::Serializer::ObjectFactory factory()
{
    TZ::Serializer::ObjectFactory classes;
    classes.insert(QStringLiteral("Crate"), [] { return new Crate; });
    classes.insert(QStringLiteral("Bottle"), [] { return new Bottle; });
    classes.insert(QStringLiteral("Broken"), []() -> QObject * { return nullptr; });
    classes.insert(QStringLiteral("Unset"), {});
    return classes;
}

// The tree below an object in one line, in the order of the children.
QString tree(const QObject &object)
{
    QString text = object.objectName();
    if (const auto *bottle = qobject_cast<const Bottle *>(&object))
        text += QLatin1Char(':') + bottle->label;
    QStringList children;
    for (const QObject *child : object.children())
        children.append(tree(*child));
    return children.isEmpty() ? text : text + QStringLiteral("(%1)").arg(children.join(u','));
}

} // namespace

class tst_SerializeToXML : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_folder.isValid());
        m_path = m_folder.filePath(QStringLiteral("unit.xml"));
        QFile::remove(m_path);
        QCOMPARE(Bottle::alive, 0);
    }
    void cleanup() { QCOMPARE(Bottle::alive, 0); }

    void properties_data()
    {
        QTest::addColumn<QByteArray>("attributes");
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("isOpen");

        const QString none = QStringLiteral("none");
        QTest::newRow("no attributes") << QByteArray() << none << 7 << true;
        QTest::newRow("all, in the order of the class")
            << QByteArray("Label='a' Count='1' IsOpen='false'") << QStringLiteral("a") << 1
            << false;
        QTest::newRow("all, in reverse")
            << QByteArray("IsOpen='0' Count='1' Label='a'") << QStringLiteral("a") << 1 << false;
        QTest::newRow("true in letters") << QByteArray("IsOpen='true'") << none << 7 << true;
        QTest::newRow("true in digits") << QByteArray("IsOpen='1'") << none << 7 << true;
        QTest::newRow("negative") << QByteArray("Count='-12'") << none << -12 << true;
        QTest::newRow("leading zero is decimal") << QByteArray("Count='010'") << none << 10 << true;
        QTest::newRow("hexadecimal") << QByteArray("Count='0x1fA'") << none << 506 << true;
        QTest::newRow("hexadecimal with a capital X")
            << QByteArray("Count='0X10'") << none << 16 << true;
        QTest::newRow("lowest") << QByteArray("Count='-2147483648'") << none << (-2147483647 - 1)
                                << true;
        QTest::newRow("highest signed")
            << QByteArray("Count='2147483647'") << none << 2147483647 << true;
        QTest::newRow("register address of 32 bits")
            << QByteArray("Count='0x80000000'") << none << (-2147483647 - 1) << true;
        QTest::newRow("highest unsigned") << QByteArray("Count='4294967295'") << none << -1 << true;
        QTest::newRow("empty text") << QByteArray("Label=''") << QString() << 7 << true;
        QTest::newRow("text is not trimmed")
            << QByteArray("Label=' a  b '") << QStringLiteral(" a  b ") << 7 << true;
        QTest::newRow("references and characters outside ASCII")
            << QByteArray("Label='&lt;&#x42;&amp;\xc3\xa9'") << QString::fromUtf8("<B&\xc3\xa9")
            << 7 << true;
    }
    void properties()
    {
        QFETCH(QByteArray, attributes);
        write("<Crate " + attributes + "/>");
        Crate root;

        load(root);

        QTEST(root.label, "label");
        QTEST(root.count, "count");
        QTEST(root.isOpen, "isOpen");
    }

    void nestedObjects_data()
    {
        QTest::addColumn<QByteArray>("inside");
        QTest::addColumn<QString>("expected");

        QTest::newRow("none") << QByteArray() << QStringLiteral("Crate");
        QTest::newRow("file order among one class and across classes")
            << QByteArray("<Bottle Label='b'/><Crate/><Bottle Label='a'/>")
            << QStringLiteral("Crate(Bottle:b,Crate,Bottle:a)");
        QTest::newRow("any class at any level")
            << QByteArray("<Bottle Label='a'><Crate><Bottle Label='b'/></Crate></Bottle>")
            << QStringLiteral("Crate(Bottle:a(Crate(Bottle:b)))");
        QTest::newRow("text, comments and instructions between them")
            << QByteArray("text<!-- c --><Bottle/><?target data?><![CDATA[<Bottle/>]]><Crate/>")
            << QStringLiteral("Crate(Bottle:,Crate)");
    }
    void nestedObjects()
    {
        QFETCH(QByteArray, inside);
        write("<?xml version='1.0' encoding='UTF-8'?>\n<Crate>" + inside + "</Crate>\n");
        Crate root;

        load(root);

        QTEST(tree(root), "expected");
    }

    void nestedProperties()
    {
        write("<Crate><Bottle Label='x' Address='0xFFFFFFFF' IsFull='true'/><Bottle/></Crate>");
        Crate root;

        load(root);

        const QList<Bottle *> bottles = root.findChildren<Bottle *>();
        QCOMPARE(bottles.size(), 2);
        QCOMPARE(bottles[0]->label, QStringLiteral("x"));
        QCOMPARE(bottles[0]->address, -1);
        QCOMPARE(bottles[0]->isFull, true);
        QVERIFY(bottles[1]->label.isEmpty());
        QCOMPARE(bottles[1]->address, 0);
        QCOMPARE(bottles[1]->isFull, false);
    }

    void childrenOfTheRootStay()
    {
        write("<Crate Count='1'><Bottle Label='new'/></Crate>");
        Crate root;
        auto *const former = new Bottle;
        former->setParent(&root);

        load(root);

        QCOMPARE(tree(root), QStringLiteral("Crate(Bottle:,Bottle:new)"));
        QCOMPARE(root.children().first(), former);
    }

    void encodings_data()
    {
        QTest::addColumn<QByteArray>("xml");

        const QString text = QStringLiteral("<Crate Label='\u00e9'/>");
        QTest::newRow("UTF-8 with a byte order mark") << "\xef\xbb\xbf" + text.toUtf8();
        QTest::newRow("declared Latin-1")
            << "<?xml version='1.0' encoding='ISO-8859-1'?>" + text.toLatin1();
        QByteArray utf16("\xff\xfe");
        for (const QChar character : text)
            utf16 += QByteArray(1, char(character.cell())) + char(character.row());
        QTest::newRow("UTF-16") << utf16;
    }
    void encodings()
    {
        QFETCH(QByteArray, xml);
        write(xml);
        Crate root;

        load(root);

        QCOMPARE(root.label, QStringLiteral("\u00e9"));
    }

    void unknownNames_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected");

        const QString whole = QStringLiteral("Crate(Bottle:a)");
        QTest::newRow("attribute") << QByteArray("<Crate\nColour='red'><Bottle Label='a'/></Crate>")
                                   << QStringLiteral("line 2: unknown attribute Colour") << whole;
        QTest::newRow("attribute in another case")
            << QByteArray("<Crate count='1'><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown attribute count") << whole;
        QTest::newRow("object name")
            << QByteArray("<Crate><Bottle objectName='me' Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown attribute objectName") << whole;
        QTest::newRow("property of another type")
            << QByteArray("<Crate Weight='2'><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown attribute Weight") << whole;
        QTest::newRow("property that cannot be written")
            << QByteArray("<Crate Sealed='2'><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown attribute Sealed") << whole;
        QTest::newRow("namespace declaration")
            << QByteArray("<Crate xmlns='urn:x'><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown attribute xmlns") << whole;
        QTest::newRow("element with all below it")
            << QByteArray(
                   "<Crate>\n<Lid Count='x'><Bottle/><Other/></Lid><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 2: unknown element Lid") << whole;
        QTest::newRow("element in another case")
            << QByteArray("<Crate><bottle/><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown element bottle") << whole;
        QTest::newRow("element with a prefix")
            << QByteArray("<Crate><x:Bottle/><Bottle Label='a'/></Crate>")
            << QStringLiteral("line 1: unknown element x:Bottle") << whole;
    }
    void unknownNames()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, line);
        write(xml);
        Crate root;
        ignoreMessage(QtDebugMsg, QStringLiteral("Ignored in %1, %2").arg(m_path, line));

        load(root);

        QTEST(tree(root), "expected");
        QCOMPARE(root.count, 7);
        QCOMPARE(root.weight, 1.5);
    }

    void objectThatCannotBeMade_data()
    {
        QTest::addColumn<QString>("name");

        QTest::newRow("the factory answers null") << QStringLiteral("Broken");
        QTest::newRow("the factory has no function") << QStringLiteral("Unset");
    }
    void objectThatCannotBeMade()
    {
        QFETCH(QString, name);
        write("<Crate>\n<" + name.toUtf8() + "><Bottle/></" + name.toUtf8()
              + "><Bottle Label='a'/></Crate>");
        Crate root;
        ignoreMessage(
            QtWarningMsg,
            QStringLiteral("No object could be made for %1, line 2: %2").arg(m_path, name));

        load(root);

        QCOMPARE(tree(root), QStringLiteral("Crate(Bottle:a)"));
    }

    void malformed_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("cause");

        const auto row = [](const char *name, const QByteArray &xml, const char *cause) {
            QTest::newRow(name) << xml << QString::fromLatin1(cause);
        };
        row("empty file", "", ", line 1: Premature end of document.");
        row("no XML", "firmware", ", line 1: Start tag expected.");
        row("cut off behind complete objects",
            "<Crate Count='1' Label='x'>\n<Bottle Label='a'/>\n<Bottle",
            ", line 3: Premature end of document.");
        row("element left open", "<Crate Count='1'><Bottle>\n</Crate>",
            ", line 2: Opening and ending tag mismatch.");
        row("text behind the root", "<Crate Count='1'/>\n<Crate/>",
            ", line 2: Extra content at end of document.");
        row("attribute named twice", "<Crate><Bottle Label='a' Label='b'/></Crate>",
            ", line 1: Attribute 'Label' redefined.");
        row("bytes that are no UTF-8", "<Crate Label='\xff'/>",
            ", line 1: Encountered incorrectly encoded content.");
        row("root of another class", "<Bottle Label='a'/>",
            ", line 1: The root element is \"Bottle\" instead of \"Crate\".");
        row("document type", "<!DOCTYPE Crate>\n<Crate Count='1'/>",
            ", line 1: A document type is not allowed.");
        row("entities that grow",
            "<!DOCTYPE Crate [<!ENTITY a 'aaaaaaaa'><!ENTITY b '&a;&a;&a;&a;'>]>\n"
            "<Crate Label='&b;'/>",
            ", line 1: A document type is not allowed.");
        row("undeclared entity", "<Crate>&a;</Crate>", ", line 1: Entity 'a' not declared.");

        row("integer in letters", "<Crate Label='x'>\n<Bottle Address='ten'/></Crate>",
            ", line 2: \"ten\" is no int for Address.");
        row("integer with text behind it", "<Crate Count='1.5'/>",
            ", line 1: \"1.5\" is no int for Count.");
        row("empty integer", "<Crate Count=''/>", ", line 1: \"\" is no int for Count.");
        row("integer with a blank", "<Crate Count=' 1'/>", ", line 1: \" 1\" is no int for Count.");
        row("integer with a plus sign", "<Crate Count='+1'/>",
            ", line 1: \"+1\" is no int for Count.");
        row("integer with a group separator", "<Crate Count='1,000'/>",
            ", line 1: \"1,000\" is no int for Count.");
        row("minus alone", "<Crate Count='-'/>", ", line 1: \"-\" is no int for Count.");
        row("prefix alone", "<Crate Count='0x'/>", ", line 1: \"0x\" is no int for Count.");
        row("negative hexadecimal", "<Crate Count='-0x1'/>",
            ", line 1: \"-0x1\" is no int for Count.");
        row("just above 32 bits", "<Crate Count='4294967296'/>",
            ", line 1: \"4294967296\" is no int for Count.");
        row("just below 32 bits", "<Crate Count='-2147483649'/>",
            ", line 1: \"-2147483649\" is no int for Count.");
        row("hexadecimal of 33 bits", "<Crate Count='0x100000000'/>",
            ", line 1: \"0x100000000\" is no int for Count.");
        row("integer beyond 64 bits", "<Crate Count='99999999999999999999'/>",
            ", line 1: \"99999999999999999999\" is no int for Count.");
        row("bool in capitals", "<Crate IsOpen='TRUE'/>",
            ", line 1: \"TRUE\" is no bool for IsOpen.");
        row("bool above 1", "<Crate IsOpen='2'/>", ", line 1: \"2\" is no bool for IsOpen.");
        row("empty bool", "<Crate IsOpen=''/>", ", line 1: \"\" is no bool for IsOpen.");
        row("malformed value deep in the tree behind good ones",
            "<Crate Count='1'><Bottle Label='a'><Crate><Bottle IsFull='yes'/></Crate></Bottle>"
            "</Crate>",
            ", line 1: \"yes\" is no bool for IsFull.");
    }
    void malformed()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, cause);
        write(xml);
        ignoreMessage(QtWarningMsg, QStringLiteral("Failed to load ") + m_path + cause);

        loadsNothing(m_path);
    }

    void nesting_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("levels");
        QTest::addColumn<bool>("loads");

        QTest::newRow("16 levels of objects") << QByteArray("Bottle") << 16 << true;
        QTest::newRow("17 levels of objects") << QByteArray("Bottle") << 17 << false;
        QTest::newRow("17 levels of unknown elements") << QByteArray("Other") << 17 << false;
        QTest::newRow("half a million levels") << QByteArray("Bottle") << 500000 << false;
    }
    void nesting()
    {
        QFETCH(QByteArray, name);
        QFETCH(int, levels);
        QFETCH(bool, loads);
        write("<Crate>" + ('<' + name + '>').repeated(levels - 1)
              + ("</" + name + '>').repeated(levels - 1) + "</Crate>");
        if (!loads) {
            if (name == "Other")
                ignoreMessage(
                    QtDebugMsg,
                    QStringLiteral("Ignored in %1, line 1: unknown element Other").arg(m_path));
            ignoreMessage(
                QtWarningMsg,
                QStringLiteral("Failed to load %1, line 1: Elements are nested more than 16 deep.")
                    .arg(m_path));
            loadsNothing(m_path);
            return;
        }
        Crate root;

        load(root);

        QCOMPARE(Bottle::alive, 15);
    }

    void size_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<bool>("loads");

        QTest::newRow("16 MiB") << 16777216 << true;
        QTest::newRow("16 MiB and a byte") << 16777217 << false;
    }
    void size()
    {
        QFETCH(int, bytes);
        QFETCH(bool, loads);
        const QByteArray xml("<Crate Count='1'/>");
        write(xml + QByteArray(bytes - xml.size(), ' '));
        if (!loads) {
            ignoreMessage(
                QtWarningMsg,
                QStringLiteral("Failed to load %1: The file is larger than 16777216 bytes.")
                    .arg(m_path));
            loadsNothing(m_path);
            return;
        }
        Crate root;

        load(root);

        QCOMPARE(root.count, 1);
    }

    void noFile_data()
    {
        QTest::addColumn<QString>("name");

        QTest::newRow("missing") << QStringLiteral("none.xml");
        QTest::newRow("folder") << QStringLiteral(".");
        QTest::newRow("pipe that nobody writes to") << QStringLiteral("pipe");
    }
    void noFile()
    {
        QFETCH(QString, name);
        const QString path = m_folder.filePath(name);
        if (name == QLatin1String("pipe"))
            QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), { path }), 0);
        ignoreMessage(QtWarningMsg,
                      QStringLiteral("Failed to load %1: There is no such file.").arg(path));

        loadsNothing(path);
    }

    // The loader has no state: the next file starts from nothing, whatever became of the last one.
    void oneLoaderManyFiles()
    {
        TZ::SerializeToXML loader;
        Crate first;
        write("<Crate><Bottle Label='a'>");
        ignoreMessage(
            QtWarningMsg,
            QStringLiteral("Failed to load %1, line 1: Premature end of document.").arg(m_path));
        loader.loadXml(&first, m_path, factory());
        write("<Crate><Bottle Label='b'/></Crate>");

        loader.loadXml(&first, m_path, factory());
        loader.loadXml(&first, m_path, factory());

        QCOMPARE(tree(first), QStringLiteral("Crate(Bottle:b,Bottle:b)"));
    }

private:
    void write(const QByteArray &contents)
    {
        QFile file(m_path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    void load(Crate &root) { TZ::SerializeToXML().loadXml(&root, m_path, factory()); }

    void loadsNothing(const QString &path)
    {
        Crate root;

        TZ::SerializeToXML().loadXml(&root, path, factory());

        QCOMPARE(root.label, QStringLiteral("none"));
        QCOMPARE(root.count, 7);
        QCOMPARE(root.isOpen, true);
        QVERIFY(root.children().isEmpty());
        QCOMPARE(Bottle::alive, 0);
    }

    static void ignoreMessage(QtMsgType type, const QString &text)
    {
        QTest::ignoreMessage(type, qPrintable(text));
    }

    QTemporaryDir m_folder;
    QString m_path;
};

QTEST_GUILESS_MAIN(tst_SerializeToXML)

#include "tst_serializetoxml.moc"
