#ifndef VELMARHOST_REDACTION_H
#define VELMARHOST_REDACTION_H

#include <QJsonValue>
#include <QString>

#include <vector>

namespace Velmar::Host {

/*!
    Replaces what is not meant for others, such as a path or the name of the user, by placeholders.

    A text is found as it is, as a log quotes it and as it is shown; where a name begins with it, as
    "/home/max" in "/home/maxine", it is another one. A part of it that was cut at the end of a
    shown text is found, too.
*/
class Redaction
{
public:
    /*! Has \a text replaced by "<\a placeholder>". A path is absolute and stands for what it leads
        to as well; anything else is a word. */
    void hide(const QString &placeholder, const QString &text);

    QString applied(const QString &text) const;

    /*! \a value with all its strings replaced, but for the stable words of events ("event",
        "phase", "code", "kind", "run", "time"). Names of members stay unless they have a path. */
    QJsonValue applied(const QJsonValue &value) const;

private:
    struct Hidden {
        QString text;
        QString shown;
        bool isPath = false;
    };

    void add(const QString &text, const QString &shown);
    const Hidden *at(const QString &text, int place) const;

    std::vector<Hidden> m_hidden; // longest first
};

} // namespace Velmar::Host

#endif // VELMARHOST_REDACTION_H
