#include "linkoperations.h"

#include "arguments.h"
#include "devicestate.h"
#include "fitting.h"
#include "operationtable.h"

namespace Velmar::Simulator {

namespace {

constexpr int Protocol = 1;

QCborMap describe(const Identity &identity)
{
    QCborArray cards;
    for (const FittedCard &card : identity.fitting.cards()) {
        cards.append(QCborMap { { QLatin1String("slotId"), card.slotId },
                                { QLatin1String("modelId"), card.modelId },
                                { QLatin1String("boardId"), card.boardId } });
    }
    return { { QLatin1String("protocol"), Protocol },
             { QLatin1String("modelId"), identity.fitting.model().modelId },
             { QLatin1String("serial"), identity.state.record().serial },
             { QLatin1String("name"), identity.name },
             { QLatin1String("cards"), cards } };
}

/*! A part has the version of its first section: no part has one of its own. */
QCborMap describe(const FittedPart &part, const DeviceState &state)
{
    QCborArray sections;
    QString partVersion;
    for (const FittedSection &section : part.sections) {
        const QString version = state.runningVersion(part.key(section.code));
        if (partVersion.isEmpty())
            partVersion = version;
        sections.append(QCborMap { { QLatin1String("code"), section.code },
                                   { QLatin1String("version"), version },
                                   { QLatin1String("brief"), section.name } });
    }
    return { { QLatin1String("type"), part.type },
             { QLatin1String("slotId"), part.slotId },
             { QLatin1String("modelId"), qint64(part.modelId) },
             { QLatin1String("version"), partVersion },
             { QLatin1String("brief"), part.name },
             { QLatin1String("section"), sections } };
}

} // namespace

QCborMap readVersions(const Identity &identity)
{
    QCborArray parts;
    for (const FittedPart &part : identity.fitting.parts())
        parts.append(describe(part, identity.state));
    // The device's version is that of its main control, which is the first part.
    const QString version = parts.isEmpty()
        ? QString::fromLatin1(DeviceState::FactoryVersion)
        : parts.first().toMap().value(QLatin1String("version")).toString();
    return { { QLatin1String("version"), version },
             { QLatin1String("brief"), identity.fitting.model().name },
             { QLatin1String("parts"), parts } };
}

void addLinkOperations(OperationTable &table, const Identity &identity)
{
    table.add(QStringLiteral("hello"), [identity](const QCborMap &, LinkSession &) {
        return Reply::accepted(describe(identity));
    });
    table.add(QStringLiteral("ping"),
              [](const QCborMap &, LinkSession &) { return Reply::accepted(); });
    table.add(QStringLiteral("heartbeat.pause"),
              [](const QCborMap &arguments, LinkSession &session) {
                  Outcome outcome;
                  ArgumentReader reader(arguments, outcome);
                  const auto milliseconds = reader.number<quint32>("milliseconds");
                  if (!outcome.isAccepted())
                      return Reply::refused(outcome);
                  session.pauseSilenceLimit(milliseconds);
                  return Reply::accepted();
              });
    table.add(QStringLiteral("heartbeat.resume"), [](const QCborMap &, LinkSession &session) {
        session.resumeSilenceLimit();
        return Reply::accepted();
    });
    table.add(QStringLiteral("version.read"), [identity](const QCborMap &, LinkSession &) {
        return Reply::accepted(readVersions(identity));
    });
}

} // namespace Velmar::Simulator
