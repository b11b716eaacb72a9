#include "run/following.h"

#include <utility>

namespace Velmar::Host {

namespace {

constexpr std::chrono::seconds AnswerLimit { 5 };

// What a device reports of its installation.
constexpr int NothingInstalled = 0; // since its last restart
constexpr int Installed = 2;
constexpr int InstallationFailed = 3;

Following::Found ask(const DeviceAddress &device, ClosableLinks &links)
{
    QString errorText;
    const auto installation =
        readInstallation(device, AnswerLimit, errorText,
                         [&links](const DeviceAddress &address) { return links.make(address); });
    if (!installation)
        return Following::Found::Nothing;
    switch (installation->result) {
    case NothingInstalled:
        return Following::Found::Idle;
    case Installed:
    case InstallationFailed:
        return Following::Found::AtEnd;
    default:
        return Following::Found::AtWork;
    }
}

} // namespace

Following::Following(DeviceAddress device, LinkFactory makeLink)
    : m_device(std::move(device))
    , m_links(std::move(makeLink))
{
    m_pause.setSingleShot(true);
    m_pause.setInterval(std::chrono::milliseconds(500));
    connect(&m_pause, &QTimer::timeout, this, &Following::ask);
}

Following::~Following()
{
    m_links.close(); // the task is waited for
}

void Following::start(std::chrono::milliseconds limit)
{
    m_deadline.setRemainingTime(limit);
    ask();
}

void Following::setInterval(std::chrono::milliseconds interval)
{
    m_pause.setInterval(interval);
}

void Following::ask()
{
    m_answer = Found::Nothing;
    m_task = std::make_unique<BackgroundTask>(
        [this](const std::atomic<bool> &) { m_answer = Host::ask(m_device, m_links); });
    connect(m_task.get(), &BackgroundTask::signalEnded, this, &Following::slotAnswered);
    m_task->start();
}

void Following::slotAnswered()
{
    if (m_answer == Found::Nothing && !m_deadline.hasExpired())
        m_pause.start();
    else
        Q_EMIT signalFound(m_answer);
}

} // namespace Velmar::Host
