#include "verbs.h"

#include "device/devicefacts.h"
#include "device/modelnames.h"
#include "devicetext.h"
#include "show/printable.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

QString text(const std::string &value)
{
    return printable(QString::fromStdString(value));
}

QString versionsText(const DeviceFacts &facts, const ModelNames &names)
{
    auto lines = QStringLiteral("%1\nVersion %2  %3\n")
                     .arg(deviceLine(facts, names), text(facts.versions.version),
                          text(facts.versions.brief));
    for (const auto &part : facts.versions.parts) {
        lines += QStringLiteral("\nSlot %1: %2, version %3\n")
                     .arg(QString::number(part.slotId),
                          printable(names.describe(int(part.modelId))), text(part.version));
        for (const auto &section : part.section)
            lines += QStringLiteral("  %1  %2  %3\n")
                         .arg(printable(sectionName(facts, part, section.code)).leftJustified(16),
                              text(section.version).leftJustified(15), text(section.brief));
    }
    return lines;
}

QJsonObject versionsObject(const DeviceFacts &facts, const ModelNames &names)
{
    QJsonArray parts;
    for (const auto &part : facts.versions.parts) {
        QJsonArray sections;
        for (const auto &section : part.section)
            sections.append(QJsonObject {
                { QStringLiteral("code"), section.code },
                { QStringLiteral("name"), sectionName(facts, part, section.code) },
                { QStringLiteral("version"), QString::fromStdString(section.version) },
                { QStringLiteral("brief"), QString::fromStdString(section.brief) } });
        parts.append(
            QJsonObject { { QStringLiteral("slotId"), part.slotId },
                          { QStringLiteral("type"), part.type },
                          { QStringLiteral("modelId"), qint64(part.modelId) },
                          { QStringLiteral("version"), QString::fromStdString(part.version) },
                          { QStringLiteral("brief"), QString::fromStdString(part.brief) },
                          { QStringLiteral("sections"), sections } });
    }
    auto object = deviceObject(facts, names);
    object.insert(QStringLiteral("version"), QString::fromStdString(facts.versions.version));
    object.insert(QStringLiteral("brief"), QString::fromStdString(facts.versions.brief));
    object.insert(QStringLiteral("parts"), parts);
    return object;
}

} // namespace

HostExitCode versionsVerb(const CommandLine &options)
{
    return askDevice(
        options, [](Inquiry &inquiry, const DeviceFacts &facts, const ModelNames &names) {
            inquiry.tell(RunEvent::Kind::Versions, versionsObject(facts, names),
                         versionsText(facts, names));
            return inquiry.answered(QStringLiteral("The device has told its versions"));
        });
}
