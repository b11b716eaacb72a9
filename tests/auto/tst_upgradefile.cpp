#include "upgradefile.h"
#include "upgradefile_p.h"

#include "support/encipheredfile.h"
#include "support/logtext.h"
#include "support/storefile.h"
#include "support/unprivileged.h"

#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

using Velmar::Firmware::UpgradeFile;
using Velmar::Firmware::Internal::UpgradeFilePrivate;

using FilePaths = QVector<QPair<QString, QString>>;

class tst_UpgradeFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void oneFile();
    void noFiles();
    void threeFiles();
    void fileLargerThanThePieces();
    void versions_data();
    void versions();
    void numbersAreCutTo16Bits();
    void sumLeavesHeaderOut();
    void sumIsUnsignedAndWraps();
    void destinationField_data();
    void destinationField();
    void destinationTooLong();
    void whatIsDeciphered_data();
    void whatIsDeciphered();
    void plainCopyIsRemoved();
    void oneFileToTwoPlaces();
    void preparedFile();

    void imageCannotBeCreated_data();
    void imageCannotBeCreated();
    void imageInLockedFolder();
    void oldImageIsRemoved_data();
    void oldImageIsRemoved();
    void linkInPlaceOfTheImage_data();
    void linkInPlaceOfTheImage();
    void fileHasNoLength_data();
    void fileHasNoLength();
    void cannotBeDeciphered();
    void deciphersToNothing();
    void folderInsteadOfFile();
    void unreadableFile();
    void unreadablePlainCopy();
    void fileShorterThanItsSize();
    void lengthsAreCutTo32Bits_data();
    void lengthsAreCutTo32Bits();
    void fullDiskGoesUnnoticed();
    void headerIsWrittenInPart();

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }
    QString imagePath() const { return m_folder->path() + QStringLiteral("/upgrade"); }
    bool store(const QString &name, const QByteArray &bytes) const;
    bool storeEnciphered(const QString &name, const QByteArray &bytes) const;
    QByteArray stored(const QString &name) const;
    QByteArray image() const { return stored(QStringLiteral("upgrade")); }
    QStringList fileNames() const;
    QString made(const FilePaths &filePaths, int modelId = 1,
                 const QString &version = QString()) const;

    QScopedPointer<QTemporaryDir> m_folder;
};

void tst_UpgradeFile::init()
{
    m_folder.reset(new QTemporaryDir);
    QVERIFY(m_folder->isValid());
}

bool tst_UpgradeFile::store(const QString &name, const QByteArray &bytes) const
{
    return storeFile(path(name), bytes);
}

bool tst_UpgradeFile::storeEnciphered(const QString &name, const QByteArray &bytes) const
{
    return ::storeEnciphered(path(name), bytes);
}

QByteArray tst_UpgradeFile::stored(const QString &name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList tst_UpgradeFile::fileNames() const
{
    return QDir(m_folder->path()).entryList(QDir::Files, QDir::Name);
}

QString tst_UpgradeFile::made(const FilePaths &filePaths, int modelId, const QString &version) const
{
    UpgradeFile upgradeFile(nullptr);
    return upgradeFile.makeUpgradeFile(filePaths, m_folder->path(), modelId, version);
}

void tst_UpgradeFile::oneFile()
{
    QVERIFY(store("body.bin", QByteArray("\xFF\x80\x01\x02\x03\x04\x05\x06\x07\x08", 10)));

    QCOMPARE(made({ { path("body.bin"), "a" } }, 0x1234, "1.2.3.4"), imagePath());

    QByteArray expected;
    expected += QByteArray("\x12\x01\x00\x00", 4); // 274 bytes of table and body
    expected += QByteArray("\x04\x03\x02\x01", 4); // version
    expected += QByteArray("\xA8", 1);
    expected += QByteArray("\x01\x00", 2); // one file
    expected += QByteArray("\x34\x12", 2); // model id
    expected += QByteArray(243, '\0');
    expected += QByteArray("a", 1) + QByteArray(255, '\0');
    expected +=
        QByteArray("\x08\x01\x00\x00", 4); // the body begins 264 bytes behind the table's start
    expected += QByteArray("\x0A\x00\x00\x00", 4); // and has 10 bytes
    expected += QByteArray("\xFF\x80\x01\x02\x03\x04\x05\x06\x07\x08", 10);
    // 0x5555 + body 255 + 128 + 36 + path 97 + offset 8 + 1 + length 10 = 22380
    expected += QByteArray("\x6C\x57", 2);
    QCOMPARE(expected.size(), 532);
    QCOMPARE(image(), expected);
}

void tst_UpgradeFile::noFiles()
{
    QCOMPARE(made({}, 0x1234, "7"), imagePath());

    QCOMPARE(image(),
             QByteArray("\x00\x00\x00\x00\x07\x00\x00\x00\xA8\x00\x00\x34\x12", 13)
                 + QByteArray(243, '\0') + QByteArray("\x55\x55", 2));
}

void tst_UpgradeFile::threeFiles()
{
    QVERIFY(store("one.bin", "abc"));
    QVERIFY(store("two.bin", "d"));
    QVERIFY(store("three.bin", "ef"));

    QCOMPARE(made({ { path("two.bin"), "/fw/two" },
                    { path("one.bin"), "/fw/one" },
                    { path("three.bin"), "" } }),
             imagePath());

    const QByteArray bytes = image();
    QCOMPARE(bytes.size(), 1056); // 256 + 3 * 264 + 6 + 2
    QCOMPARE(bytes.left(4), QByteArray("\x1E\x03\x00\x00", 4)); // 798
    QCOMPARE(bytes.mid(9, 2), QByteArray("\x03\x00", 2));
    QCOMPARE(bytes.mid(256, 264),
             QByteArray("/fw/two").leftJustified(256, '\0')
                 + QByteArray("\x18\x03\x00\x00\x01\x00\x00\x00", 8)); // at 792, 1 byte
    QCOMPARE(bytes.mid(520, 264),
             QByteArray("/fw/one").leftJustified(256, '\0')
                 + QByteArray("\x19\x03\x00\x00\x03\x00\x00\x00", 8)); // at 793, 3 bytes
    QCOMPARE(bytes.mid(784, 264),
             QByteArray(256, '\0')
                 + QByteArray("\x1C\x03\x00\x00\x02\x00\x00\x00", 8)); // at 796, 2 bytes
    // 0x5555 + bodies 100, 97 + 98 + 99, 101 + 102 + paths 661 and 637
    // + offsets 24 + 3, 25 + 3, 28 + 3 + lengths 1, 3, 2 = 23832
    QCOMPARE(bytes.mid(1048), QByteArray("dabcef\x18\x5D", 8));
}

void tst_UpgradeFile::fileLargerThanThePieces()
{
    const QByteArray body = QByteArray(700000, '\x01') + "end";
    QVERIFY(store("small.bin", "s"));
    QVERIFY(store("body.bin", body));

    QCOMPARE(
        made({ { path("small.bin"), "" }, { path("body.bin"), "" }, { path("small.bin"), "" } }),
        imagePath());

    const QByteArray bytes = image();
    QCOMPARE(bytes.size(), 701055); // 256 + 3 * 264 + 1 + 700003 + 1 + 2
    QCOMPARE(bytes.mid(1048, 3), QByteArray("s\x01\x01", 3));
    QVERIFY(bytes.mid(1049, 700003) == body);
    // 0x5555 + 115 + 700000 + 101 + 110 + 100 + 115 + offsets 24 + 3, 25 + 3, 124 + 177 + 10
    // + lengths 1, 99 + 174 + 10, 1 = 723037
    QCOMPARE(bytes.mid(701052), QByteArray("s\x5D\x08", 3));
}

void tst_UpgradeFile::versions_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QByteArray>("field");

    QTest::newRow("four parts") << "1.2.3.4" << QByteArray("\x04\x03\x02\x01", 4);
    QTest::newRow("two parts") << "1.2" << QByteArray("\x02\x01\x00\x00", 4);
    QTest::newRow("one part") << "9" << QByteArray("\x09\x00\x00\x00", 4);
    QTest::newRow("null") << QString() << QByteArray("\x00\x00\x00\x00", 4);
    QTest::newRow("empty") << "" << QByteArray("\x00\x00\x00\x00", 4);
    QTest::newRow("not available") << "N/A" << QByteArray("\x00\x00\x00\x00", 4);
    QTest::newRow("words count as 0") << "V1.2.rc3.4" << QByteArray("\x04\x00\x02\x00", 4);
    QTest::newRow("hexadecimal counts as 0") << "0x10.1" << QByteArray("\x01\x00\x00\x00", 4);
    QTest::newRow("empty parts are kept") << "1..3" << QByteArray("\x03\x00\x01\x00", 4);
    QTest::newRow("point at the end") << "1.2." << QByteArray("\x00\x02\x01\x00", 4);
    QTest::newRow("over 255 carries") << "1.256" << QByteArray("\x00\x02\x00\x00", 4);
    QTest::newRow("over 255 in front is cut") << "257.0.0.0" << QByteArray("\x00\x00\x00\x01", 4);
    QTest::newRow("negative borrows") << "1.-1" << QByteArray("\xFF\x00\x00\x00", 4);
    QTest::newRow("negative alone") << "-1" << QByteArray("\xFF\xFF\xFF\xFF", 4);
    QTest::newRow("fifth part lands on the last")
        << "5.1.2.3.4" << QByteArray("\x09\x03\x02\x01", 4);
    QTest::newRow("sixth part lands on the last but one")
        << "6.0.1.2.3.4" << QByteArray("\x04\x09\x02\x01", 4);
    QTest::newRow("ninth part lands on the last again")
        << "1.0.0.0.0.0.0.0.2" << QByteArray("\x03\x00\x00\x00", 4);
    QTest::newRow("over 31 bits is no number")
        << "2147483648.1" << QByteArray("\x01\x00\x00\x00", 4);
}

void tst_UpgradeFile::versions()
{
    QFETCH(QString, version);
    QVERIFY(store("body.bin", "x"));

    QCOMPARE(made({ { path("body.bin"), "a" } }, 1, version), imagePath());

    QTEST(image().mid(4, 4), "field");
}

void tst_UpgradeFile::numbersAreCutTo16Bits()
{
    QVERIFY(store("b", "x"));

    QCOMPARE(made(FilePaths(65537, { path("b"), "a" }), 66561), imagePath());

    QFile file(imagePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.size(), Q_INT64_C(17367563)); // 256 + 65537 * 265 + 2
    // 17367305 = 0x01090109 bytes of table and bodies, 65537 files, model 66561
    QCOMPARE(file.read(13), QByteArray("\x09\x01\x09\x01\x00\x00\x00\x00\xA8\x01\x00\x01\x04", 13));
}

void tst_UpgradeFile::sumLeavesHeaderOut()
{
    QVERIFY(store("body.bin", "xyz"));
    const FilePaths filePaths { { path("body.bin"), "a" } };

    QCOMPARE(made(filePaths, 1, "1.2.3.4"), imagePath());
    const QByteArray one = image();
    QCOMPARE(made(filePaths, 999, "9.9.9.9"), imagePath());
    const QByteArray other = image();

    QVERIFY(one.left(256) != other.left(256));
    QCOMPARE(one.mid(256), other.mid(256));
    QCOMPARE(one.right(2), QByteArray("\x2D\x57", 2)); // 0x5555 + 363 + 97 + 9 + 3 = 22317
}

void tst_UpgradeFile::sumIsUnsignedAndWraps()
{
    QVERIFY(store("body.bin", QByteArray(300, '\xFF')));

    QCOMPARE(made({ { path("body.bin"), "\u00FF" } }), imagePath());

    // 21845 + 76500 + path 195 (the first of its two bytes) + offset 9 + length 44 + 1 = 98594
    QCOMPARE(image().right(2), QByteArray("\x22\x81", 2));
}

void tst_UpgradeFile::destinationField_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QByteArray>("field");

    QTest::newRow("null") << QString() << QByteArray(256, '\0');
    QTest::newRow("ASCII") << "/usr/app" << QByteArray("/usr/app").leftJustified(256, '\0');
    QTest::newRow("loses a byte for each letter of two")
        << QStringLiteral("/\u00E9/\u00E9x")
        << QByteArray("/\xC3\xA9/\xC3").leftJustified(256, '\0');
    QTest::newRow("loses two for each letter of three")
        << QStringLiteral("\u4E2Dab") << QByteArray("\xE4\xB8\xAD").leftJustified(256, '\0');
    QTest::newRow("a letter outside of the basic plane is two units")
        << QStringLiteral("\U0001F600ab")
        << QByteArray("\xF0\x9F\x98\x80").leftJustified(256, '\0');
    QTest::newRow("half a surrogate pair")
        << QString(QChar(0xD83D)) + "a" << QByteArray("?a").leftJustified(256, '\0');
    QTest::newRow("as long as the field") << QString(256, 'p') << QByteArray(256, 'p');
    QTest::newRow("as long as the field, in letters of two bytes")
        << QString(256, QChar(0xE9)) << QByteArray("\xC3\xA9").repeated(128);
}

void tst_UpgradeFile::destinationField()
{
    QFETCH(QString, destination);
    QVERIFY(store("body.bin", "x"));

    QCOMPARE(made({ { path("body.bin"), destination } }), imagePath());

    QTEST(image().mid(256, 256), "field");
    QCOMPARE(image().mid(512, 4), QByteArray("\x08\x01\x00\x00", 4));
}

void tst_UpgradeFile::destinationTooLong()
{
    QVERIFY(store("body.bin", "xyz"));
    QVERIFY(storeEnciphered("secret.dat", "abc"));
    const LogRecorder log;

    QCOMPARE(made({ { path("body.bin"), "a" }, { path("secret.dat"), QString(257, 'p') } }),
             QString());

    QCOMPARE(logText(log),
             "warning: Destination path is longer than 256 bytes:" + QByteArray(257, 'p') + "\n");
    // Nothing of the second file was touched, and the first one's body stays where it is.
    QCOMPARE(fileNames(), QStringList({ "body.bin", "secret.dat", "upgrade" }));
    QCOMPARE(image(), QByteArray(784, '\0') + "xyz");
}

void tst_UpgradeFile::whatIsDeciphered_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isDeciphered");

    QTest::newRow("firmware") << "main.dat" << true;
    QTest::newRow("another font") << "font13.dat" << true;
    QTest::newRow("nothing but the suffix") << ".dat" << true;
    QTest::newRow("two suffixes, the last one counts") << "main.bin.dat" << true;
    QTest::newRow("the font of size 12") << "font12.dat" << false;
    QTest::newRow("ends like the font of size 12") << "bigfont12.dat" << false;
    QTest::newRow("the font in capitals") << "FONT12.dat" << true;
    QTest::newRow("suffix in capitals") << "X.DAT" << false;
    QTest::newRow("suffix in the middle") << "main.dat.bin" << false;
    QTest::newRow("suffix without its point") << "maindat" << false;
    QTest::newRow("data file") << "table.json" << false;
}

void tst_UpgradeFile::whatIsDeciphered()
{
    QFETCH(QString, name);
    QFETCH(bool, isDeciphered);
    const QByteArray plain("plain text of the file");
    QVERIFY(storeEnciphered(name, plain));
    const QByteArray enciphered = stored(name);
    QVERIFY(enciphered != plain);
    const LogRecorder log;

    QCOMPARE(made({ { path(name), "a" } }), imagePath());

    const QByteArray body = isDeciphered ? plain : enciphered;
    QCOMPARE(qFromLittleEndian<quint32>(image().constData() + 516), quint32(body.size()));
    QCOMPARE(image().mid(520, body.size()), body);
    QCOMPARE(image().size(), 522 + body.size());
    QCOMPARE(stored(name), enciphered);
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files | QDir::Hidden).size(), 2);
    QCOMPARE(logText(log), QByteArray());
}

void tst_UpgradeFile::plainCopyIsRemoved()
{
    QVERIFY(storeEnciphered("one.dat", "one"));
    QVERIFY(storeEnciphered("two.dat", "two"));
    QVERIFY(store("one.dat_dn", "left by a run that was killed"));

    QCOMPARE(made({ { path("one.dat"), "a" }, { path("two.dat"), "b" } }), imagePath());

    QCOMPARE(fileNames(), QStringList({ "one.dat", "two.dat", "upgrade" }));
    QCOMPARE(image().mid(784, 6), QByteArray("onetwo"));
}

void tst_UpgradeFile::oneFileToTwoPlaces()
{
    QVERIFY(storeEnciphered("one.dat", "one"));

    QCOMPARE(made({ { path("one.dat"), "a" }, { path("one.dat"), "b" } }), imagePath());

    // Deciphered for each of them, as the copy goes with the first.
    QCOMPARE(image().mid(784, 6), QByteArray("oneone"));
    QCOMPARE(image().mid(256, 2), QByteArray("a\0", 2));
    QCOMPARE(image().mid(520, 2), QByteArray("b\0", 2));
    QCOMPARE(fileNames(), QStringList({ "one.dat", "upgrade" }));
}

void tst_UpgradeFile::preparedFile()
{
    QVERIFY(storeEnciphered("one.dat", "plain"));
    QVERIFY(store("font12.dat", "abc"));
    UpgradeFile owner(nullptr);
    UpgradeFilePrivate prepared(&owner);
    QString outPath;

    QCOMPARE(prepared.readFileToEncryptOrDecrypt(path("one.dat"), outPath), 5);
    QCOMPARE(outPath, path("one.dat_dn"));
    QCOMPARE(stored("one.dat_dn"), QByteArray("plain"));

    QCOMPARE(prepared.readFileToEncryptOrDecrypt(path("font12.dat"), outPath), 3);
    QCOMPARE(outPath, path("font12.dat"));

    QCOMPARE(prepared.readFileToEncryptOrDecrypt(path("missing.bin"), outPath), 0);
    QCOMPARE(outPath, path("missing.bin"));

    QCOMPARE(prepared.q, &owner);
}

void tst_UpgradeFile::imageCannotBeCreated_data()
{
    QTest::addColumn<QString>("folder");

    QTest::newRow("no such folder") << "missing";
    QTest::newRow("a folder has the image's name") << "taken";
    QTest::newRow("the package is a file") << "file";
}

void tst_UpgradeFile::imageCannotBeCreated()
{
    QFETCH(QString, folder);
    QVERIFY(QDir().mkpath(path("taken/upgrade/full")));
    QVERIFY(store("file", "x"));
    QVERIFY(store("body.bin", "x"));
    UpgradeFile upgradeFile(nullptr);
    const LogRecorder log;

    QCOMPARE(upgradeFile.makeUpgradeFile({ { path("body.bin"), "a" } }, path(folder), 1, "1"),
             QString());

    QCOMPARE(logText(log), QByteArray("debug: open file failed.\n"));
    QVERIFY(QFileInfo(path("taken/upgrade/full")).isDir());
}

void tst_UpgradeFile::imageInLockedFolder()
{
    QVERIFY(store("body.bin", "x"));
    QVERIFY(::chmod(QFile::encodeName(m_folder->path()).constData(), 0755) == 0);
    QVERIFY(QDir().mkdir(path("locked")));
    QVERIFY(::chmod(QFile::encodeName(path("locked")).constData(), 0555) == 0);

    const QByteArray outcome = Unprivileged::run([this] {
        const LogRecorder log;
        UpgradeFile upgradeFile(nullptr);
        const QString image =
            upgradeFile.makeUpgradeFile({ { path("body.bin"), "a" } }, path("locked"), 1, "1");
        return image.toUtf8() + '|' + logText(log);
    });

    QCOMPARE(outcome, QByteArray("|debug: open file failed.\n"));
}

void tst_UpgradeFile::oldImageIsRemoved_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("succeeds");

    QTest::newRow("new image is shorter") << QByteArray("x") << true;
    QTest::newRow("new image fails") << QByteArray() << false;
}

void tst_UpgradeFile::oldImageIsRemoved()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, succeeds);
    QVERIFY(store("body.bin", body));
    const LogRecorder log;
    QVERIFY(store("upgrade", QByteArray(1000, 'o')));
    // A second name keeps the old file, which shows that it was not written over.
    QVERIFY(::link(QFile::encodeName(path("upgrade")).constData(),
                   QFile::encodeName(path("old")).constData())
            == 0);

    QCOMPARE(made({ { path("body.bin"), "a" } }).isEmpty(), !succeeds);

    QCOMPARE(logText(log), QByteArray(succeeds ? "" : "debug: File is error:file length is 0\n"));
    QCOMPARE(image().size(), succeeds ? 523 : 0);
    QCOMPARE(stored("old"), QByteArray(1000, 'o'));
}

void tst_UpgradeFile::linkInPlaceOfTheImage_data()
{
    QTest::addColumn<QString>("target");

    QTest::newRow("to nowhere") << "nowhere";
    QTest::newRow("to a file") << "file";
    QTest::newRow("to a folder") << "folder";
}

void tst_UpgradeFile::linkInPlaceOfTheImage()
{
    QFETCH(QString, target);
    QVERIFY(store("body.bin", "x"));
    QVERIFY(store("file", "kept"));
    QVERIFY(QDir().mkdir(path("folder")));
    QVERIFY(QFile::link(path(target), imagePath()));

    QCOMPARE(made({ { path("body.bin"), "a" } }), imagePath());

    QVERIFY(!QFileInfo(imagePath()).isSymLink());
    QCOMPARE(image().size(), 523);
    QCOMPARE(stored("file"), QByteArray("kept"));
    QVERIFY(QFileInfo(path("folder")).isDir());
    QVERIFY(!QFile::exists(path("nowhere")));
}

void tst_UpgradeFile::fileHasNoLength_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("missing") << "missing.bin";
    QTest::newRow("missing, not to be deciphered") << "font12.dat";
    QTest::newRow("empty") << "empty.bin";
    QTest::newRow("in a missing folder") << "missing/body.bin";
    QTest::newRow("no name at all") << "";
}

void tst_UpgradeFile::fileHasNoLength()
{
    QFETCH(QString, name);
    QVERIFY(store("empty.bin", ""));
    QVERIFY(store("first.bin", "abc"));
    const LogRecorder log;

    QCOMPARE(made({ { path("first.bin"), "a" }, { name.isEmpty() ? name : path(name), "b" } }),
             QString());

    QCOMPARE(logText(log), QByteArray("debug: File is error:file length is 0\n"));
    QCOMPARE(image(), QByteArray(784, '\0') + "abc");
}

void tst_UpgradeFile::cannotBeDeciphered()
{
    QVERIFY(storeEnciphered("first.dat", "abc"));
    QVERIFY(store("second.dat", "this is no enciphered file"));
    const LogRecorder log;

    QCOMPARE(made({ { path("first.dat"), "a" }, { path("second.dat"), "b" } }), QString());

    // Whatever the cipher library has to say comes before.
    QVERIFY2(logText(log).endsWith("debug: Decrypt file failed.\n"
                                   "debug: File is error:file length is 0\n"),
             logText(log).constData());
    QCOMPARE(fileNames(), QStringList({ "first.dat", "second.dat", "upgrade" }));
}

void tst_UpgradeFile::deciphersToNothing()
{
    QVERIFY(storeEnciphered("first.dat", "abc"));
    QVERIFY(storeEnciphered("second.dat", ""));
    const LogRecorder log;

    QCOMPARE(made({ { path("first.dat"), "a" }, { path("second.dat"), "b" } }), QString());

    QCOMPARE(logText(log), QByteArray("debug: File is error:file length is 0\n"));
    // The copy of the file that failed stays, that of the one before it is gone.
    QCOMPARE(fileNames(), QStringList({ "first.dat", "second.dat", "second.dat_dn", "upgrade" }));
}

void tst_UpgradeFile::folderInsteadOfFile()
{
    QVERIFY(QDir().mkpath(path("folder.bin/full")));
    QVERIFY(QFileInfo(path("folder.bin")).size() != 0);
    QVERIFY(store("first.bin", "abc"));
    const LogRecorder log;

    QCOMPARE(made({ { path("first.bin"), "a" }, { path("folder.bin"), "b" } }), QString());

    QCOMPARE(logText(log), "warning: Read file failed." + path("folder.bin").toUtf8() + "\n");
    QCOMPARE(image(), QByteArray(784, '\0') + "abc");
    QCOMPARE(fileNames(), QStringList({ "first.bin", "upgrade" }));
    QVERIFY(QFileInfo(path("folder.bin/full")).isDir());
}

void tst_UpgradeFile::unreadableFile()
{
    QVERIFY(store("first.bin", "abc"));
    QVERIFY(store("body.bin", "x"));
    QVERIFY(::chmod(QFile::encodeName(path("body.bin")).constData(), 0) == 0);
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));

    const QByteArray outcome = Unprivileged::run([this] {
        const LogRecorder log;
        const QString image = made({ { path("first.bin"), "a" }, { path("body.bin"), "b" } });
        return image.toUtf8() + '|' + logText(log);
    });

    QCOMPARE(outcome, "|warning: Read file failed." + path("body.bin").toUtf8() + "\n");
    QCOMPARE(image(), QByteArray(784, '\0') + "abc");
    QCOMPARE(fileNames(), QStringList({ "body.bin", "first.bin", "upgrade" }));
}

void tst_UpgradeFile::unreadablePlainCopy()
{
    QVERIFY(storeEnciphered("first.dat", "abc"));
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));
    QVERIFY(Unprivileged::own(QFile::encodeName(path("first.dat"))));

    const QByteArray outcome = Unprivileged::run([this] {
        const LogRecorder log;
        ::umask(0777);
        const QString image = made({ { path("first.dat"), "a" } });
        return image.toUtf8() + '|' + logText(log);
    });

    QCOMPARE(outcome, "|warning: Read file failed." + path("first.dat_dn").toUtf8() + "\n");
    QCOMPARE(fileNames(), QStringList({ "first.dat", "first.dat_dn", "upgrade" }));
}

void tst_UpgradeFile::fileShorterThanItsSize()
{
    // The kernel gives its attributes the size of a page, whatever stands in them.
    const QString shrunken = QStringLiteral("/sys/devices/system/cpu/online");
    if (QFileInfo(shrunken).size() < 1024)
        QSKIP("This system has no such file.");
    const LogRecorder log;

    QCOMPARE(made({ { shrunken, "a" } }), QString());

    QCOMPARE(logText(log), "warning: Read file failed." + shrunken.toUtf8() + "\n");
}

void tst_UpgradeFile::lengthsAreCutTo32Bits_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("imageSize");

    QTest::newRow("4 GiB and 10 bytes pass for 10") << Q_INT64_C(4294967306) << QByteArray() << 532;
    QTest::newRow("4 GiB pass for nothing")
        << Q_INT64_C(4294967296) << QByteArray("debug: File is error:file length is 0\n") << 0;
    QTest::newRow("2 GiB pass for less than nothing")
        << Q_INT64_C(2147483648) << QByteArray("warning: Read file failed.PATH\n") << 0;
}

void tst_UpgradeFile::lengthsAreCutTo32Bits()
{
    QFETCH(qint64, size);
    QFETCH(QByteArray, line);
    QVERIFY(store("body.bin", "abcdefghij"));
    QVERIFY(QFile::resize(path("body.bin"), size)); // sparse
    const LogRecorder log;

    made({ { path("body.bin"), "a" } });

    QCOMPARE(logText(log), line.replace("PATH", path("body.bin").toUtf8()));
    QTEST(image().size(), "imageSize");
}

void tst_UpgradeFile::fullDiskGoesUnnoticed()
{
    QVERIFY(store("body.bin", QByteArray(1000, 'x')));
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));

    // A process of its own, because the limit goes for all files of a process.
    const QByteArray outcome = Unprivileged::run([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit { 600, 600 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const LogRecorder log;
        const QString image = made({ { path("body.bin"), "a" } });
        return image.toUtf8() + '|' + logText(log);
    });

    QCOMPARE(outcome, imagePath().toUtf8() + '|');
    QCOMPARE(image().size(), 600);
    QCOMPARE(image().left(4),
             QByteArray("\xF0\x04\x00\x00", 4)); // 1264: what should have been there
}

namespace {

constexpr rlimit ShortFiles { 100, RLIM_INFINITY }; // bytes
constexpr rlimit FreeFiles { RLIM_INFINITY, RLIM_INFINITY };
volatile std::sig_atomic_t refusedWrites = 0;

// Called as the kernel refuses a write: first the body, then what does not fit of the header.
void makeRoomBehindTheHeader(int)
{
    refusedWrites = refusedWrites + 1;
    if (refusedWrites == 2)
        ::setrlimit(RLIMIT_FSIZE, &FreeFiles);
}

} // namespace

void tst_UpgradeFile::headerIsWrittenInPart()
{
    QVERIFY(store("body.bin", "xyz"));
    QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));

    // A process of its own, because the limit goes for all files of a process.
    const QByteArray outcome = Unprivileged::run([this] {
        ::signal(SIGXFSZ, &makeRoomBehindTheHeader);
        ::setrlimit(RLIMIT_FSIZE, &ShortFiles);
        return made({ { path("body.bin"), "/fw/a" } }).toUtf8();
    });

    QCOMPARE(outcome, imagePath().toUtf8());
    // What the disk took stands where it belongs: 0x5555 + body 363 + path 412 + offset 9 + length
    // 3 = 22632
    QCOMPARE(image().mid(256),
             QByteArray("/fw/a").leftJustified(256, '\0')
                 + QByteArray("\x08\x01\x00\x00\x03\x00\x00\x00", 8) + QByteArray(3, '\0')
                 + QByteArray("\x68\x58", 2));
    QCOMPARE(image().left(13),
             QByteArray("\x0B\x01\x00\x00\x00\x00\x00\x00\xA8\x01\x00\x01\x00", 13));
}

QTEST_APPLESS_MAIN(tst_UpgradeFile)
#include "tst_upgradefile.moc"
