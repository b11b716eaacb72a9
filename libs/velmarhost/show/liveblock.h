#ifndef VELMARHOST_LIVEBLOCK_H
#define VELMARHOST_LIVEBLOCK_H

#include "show/outputstyle.h"

#include <QString>
#include <QStringList>

#include <functional>

namespace Velmar::Host {

/*!
    A few lines at the bottom of a terminal that are drawn again in place.

    Lines must be safe to show and fit the terminal. Other output has to go through above().
*/
class LiveBlock
{
public:
    /*! \a write takes what the terminal is to get. */
    LiveBlock(OutputStyle style, std::function<void(const QString &)> write);

    /*! Shows \a lines in place of those shown; an unchanged block is not drawn. */
    void show(const QStringList &lines);

    /*! Takes the block away, has \a print write whole lines, and shows the block again below. */
    void above(const std::function<void()> &print);

    /*! Leaves the block where it stands, with a line break behind it. */
    void close();

private:
    QString toFirstRow() const;
    void draw(const QString &before);

    const OutputStyle m_style;
    const std::function<void(const QString &)> m_write;
    QStringList m_lines; // as they stand on the terminal
};

} // namespace Velmar::Host

#endif // VELMARHOST_LIVEBLOCK_H
