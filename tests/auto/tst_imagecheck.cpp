#include "package/imagecheck.h"
#include "package/plan.h"

#include "support/imagebuilder.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Velmar::Host;

namespace {

PlannedFile planned(const QString &file, const QString &target, qint64 size)
{
    PlannedFile record;
    record.file = file;
    record.target = target;
    record.size = size;
    return record;
}

Plan examplePlan()
{
    Plan plan;
    plan.device.modelId = 0x7701;
    plan.files = { planned("main/MCU.dat", "/fw/mcu", 64), planned("main/kernel", "/fw/kernel", 6),
                   planned("main/font12.dat", "/fw/font", 5) };
    return plan;
}

} // namespace

class tst_ImageCheck : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;

    QString stored(const QByteArray &image) const
    {
        const QString path = m_folder.filePath("upgrade");
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(image) == image.size() ? path
                                                                                    : QString();
    }

    static ImageBuilder exampleImage()
    {
        ImageBuilder image;
        image.files = { { "/fw/mcu", QByteArray(15, 'm') },
                        { "/fw/kernel", "kernel" },
                        { "/fw/font", "fonts" } };
        return image;
    }

    QString fault(const ImageBuilder &image, const Plan &plan) const
    {
        QString errorText;
        const bool isGood = checkImage(stored(image.build()), plan, errorText);
        return isGood == errorText.isEmpty() ? errorText : QStringLiteral("contradiction");
    }

private Q_SLOTS:
    void asPlanned() { QCOMPARE(fault(exampleImage(), examplePlan()), QString()); }

    // 64 bytes: 48 around them, and 1 to 8 of padding.
    void lengthsOfAnEncipheredFile_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("isPossible");
        QTest::newRow("7") << 7 << false;
        QTest::newRow("8") << 8 << true;
        QTest::newRow("15") << 15 << true;
        QTest::newRow("16") << 16 << false;
    }
    void lengthsOfAnEncipheredFile()
    {
        QFETCH(int, length);
        auto image = exampleImage();
        image.files[0].second = QByteArray(length, 'm');
        QTEST(fault(image, examplePlan()).isEmpty(), "isPossible");
    }

    void differences_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("model") << "model"
                               << "it is for model 0x7702 and not for 0x7701";
        QTest::newRow("target") << "target"
                                << "it has \"/fw/other\" in the place of \"/fw/kernel\"";
        QTest::newRow("order") << "order"
                               << "it has \"/fw/font\" in the place of \"/fw/kernel\"";
        QTest::newRow("too long") << "longer"
                                  << "it has 7 bytes for \"/fw/kernel\", which main/kernel with 6 "
                                     "bytes cannot have";
        QTest::newRow("plain in spite of its name")
            << "font"
            << "it has 4 bytes for \"/fw/font\", which main/font12.dat with 5 bytes cannot have";
        QTest::newRow("one more") << "more"
                                  << "it holds \"/fw/more\", which is not planned";
        QTest::newRow("one less") << "less"
                                  << "it lacks \"/fw/font\"";
    }
    void differences()
    {
        QFETCH(QString, change);
        QFETCH(QString, errorText);
        auto image = exampleImage();
        if (change == QLatin1String("model"))
            image.modelId = 0x7702;
        else if (change == QLatin1String("target"))
            image.files[1].first = "/fw/other";
        else if (change == QLatin1String("order"))
            std::swap(image.files[1], image.files[2]);
        else if (change == QLatin1String("longer"))
            image.files[1].second += 'x';
        else if (change == QLatin1String("font"))
            image.files[2].second.chop(1);
        else if (change == QLatin1String("more"))
            image.files.append(qMakePair(QByteArray("/fw/more"), QByteArray("more")));
        else
            image.files.removeLast();
        QCOMPARE(fault(image, examplePlan()), "The image is not as planned: " + errorText);
    }

    void unsoundImage()
    {
        auto image = exampleImage().build();
        image[image.size() - 1] = char(image.at(image.size() - 1) + 1);
        QString errorText;
        QVERIFY(!checkImage(stored(image), examplePlan(), errorText));
        QVERIFY2(errorText.startsWith("The image is not as planned: "), qPrintable(errorText));
    }

    void sumLeftToSender()
    {
        auto image = exampleImage().build();
        image[image.size() - 1] = char(image.at(image.size() - 1) + 1);
        QString errorText;
        QVERIFY2(checkImage(stored(image), examplePlan(), errorText, ImageSum::LeftToSender),
                 qPrintable(errorText));
    }

    // Whoever adds up the bytes, the rest of the image is looked at.
    void faultsBesideTheSum_data()
    {
        QTest::addColumn<QByteArray>("image");
        QTest::addColumn<QString>("errorText");

        const QByteArray image = exampleImage().build();
        QTest::newRow("cut off") << image.left(100)
                                 << "the file has 100 bytes, an image at least 258";
        auto marked = image;
        marked[8] = '\0';
        QTest::newRow("mark") << marked << "byte 8 of the header is 0x00 instead of 0xa8";
        auto shifted = image;
        shifted[512] = char(shifted.at(512) + 1);
        QTest::newRow("offset") << shifted << "record 0: its body is at offset 793 instead of 792";
        auto renamed = image;
        renamed[256] = 'x';
        QTest::newRow("target") << renamed << "it has \"xfw/mcu\" in the place of \"/fw/mcu\"";
    }
    void faultsBesideTheSum()
    {
        QFETCH(QByteArray, image);
        QFETCH(QString, errorText);
        QString told;
        QVERIFY(!checkImage(stored(image), examplePlan(), told, ImageSum::LeftToSender));
        QCOMPARE(told, "The image is not as planned: " + errorText);
    }

    void noImage()
    {
        QString errorText;
        QVERIFY(!checkImage(m_folder.filePath("none"), examplePlan(), errorText));
        QVERIFY2(errorText.startsWith("The image cannot be read: "), qPrintable(errorText));
    }
};

QTEST_APPLESS_MAIN(tst_ImageCheck)
#include "tst_imagecheck.moc"
