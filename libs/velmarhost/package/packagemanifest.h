#ifndef VELMARHOST_PACKAGEMANIFEST_H
#define VELMARHOST_PACKAGEMANIFEST_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <vector>

namespace Velmar::Host {

/*! One file of a package folder. */
struct PackageFile {
    QString path; //!< relative to the package, with "/" between names
    qint64 size = 0; //!< bytes
    QByteArray sha256; //!< 32 bytes
};

/*! What a package folder holds, by content. Copies share nothing that changes: any thread. */
class PackageManifest
{
public:
    PackageManifest() = default;

    /*! In any order; no path twice. */
    PackageManifest(std::vector<PackageFile> files, QStringList folders);

    /*! Sorted by the bytes of the paths in UTF-8. */
    const std::vector<PackageFile> &files() const;

    /*! All folders below the package, empty ones too, sorted in the same way. */
    const QStringList &folders() const;

    /*! The file at \a path, relative to the package; a null pointer if there is none. Valid as
        long as the manifest is. */
    const PackageFile *find(const QString &path) const;

    qint64 totalSize() const; //!< bytes of all files

    /*!
        SHA-256, 32 bytes, that tells one package from another. It is taken over, for each folder,
        "D", its path and a zero byte; then for each file "F", its path, a zero byte, its size in
        decimal, a zero byte and its own SHA-256. Paths are in UTF-8.
    */
    QByteArray digest() const;

private:
    std::vector<PackageFile> m_files;
    QStringList m_folders;
    QHash<QString, std::size_t> m_index; // places in m_files by path
};

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGEMANIFEST_H
