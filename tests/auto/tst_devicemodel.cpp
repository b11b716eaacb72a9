#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarbizmodel/subcard.h>

#include <QtTest>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

using namespace Velmar::BizModel;

namespace {

class SilentLink : public DeviceLink
{
public:
    bool open(int, QString &) override { return true; }
    void close() override { }
    bool isOpen() const override { return true; }
    LinkAnswer send(const LinkRequest &) override { return {}; }
    void pauseHeartbeat(int) override { }
    void restartHeartbeat() override { }
};

std::shared_ptr<Device> makeDevice(s_DeviceConfig config = {},
                                   std::vector<std::shared_ptr<Subcard>> subcards = {})
{
    return std::make_shared<Device>(config, subcards, std::make_shared<SilentLink>());
}

std::shared_ptr<Subcard> makeCard(unsigned int modelId, unsigned char slotId, unsigned char boardId)
{
    return std::make_shared<Subcard>(modelId, slotId, boardId);
}

struct Message {
    int type;
    QString text;
    int milliseconds;
    bool isInOwnThread;
};

} // namespace

class tst_DeviceModel : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void showStatus(Velmar::BizModel::Enum::StatusBarMsgType type, QString text, int milliseconds)
    {
        m_messages.append({ int(type), text, milliseconds, thread() == QThread::currentThread() });
    }
    int showBox(Velmar::BizModel::Enum::FramelessMessageBoxMsgType type, QString text)
    {
        m_messages.append({ int(type), text, 0, thread() == QThread::currentThread() });
        return 1;
    }

private Q_SLOTS:
    void init() { m_messages.clear(); }
    void cleanup()
    {
        DeviceList::instance()->disconnect(this);
        DeviceList::instance()->setActivedDevice({});
    }

    void numbersOfTheInterface()
    {
        QCOMPARE(int(Enum::StatusBarMsgType::Information), 0);
        QCOMPARE(int(Enum::StatusBarMsgType::Failure), 2);
        QCOMPARE(int(Enum::FramelessMessageBoxMsgType::Warning), 1);
        QCOMPARE(int(Enum::FramelessMessageBoxMsgType::Error), 2);
        QCOMPARE(int(Enum::File::FileType::Upgrade), 13);
    }

    void deviceTellsItsModel()
    {
        s_DeviceConfig config;
        config.modelId = 0x7701;
        config.name = QStringLiteral("Controller");
        config.upgradeCfgs.append({ QStringLiteral("MCU"), 1, 0x0101, 0x000C, 1 });
        const auto device = makeDevice(config);

        QCOMPARE(device->modelId(), quint16(0x7701));
        QCOMPARE(device->deviceConfig().name, QStringLiteral("Controller"));
        QCOMPARE(device->deviceConfig().upgradeCfgs.size(), 1);
        QCOMPARE(device->deviceConfig().upgradeCfgs.first().name, QStringLiteral("MCU"));
        QCOMPARE(device->upgradeRun.load(), 0U);
        QVERIFY(device->link() != nullptr);
    }

    void subcardsComeInSlotOrder()
    {
        const auto device = makeDevice({},
                                       { makeCard(0x7802, 3, 2), makeCard(0x7801, 1, 1),
                                         makeCard(0x7811, 7, 1), makeCard(0x7802, 2, 1) });

        QList<int> slotIds;
        for (const auto &card : device->subcards())
            slotIds.append(card->slotId());
        QCOMPARE(slotIds, (QList<int> { 1, 2, 3, 7 }));
    }

    void boardIdsOfAModel_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<QList<int>>("boardIds");

        QTest::newRow("two boards of one model, in slot order") << 0x7802 << QList<int> { 1, 2, 1 };
        QTest::newRow("one card") << 0x7801 << QList<int> { 5 };
        QTest::newRow("not fitted") << 0x7811 << QList<int>();
        QTest::newRow("equal in the low 16 bits only") << 0x17801 << QList<int>();
        QTest::newRow("negative, equal as an unsigned number") << -1 << QList<int>();
    }
    void boardIdsOfAModel()
    {
        QFETCH(int, modelId);
        const auto device =
            makeDevice({},
                       { makeCard(0x7802, 4, 1), makeCard(0x7802, 3, 2), makeCard(0x7801, 2, 5),
                         makeCard(0x7802, 1, 1), makeCard(0xFFFFFFFF, 5, 9) });

        QTEST(device->findSubcardBoardIdByModelId(modelId), "boardIds");
    }

    void configIsCopiedWithItsSubCards()
    {
        s_DeviceConfig config;
        s_SubCardConfig subCard;
        subCard.modelId = 0x7801;
        subCard.slotCount = 4;
        config.subCardConfigs.append(subCard);

        s_DeviceConfig copy = config;
        copy.subCardConfigs.first().slotCount = 8;

        QCOMPARE(config.subCardConfigs.first().slotCount, 4);
        QCOMPARE(copy.subCardConfigs.first().slotCount, 8);
        QCOMPARE(copy.subCardConfigs.first().modelId, quint16(0x7801));
    }

    void activedDeviceIsNotKeptAlive()
    {
        QVERIFY(DeviceList::instance()->activedDevice().expired());

        auto device = makeDevice();
        DeviceList::instance()->setActivedDevice(device);
        QCOMPARE(DeviceList::instance()->activedDevice().lock(), device);

        device.reset();
        QVERIFY(DeviceList::instance()->activedDevice().expired());
    }

    void activedDeviceMayChangeUnderItsReaders()
    {
        s_DeviceConfig first;
        first.modelId = 1;
        s_DeviceConfig second;
        second.modelId = 2;
        const std::array devices { makeDevice(first), makeDevice(second) };
        DeviceList::instance()->setActivedDevice(devices.front());

        std::atomic<bool> isChanging { true };
        std::atomic<int> strangers { 0 };
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                do {
                    const auto device = DeviceList::instance()->activedDevice().lock();
                    if (!device || device->modelId() < 1 || device->modelId() > 2)
                        ++strangers;
                } while (isChanging);
            });
        }
        for (int i = 0; i < 500; ++i) {
            for (const auto &device : devices)
                DeviceList::instance()->setActivedDevice(device);
        }
        isChanging = false;
        for (std::thread &reader : readers)
            reader.join();

        QCOMPARE(strangers.load(), 0);
    }

    void workersMessagesReachTheHostsThread()
    {
        // By name: only registered types cross threads in such a connection.
        DeviceList *const list = DeviceList::instance();
        QVERIFY(connect(
            list,
            SIGNAL(signalShowStatusBarMsg(Velmar::BizModel::Enum::StatusBarMsgType, QString, int)),
            this, SLOT(showStatus(Velmar::BizModel::Enum::StatusBarMsgType, QString, int))));
        QVERIFY(connect(
            list,
            SIGNAL(signalShowFramelessMessageBoxMsg(
                Velmar::BizModel::Enum::FramelessMessageBoxMsgType, QString)),
            this, SLOT(showBox(Velmar::BizModel::Enum::FramelessMessageBoxMsgType, QString))));

        std::thread worker([list] {
            Q_EMIT list->signalShowStatusBarMsg(Enum::StatusBarMsgType::Failure,
                                                QStringLiteral("failed"), 5000);
            Q_EMIT list->signalShowStatusBarMsg(Enum::StatusBarMsgType::Information, QString(), 1);
            Q_EMIT list->signalShowFramelessMessageBoxMsg(Enum::FramelessMessageBoxMsgType::Error,
                                                          QStringLiteral("box"));
        });
        worker.join();
        QVERIFY(m_messages.isEmpty());

        QTRY_COMPARE(m_messages.size(), 3);
        QCOMPARE(m_messages.at(0).type, 2);
        QCOMPARE(m_messages.at(0).text, QStringLiteral("failed"));
        QCOMPARE(m_messages.at(0).milliseconds, 5000);
        QCOMPARE(m_messages.at(1).type, 0);
        QCOMPARE(m_messages.at(1).text, QString());
        QCOMPARE(m_messages.at(1).milliseconds, 1);
        QCOMPARE(m_messages.at(2).type, 2);
        QCOMPARE(m_messages.at(2).text, QStringLiteral("box"));
        for (const Message &message : qAsConst(m_messages))
            QVERIFY(message.isInOwnThread);
    }

    void messageBoxAnswersADirectReceiver()
    {
        connect(DeviceList::instance(), &DeviceList::signalShowFramelessMessageBoxMsg, this,
                &tst_DeviceModel::showBox);

        QCOMPARE(Q_EMIT DeviceList::instance()->signalShowFramelessMessageBoxMsg(
                     Enum::FramelessMessageBoxMsgType::Warning, QStringLiteral("sure")),
                 1);
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages.first().type, 1);
    }

    void linkAnswerIsAcceptedOnlyIfAnsweredWithZero_data()
    {
        QTest::addColumn<int>("outcome");
        QTest::addColumn<int>("ack");
        QTest::addColumn<bool>("isAccepted");

        QTest::newRow("answered, accepted") << int(LinkAnswer::Outcome::Answered) << 0 << true;
        QTest::newRow("answered, refused") << int(LinkAnswer::Outcome::Answered) << 1 << false;
        QTest::newRow("not delivered") << int(LinkAnswer::Outcome::NotDelivered) << 0 << false;
        QTest::newRow("timed out") << int(LinkAnswer::Outcome::TimedOut) << 0 << false;
        QTest::newRow("lost") << int(LinkAnswer::Outcome::Lost) << 0 << false;
    }
    void linkAnswerIsAcceptedOnlyIfAnsweredWithZero()
    {
        QFETCH(int, outcome);
        QFETCH(int, ack);
        LinkAnswer answer;
        QVERIFY(!answer.isAccepted());
        answer.outcome = LinkAnswer::Outcome(outcome);
        answer.ack = quint16(ack);

        QTEST(answer.isAccepted(), "isAccepted");
    }

private:
    QVector<Message> m_messages;
};

QTEST_GUILESS_MAIN(tst_DeviceModel)
#include "tst_devicemodel.moc"
