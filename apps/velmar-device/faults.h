#ifndef VELMARDEVICE_FAULTS_H
#define VELMARDEVICE_FAULTS_H

#include <QString>
#include <QtGlobal>

#include <map>
#include <vector>

namespace Velmar::Simulator {

/*! What a simulated device can be told to do wrong. */
enum class Fault {
    RefuseAnnounce,
    CutTransfer,
    RefuseConfigure,
    DropProgress,
    RefuseProgress,
    InstallFails,
    NeverEnds,
    PowerCut,
    RefuseRestart,
    NoReturn,
    SlowLink,
    RegisterAck,
    RegisterSilent,
    RegisterCut,
    RegisterNotReady,
    RegisterSlow,
    VersionRefused,
    VersionAllowed,
    VersionBroken,
    VersionSilent,
    HttpStatus,
    HttpReset,
    HttpSlow,
    HttpStall,
    HttpTruncate,
    HttpBroken,
    HttpEmpty,
    HttpHuge,
    HttpSwitch,
    HttpFailsAfterDone,
    EndlessDocuments,
    GzipBomb,
    PollStatus,
    WrongTypes,
    AbsentKeys,
    Brick,
    Lie,
    OldResult,
    Silent,
    Gone,
    Restarts,
    RestartsSending,
};

/*! A second number that a fault takes, behind a colon. */
struct SecondNumber {
    const char *name = nullptr; //!< null: there is none
    qint64 minimum = 0;
    qint64 maximum = 0;
    qint64 defaultValue = 0;
};

/*! One line of the table of faults. */
struct FaultDescription {
    Fault fault;
    const char *name; //!< as on the command line
    const char *valueName; //!< what N stands for; null: the fault takes no value
    qint64 minimum; //!< of N
    qint64 maximum; //!< of N
    qint64 defaultValue; //!< N if none is given; below \a minimum: N has to be given
    const char *help;
    SecondNumber second = {};
    std::vector<const char *> words = {}; //!< for N; it is the place of one of them then, from 0
};

/*! The faults of one device, as chosen on the command line. Does not change while it runs. */
class Faults
{
public:
    /*! All faults there are, in the order of the help text. */
    static const std::vector<FaultDescription> &descriptions();

    /*! What stands behind the "=" of \a fault, for people; it takes a value. */
    static QString valueText(const FaultDescription &fault);

    /*! What \a fault takes for N if none is given; there is such a default. */
    static QString defaultText(const FaultDescription &fault);

    /*! Adds the fault \a text, "NAME", "NAME=N" or "NAME=N:M"; of two with the same name the later
        one counts. False, with \a errorText set, if there is no such fault or a value is not what
        it takes. */
    bool add(const QString &text, QString &errorText);

    bool isSet(Fault fault) const;

    /*! N of \a fault, of a word its place; \a otherwise if the fault is not set. */
    qint64 value(Fault fault, qint64 otherwise) const;

    /*! The second number of \a fault, which is set. */
    qint64 secondValue(Fault fault) const;

private:
    struct Values {
        qint64 first = 0;
        qint64 second = 0;
    };

    std::map<Fault, Values> m_values;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_FAULTS_H
