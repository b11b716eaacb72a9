#ifndef VELMARHOST_WORKERLINE_H
#define VELMARHOST_WORKERLINE_H

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace Velmar::Host {

/*! Longest line of a worker, in bytes with its line feed: a plan may have many files. */
constexpr int WorkerLineLimit = 64 * 1024 * 1024;

/*! Longest line that a worker takes. */
constexpr int OrderLineLimit = 1024 * 1024;

/*! \a object in one line, with its line feed. */
QByteArray lineOf(const QJsonObject &object);

/*! The object in \a line; nothing, with \a errorText set, if it is none. */
std::optional<QJsonObject> objectOf(const QByteArray &line, QString &errorText);

/*! Cuts a stream of bytes into lines. */
class LineCutter
{
public:
    /*! Lines have at most \a limit bytes, with their line feeds. */
    explicit LineCutter(int limit);

    /*! Takes what has come. */
    void add(const QByteArray &bytes);

    /*! The next whole line with its line feed. Nothing if there is none yet, and for ever behind
        one that is too long. */
    std::optional<QByteArray> next();

    /*! True once next() has found a line that is too long. */
    bool isOverLimit() const;

private:
    const int m_limit;
    QByteArray m_bytes;
    int m_begin = 0; // of what is left
    int m_searched = 0; // there is no line feed before it
    bool m_isOverLimit = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERLINE_H
