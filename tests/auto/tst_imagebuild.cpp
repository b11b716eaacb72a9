#include "run/imagebuild.h"

#include "support/mcuupgrade.h"

#include <upgradeimage/imagereader.h>

#include <QFile>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr std::chrono::seconds Ample { 30 };

} // namespace

class tst_ImageBuild : public QObject
{
    Q_OBJECT

    std::unique_ptr<McuUpgrade> m_upgrade;

private Q_SLOTS:
    void init()
    {
        m_upgrade = std::make_unique<McuUpgrade>();
        QVERIFY(m_upgrade->isReady());
    }
    void cleanup() { m_upgrade.reset(); }

    void imageOfWhatWasChosen()
    {
        QString path;
        {
            ImageBuild build(m_upgrade->order());
            QString errorText;
            QVERIFY2(build.run(Ample, errorText), qPrintable(errorText));
            path = build.imagePath();
            QFile image(path);
            QVERIFY(image.open(QIODevice::ReadOnly));
            QCOMPARE(image.size(), qint64(256 + 264 + 8 + 2));
            QString fault;
            QVERIFY2(UpgradeImage::ImageReader(image).check(fault), qPrintable(fault));
        }
        QVERIFY(!QFile::exists(path)); // goes with the build
    }

    // Not even the restart, with which the library ends a run, reaches it.
    void deviceIsAskedForItsVersionAlone()
    {
        ImageBuild build(m_upgrade->order());
        QString errorText;
        QVERIFY2(build.run(Ample, errorText), qPrintable(errorText));
        QCOMPARE(m_upgrade->link().operations(), QStringList("version.read"));
        QVERIFY(m_upgrade->link().isOpen());
    }

    void nothingToBuildFrom()
    {
        QVERIFY(QFile::remove(m_upgrade->filePath()));
        ImageBuild build(m_upgrade->order());
        QString errorText;
        QVERIFY(!build.run(Ample, errorText));
        QCOMPARE(errorText, QStringLiteral("Failed to recombine upgrade file"));
    }
};

QTEST_GUILESS_MAIN(tst_ImageBuild)
#include "tst_imagebuild.moc"
