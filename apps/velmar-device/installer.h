#ifndef VELMARDEVICE_INSTALLER_H
#define VELMARDEVICE_INSTALLER_H

#include "installation.h"

#include <records/devicerecords.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

namespace Velmar::Simulator {

class Faults;

/*!
    Installs at a set pace and tells how far it is.

    The overall rate stays below 100 until the record says that the installation is over. Sections
    are worked on one after the other, in the order in which they were ordered.
*/
class Installer : public QObject
{
    Q_OBJECT

public:
    /*! Asked between two steps, with the percentage so far; false lets the installation stand still
        until breakOff(). */
    using Permission = std::function<bool(int percent)>;

    /*! An installation takes \a durationMs, or longer if the disk does. \a folder, \a state and
        \a faults have to outlive this object. */
    Installer(const StateFolder &folder, DeviceState &state, const Faults &faults, int durationMs);
    ~Installer() override;

    /*! Nobody is asked without it. */
    void setPermission(const Permission &permission) { m_permission = permission; }

    /*! Starts to install the waiting image. */
    Outcome start(const InstallationOrder &order);

    bool isRunning() const { return m_installation != nullptr; }

    /*! Takes no order any more until breakOff(): a restart is due. */
    void waitForRestart() { m_isRestartDue = true; }

    /*! Accepted if an installation could begin now, as far as it is not for the image. */
    Outcome readiness() const;

    /*! Breaks off what is going on, for a restart; Installation::recover() has to follow. */
    void breakOff();

    /*! Number of the last installation, 0 if there never was one. */
    quint32 run() const;

    /*! How far the last installation is. Result 0: none since the last ordered restart; 1: running;
        2: done; 3: failed. */
    ProtoModel::Auxiliary::s_UpgradePercent progress() const;

Q_SIGNALS:
    /*! An installation is over, with \a result 2 or 3; \a errorText tells why it failed. */
    void finished(int result, const QString &errorText);

private:
    void work();
    void end();
    void finishWell();
    bool stageWhatIsDue(QString &errorText);
    bool placeSome(QString &errorText);
    qint64 timeShare() const;
    void fail(const QString &errorText);

    const StateFolder &m_folder;
    DeviceState &m_state;
    const Faults &m_faults;
    const int m_durationMs;
    Permission m_permission; // may be empty
    std::unique_ptr<Installation> m_installation; // null while none is running
    bool m_isRestartDue = false;
    bool m_isBound = false;
    bool m_failedUnrecorded = false; // the disk did not take the news
    qint64 m_share = 0; // done of the running or failed installation, 0 to WholeShare
    QElapsedTimer m_clock;
    QTimer m_timer;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_INSTALLER_H
