#include "run/imagebuild.h"

#include "support/fakedevice.h"
#include "support/logrecorder.h"

#include <upgradeimage/imagereader.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr std::chrono::seconds Ample { 30 };

} // namespace

class tst_ImageBuild : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeDevice> m_device;
    std::unique_ptr<QTemporaryDir> m_package;
    std::unique_ptr<LogRecorder> m_log; // the library's causes, which other tests check

    UpgradeOrder order() const
    {
        Firmware::UpgradeCfg unit;
        unit.modelId = 0x7701;
        unit.files.append({ QStringLiteral("MCU"), m_package->filePath(QStringLiteral("mcu.bin")),
                            QStringLiteral("/firmware/mcu.bin"), 0 });
        ProtoModel::Auxiliary::s_CardInfoParts part;
        part.type = 1;
        part.modelId = 0x7701;
        part.section = { { 0x101 } };
        return { m_device->handle(), { part }, { unit }, {}, m_package->path() };
    }

    QStringList operations() const
    {
        QStringList names;
        const auto requests = m_device->link().requests();
        for (const BizModel::LinkRequest &request : requests)
            names.append(request.operation);
        return names;
    }

private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogRecorder>();
        m_device = std::make_unique<FakeDevice>(quint16(0x7701));
        m_device->link().answer(QStringLiteral("version.read"), ScriptedLink::accepted());
        m_package = std::make_unique<QTemporaryDir>();
        QFile file(m_package->filePath(QStringLiteral("mcu.bin")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("firmware"), qint64(8));
    }

    void cleanup()
    {
        m_package.reset();
        m_device.reset();
        m_log.reset();
    }

    void imageOfWhatWasChosen()
    {
        QString path;
        {
            ImageBuild build(order());
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
        ImageBuild build(order());
        QString errorText;
        QVERIFY2(build.run(Ample, errorText), qPrintable(errorText));
        QCOMPARE(operations(), QStringList("version.read"));
        QVERIFY(m_device->link().isOpen());
    }

    void nothingToBuildFrom()
    {
        QVERIFY(QFile::remove(m_package->filePath(QStringLiteral("mcu.bin"))));
        ImageBuild build(order());
        QString errorText;
        QVERIFY(!build.run(Ample, errorText));
        QCOMPARE(errorText, QStringLiteral("Failed to recombine upgrade file"));
    }
};

QTEST_GUILESS_MAIN(tst_ImageBuild)
#include "tst_imagebuild.moc"
