#include "run/httprun.h"

#include "run/httphost.h"
#include "run/sendingpercent.h"

#include "upgradeclientproxy.h"
#include "upgradefileofhttp.h"

#include <velmarbizmodel/devicelist.h>
#include <velmarssproxy/devicechannel.h>

#include <QFileInfo>
#include <QPointer>

#include <utility>

namespace Velmar::Host {

using ProtoModel::Auxiliary::s_UpgradePercent;

HttpRun::HttpRun(HttpOrder order)
    : m_order(std::move(order))
    , m_upgrade(std::make_unique<Firmware::UpgradeFileOfHTTP>())
{
    m_silence.setSingleShot(true);
    connect(&m_silence, &QTimer::timeout, this, &HttpRun::slotTimeLimit);
    connect(this, &DeviceRun::signalStageChanged, this, [this](Stage stage) {
        if (stage == Stage::Ended) {
            m_silence.stop();
            if (m_guard)
                m_guard->stop();
        }
    });
    // The library keeps the callbacks for the life of the process.
    m_upgrade->registerRefreshUpgradeProcessCallBack(
        [run = QPointer<HttpRun>(this)](s_UpgradePercent &progress) {
            if (run)
                run->slotProgress(progress);
        });
    m_upgrade->registerUpgradeFinishedCallBack([run = QPointer<HttpRun>(this)] {
        if (run)
            run->slotFinished();
    });
}

HttpRun::~HttpRun() = default;

void HttpRun::start(std::chrono::milliseconds timeLimit, std::chrono::milliseconds stallLimit)
{
    begin(timeLimit);
    QString errorText;
    const auto host = httpHost(m_order.host, errorText);
    if (!host) {
        m_fault = VerdictCode::Unreachable;
        failLater(errorText);
        return;
    }
    // Asking for the version decides on the generation, and the library keeps that to itself.
    m_guard = std::make_unique<HttpGuard>(m_order.isCompatible ? ProgressForm::Either
                                                               : ProgressForm::Newer,
                                          QFileInfo(m_order.filePath).size(), m_order.limits);
    listen();
    m_upgrade->init(m_order.isCompatible, std::make_shared<SSProxy::DeviceChannel>(m_order.link),
                    m_order.modelId, m_order.parts, m_order.filePath, *host);
    const bool isComposed = m_upgrade->doDeviceUpgradeOfHTTP();
    // A message box without an end is how the library says that nothing has begun.
    if (!isComposed || !m_box.isEmpty()) {
        failLater(m_box);
        return;
    }
    m_silence.start(stallLimit);
}

bool HttpRun::isOrdered() const
{
    return m_guard && m_guard->isOrdered();
}

void HttpRun::listen()
{
    using BizModel::DeviceList;
    using namespace BizModel::Enum;
    const auto *screen = DeviceList::instance();
    connect(screen, &DeviceList::signalShowStatusBarMsg, this,
            [this](StatusBarMsgType type, const QString &text) { slotStatusBar(int(type), text); });
    connect(screen, &DeviceList::signalShowFramelessMessageBoxMsg, this,
            [this](FramelessMessageBoxMsgType, const QString &text) {
                slotMessageBox(text);
                return 0;
            });
    connect(m_guard.get(), &HttpGuard::signalFault, this,
            [this](VerdictCode code, const QString &text) {
                m_fault = code;
                finish(false, text);
            });
    connect(m_guard.get(), &HttpGuard::signalOrdering, this, &HttpRun::signalOrdering);
    const auto *client = UpgradeClientProxy::getInstance();
    connect(client, &UpgradeClientProxy::signalOnUploadProgress, this, [this](qint64 sent) {
        if (stage() == Stage::Ended)
            return;
        m_sentBytes = sent;
        noteSignOfLife();
        enter(Stage::Sending);
    });
    connect(client, &UpgradeClientProxy::signalReplyUploadFinished, this, [this](int code) {
        if (code == 0 && stage() != Stage::Ended) {
            noteSignOfLife();
            enter(Stage::Installing);
        }
    });
}

void HttpRun::slotStatusBar(int type, const QString &text)
{
    if (stage() == Stage::Ended || m_hasFinished)
        return;
    if (const auto percent = uploadPercent(text)) {
        enter(Stage::Sending);
        Q_EMIT signalSending(*percent, text);
        return;
    }
    m_isStatusGood = type == int(BizModel::Enum::StatusBarMsgType::Information);
    // The progress of an installation is told once a second, be there news or not.
    if (text != std::exchange(m_status, text))
        Q_EMIT signalStatusText(text);
}

void HttpRun::slotMessageBox(const QString &text)
{
    if (stage() == Stage::Ended)
        return;
    m_box = text;
    // One that begins nothing is the last word of the run.
    if (m_hasFinished)
        Q_EMIT signalStatusText(text);
}

void HttpRun::slotProgress(const s_UpgradePercent &progress)
{
    if (m_guard)
        m_guard->noteProgressRead();
    if (stage() == Stage::Ended)
        return;
    // 0 says nothing of this upgrade: a device that has restarted has forgotten it.
    if (progress.result != 0)
        noteSignOfLife();
    enter(Stage::Installing);
    Q_EMIT signalInstalling(progress);
}

void HttpRun::slotFinished()
{
    if (std::exchange(m_hasFinished, true))
        return;
    // The message box comes behind the callback.
    QTimer::singleShot(0, this, [this] { finish(m_isStatusGood, m_status); });
}

void HttpRun::failLater(const QString &text)
{
    // Not before start() has returned: whoever called it is not waiting yet.
    QTimer::singleShot(0, this, [this, text] { finish(false, text); });
}

void HttpRun::noteSignOfLife()
{
    if (m_silence.isActive())
        m_silence.start();
}

} // namespace Velmar::Host
