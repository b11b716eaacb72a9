#include "show/textcolumns.h"

#include <QVector>

#include <cwchar>

namespace Velmar::Host {

namespace {

constexpr uint Escape = 0x1b;

int columnsOf(uint codePoint)
{
    // Of what the locale does not know.
    const int columns = wcwidth(wchar_t(codePoint));
    return columns < 0 ? 1 : columns;
}

} // namespace

int columnsOf(const QString &text)
{
    int columns = 0;
    bool isColour = false;
    const auto codePoints = text.toUcs4();
    for (const uint codePoint : codePoints) {
        if (isColour)
            isColour = codePoint != 'm';
        else if (codePoint == Escape)
            isColour = true;
        else
            columns += columnsOf(codePoint);
    }
    return columns;
}

QString cutToColumns(const QString &text, int columns)
{
    const auto codePoints = text.toUcs4();
    int length = 0;
    for (; length < codePoints.size(); ++length) {
        columns -= columnsOf(codePoints.at(length));
        if (columns < 0)
            break;
    }
    return QString::fromUcs4(codePoints.constData(), length);
}

QString filledToColumns(const QString &text, int columns)
{
    return text + QString(qMax(0, columns - columnsOf(text)), QLatin1Char(' '));
}

} // namespace Velmar::Host
