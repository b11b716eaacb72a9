#include "packagebuilder.h"

#include "packagexml.h"

#include <tzcryptrc2/cryptrc2.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>

namespace Velmar::Package {

namespace {

constexpr char IndexName[] = "PackageCfg.xml";
constexpr char DescriptionName[] = "DataPackage.xml";
constexpr char DataFilePathsName[] = "DataFilPathCfg.xml";

QString inFolder(const QString &folder, const QString &path)
{
    return folder + QLatin1Char('/') + path;
}

QString inFolder(const QString &folder, const char *name)
{
    return inFolder(folder, QLatin1String(name));
}

// Makes a new folder beside target and returns its path; empty if that fails.
QString makeFolderBeside(const QFileInfo &target)
{
    constexpr int Attempts = 100;
    for (int i = 0; i < Attempts; ++i) {
        const QString suffix = QString::number(QRandomGenerator::system()->generate(), 16);
        const QString path =
            QStringLiteral("%1/.%2.%3").arg(target.absolutePath(), target.fileName(), suffix);
        if (QDir().mkdir(path))
            return path;
    }
    return QString();
}

// With RENAME_EXCHANGE both paths are there and change their places, in one step; with 0, \a to is
// not there. QDir would copy where it cannot rename, and that is many steps.
bool rename(const QString &from, const QString &to, unsigned flags, QString &errorText)
{
    if (renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD,
                  QFile::encodeName(to).constData(), flags)
        == 0)
        return true;
    errorText = QStringLiteral("%1: %2").arg(to, QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}

bool isReplaceable(const QFileInfo &target)
{
    return target.isDir() && !target.isSymLink()
        && (QFileInfo::exists(inFolder(target.filePath(), IndexName))
            || QDir(target.filePath()).isEmpty());
}

/*! Removes a folder with all that is in it by then. */
class FolderRemover {
public:
    explicit FolderRemover(const QString &path)
        : m_path(path)
    {
    }
    ~FolderRemover() { QDir(m_path).removeRecursively(); }
    Q_DISABLE_COPY(FolderRemover)

private:
    const QString m_path;
};

} // namespace

PackageBuilder::PackageBuilder(const PackageManifest &manifest)
    : m_manifest(manifest)
{
}

PackageBuilder::Result PackageBuilder::build(const QString &target, bool replace,
                                             QString &errorText)
{
    const QFileInfo place(QDir::cleanPath(QFileInfo(target).absoluteFilePath()));
    const bool isThere = place.exists() || place.isSymLink();
    if (isThere && !replace) {
        errorText = QStringLiteral("%1 is there already").arg(target);
        return Result::TargetRefused;
    }
    if (isThere && !isReplaceable(place)) {
        errorText = QStringLiteral("%1 is no package and will not be replaced").arg(target);
        return Result::TargetRefused;
    }
    if (isThere
        && inFolder(QFileInfo(m_manifest.plainFolder).canonicalFilePath(), "")
               .startsWith(inFolder(place.canonicalFilePath(), ""))) {
        errorText = QStringLiteral("%1 holds the manifest and will not be replaced").arg(target);
        return Result::TargetRefused;
    }
    const QString folder = makeFolderBeside(place);
    if (folder.isEmpty()) {
        errorText = QStringLiteral("no folder can be made in %1").arg(place.absolutePath());
        return Result::TargetRefused;
    }
    // After the exchange it is the former package that is here; after a plain rename, nothing.
    const FolderRemover remover(folder);
    const bool ok = fill(folder, errorText)
        && rename(folder, place.filePath(), isThere ? RENAME_EXCHANGE : 0, errorText);
    return ok ? Result::Done : Result::Failed;
}

bool PackageBuilder::fill(const QString &folder, QString &errorText) const
{
    if (!writePackageIndex(inFolder(folder, IndexName), m_manifest, errorText)
        || !writeDataFilePaths(inFolder(folder, DataFilePathsName), m_manifest, errorText))
        return false;
    for (const ManifestUnit &unit : m_manifest.units) {
        for (const ManifestFile &file : unit.files) {
            if (!bringFile(folder, inFolder(unit.folder, file.fileName), errorText))
                return false;
        }
        if (!writeUnitDescription(inFolder(inFolder(folder, unit.folder), DescriptionName), unit,
                                  errorText))
            return false;
    }
    for (const ManifestDataFile &file : m_manifest.dataFiles) {
        if (!bringFile(folder, file.path, errorText))
            return false;
    }
    return true;
}

bool PackageBuilder::bringFile(const QString &folder, const QString &path, QString &errorText) const
{
    const QString source = inFolder(m_manifest.plainFolder, path);
    const QString target = inFolder(folder, path);
    if (!QDir().mkpath(QFileInfo(target).path())) {
        errorText = QStringLiteral("the folder for %1 cannot be made").arg(target);
        return false;
    }
    if (isEncipheredFile(path)) {
        if (CryptRc2().ReadFileToEncryptOrDecrypt(source, target, CRYPTSTYLE_FILE,
                                                  CRYPTTYPE_ENCRYPT))
            return true;
        errorText = QStringLiteral("%1 cannot be enciphered").arg(source);
        return false;
    }
    QFile file(source);
    if (file.copy(target))
        return true;
    errorText = QStringLiteral("%1 cannot be copied: %2").arg(source, file.errorString());
    return false;
}

} // namespace Velmar::Package
