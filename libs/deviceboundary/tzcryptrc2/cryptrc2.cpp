#include <tzcryptrc2/cryptrc2.h>

#include "conversiontarget.h"

#include <tzcryptrc2/convertfile.h>

#include <QDebug>
#include <QFile>
#include <QFileInfo>

namespace {

using namespace TZ;

// A link at the place of the target is itself removed: a package from elsewhere must not choose,
// by a link in it, the file that is written.
bool removeFormer(const QString &target, QString &cause)
{
    const QFileInfo former(target);
    if (!former.isSymLink() && !former.exists())
        return true;
    QFile file(target);
    if (file.remove())
        return true;
    cause = file.errorString();
    return false;
}

bool convert(const QString &source, const QString &target, CRYPTTYPE type, QString &cause)
{
    cause = Internal::conversionTargetFault(source, target);
    if (!cause.isEmpty() || !removeFormer(target, cause))
        return false;
    const ConvertOutcome outcome =
        type == CRYPTTYPE_ENCRYPT ? encipherFile(source, target) : decipherFile(source, target);
    cause = outcome.cause;
    return outcome.result == ConvertOutcome::Result::Done;
}

} // namespace

CryptRc2::CryptRc2() = default;

bool CryptRc2::ReadFileToEncryptOrDecrypt(QString source, QString target, CRYPTSTYLE style,
                                          CRYPTTYPE type)
{
    QString cause;
    if (style != CRYPTSTYLE_FILE || (type != CRYPTTYPE_ENCRYPT && type != CRYPTTYPE_DECRYPT))
        cause = QStringLiteral("Unknown style %1 or type %2.").arg(int(style)).arg(int(type));
    else if (convert(source, target, type, cause))
        return true;
    qWarning().noquote() << QStringLiteral("Failed to %1 %2: %3")
                                .arg(type == CRYPTTYPE_ENCRYPT ? QStringLiteral("encipher")
                                                               : QStringLiteral("decipher"),
                                     source, cause);
    return false;
}
