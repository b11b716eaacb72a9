#include <tzcryptrc2/cryptrc2.h>

#include "encipheredfile.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

namespace {

using namespace TZ;
using namespace TZ::Internal;

Rc2Cbc::Block randomInitialVector()
{
    Rc2Cbc::Block block;
    QRandomGenerator::system()->generate(block.begin(), block.end());
    return block;
}

bool isSameFile(const QString &source, const QString &target)
{
    const QString sourceFile = QFileInfo(source).canonicalFilePath();
    return !sourceFile.isEmpty() && sourceFile == QFileInfo(target).canonicalFilePath();
}

// A link at the place of the target is itself removed: a package from elsewhere must not choose,
// by a link in it, the file that is written.
bool removeFormer(const QString &target, QString &cause)
{
    const QFileInfo former(target);
    if (!former.isSymLink() && !former.exists())
        return true;
    if (!former.isSymLink() && !former.isFile()) {
        cause = QStringLiteral("The target is there and not a file.");
        return false;
    }
    QFile file(target);
    if (file.remove())
        return true;
    cause = file.errorString();
    return false;
}

bool convert(const QString &source, const QString &target, CRYPTTYPE type, QString &cause)
{
    if (isSameFile(source, target)) {
        cause = QStringLiteral("Source and target are the same file.");
        return false;
    }
    if (!removeFormer(target, cause))
        return false;
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(source).isFile()) {
        cause = QStringLiteral("There is no such file.");
        return false;
    }
    QFile sourceFile(source);
    if (!sourceFile.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        cause = sourceFile.errorString();
        return false;
    }
    QFile targetFile(target);
    if (!targetFile.open(QIODevice::NewOnly | QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        cause = QStringLiteral("%1: %2").arg(target, targetFile.errorString());
        return false;
    }
    const CryptKey key = cryptKey();
    const bool ok = type == CRYPTTYPE_ENCRYPT
        ? EncipheredFile::encipher(sourceFile, targetFile, key, randomInitialVector(), cause)
        : EncipheredFile::decipher(sourceFile, targetFile, key, cause);
    if (!ok)
        targetFile.remove();
    return ok;
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
