#ifndef TESTS_SUPPORT_PACKAGEBUILDER_H
#define TESTS_SUPPORT_PACKAGEBUILDER_H

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

/*! An upgrade package in a temporary folder, which goes with this object. */
class PackageBuilder
{
public:
    QString path() const { return m_folder.path(); }
    QString path(const QString &name) const { return m_folder.filePath(name); }

    /*! Writes a file of the package, with the folders on the way to it. */
    bool file(const QString &name, const QByteArray &content = QByteArray("content")) const
    {
        QFile file(path(name));
        return QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly)
            && file.write(content) == content.size();
    }

    /*! Writes the index, with one entry for each of \a units. */
    bool index(const QStringList &units) const
    {
        QByteArray xml("<Package>\n");
        for (const QString &unit : units)
            xml += "  <string>" + unit.toHtmlEscaped().toUtf8() + "</string>\n";
        return file(QStringLiteral("PackageCfg.xml"), xml + "</Package>\n");
    }

    /*! Writes a unit's description: \a attributes of the unit, \a content within it. */
    bool unit(const QString &folder, const QByteArray &attributes, const QByteArray &content) const
    {
        return file(folder + QStringLiteral("/unit.xml"),
                    "<DataPackage " + attributes + ">" + content + "</DataPackage>");
    }

    /*! Writes the path file, with one entry for each pair of a source and a target. */
    bool paths(const QVector<QPair<QString, QString>> &entries) const
    {
        QByteArray xml("<Velmar>\n");
        for (const auto &[source, target] : entries)
            xml += "  <File><SrcPath>" + source.toHtmlEscaped().toUtf8() + "</SrcPath><DestPath>"
                + target.toHtmlEscaped().toUtf8() + "</DestPath></File>\n";
        return file(QStringLiteral("DataFilPathCfg.xml"), xml + "</Velmar>\n");
    }

private:
    QTemporaryDir m_folder;
};

#endif // TESTS_SUPPORT_PACKAGEBUILDER_H
