#ifndef VELMARHOST_CLOSABLELINKS_H
#define VELMARHOST_CLOSABLELINKS_H

#include "device/devicefacts.h"

#include <memory>
#include <mutex>
#include <vector>

namespace Velmar::Host {

/*!
    Makes links that can all be called off together, so that nobody has to wait for a device that says
    nothing.

    The links may live longer than this object. Any thread.
*/
class ClosableLinks
{
public:
    explicit ClosableLinks(LinkFactory makeLink = makeSocketLink);

    std::shared_ptr<BizModel::DeviceLink> make(const DeviceAddress &address);

    /*!
        Closes the links for good: they cannot be opened any more, nor can those that are made later.

        Returns once nobody waits on them, which is soon. For questions alone: what a device does
        about a request that is under way nobody learns.
    */
    void close();

private:
    Q_DISABLE_COPY_MOVE(ClosableLinks)

    class Link;

    const LinkFactory m_makeLink;
    std::mutex m_mutex; // guards what follows
    std::vector<std::weak_ptr<Link>> m_links;
    bool m_isClosed = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_CLOSABLELINKS_H
