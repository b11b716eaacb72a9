#include "faults.h"

#include <QStringList>

#include <algorithm>
#include <limits>

namespace Velmar::Simulator {

namespace {

constexpr qint64 MaxCount = std::numeric_limits<int>::max();

const FaultDescription *findDescription(const QString &name)
{
    const auto &all = Faults::descriptions();
    const auto found = std::find_if(all.begin(), all.end(), [&name](const FaultDescription &entry) {
        return name == QLatin1String(entry.name);
    });
    return found == all.end() ? nullptr : &*found;
}

/*! What stands behind the "=" of a fault, for people. */
QString valueText(const FaultDescription &description)
{
    const QString first = QLatin1String(description.valueName);
    return description.second.name == nullptr
        ? first
        : QString::fromLatin1("%1[:%2]").arg(first, QLatin1String(description.second.name));
}

bool readNumber(const QString &text, qint64 minimum, qint64 maximum, qint64 &number)
{
    bool isNumber = false;
    number = text.toLongLong(&isNumber);
    return isNumber && number >= minimum && number <= maximum;
}

QString knownNames()
{
    QStringList names;
    for (const FaultDescription &entry : Faults::descriptions())
        names.append(QLatin1String(entry.name));
    return names.join(QLatin1String(", "));
}

/*! \a text in lines that fit a terminal, each behind \a indent. */
QString wrapped(const QString &text, const QString &indent)
{
    constexpr int Width = 79;
    QString result;
    QString line = indent;
    for (const QString &word : text.split(QLatin1Char(' '))) {
        const bool isFirst = line.size() == indent.size();
        if (!isFirst && line.size() + 1 + word.size() > Width) {
            result += line + QLatin1Char('\n');
            line = indent + word;
        } else {
            line += isFirst ? word : QLatin1Char(' ') + word;
        }
    }
    return result + line + QLatin1Char('\n');
}

} // namespace

const std::vector<FaultDescription> &Faults::descriptions()
{
    static const std::vector<FaultDescription> table {
        { Fault::RefuseAnnounce, "refuse-announce", nullptr, 0, 0, 0,
          "Refuses every announcement of a file (ack 1)." },
        { Fault::CutTransfer, "cut-transfer", "PERCENT", 0, 100, 50,
          "Drops the connection, without an answer, as soon as this much of a file has arrived. "
          "Happens once." },
        { Fault::RefuseConfigure, "refuse-configure", nullptr, 0, 0, 0,
          "Refuses every order to install (ack 1)." },
        { Fault::DropProgress, "drop-progress", "NTH", 1, MaxCount, 1,
          "Drops the connection instead of answering the Nth question for the progress." },
        { Fault::RefuseProgress, "refuse-progress", "NTH", 1, MaxCount, 1,
          "Refuses to answer the Nth question for the progress (ack 1)." },
        { Fault::InstallFails, "install-fails", "PERCENT", 0, 99, 50,
          "Ends each installation with result 3 at this percentage, and takes it back." },
        { Fault::NeverEnds, "never-ends", "PERCENT", 0, 99, 99,
          "Reports this percentage and result 1 for ever; the installation never ends." },
        { Fault::PowerCut, "power-cut", "STEP", 1, 8, -1,
          "Kills the device, as by kill -9, at this step of an installation: 1 ordered, 2 half of "
          "the files written, 3 all written, 4 bound to be completed, 5 half of the files in "
          "place, 6 all in place, 7 completed, 8 tidied up." },
        { Fault::RefuseRestart, "refuse-restart", nullptr, 0, 0, 0,
          "Refuses every order to restart (ack 1)." },
        { Fault::NoReturn, "no-return", nullptr, 0, 0, 0, "Stays away after a restart." },
        { Fault::SlowLink, "slow-link", "BYTES_PER_SECOND", 1, MaxCount, -1,
          "Takes requests and gives answers at this pace, for each connection." },
        { Fault::RegisterAck,
          "register-ack",
          "WRITE",
          1,
          MaxCount,
          1,
          "Refuses this register write, counted from 1 since the device was switched on, with that "
          "ack.",
          { "ACK", 1, 65535, 1 } },
        { Fault::RegisterSilent, "register-silent", "WRITE", 1, MaxCount, 1,
          "Neither carries this register write out nor answers it." },
        { Fault::RegisterCut, "register-cut", "WRITE", 1, MaxCount, 1,
          "Drops the connection instead of carrying this register write out." },
        { Fault::RegisterNotReady, "register-not-ready", "WRITE", 1, MaxCount, 1,
          "Drops the connection behind the answer to this register write, so that the host is in "
          "no state to send the next." },
        { Fault::RegisterSlow, "register-slow", "MS", 1, MaxCount, -1,
          "Answers each register write so much later." },
        { Fault::VersionRefused, "version-refused", nullptr, 0, 0, 0,
          "Answers the version command with \"2.0.0.0\" and a hardware that hosts do not upgrade "
          "over HTTP." },
        { Fault::VersionAllowed, "version-allowed", nullptr, 0, 0, 0,
          "Answers the version command with \"2.0.0.0\" and a hardware that hosts do upgrade." },
        { Fault::VersionBroken, "version-broken", nullptr, 0, 0, 0,
          "Answers the version command with a text that breaks off." },
        { Fault::VersionSilent, "version-silent", nullptr, 0, 0, 0,
          "Drops the connection instead of answering the version command." },
        { Fault::HttpStatus, "http-status", "CODE", 400, 599, 500,
          "Answers each upload, once it has arrived, with this status and the body \"ok\", and "
          "installs nothing." },
        { Fault::HttpReset, "http-reset", "PERCENT", 0, 100, 50,
          "Resets the connection of each upload as soon as this much of it has arrived." },
        { Fault::HttpSlow, "http-slow", "MS", 1, MaxCount, 2000,
          "Answers each poll so much later." },
        { Fault::HttpStall, "http-stall", nullptr, 0, 0, 0,
          "Sends the first half of each answer to a poll and then nothing more." },
        { Fault::HttpTruncate, "http-truncate", nullptr, 0, 0, 0,
          "Ends the connection in the middle of each answer to a poll." },
        { Fault::HttpBroken, "http-broken", nullptr, 0, 0, 0,
          "Leaves the last character of each progress text out." },
        { Fault::HttpEmpty, "http-empty", nullptr, 0, 0, 0,
          "Answers each poll with an empty body." },
        { Fault::HttpHuge, "http-huge", "BYTES", 1, MaxCount, 16777216,
          "Adds a key with a text of so many bytes to each progress text." },
        { Fault::HttpSwitch, "http-switch", "NTH", 1, MaxCount, 2,
          "Answers the Nth poll and all behind it in the form of the other generation." },
        { Fault::HttpFailsAfterDone, "http-fails-after-done", nullptr, 0, 0, 0,
          "Reports result 3 to every poll behind the one that was told result 2." },
    };
    return table;
}

QString Faults::helpText()
{
    QString text;
    for (const FaultDescription &entry : descriptions()) {
        text += QLatin1String("  ") + QLatin1String(entry.name);
        if (entry.valueName != nullptr) {
            const bool isOptional = entry.defaultValue >= entry.minimum;
            text += QString::fromLatin1(isOptional ? "[=%1]" : "=%1").arg(valueText(entry));
            if (isOptional)
                text += QString::fromLatin1(" (default %1)").arg(entry.defaultValue);
        }
        text += QLatin1Char('\n') + wrapped(QLatin1String(entry.help), QStringLiteral("      "));
    }
    return text;
}

bool Faults::add(const QString &text, QString &errorText)
{
    const int equals = text.indexOf(QLatin1Char('='));
    const QString name = text.left(equals);
    const FaultDescription *description = findDescription(name);
    if (description == nullptr) {
        errorText = QString::fromLatin1("There is no fault \"%1\"; the faults are %2.")
                        .arg(name, knownNames());
        return false;
    }
    if (equals < 0) {
        if (description->valueName != nullptr && description->defaultValue < description->minimum) {
            errorText = QString::fromLatin1("The fault \"%1\" needs a value, as in \"%1=%2\".")
                            .arg(name, valueText(*description));
            return false;
        }
        m_values[description->fault] = { description->defaultValue,
                                         description->second.defaultValue };
        return true;
    }
    if (description->valueName == nullptr) {
        errorText = QString::fromLatin1("The fault \"%1\" takes no value.").arg(name);
        return false;
    }
    const SecondNumber &second = description->second;
    const QString value = text.mid(equals + 1);
    const int colon = second.name == nullptr ? -1 : value.indexOf(QLatin1Char(':'));
    Values values { 0, second.defaultValue };
    if (colon >= 0
        && !readNumber(value.mid(colon + 1), second.minimum, second.maximum, values.second)) {
        errorText = QString::fromLatin1("The %1 of the fault \"%2\" is a number from %3 to %4.")
                        .arg(QLatin1String(second.name), name)
                        .arg(second.minimum)
                        .arg(second.maximum);
        return false;
    }
    if (!readNumber(value.left(colon), description->minimum, description->maximum, values.first)) {
        errorText = QString::fromLatin1("The value of the fault \"%1\" is a number from %2 to %3.")
                        .arg(name)
                        .arg(description->minimum)
                        .arg(description->maximum);
        return false;
    }
    m_values[description->fault] = values;
    return true;
}

bool Faults::isSet(Fault fault) const
{
    return m_values.count(fault) > 0;
}

qint64 Faults::value(Fault fault, qint64 otherwise) const
{
    const auto found = m_values.find(fault);
    return found == m_values.end() ? otherwise : found->second.first;
}

qint64 Faults::secondValue(Fault fault) const
{
    return m_values.at(fault).second;
}

} // namespace Velmar::Simulator
