#include "arguments.h"

namespace Velmar::Simulator {

ArgumentReader::ArgumentReader(const QCborMap &arguments, Outcome &outcome)
    : m_arguments(arguments)
    , m_outcome(&outcome)
{
}

QString ArgumentReader::text(const char *key)
{
    const QCborValue value = m_arguments.value(QLatin1String(key));
    if (!value.isString())
        fail(key, "a text");
    return value.toString();
}

QByteArray ArgumentReader::bytes(const char *key)
{
    const QCborValue value = m_arguments.value(QLatin1String(key));
    if (!value.isByteArray())
        fail(key, "bytes");
    return value.toByteArray();
}

std::vector<ArgumentReader> ArgumentReader::maps(const char *key)
{
    std::vector<ArgumentReader> readers;
    const QCborValue value = m_arguments.value(QLatin1String(key));
    if (!value.isArray())
        fail(key, "an array of maps");
    const QCborArray elements = value.toArray();
    for (const QCborValue element : elements) {
        if (!element.isMap())
            fail(key, "an array of maps");
        readers.emplace_back(element.toMap(), *m_outcome);
    }
    return readers;
}

qint64 ArgumentReader::integer(const char *key, qint64 minimum, qint64 maximum)
{
    const QCborValue value = m_arguments.value(QLatin1String(key));
    if (!value.isInteger() || value.toInteger() < minimum || value.toInteger() > maximum) {
        fail(key, "a whole number in its width");
        return 0;
    }
    return value.toInteger();
}

void ArgumentReader::fail(const char *key, const char *expectation)
{
    if (m_outcome->isAccepted())
        *m_outcome = { LinkAck::WrongArguments,
                       QString::fromLatin1("\"%1\" is not %2")
                           .arg(QLatin1String(key), QLatin1String(expectation)) };
}

} // namespace Velmar::Simulator
