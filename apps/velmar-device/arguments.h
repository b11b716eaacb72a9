#ifndef VELMARDEVICE_ARGUMENTS_H
#define VELMARDEVICE_ARGUMENTS_H

#include "outcome.h"

#include <QByteArray>
#include <QCborArray>
#include <QCborMap>

#include <limits>
#include <vector>

namespace Velmar::Simulator {

/*!
    Reads the arguments of a request strictly.

    A missing argument, or one of a wrong type or out of its width, sets the outcome to "wrong
    arguments" and reads as a default; the first fault is the one that is told.
*/
class ArgumentReader
{
public:
    /*! \a outcome has to outlive this object. */
    ArgumentReader(const QCborMap &arguments, Outcome &outcome);

    /*! A whole number in the width of \c Number; of 64 unsigned bits, 63 are taken. */
    template<typename Number> Number number(const char *key)
    {
        constexpr quint64 maximum = quint64(std::numeric_limits<Number>::max());
        constexpr quint64 largest = quint64(std::numeric_limits<qint64>::max());
        return Number(integer(key, qint64(std::numeric_limits<Number>::min()),
                              qint64(maximum < largest ? maximum : largest)));
    }

    QString text(const char *key);
    QByteArray bytes(const char *key);

    /*! The maps of the array \a key, each to be read in turn. */
    std::vector<ArgumentReader> maps(const char *key);

private:
    qint64 integer(const char *key, qint64 minimum, qint64 maximum);
    void fail(const char *key, const char *expectation);

    QCborMap m_arguments;
    Outcome *m_outcome;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_ARGUMENTS_H
