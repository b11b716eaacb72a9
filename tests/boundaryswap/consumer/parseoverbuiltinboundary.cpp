#include "package.h"

#include <QCoreApplication>

// Parses a package for a model of the built-in catalogue.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    Package package;
    const bool isWritten =
        package.addFile(QStringLiteral("PackageCfg.xml"), "<units><string>s8</string></units>")
        && package.addFile(QStringLiteral("s8/unit.xml"),
                           "<DataPackage ModuleID=\"0x7701\" StepType=\"0\">"
                           "<FileInfo FileLabel=\"MCU\" FileName=\"mcu.bin\"/>"
                           "<FileInfo FileLabel=\"Unknown\" FileName=\"mcu.bin\"/>"
                           "</DataPackage>")
        && package.addFile(QStringLiteral("s8/mcu.bin"), "firmware");
    if (!isWritten)
        return 1;

    Velmar::Firmware::UpgradeFileParsed parser(package.path(), false, true, 0x7701, 0);
    if (!package.parse(parser))
        return 1;
    const QVector<QPair<int, QString>> expected { { 0x7701, QStringLiteral("MCU") } };
    if (package.sections != expected) {
        std::fprintf(stderr, "other sections fit than expected\n");
        return 1;
    }
    return 0;
}
