#ifndef VELMARDEVICE_HTTPUPGRADE_H
#define VELMARDEVICE_HTTPUPGRADE_H

#include "generation.h"
#include "outcome.h"
#include "toldprogress.h"

#include <records/devicerecords.h>

#include <QObject>
#include <QTimer>

#include <functional>
#include <string>

namespace Velmar::Simulator {

class DeviceState;
class Faults;
class FileReceiver;
class Fitting;
class Installer;
class StateFolder;

/*! What an upload has brought, as the server's thread leaves it to the device. */
struct ReceivedUpload {
    QString path; //!< of the file, complete and on the disk
    QByteArray sha256; //!< of the file
    std::string controlText;
};

/*!
    Upgrades as the HTTP service orders them: installs an upload at once, and restarts once the
    installation is over and a host knows it, or after some seconds.
*/
class HttpUpgrade : public QObject
{
    Q_OBJECT

public:
    /*! What an upgrade works on; all of it has to outlive this object. */
    struct Device {
        const Fitting &fitting;
        const StateFolder &folder;
        DeviceState &state;
        FileReceiver &receiver;
        Installer &installer;
        const Faults &faults;
    };

    HttpUpgrade(const Device &device, Generation generation, std::function<void()> restart);

    /*! Starts to install \a upload; its file is moved, unless it is refused. */
    Outcome install(const ReceivedUpload &upload);

    /*! What a poll is to be told now. */
    ProtoModel::Auxiliary::s_UpgradePercent progress();

    /*! Forgets what was going on: the device restarts. */
    void reset();

private:
    void noteTold(int result);

    const Device m_device;
    const Generation m_generation;
    ToldProgress m_told;
    QTimer m_restart; // runs once the installation is over
    bool m_restartsAtEnd = false;
    bool m_hasToldDone = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_HTTPUPGRADE_H
