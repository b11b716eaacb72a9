#include "show/printable.h"

#include <QChar>
#include <QVector>

namespace Velmar::Host {

namespace {

bool isSafe(uint codePoint)
{
    switch (QChar::category(codePoint)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

} // namespace

QString printable(const QString &text, int maximum)
{
    QString shown;
    const auto codePoints = text.toUcs4();
    for (int i = 0; i < codePoints.size(); ++i) {
        if (i == maximum)
            return shown + QChar(0x2026);
        const uint codePoint = codePoints.at(i);
        if (isSafe(codePoint))
            shown += QString::fromUcs4(&codePoint, 1);
        else if (codePoint < 0x100)
            shown += QStringLiteral("\\x%1").arg(codePoint, 2, 16, QLatin1Char('0'));
        else
            shown += QStringLiteral("\\u{%1}").arg(codePoint, 0, 16);
    }
    return shown;
}

QByteArray printableJson(const QByteArray &json)
{
    QByteArray shown;
    shown.reserve(json.size());
    const auto text = QString::fromUtf8(json);
    for (int i = 0; i < text.size(); ++i) {
        const QChar unit = text.at(i);
        // Outside of strings JSON has no character beyond ASCII and no control but these.
        const bool isLayout = unit == QLatin1Char('\n') || unit == QLatin1Char(' ');
        const bool isPair =
            unit.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const uint codePoint =
            isPair ? QChar::surrogateToUcs4(unit, text.at(i + 1)) : unit.unicode();
        if (isLayout || isSafe(codePoint)) {
            shown += QString::fromUcs4(&codePoint, 1).toUtf8();
        } else {
            for (int k = i; k <= i + (isPair ? 1 : 0); ++k)
                shown +=
                    "\\u" + QByteArray::number(text.at(k).unicode(), 16).rightJustified(4, '0');
        }
        i += isPair ? 1 : 0;
    }
    return shown;
}

} // namespace Velmar::Host
