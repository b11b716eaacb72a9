#include <tzcryptrc2/cryptkey.h>

#include <QFile>
#include <QMutex>
#include <QMutexLocker>

#include <cstring>

namespace TZ {

namespace {

constexpr int MaxKeyBytes = 128;
constexpr int MaxEffectiveBits = 1024;
constexpr qint64 MaxKeyFileSize = 4096;

struct ProcessKey {
    QMutex lock; // guards key
    CryptKey key = demonstrationCryptKey();
};

ProcessKey &processKey()
{
    // Never destroyed: a worker thread may still decipher while the process ends.
    static ProcessKey *const instance = new ProcessKey;
    return *instance;
}

bool isValid(const CryptKey &key)
{
    return !key.bytes.isEmpty() && key.bytes.size() <= MaxKeyBytes && key.effectiveBits >= 1
        && key.effectiveBits <= MaxEffectiveBits;
}

bool isMadeOf(const QByteArray &text, const char *characters)
{
    return std::strspn(text.constData(), characters) == std::size_t(text.size());
}

// Empty if the entry was taken, otherwise what is wrong with it.
QString readEntry(const QByteArray &name, const QByteArray &value, CryptKey &key)
{
    if (name == "key") {
        if (!key.bytes.isEmpty())
            return QStringLiteral("the key is given twice");
        if (value.isEmpty() || value.size() % 2 != 0 || value.size() > 2 * MaxKeyBytes
            || !isMadeOf(value, "0123456789abcdefABCDEF"))
            return QStringLiteral("a key is 1 to %1 bytes, each of two hexadecimal digits")
                .arg(MaxKeyBytes);
        key.bytes = QByteArray::fromHex(value);
        return QString();
    }
    if (name == "effective-bits") {
        if (key.effectiveBits != 0)
            return QStringLiteral("the effective bits are given twice");
        // toInt() would take signs, too.
        key.effectiveBits = isMadeOf(value, "0123456789") ? value.toInt() : 0;
        if (key.effectiveBits < 1 || key.effectiveBits > MaxEffectiveBits)
            return QStringLiteral("the effective bits are a number from 1 to %1")
                .arg(MaxEffectiveBits);
        return QString();
    }
    return QStringLiteral("only \"key = ...\" and \"effective-bits = ...\" are known");
}

} // namespace

CryptKey demonstrationCryptKey()
{
    return { QByteArrayLiteral("velmar demo key!"), 128 };
}

bool setCryptKey(const CryptKey &key)
{
    if (!isValid(key))
        return false;
    ProcessKey &process = processKey();
    const QMutexLocker locker(&process.lock);
    process.key = key;
    return true;
}

CryptKey cryptKey()
{
    ProcessKey &process = processKey();
    const QMutexLocker locker(&process.lock);
    return process.key;
}

bool readCryptKeyFile(const QString &path, CryptKey &key, QString &errorText)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    // A pipe delivers a piece at a time.
    QByteArray contents;
    for (QByteArray piece = file.read(MaxKeyFileSize + 1);
         !piece.isEmpty() && contents.size() <= MaxKeyFileSize;
         piece = file.read(MaxKeyFileSize + 1))
        contents += piece;
    if (contents.size() > MaxKeyFileSize) {
        errorText = QStringLiteral("%1: longer than %2 bytes, so no key file")
                        .arg(path, QString::number(MaxKeyFileSize));
        return false;
    }
    CryptKey read;
    const QList<QByteArray> lines = contents.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const int equals = line.indexOf('=');
        const QString fault =
            readEntry(line.left(equals).trimmed(),
                      equals < 0 ? QByteArray() : line.mid(equals + 1).trimmed(), read);
        if (!fault.isEmpty()) {
            errorText = QStringLiteral("%1, line %2: %3").arg(path, QString::number(i + 1), fault);
            return false;
        }
    }
    if (read.bytes.isEmpty()) {
        errorText = QStringLiteral("%1: there is no key in it").arg(path);
        return false;
    }
    if (read.effectiveBits == 0)
        read.effectiveBits = 8 * read.bytes.size();
    key = read;
    return true;
}

} // namespace TZ
