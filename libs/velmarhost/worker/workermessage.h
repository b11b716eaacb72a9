#ifndef VELMARHOST_WORKERMESSAGE_H
#define VELMARHOST_WORKERMESSAGE_H

#include "device/guardedlink.h"
#include "package/plan.h"
#include "records/devicerecords.h"
#include "run/phase.h"
#include "run/verdict.h"
#include "worker/workerline.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <variant>

namespace Velmar::Host {

// What a worker process tells its host, a JSON object in a line each. Texts are those of library,
// device and package, not made printable.

/*! The first message: the worker has begun. */
struct HelloTell {
    int protocol = 0;
};

struct PhaseTell {
    Phase phase = Phase::Planning;
};

/*! The worker waits behind it for the word to go on. */
struct PlanTell {
    Plan plan;
};

/*! The last message of a worker that knows itself why it cannot go on. */
struct RefusedTell {
    VerdictCode code = VerdictCode::Internal;
    QString text;
};

/*! A status text of the library. */
struct StatusTell {
    QString text;
};

struct SendingTell {
    int percent = 0; //!< 0 to 100
    qint64 sentBytes = 0;
    qint64 totalBytes = -1; //!< -1: not known
};

/*! The device's report on its installation. */
struct InstallingTell {
    ProtoModel::Auxiliary::s_UpgradePercent progress;
};

struct TrafficTell {
    LinkTraffic traffic;
};

/*! A line of the library's log. */
struct LogTell {
    QtMsgType level = QtDebugMsg;
    QString text;
};

/*! Whether the worker follows an order to stop; if not, the device is at work and is not to be
    interrupted. */
struct StopTell {
    bool isTaken = false;
};

/*! The last message of a run: the library's verdict and its text. */
struct EndTell {
    bool result = false;
    QString text;
};

using WorkerMessage =
    std::variant<HelloTell, PhaseTell, PlanTell, RefusedTell, StatusTell, SendingTell,
                 InstallingTell, TrafficTell, LogTell, StopTell, EndTell>;

/*! Longest text of a message, in characters; longer ones are cut when they are written. */
constexpr int WorkerTextLimit = 16 * 1024;

/*! \a message as one line, with its line feed. Only that of a PlanTell may be over
    WorkerLineLimit. */
QByteArray toLine(const WorkerMessage &message);

/*! Reads what toLine() writes, strictly: a missing, unknown or badly typed key, a number out of its
    range or a word that is none is a fault, and \a errorText then says which. */
std::optional<WorkerMessage> readWorkerMessage(const QByteArray &line, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERMESSAGE_H
