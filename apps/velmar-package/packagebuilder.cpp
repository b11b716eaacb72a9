#include "packagebuilder.h"

#include "growingfolder.h"
#include "interruption.h"
#include "package/packagerules.h"
#include "packagexml.h"

#include <tzcryptrc2/convertfile.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>

namespace Velmar::Package {

namespace {

constexpr char IndexName[] = "PackageCfg.xml";
constexpr char DescriptionName[] = "DataPackage.xml";
constexpr char DataFilePathsName[] = "DataFilPathCfg.xml";
constexpr int CopiedAtOnce = 64 * 1024;

QString inFolder(const QString &folder, const QString &path)
{
    return folder + QLatin1Char('/') + path;
}

QString inFolder(const QString &folder, const char *name)
{
    return inFolder(folder, QLatin1String(name));
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

bool isInterrupted(QString &errorText)
{
    if (mayGoOn())
        return false;
    errorText = QStringLiteral("interrupted");
    return true;
}

// QFile::copy() cannot be interrupted.
bool copyFile(const QString &source, const QString &target, QString &errorText)
{
    QFile from(source);
    QFile to(target);
    if (!from.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        errorText = from.errorString();
        return false;
    }
    if (!to.open(QIODevice::NewOnly | QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        errorText = to.errorString();
        return false;
    }
    QByteArray chunk(CopiedAtOnce, Qt::Uninitialized);
    for (qint64 count = from.read(chunk.data(), chunk.size()); count != 0;
         count = from.read(chunk.data(), chunk.size())) {
        if (count < 0) {
            errorText = from.errorString();
            return false;
        }
        if (isInterrupted(errorText))
            return false;
        const qint64 written = to.write(chunk.constData(), count);
        if (written != count) {
            errorText = written < 0 ? to.errorString() : QStringLiteral("the disk is full");
            return false;
        }
    }
    if (to.setPermissions(from.permissions()))
        return true;
    errorText = to.errorString();
    return false;
}

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
    if (QFile::encodeName(place.fileName()).size() > NAME_MAX) {
        errorText = QStringLiteral("%1: %2").arg(target, qt_error_string(ENAMETOOLONG));
        return Result::TargetRefused;
    }
    // After the exchange it is the former package that is here; after a plain rename, nothing.
    GrowingFolder folder(place);
    folder.removeLeftovers();
    if (!folder.make()) {
        errorText = QStringLiteral("no folder can be made in %1").arg(place.absolutePath());
        return Result::TargetRefused;
    }
    const bool ok = fill(folder.path(), errorText) && !isInterrupted(errorText)
        && rename(folder.path(), place.filePath(), isThere ? RENAME_EXCHANGE : 0, errorText);
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
    if (Host::isEncipheredFile(path)) {
        const TZ::ConvertOutcome outcome = TZ::encipherFile(source, target, mayGoOn);
        if (outcome.result == TZ::ConvertOutcome::Result::Done)
            return true;
        errorText = QStringLiteral("%1 cannot be enciphered: %2").arg(source, outcome.cause);
        return false;
    }
    QString cause;
    if (copyFile(source, target, cause))
        return true;
    errorText = QStringLiteral("%1 cannot be copied: %2").arg(source, cause);
    return false;
}

} // namespace Velmar::Package
