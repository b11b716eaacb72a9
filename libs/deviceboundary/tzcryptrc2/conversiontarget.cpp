#include "conversiontarget.h"

#include <QFileInfo>

namespace TZ::Internal {

QString conversionTargetFault(const QString &source, const QString &target)
{
    const QFileInfo former(target);
    const QString sourceFile = QFileInfo(source).canonicalFilePath();
    if (!sourceFile.isEmpty() && sourceFile == former.canonicalFilePath())
        return QStringLiteral("Source and target are the same file.");
    if (!former.isSymLink() && former.exists() && !former.isFile())
        return QStringLiteral("The target is there and not a file.");
    return QString();
}

} // namespace TZ::Internal
