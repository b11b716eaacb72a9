#include "descriptionname.h"

#include <QDir>
#include <QDirIterator>

#include <algorithm>

namespace Velmar::Firmware::Internal {

namespace {

bool isDescription(const QString &name)
{
    return name.endsWith(QLatin1String(".xml"));
}

} // namespace

QString descriptionName(const QString &folder)
{
    QString first;
    QString firstKey;
    bool isAlone = true;
    // Sorting all entries takes as long as listing them.
    QDirIterator entries(folder, QDir::AllEntries);
    while (entries.hasNext()) {
        entries.next();
        const QString name = entries.fileName();
        if (!isDescription(name))
            continue;
        const QString key = name.toLower();
        const int order = first.isNull() ? -1 : key.compare(firstKey);
        if (order == 0)
            isAlone = false;
        if (order >= 0)
            continue;
        first = name;
        firstKey = key;
        isAlone = true;
    }
    if (isAlone)
        return first;
    // Among names that differ in case alone only the listing's own order decides.
    const QStringList sorted = QDir(folder).entryList();
    const auto entry = std::find_if(sorted.begin(), sorted.end(), isDescription);
    return entry == sorted.end() ? QString() : *entry;
}

} // namespace Velmar::Firmware::Internal
