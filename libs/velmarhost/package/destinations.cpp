#include "package/destinations.h"

#include <QStringList>

namespace Velmar::Host {

namespace {

QString placeOf(const QString &path)
{
    QStringList names = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    names.removeAll(QStringLiteral("."));
    return names.join(QLatin1Char('/'));
}

} // namespace

QString Destinations::clash(const QString &path) const
{
    const QString place = placeOf(path);
    if (place.isEmpty())
        return QStringLiteral("names no file");
    if (m_files.contains(place))
        return QStringLiteral("is the same place as %1").arg(m_files.value(place));
    if (m_folders.contains(place))
        return QStringLiteral("is a folder for %1").arg(m_folders.value(place));
    for (int slash = place.lastIndexOf(QLatin1Char('/')); slash > 0;
         slash = place.lastIndexOf(QLatin1Char('/'), slash - 1)) {
        const QString folder = place.left(slash);
        if (m_folders.contains(folder))
            break; // and so are those above it
        if (m_files.contains(folder))
            return QStringLiteral("lies below %1, which is a file").arg(m_files.value(folder));
    }
    return QString();
}

QString Destinations::add(const QString &path, const QString &where)
{
    const QString fault = clash(path);
    if (!fault.isEmpty())
        return fault;
    const QString place = placeOf(path);
    for (int slash = place.lastIndexOf(QLatin1Char('/')); slash > 0;
         slash = place.lastIndexOf(QLatin1Char('/'), slash - 1)) {
        const QString folder = place.left(slash);
        if (m_folders.contains(folder))
            break;
        m_folders.insert(folder, where);
    }
    m_files.insert(place, where);
    return QString();
}

} // namespace Velmar::Host
