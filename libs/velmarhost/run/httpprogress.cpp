#include "run/httpprogress.h"

#include "show/printable.h"

#include <jsontext/jsontext.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextCodec>

#include <cmath>
#include <limits>

namespace Velmar::Host {

namespace {

constexpr double MaxRate = 100;
constexpr double MaxResult = 255; // eight bits hold it in a part
constexpr double MaxByte = std::numeric_limits<quint8>::max();
constexpr double MaxShort = std::numeric_limits<quint16>::max();
constexpr double MaxInt = std::numeric_limits<qint32>::max();

enum class Presence { Optional, Required };

/*!
    Takes the known keys of an object over into another one. The first fault stays.

    What is absent stays absent: the library has its defaults.
*/
class Record
{
public:
    Record(const QJsonValue &value, const QString &place, QString &errorText)
        : m_source(value.toObject())
        , m_place(place)
        , m_errorText(errorText)
    {
        if (!value.isObject())
            fail(place, QStringLiteral("is no object"));
    }

    const QJsonObject &told() const { return m_told; }

    /*! A whole number from 0 to \a maximum. */
    void number(const char *key, double maximum, Presence presence = Presence::Optional)
    {
        const QString name = QLatin1String(key);
        const QJsonValue value = m_source.value(name);
        const double number = value.toDouble();
        if (value.isUndefined()) {
            if (presence == Presence::Required)
                fail(placeOf(name), QStringLiteral("is missing"));
        } else if (!value.isDouble()) {
            fail(placeOf(name), QStringLiteral("is no number"));
        } else if (number < 0 || number > maximum || std::trunc(number) != number) {
            fail(placeOf(name),
                 QStringLiteral("is no whole number from 0 to %1").arg(maximum, 0, 'f', 0));
        } else {
            m_told.insert(name, int(number));
        }
    }

    /*! A list of what \a read takes over. */
    template<class Read> void list(const char *key, Read read)
    {
        const QString name = QLatin1String(key);
        const QJsonValue value = m_source.value(name);
        if (value.isUndefined())
            return;
        if (!value.isArray())
            fail(placeOf(name), QStringLiteral("is no list"));
        QJsonArray told;
        const QJsonArray elements = value.toArray();
        for (int i = 0; i < elements.size(); ++i) {
            const QString place = QStringLiteral("%1[%2]").arg(placeOf(name)).arg(i);
            const QJsonObject element = read(elements.at(i), place, m_errorText);
            // The library cannot read an empty object, and nothing can be made of one.
            if (element.isEmpty())
                fail(place, QStringLiteral("tells nothing"));
            told.append(element);
        }
        m_told.insert(name, told);
    }

    /*! What \a read takes over of an object. */
    template<class Read> void record(const char *key, Read read)
    {
        const QString name = QLatin1String(key);
        const QJsonValue value = m_source.value(name);
        if (value.isUndefined())
            return;
        const QJsonObject told = read(value, placeOf(name), m_errorText);
        if (!told.isEmpty()) // as above, but as a whole it may be absent
            m_told.insert(name, told);
    }

private:
    QString placeOf(const QString &key) const
    {
        return m_place.isEmpty() ? key : m_place + QLatin1Char('.') + key;
    }

    void fail(const QString &place, const QString &text)
    {
        if (m_errorText.isEmpty())
            m_errorText =
                (place.isEmpty() ? QString() : QStringLiteral("\"%1\" ").arg(place)) + text;
    }

    const QJsonObject m_source;
    const QString m_place;
    QString &m_errorText;
    QJsonObject m_told;
};

QJsonObject rateAlone(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("rate", MaxRate);
    return record.told();
}

// The newer generation. An absent result is 0, which is neither success nor failure; only that of the
// whole has to be told.

QJsonObject newerSection(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("code", MaxShort);
    record.number("rate", MaxRate);
    record.number("result", MaxResult);
    return record.told();
}

QJsonObject newerPart(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("type", MaxInt);
    record.number("slotId", MaxByte);
    record.number("rate", MaxRate);
    record.number("result", MaxResult);
    record.list("section", newerSection);
    return record.told();
}

QJsonObject newerProgress(const QJsonObject &object, QString &errorText)
{
    Record record(object, {}, errorText);
    record.number("result", MaxResult, Presence::Required);
    record.number("rate", MaxRate);
    record.record("subSections", rateAlone);
    record.list("parts", newerPart);
    return record.told();
}

// The older generation, of which 0 is success: no result may be absent.

QJsonObject olderSection(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("code", MaxShort);
    record.number("rate", MaxRate);
    record.number("result", MaxResult, Presence::Required);
    return record.told();
}

QJsonObject olderCard(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("modelId", MaxShort);
    record.number("slotId", MaxByte);
    record.list("sections", olderSection);
    return record.told();
}

QJsonObject olderBase(const QJsonValue &value, const QString &place, QString &errorText)
{
    Record record(value, place, errorText);
    record.number("code", MaxShort);
    record.number("rate", MaxRate);
    record.number("type", MaxInt);
    record.number("modelId", MaxShort);
    record.number("slotId", MaxByte);
    return record.told();
}

QJsonArray olderProgress(const QJsonArray &list, QString &errorText)
{
    // A device with nothing going on tells an empty one.
    if (list.isEmpty())
        return {};
    Record record(list.first(), QStringLiteral("[0]"), errorText);
    record.number("deviceId", MaxInt);
    record.number("result", MaxResult, Presence::Required);
    record.record("updateBaseSections", olderBase);
    record.record("updateSubSections", rateAlone);
    record.list("mainControl", olderCard);
    record.list("backPlane", olderCard);
    return { record.told() };
}

/*! What keeps \a body from being JSON in which every key has one value; empty if nothing does. */
QString faultOf(const QByteArray &body, const QJsonParseError &parsed)
{
    if (body.trimmed().isEmpty())
        return QStringLiteral("is empty");
    if (parsed.error == QJsonParseError::DeepNesting)
        return QStringLiteral("is nested too deeply");
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(body.constData(), body.size(), &state);
    if (state.invalidChars > 0 || state.remainingChars > 0)
        return QStringLiteral("is not UTF-8");
    if (parsed.error != QJsonParseError::NoError)
        return QStringLiteral("is no JSON: %1 at byte %2")
            .arg(parsed.errorString())
            .arg(parsed.offset);
    int line = 0;
    const JsonPath repeated = JsonText(body).repeatedKey(line);
    if (!repeated.isEmpty())
        return QStringLiteral("has the key \"%1\" twice")
            .arg(printable(repeated.join(QLatin1Char('.'))));
    return {};
}

} // namespace

std::optional<QByteArray> judgedProgress(const QByteArray &body, ProgressForm form,
                                         QString &errorText)
{
    QJsonParseError parsed;
    const auto document = QJsonDocument::fromJson(body, &parsed);
    QString fault = faultOf(body, parsed);
    QJsonDocument told;
    if (fault.isEmpty()) {
        if (document.isObject())
            told.setObject(newerProgress(document.object(), fault));
        else if (form == ProgressForm::Either)
            told.setArray(olderProgress(document.array(), fault));
        else
            fault = QStringLiteral("is a list in place of an object");
    }
    if (!fault.isEmpty()) {
        errorText = fault;
        return std::nullopt;
    }
    return told.toJson(QJsonDocument::Compact);
}

} // namespace Velmar::Host
