#ifndef VELMARSSPROXY_CBORFIELDS_H
#define VELMARSSPROXY_CBORFIELDS_H

#include <QCborMap>
#include <QCborValue>

#include <limits>

namespace Velmar::SSProxy::Internal {

/*! Reads an unsigned number out of \a message. False, with \a number left as it was, if it is
    missing, of another type or out of range. */
template<typename Number>
bool readNumber(const QCborMap &message, QLatin1String key, Number &number)
{
    const QCborValue value = message.value(key);
    if (!value.isInteger() || value.toInteger() < 0
        || value.toInteger() > std::numeric_limits<Number>::max())
        return false;
    number = Number(value.toInteger());
    return true;
}

} // namespace Velmar::SSProxy::Internal

#endif // VELMARSSPROXY_CBORFIELDS_H
