#ifndef VELMARDEVICE_MISHAPS_H
#define VELMARDEVICE_MISHAPS_H

#include "faults.h"

#include <QObject>

namespace Velmar::Simulator {

/*!
    The faults that befall the device as a whole at some point of an upgrade, by whatever road: it
    falls silent, goes away or restarts by itself.

    Whoever takes the upgrade further tells how far it is. As soon as a fault is due, the device is
    mute: nothing is carried out or answered any more. Belongs to the device's thread.
*/
class Mishaps : public QObject
{
    Q_OBJECT

public:
    /*! \a faults have to outlive this object. */
    explicit Mishaps(const Faults &faults);

    /*! Whether noteSending() can make a difference. Any thread. */
    bool watchesTransfers() const;

    /*! \a percent of a file or of firmware have arrived. */
    void noteSending(int percent);

    /*! \a percent are installed. False if the installation is to go no further. */
    bool noteInstalling(int percent);

    /*! An installation has ended, or firmware is stored. */
    void noteInstalled();

    void noteRestartOrdered();

    /*! The device is back from a restart. */
    void noteReturned();

    bool isMute() const { return m_isMute; }

    /*! The device restarts: it is not mute any more. */
    void endMuteness();

Q_SIGNALS:
    void fellSilent(); //!< and stays where it is
    void wentAway(); //!< for good
    void restarts(); //!< by itself

private:
    /*! In the order of the words for "silent", with which those for "gone" begin. */
    enum class Point { Send, Install, Done, Restart, Return };

    void reach(Point point);
    void restartOnce(Fault fault, int percent, bool &hasHappened);

    const Faults &m_faults;
    bool m_isMute = false;
    bool m_isStopped = false; // gone, or about to restart
    bool m_hasRestartedInstalling = false;
    bool m_hasRestartedSending = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_MISHAPS_H
