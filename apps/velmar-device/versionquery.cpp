#include "versionquery.h"

#include "arguments.h"
#include "faults.h"
#include "operationtable.h"

#include <QCborValue>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmar::Simulator {

namespace {

constexpr quint8 VersionKind = 1;
constexpr quint8 VersionId = 0x0A;
constexpr quint8 VersionGroup = 0xFC;

QByteArray versionText(const Identity &identity, const Faults &faults)
{
    QJsonObject versions = QCborValue(readVersions(identity)).toJsonValue().toObject();
    if (faults.isSet(Fault::VersionRefused) || faults.isSet(Fault::VersionAllowed)) {
        versions.insert(QLatin1String("version"), QLatin1String("2.0.0.0"));
        versions.insert(QLatin1String("brief"),
                        QLatin1String(faults.isSet(Fault::VersionRefused) ? "S1.T2" : "S2.T1"));
    }
    QByteArray text = QJsonDocument(versions).toJson(QJsonDocument::Compact);
    if (faults.isSet(Fault::VersionBroken))
        text.chop(1);
    return text;
}

} // namespace

void addVersionQuery(OperationTable &table, const Identity &identity, Generation generation,
                     const Faults &faults)
{
    table.add(
        QStringLiteral("command"),
        [identity, generation, &faults](const QCborMap &arguments, LinkSession &) {
            Outcome outcome;
            ArgumentReader reader(arguments, outcome);
            const auto kind = reader.number<quint8>("kind");
            const auto id = reader.number<quint8>("id");
            const auto group = reader.number<quint8>("group");
            reader.bytes("body"); // the query has none that means anything
            if (!outcome.isAccepted())
                return Reply::refused(outcome);
            if (kind != VersionKind || id != VersionId || group != VersionGroup
                || generation == Generation::Older)
                return Reply::refused(
                    { LinkAck::Refused, QString::fromLatin1("there is no such command") });
            if (faults.isSet(Fault::VersionSilent))
                return Reply::dropped();
            return Reply::accepted({ { QLatin1String("body"), versionText(identity, faults) } });
        });
}

} // namespace Velmar::Simulator
