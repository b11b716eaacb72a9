#include "datafilepathconfig.h"

#include "singletonslot.h"
#include "xmldocument.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>

namespace Velmar::Firmware {

namespace {

Internal::SingletonSlot<DataFilePathConfig> s_slot;

} // namespace

DataFilePathConfig::DataFilePathConfig(QObject *parent)
    : QObject(parent)
{
}

DataFilePathConfig::~DataFilePathConfig() = default;

DataFilePathConfig *DataFilePathConfig::instance()
{
    return s_slot.instance();
}

void DataFilePathConfig::destroyInstance()
{
    s_slot.destroyInstance();
}

bool DataFilePathConfig::readConfig(const QString &path, QVector<DataFilePath> &paths,
                                    QString &errorText)
{
    if (path.isEmpty()) {
        errorText = tr("Invalid file path!\n%1").arg(path);
        return false;
    }
    QFile file(path);
    // A pipe would keep the reader waiting.
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly)) {
        errorText = tr("Fail to open file [%1]!").arg(path);
        return false;
    }
    QDomDocument document;
    if (!Internal::parseXml(file, true, document, errorText)) {
        errorText = tr("Parse error :%1").arg(errorText);
        return false;
    }
    const QDomElement root = document.documentElement();
    if (root.tagName() != QLatin1String("Velmar")) {
        errorText = tr("The file is not a valid configuration file for device.");
        return false;
    }
    for (QDomElement entry = root.firstChildElement(); !entry.isNull();
         entry = entry.nextSiblingElement()) {
        // Repeats the loop's own condition and so never fires: it keeps the body safe, and its text
        // known to the translators, should the loop's condition ever change.
        if (entry.isNull()) {
            errorText = tr("parse error.");
            return false;
        }
        DataFilePath filePath;
        const QDomElement source = entry.firstChildElement(QStringLiteral("SrcPath"));
        if (source.isNull()) {
            errorText = tr("src path is null.");
            return false;
        }
        filePath.sourcePath = source.text();
        const QDomElement target = entry.firstChildElement(QStringLiteral("DestPath"));
        if (target.isNull()) {
            errorText = tr("dest path is null.");
            return false;
        }
        filePath.targetPath = target.text();
        paths.append(filePath);
    }
    return true;
}

} // namespace Velmar::Firmware
