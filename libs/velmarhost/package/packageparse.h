#ifndef VELMARHOST_PACKAGEPARSE_H
#define VELMARHOST_PACKAGEPARSE_H

#include "records/upgraderecords.h"

#include <QObject>
#include <QPair>
#include <QTimer>
#include <QVector>

#include <chrono>
#include <memory>

namespace Velmar::Firmware {
class UpgradeFileParsed;
}

namespace Velmar::Host {

class WorkerWatch;

/*!
    One parse of a package by the upgrade library, with a time limit.

    The library's readers are shared by the whole process: one parse at a time. An object parses
    once. All functions are for one thread, which runs an event loop.
*/
class PackageParse : public QObject
{
    Q_OBJECT

public:
    /*! \a path is a package folder or an image configuration file. */
    explicit PackageParse(const QString &path);

    /*! Of a parse whose worker did not end, everything that the worker uses stays allocated. */
    ~PackageParse() override;

    /*! Matches the package with the active device (BizModel::DeviceList). */
    void start(std::chrono::milliseconds timeLimit);

    /*! Matches the package with the main control of \a modelId, without any device or card. */
    void startForModel(quint16 modelId, std::chrono::milliseconds timeLimit);

    /*! True for an image configuration file: a parse then only tells whether the file is good for
        the active device, and has no results. */
    bool isImageFile() const;

    /*! True if the parse was given up; the process should end without waiting for its threads. */
    bool isWorkerLeftBehind() const;

    // Results, empty before the end of a successful parse.
    const QVector<Firmware::UpgradeCfg> &units() const;
    const QVector<Firmware::DataFilePath> &dataFilePaths() const;

Q_SIGNALS:
    /*! The parse has ended and its worker too, or the time limit has passed. \a errorText is the
        library's own text for the user. Emitted once. */
    void signalEnded(bool result, const QString &errorText);

private:
    Q_DISABLE_COPY_MOVE(PackageParse)

    void start(bool isGivenModel, quint16 modelId, std::chrono::milliseconds timeLimit);
    void slotFinished(bool result, const QString &errorText);
    void slotTimeLimit();

    const QString m_path;
    std::unique_ptr<Firmware::UpgradeFileParsed> m_parser;
    std::shared_ptr<WorkerWatch> m_worker;
    QTimer m_timeLimit;
    bool m_isRunning = false;
    bool m_isWorkerLeftBehind = false;
    QVector<Firmware::UpgradeCfg> m_units;
    QVector<Firmware::DataFilePath> m_dataFilePaths;
};

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGEPARSE_H
