#include "package/packagemanifest.h"

#include "package/sha256.h"

#include <algorithm>
#include <utility>

namespace Velmar::Host {

PackageManifest::PackageManifest(std::vector<PackageFile> files, QStringList folders)
{
    std::vector<std::pair<QByteArray, std::size_t>> order;
    order.reserve(files.size());
    for (std::size_t i = 0; i < files.size(); ++i)
        order.emplace_back(files[i].path.toUtf8(), i);
    std::sort(order.begin(), order.end());
    m_files.reserve(files.size());
    m_index.reserve(int(files.size()));
    for (const auto &[bytes, place] : order) {
        m_index.insert(files[place].path, m_files.size());
        m_files.push_back(std::move(files[place]));
    }

    std::vector<QByteArray> names;
    names.reserve(std::size_t(folders.size()));
    for (const auto &folder : folders)
        names.push_back(folder.toUtf8());
    std::sort(names.begin(), names.end());
    m_folders.reserve(folders.size());
    for (const auto &name : names)
        m_folders.append(QString::fromUtf8(name));
}

const std::vector<PackageFile> &PackageManifest::files() const
{
    return m_files;
}

const QStringList &PackageManifest::folders() const
{
    return m_folders;
}

const PackageFile *PackageManifest::find(const QString &path) const
{
    const auto place = m_index.constFind(path);
    return place == m_index.constEnd() ? nullptr : &m_files[*place];
}

qint64 PackageManifest::totalSize() const
{
    qint64 total = 0;
    for (const auto &file : m_files)
        total += file.size;
    return total;
}

QByteArray PackageManifest::digest() const
{
    Sha256 hash;
    for (const auto &folder : m_folders)
        hash.add("D" + folder.toUtf8() + '\0');
    for (const auto &file : m_files)
        hash.add("F" + file.path.toUtf8() + '\0' + QByteArray::number(file.size) + '\0'
                 + file.sha256);
    return hash.result();
}

} // namespace Velmar::Host
