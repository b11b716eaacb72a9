#ifndef VELMARHOST_ONETRYLINK_H
#define VELMARHOST_ONETRYLINK_H

#include <velmarbizmodel/devicelink.h>

#include <chrono>
#include <memory>

namespace Velmar::Host {

/*!
    A link over which a question is asked once.

    The control layer asks again for a minute where it gets no answer, which is right for an upgrade
    and too long for a host that wants to know what a device is, or looks whether it is back. To a
    reader over this link, every failure is an answer: a refusal.

    Neither opens nor closes the link below it.
*/
class OneTryLink : public BizModel::DeviceLink
{
public:
    /*! \a timeout is for each answer, whatever a request says. */
    OneTryLink(std::shared_ptr<BizModel::DeviceLink> link, std::chrono::milliseconds timeout);

    /*! Why the last request failed; empty if it was accepted. */
    const QString &failure() const;

    bool open(int timeout, QString &errorText) override;
    void close() override;
    bool isOpen() const override;
    BizModel::LinkAnswer send(const BizModel::LinkRequest &request) override;
    void pauseHeartbeat(int milliseconds) override;
    void restartHeartbeat() override;

private:
    const std::shared_ptr<BizModel::DeviceLink> m_link;
    const std::chrono::milliseconds m_timeout;
    QString m_failure;
};

} // namespace Velmar::Host

#endif // VELMARHOST_ONETRYLINK_H
