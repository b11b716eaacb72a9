#include "packagexml.h"

#include <QFile>
#include <QXmlStreamWriter>

#include <functional>

namespace Velmar::Package {

namespace {

bool writeXml(const QString &path, const std::function<void(QXmlStreamWriter &)> &writeRoot,
              QString &errorText)
{
    QFile file(path);
    if (file.open(QIODevice::NewOnly | QIODevice::WriteOnly)) {
        QXmlStreamWriter xml(&file);
        xml.setAutoFormatting(true);
        xml.writeStartDocument();
        writeRoot(xml);
        xml.writeEndDocument();
        if (!xml.hasError() && file.flush())
            return true;
    }
    errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
    return false;
}

void writeAttributes(QXmlStreamWriter &xml, const QVector<XmlAttribute> &attributes)
{
    for (const XmlAttribute &attribute : attributes)
        xml.writeAttribute(attribute.name, attribute.value);
}

void writeCommands(QXmlStreamWriter &xml, const QVector<ManifestCommand> &commands)
{
    for (const ManifestCommand &command : commands) {
        xml.writeEmptyElement(QStringLiteral("CommandConfig"));
        writeAttributes(xml, command.attributes);
    }
}

void writeCommandList(QXmlStreamWriter &xml, const QString &name,
                      const QVector<ManifestCommand> &commands)
{
    if (commands.isEmpty())
        return;
    xml.writeStartElement(name);
    writeCommands(xml, commands);
    xml.writeEndElement();
}

void writeTargets(QXmlStreamWriter &xml, const QString &sourcePath, const QStringList &targetPaths)
{
    for (const QString &targetPath : targetPaths) {
        xml.writeStartElement(QStringLiteral("File"));
        xml.writeTextElement(QStringLiteral("SrcPath"), sourcePath);
        xml.writeTextElement(QStringLiteral("DestPath"), targetPath);
        xml.writeEndElement();
    }
}

} // namespace

bool writePackageIndex(const QString &path, const PackageManifest &manifest, QString &errorText)
{
    return writeXml(
        path,
        [&manifest](QXmlStreamWriter &xml) {
            xml.writeStartElement(QStringLiteral("PackageCfg"));
            for (const ManifestUnit &unit : manifest.units)
                xml.writeTextElement(QStringLiteral("string"), unit.folder);
            xml.writeEndElement();
        },
        errorText);
}

bool writeUnitDescription(const QString &path, const ManifestUnit &unit, QString &errorText)
{
    return writeXml(
        path,
        [&unit](QXmlStreamWriter &xml) {
            xml.writeStartElement(QStringLiteral("DataPackage"));
            writeAttributes(xml, unit.attributes);
            writeCommandList(xml, QStringLiteral("EndSendCmd"), unit.endSendCommands);
            writeCommandList(xml, QStringLiteral("BeforeStartCmd"), unit.beforeStartCommands);
            for (const ManifestFile &file : unit.files) {
                xml.writeStartElement(QStringLiteral("FileInfo"));
                writeAttributes(xml, file.attributes);
                writeCommands(xml, file.commands);
                xml.writeEndElement();
            }
            xml.writeEndElement();
        },
        errorText);
}

bool writeDataFilePaths(const QString &path, const PackageManifest &manifest, QString &errorText)
{
    return writeXml(
        path,
        [&manifest](QXmlStreamWriter &xml) {
            xml.writeStartElement(QStringLiteral("Velmar"));
            for (const ManifestUnit &unit : manifest.units) {
                for (const ManifestFile &file : unit.files)
                    writeTargets(xml, unit.folder + QLatin1Char('/') + file.fileName,
                                 file.targetPaths);
            }
            for (const ManifestDataFile &file : manifest.dataFiles)
                writeTargets(xml, file.path, file.targetPaths);
            xml.writeEndElement();
        },
        errorText);
}

} // namespace Velmar::Package
