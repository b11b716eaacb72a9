#ifndef VELMARHOST_WORKERORDER_H
#define VELMARHOST_WORKERORDER_H

#include "device/deviceaddress.h"
#include "package/plan.h"
#include "package/selection.h"
#include "run/road.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <optional>

namespace Velmar::Host {

/*! What a worker process is started for. */
enum class WorkerMode {
    Plan, //!< parse and plan
    Upgrade, //!< parse, plan, wait for the word to go on, upgrade
    Watch, //!< follow an installation that was ordered before
};

/*! Everything that a worker process is told at its start. */
struct WorkerOrder {
    static constexpr int Protocol = 1; //!< of orders and messages; both sides have the same

    WorkerMode mode = WorkerMode::Plan;
    Road road = Road::Native;
    QString packagePath; //!< absolute, of a folder that the worker may write to; not for Watch
    DeviceAddress device; //!< with an empty host for a plan by \a modelId
    std::optional<quint16> modelId; //!< for Plan alone: the main control of a model, no device
    QString cataloguePath; //!< absolute; empty: the built-in catalogue
    QString keyFilePath; //!< absolute; empty: the built-in key
    Wish wish;
    PlannedUpload upload; //!< for the HTTP road
    bool mayRestart = false; //!< for Watch: restart also a device that had ended before
    std::chrono::milliseconds timeLimit { std::chrono::hours(24) }; //!< for each step of the worker
    std::chrono::milliseconds silenceLimit { std::chrono::minutes(2) }; //!< of the HTTP service

    /*! The order as one line, with its line feed. */
    QByteArray toLine() const;

    /*! Reads what toLine() writes, strictly; \a errorText says what is wrong otherwise. */
    static std::optional<WorkerOrder> fromLine(const QByteArray &line, QString &errorText);
};

/*! What a worker process is told behind its order. */
enum class WorkerCommand {
    Go, //!< the plan is agreed to
    Stop, //!< end at the next safe point
};

/*! \a command as one line, with its line feed. */
QByteArray commandLine(WorkerCommand command);

/*! The command in \a line; nothing if it is none. */
std::optional<WorkerCommand> readCommandLine(const QByteArray &line);

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERORDER_H
