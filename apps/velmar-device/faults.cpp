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

bool readNumber(const QString &text, qint64 minimum, qint64 maximum, qint64 &number)
{
    // The conversion would take a sign and blanks, too.
    const bool isOfDigits = std::all_of(text.begin(), text.end(), [](QChar letter) {
        return letter >= QLatin1Char('0') && letter <= QLatin1Char('9');
    });
    bool isNumber = false;
    number = text.toLongLong(&isNumber);
    return isNumber && isOfDigits && number >= minimum && number <= maximum;
}

QStringList wordList(const FaultDescription &description)
{
    QStringList words;
    for (const char *word : description.words)
        words.append(QLatin1String(word));
    return words;
}

/*! N of \a description as \a text has it; false if it has none that the fault takes. */
bool readValue(const FaultDescription &description, const QString &text, qint64 &value)
{
    if (description.words.empty())
        return readNumber(text, description.minimum, description.maximum, value);
    value = wordList(description).indexOf(text);
    return value >= 0;
}

QString expectedValue(const FaultDescription &description)
{
    return description.words.empty()
        ? QString::fromLatin1("a number from %1 to %2")
              .arg(description.minimum)
              .arg(description.maximum)
        : QString::fromLatin1("one of %1").arg(wordList(description).join(QLatin1String(", ")));
}

QString knownNames()
{
    QStringList names;
    for (const FaultDescription &entry : Faults::descriptions())
        names.append(QLatin1String(entry.name));
    return names.join(QLatin1String(", "));
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
        { Fault::HttpStatus, "http-status", "CODE", 201, 599, 500,
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
        { Fault::EndlessDocuments,
          "endless-documents",
          "FORM",
          0,
          1,
          0,
          "Answers each poll with a text that has an unknown key with a list in front: one that "
          "breaks off in the list, or one that is streamed for ever.",
          {},
          { "broken-off", "streamed" } },
        { Fault::GzipBomb, "gzip-bomb", "MB", 1, 4096, 10,
          "Answers each poll with a compressed text, which has so many megabytes of blanks in "
          "front once it is unpacked." },
        { Fault::PollStatus, "poll-status", "CODE", 201, 599, 302,
          "Answers each poll with this status and its usual text." },
        { Fault::WrongTypes, "wrong-types", nullptr, 0, 0, 0,
          "Answers each poll with a text that has texts in place of all numbers." },
        { Fault::AbsentKeys, "absent-keys", nullptr, 0, 0, 0,
          "Leaves the results and the rates out of each progress text." },
        { Fault::Brick, "brick", nullptr, 0, 0, 0,
          "Stays away for good, also if it is started again, once it restarts or is switched off "
          "while it installs or stores firmware." },
        { Fault::Lie, "lie", nullptr, 0, 0, 0,
          "Does all as it should, but installs nothing, and keeps its former firmware." },
        { Fault::OldResult,
          "old-result",
          "RESULT",
          2,
          3,
          2,
          "Tells polls this result while it still installs, the first so many of them or, if that "
          "is 0, all. Leaves the number of the installation out.",
          { "POLLS", 0, MaxCount, 0 } },
        { Fault::Silent,
          "silent",
          "FROM",
          0,
          4,
          1,
          "Answers nothing any more on any road, while connections stay: from half of a transfer "
          "on, from half of an installation on, from its end on, from the order to restart on, "
          "which is not carried out, or from the return from the restart on.",
          {},
          { "send", "install", "done", "restart", "return" } },
        { Fault::Gone,
          "gone",
          "FROM",
          0,
          2,
          1,
          "Goes away for good, as if it was unplugged: at half of a transfer, at half of an "
          "installation, or at its end.",
          {},
          { "send", "install", "done" } },
        { Fault::Restarts, "restarts", "PERCENT", 0, 99, 50,
          "Restarts by itself at this percentage of an installation, which is taken back. Happens "
          "once." },
        { Fault::RestartsSending, "restarts-sending", "PERCENT", 0, 99, 50,
          "Restarts by itself when this much of a transfer has arrived. Happens once." },
    };
    return table;
}

QString Faults::valueText(const FaultDescription &fault)
{
    const QString first = QLatin1String(fault.valueName);
    return fault.second.name == nullptr
        ? first
        : QString::fromLatin1("%1[:%2]").arg(first, QLatin1String(fault.second.name));
}

QString Faults::defaultText(const FaultDescription &fault)
{
    return fault.words.empty() ? QString::number(fault.defaultValue)
                               : wordList(fault).at(int(fault.defaultValue));
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
    if (!readValue(*description, value.left(colon), values.first)) {
        errorText = QString::fromLatin1("The value of the fault \"%1\" is %2.")
                        .arg(name, expectedValue(*description));
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
