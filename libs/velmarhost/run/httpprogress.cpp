#include "run/httpprogress.h"

#include "show/printable.h"

#include <jsontext/jsontext.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextCodec>

#include <cmath>
#include <limits>
#include <vector>

namespace Velmar::Host {

namespace {

constexpr double MaxRate = 100;
constexpr double MaxResult = 255; // eight bits hold it in a part
constexpr double MaxByte = std::numeric_limits<quint8>::max();
constexpr double MaxShort = std::numeric_limits<quint16>::max();
constexpr double MaxInt = std::numeric_limits<qint32>::max();

enum class Presence { Optional, Required };

/*! A whole number from 0 to a greatest one. */
struct Number {
    const char *key;
    double greatest;
    Presence presence = Presence::Optional;
};

struct Form;

/*! An object in another one, or a list of such objects. */
struct Nested {
    const char *key;
    const Form *form;
};

/*! All that is known of one kind of object. What is absent stays absent: the library has its
    defaults. */
struct Form {
    std::vector<Number> numbers;
    std::vector<Nested> records;
    std::vector<Nested> lists;
};

const Form RateAlone { { { "rate", MaxRate } }, {}, {} };

// The newer generation. An absent result is 0, which is neither success nor failure; only that of the
// whole has to be told.

const Form NewerSection { { { "code", MaxShort }, { "rate", MaxRate }, { "result", MaxResult } },
                          {},
                          {} };

const Form NewerPart {
    { { "type", MaxInt }, { "slotId", MaxByte }, { "rate", MaxRate }, { "result", MaxResult } },
    {},
    { { "section", &NewerSection } }
};

const Form NewerProgress { { { "result", MaxResult, Presence::Required }, { "rate", MaxRate } },
                           { { "subSections", &RateAlone } },
                           { { "parts", &NewerPart } } };

// The older generation, of which 0 is success: no result may be absent.

const Form OlderSection {
    { { "code", MaxShort }, { "rate", MaxRate }, { "result", MaxResult, Presence::Required } },
    {},
    {}
};

const Form OlderCard { { { "modelId", MaxShort }, { "slotId", MaxByte } },
                       {},
                       { { "sections", &OlderSection } } };

const Form OlderBase { { { "code", MaxShort },
                         { "rate", MaxRate },
                         { "type", MaxInt },
                         { "modelId", MaxShort },
                         { "slotId", MaxByte } },
                       {},
                       {} };

const Form OlderProgress { { { "deviceId", MaxInt }, { "result", MaxResult, Presence::Required } },
                           { { "updateBaseSections", &OlderBase },
                             { "updateSubSections", &RateAlone } },
                           { { "mainControl", &OlderCard }, { "backPlane", &OlderCard } } };

/*! Takes what is known over from one object to another. The first fault stays. */
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

    QJsonObject taken(const Form &form)
    {
        for (const auto &number : form.numbers)
            take(number);
        for (const auto &nested : form.records)
            takeRecord(nested);
        for (const auto &nested : form.lists)
            takeList(nested);
        return m_taken;
    }

private:
    void take(const Number &number)
    {
        const QString name = QLatin1String(number.key);
        const QJsonValue value = m_source.value(name);
        const double told = value.toDouble();
        if (value.isUndefined()) {
            if (number.presence == Presence::Required)
                fail(placeOf(name), QStringLiteral("is missing"));
        } else if (!value.isDouble()) {
            fail(placeOf(name), QStringLiteral("is no number"));
        } else if (told < 0 || told > number.greatest || std::trunc(told) != told) {
            fail(placeOf(name),
                 QStringLiteral("is no whole number from 0 to %1").arg(number.greatest, 0, 'f', 0));
        } else {
            m_taken.insert(name, int(told));
        }
    }

    void takeRecord(const Nested &nested)
    {
        const QString name = QLatin1String(nested.key);
        const QJsonValue value = m_source.value(name);
        if (value.isUndefined())
            return;
        const QJsonObject told = Record(value, placeOf(name), m_errorText).taken(*nested.form);
        // The library cannot read an empty object; as a whole it may be absent.
        if (!told.isEmpty())
            m_taken.insert(name, told);
    }

    void takeList(const Nested &nested)
    {
        const QString name = QLatin1String(nested.key);
        const QJsonValue value = m_source.value(name);
        if (value.isUndefined())
            return;
        if (!value.isArray())
            fail(placeOf(name), QStringLiteral("is no list"));
        QJsonArray told;
        const QJsonArray elements = value.toArray();
        for (int i = 0; i < elements.size(); ++i) {
            const QString place = QStringLiteral("%1[%2]").arg(placeOf(name)).arg(i);
            const QJsonObject element =
                Record(elements.at(i), place, m_errorText).taken(*nested.form);
            if (element.isEmpty()) // as above, and its place in the list tells nothing, either
                fail(place, QStringLiteral("tells nothing"));
            told.append(element);
        }
        m_taken.insert(name, told);
    }

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
    QJsonObject m_taken;
};

/*! Of a list, the first element; a device with nothing going on tells an empty one. */
QJsonArray olderProgress(const QJsonArray &list, QString &errorText)
{
    if (list.isEmpty())
        return {};
    return { Record(list.first(), QStringLiteral("[0]"), errorText).taken(OlderProgress) };
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
            told.setObject(Record(document.object(), {}, fault).taken(NewerProgress));
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
