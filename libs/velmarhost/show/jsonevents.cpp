#include "show/jsonevents.h"

#include "show/printable.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <utility>

namespace Velmar::Host {

namespace {

constexpr int Schema = 1;
constexpr int NameLength = 80; // of a part of the device, in characters
constexpr int CodeLength = 40;

QJsonArray partsToJson(const std::vector<PartProgress> &parts)
{
    QJsonArray array;
    for (const auto &part : parts)
        array.append(QJsonObject { { "name", printable(part.name, NameLength) },
                                   { "percent", qBound(0, part.percent, 100) },
                                   { "state", printable(part.state, NameLength) } });
    return array;
}

void insertProgress(QJsonObject &object, const RunEvent &event)
{
    if (event.percent)
        object.insert("percent", qBound(0, *event.percent, 99));
    if (event.bytesSent >= 0)
        object.insert("bytesSent", event.bytesSent);
    if (event.bytesTotal >= 0)
        object.insert("bytesTotal", event.bytesTotal);
    if (!event.parts.empty())
        object.insert("parts", partsToJson(event.parts));
}

void insertSummary(QJsonObject &object, const RunSummary &summary)
{
    object.insert("code", verdictWord(summary.verdict.code));
    object.insert("text", printable(summary.verdict.sentence));
    object.insert("data", summary.toJson());
}

} // namespace

JsonEvents::JsonEvents(const QString &runId, std::function<void(const QByteArray &)> write)
    : m_runId(runId)
    , m_write(std::move(write))
{
}

void JsonEvents::take(const RunEvent &event)
{
    if (m_isEnded)
        return;
    ++m_sequence;
    QJsonObject object {
        { "schema", Schema },
        { "run", m_runId },
        { "seq", m_sequence },
        { "time", event.time.toUTC().toString(Qt::ISODateWithMs) },
        { "event", runEventWord(event.kind) },
    };
    if (event.place > 0) {
        object.insert("phase", phaseWord(event.phase));
        object.insert("place", event.place);
        object.insert("places", event.places);
    }
    if (!event.code.isEmpty())
        object.insert("code", printable(event.code, CodeLength));
    object.insert("text", printable(event.text));

    switch (event.kind) {
    case RunEvent::Kind::Phase:
        if (event.silence.count() > 0)
            object.insert("silenceSeconds", qint64(event.silence.count()));
        break;
    case RunEvent::Kind::Progress:
        insertProgress(object, event);
        break;
    case RunEvent::Kind::Message:
    case RunEvent::Kind::Log:
        break;
    case RunEvent::Kind::Plan:
    case RunEvent::Kind::Devices:
    case RunEvent::Kind::Versions:
    case RunEvent::Kind::Status:
    case RunEvent::Kind::Inspection:
        object.insert("data", event.data);
        break;
    case RunEvent::Kind::Verdict:
        insertSummary(object, event.summary.value_or(RunSummary()));
        m_isEnded = true;
        break;
    }
    m_write(printableJson(QJsonDocument(object).toJson(QJsonDocument::Compact)) + '\n');
}

} // namespace Velmar::Host
