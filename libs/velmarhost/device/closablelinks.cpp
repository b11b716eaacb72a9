#include "device/closablelinks.h"

#include <velmarbizmodel/devicelink.h>

#include <chrono>
#include <condition_variable>
#include <utility>

namespace Velmar::Host {

using BizModel::LinkAnswer;
using BizModel::LinkRequest;

namespace {

constexpr std::chrono::milliseconds CloseInterval { 10 };

QString closedText()
{
    return QStringLiteral("the question was called off");
}

} // namespace

class ClosableLinks::Link : public BizModel::DeviceLink
{
public:
    Link(std::shared_ptr<BizModel::DeviceLink> link, bool isClosed)
        : m_link(std::move(link))
        , m_isClosed(isClosed)
    {
    }

    void closeForGood()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isClosed = true;
        m_link->close();
        // Again and again: somebody may be about to open the link below.
        while (!m_changed.wait_for(lock, CloseInterval, [this] { return m_users == 0; }))
            m_link->close();
    }

    bool open(int timeout, QString &errorText) override
    {
        const Use use(*this);
        if (!use.isAllowed) {
            errorText = closedText();
            return false;
        }
        return m_link->open(timeout, errorText);
    }

    void close() override { m_link->close(); }

    bool isOpen() const override { return m_link->isOpen(); }

    LinkAnswer send(const LinkRequest &request) override
    {
        const Use use(*this);
        if (use.isAllowed)
            return m_link->send(request);
        LinkAnswer answer;
        answer.errorText = closedText();
        return answer;
    }

    void pauseHeartbeat(int milliseconds) override
    {
        const Use use(*this);
        if (use.isAllowed)
            m_link->pauseHeartbeat(milliseconds);
    }

    void restartHeartbeat() override
    {
        const Use use(*this);
        if (use.isAllowed)
            m_link->restartHeartbeat();
    }

private:
    /*! Somebody who may have to wait. */
    class Use
    {
    public:
        explicit Use(Link &link)
            : m_link(link)
        {
            const std::lock_guard<std::mutex> lock(m_link.m_mutex);
            isAllowed = !m_link.m_isClosed;
            ++m_link.m_users;
        }

        ~Use()
        {
            {
                const std::lock_guard<std::mutex> lock(m_link.m_mutex);
                --m_link.m_users;
            }
            m_link.m_changed.notify_all();
        }

        bool isAllowed = false;

    private:
        Q_DISABLE_COPY_MOVE(Use)

        Link &m_link;
    };

    const std::shared_ptr<BizModel::DeviceLink> m_link;
    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    int m_users = 0;
    bool m_isClosed;
};

ClosableLinks::ClosableLinks(LinkFactory makeLink)
    : m_makeLink(std::move(makeLink))
{
}

std::shared_ptr<BizModel::DeviceLink> ClosableLinks::make(const DeviceAddress &address)
{
    auto link = m_makeLink(address);
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto closable = std::make_shared<Link>(std::move(link), m_isClosed);
    m_links.push_back(closable);
    return closable;
}

void ClosableLinks::close()
{
    std::vector<std::weak_ptr<Link>> links;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isClosed = true;
        links.swap(m_links);
    }
    for (const auto &each : links) {
        if (const auto link = each.lock())
            link->closeForGood();
    }
}

} // namespace Velmar::Host
