#include "package/packagename.h"

#include <QVector>

#include <algorithm>

namespace Velmar::Host {

namespace {

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control;
}

} // namespace

bool isUtf8(const QByteArray &bytes)
{
    // By length: without it, all behind a zero would pass.
    return QString::fromUtf8(bytes.constData(), bytes.size()).toUtf8() == bytes;
}

QString packageNameFault(const QString &name)
{
    if (name.trimmed().isEmpty())
        return QStringLiteral("is empty");
    if (std::any_of(name.begin(), name.end(), isControl))
        return QStringLiteral("has a control character");
    if (!name.isValidUtf16())
        return QStringLiteral("is no Unicode text");
    if (name.startsWith(QLatin1Char('/')))
        return QStringLiteral("is absolute");
    if (name.contains(QLatin1Char('\\')))
        return QStringLiteral("has a \"\\\"");
    const auto parts = name.splitRef(QLatin1Char('/'));
    for (const auto &part : parts) {
        if (part == QLatin1String(".."))
            return QStringLiteral("leads upwards with \"..\"");
        if (part.isEmpty() || part == QLatin1String("."))
            return QStringLiteral("has an empty name or \".\" between its \"/\"");
    }
    return QString();
}

} // namespace Velmar::Host
