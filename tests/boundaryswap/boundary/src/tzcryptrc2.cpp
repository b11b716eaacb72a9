#include <tinyboundary/calls.h>
#include <tzcryptrc2/cryptrc2.h>

#include <QFile>

#include <algorithm>

CryptRc2::CryptRc2() = default;

// This maker's cipher turns the bytes of a file about.
bool CryptRc2::ReadFileToEncryptOrDecrypt(QString source, QString target, CRYPTSTYLE style,
                                          CRYPTTYPE type)
{
    TinyBoundary::note(QStringLiteral("ReadFileToEncryptOrDecrypt %1 %2").arg(style).arg(type));
    QFile from(source);
    QFile to(target);
    if (!from.open(QIODevice::ReadOnly) || !to.open(QIODevice::WriteOnly))
        return false;
    QByteArray bytes = from.readAll();
    std::reverse(bytes.begin(), bytes.end());
    return to.write(bytes) == bytes.size();
}
