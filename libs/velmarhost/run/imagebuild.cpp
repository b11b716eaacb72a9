#include "run/imagebuild.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>

#include <QEventLoop>
#include <QFile>

#include <atomic>
#include <utility>

namespace Velmar::Host {

/*! Lets a worker ask a device for its version, and refuses everything else on the spot. */
class ImageBuild::AskingLink : public BizModel::DeviceLink
{
public:
    explicit AskingLink(std::shared_ptr<BizModel::DeviceLink> link)
        : m_link(std::move(link))
    {
    }

    bool open(int timeout, QString &errorText) override { return m_link->open(timeout, errorText); }
    void close() override { }
    bool isOpen() const override { return m_link->isOpen(); }
    void pauseHeartbeat(int /*milliseconds*/) override { }
    void restartHeartbeat() override { }

    BizModel::LinkAnswer send(const BizModel::LinkRequest &request) override
    {
        if (request.operation == QLatin1String("version.read"))
            return m_link->send(request);
        // The announcement comes behind the image: only a whole one is announced.
        if (request.operation == QLatin1String("file.announce"))
            isAnnounced = true;
        BizModel::LinkAnswer refusal;
        refusal.outcome = BizModel::LinkAnswer::Outcome::Answered;
        refusal.ack = 1;
        refusal.errorText = QStringLiteral("the image is not for this link");
        return refusal;
    }

    std::atomic<bool> isAnnounced { false }; // set by the worker

private:
    const std::shared_ptr<BizModel::DeviceLink> m_link;
};

namespace {

std::shared_ptr<BizModel::Device> sameDevice(const std::weak_ptr<BizModel::Device> &device,
                                             std::shared_ptr<BizModel::DeviceLink> link)
{
    const auto original = device.lock();
    return std::make_shared<BizModel::Device>(original->deviceConfig(), original->subcards(),
                                              std::move(link));
}

UpgradeOrder orderFor(UpgradeOrder order, const std::shared_ptr<BizModel::Device> &device)
{
    order.device = device;
    return order;
}

} // namespace

ImageBuild::ImageBuild(const UpgradeOrder &order)
    : m_link(std::make_shared<AskingLink>(order.device.lock()->link()))
    , m_device(sameDevice(order.device, m_link))
    , m_imagePath(order.packagePath + QLatin1String("/upgrade"))
    , m_run(orderFor(order, m_device))
{
}

ImageBuild::~ImageBuild()
{
    // A worker that is still at it would be writing the file.
    if (!m_run.isWorkerLeftBehind())
        QFile::remove(m_imagePath);
}

bool ImageBuild::run(std::chrono::milliseconds timeLimit, QString &errorText)
{
    QEventLoop loop;
    DeviceRun::Outcome outcome = DeviceRun::Outcome::Failed;
    QObject::connect(&m_run, &DeviceRun::signalEnded, &loop,
                     [&](DeviceRun::Outcome ended, const QString &text) {
                         outcome = ended;
                         errorText = text;
                         loop.quit();
                     });
    m_run.start(Firmware::Enum::UpgradeProcessType::FullUpgrade, timeLimit);
    loop.exec();
    if (outcome == DeviceRun::Outcome::TimedOut)
        errorText = QStringLiteral("The image was not built in time");
    // The run itself always fails, at the announcement at the latest.
    return outcome != DeviceRun::Outcome::TimedOut && m_link->isAnnounced;
}

const QString &ImageBuild::imagePath() const
{
    return m_imagePath;
}

} // namespace Velmar::Host
