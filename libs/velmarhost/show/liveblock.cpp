#include "show/liveblock.h"

#include "show/textcolumns.h"

#include <utility>

namespace Velmar::Host {

LiveBlock::LiveBlock(OutputStyle style, std::function<void(const QString &)> write)
    : m_style(std::move(style))
    , m_write(std::move(write))
{
}

void LiveBlock::show(const QStringList &lines)
{
    if (lines == m_lines)
        return;
    const QString before = toFirstRow();
    m_lines = lines;
    draw(before);
}

void LiveBlock::above(const std::function<void()> &print)
{
    if (m_lines.isEmpty()) {
        print();
        return;
    }
    m_write(toFirstRow() + QStringLiteral("\x1b[J"));
    print();
    draw(QString());
}

void LiveBlock::close()
{
    if (m_lines.isEmpty())
        return;
    m_write(QStringLiteral("\n"));
    m_lines.clear();
}

QString LiveBlock::toFirstRow() const
{
    if (m_lines.isEmpty())
        return {};
    // A terminal that has become narrower has broken the lines that no longer fit.
    const int columns = qMax(1, m_style.columns());
    int rows = 0;
    for (const auto &line : m_lines)
        rows += qMax(1, (columnsOf(line) + columns - 1) / columns);
    return rows == 1 ? QStringLiteral("\r") : QStringLiteral("\r\x1b[%1A").arg(rows - 1);
}

void LiveBlock::draw(const QString &before)
{
    m_write(before + m_lines.join(QStringLiteral("\x1b[K\n")) + QStringLiteral("\x1b[K\x1b[J"));
}

} // namespace Velmar::Host
