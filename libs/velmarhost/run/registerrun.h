#ifndef VELMARHOST_REGISTERRUN_H
#define VELMARHOST_REGISTERRUN_H

#include "run/devicerun.h"

#include <vector>

namespace Velmar::BizModel {
class DeviceLink;
}

namespace Velmar::Firmware {
class CompatibilityUpgradeDat;
}

namespace Velmar::SSProxy {
class DeviceChannel;
}

namespace Velmar::Host {

/*!
    One upgrade of an MCU register by register, from the package that was parsed last.

    A device keeps its former firmware until it has the whole of the new one. It restarts by itself
    then, which this run does not wait for. To be given up, a run closes the link: the worker then
    comes to its end and takes the plain copy of the file away.
*/
class RegisterRun : public DeviceRun
{
    Q_OBJECT

public:
    /*! \a link is open; of \a parts, those of type 1 are upgraded. */
    RegisterRun(const std::shared_ptr<BizModel::DeviceLink> &link,
                std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts);

    /*! Of a run whose worker did not end, everything that the worker uses stays allocated. */
    ~RegisterRun() override;

    void start(std::chrono::milliseconds timeLimit);

private:
    Q_DISABLE_COPY_MOVE(RegisterRun)

    bool endWorker(std::chrono::milliseconds limit) override;

    void slotProgress(double fraction);
    void slotFinished(bool result, const QString &errorText);

    const std::shared_ptr<BizModel::DeviceLink> m_link;
    const std::shared_ptr<SSProxy::DeviceChannel> m_channel;
    const std::vector<ProtoModel::Auxiliary::s_CardInfoParts> m_parts;
    std::unique_ptr<Firmware::CompatibilityUpgradeDat> m_upgrade;
    bool m_isStarted = false; // the worker
    int m_percent = -1; // of the file, as signalSending() told it last
};

} // namespace Velmar::Host

#endif // VELMARHOST_REGISTERRUN_H
