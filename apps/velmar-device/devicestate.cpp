#include "devicestate.h"

#include "durable.h"
#include "statefolder.h"

#include <QDir>
#include <QRandomGenerator>
#include <QSaveFile>

namespace Velmar::Simulator {

namespace {

/*! A stop while the record is being written leaves the unfinished file behind. */
void removeUnfinishedRecords(const QString &folder)
{
    QDir dir(folder);
    const QStringList names =
        dir.entryList({ QString::fromLatin1("state.json.*") }, QDir::Files | QDir::Hidden);
    for (const QString &name : names)
        dir.remove(name);
}

QString newSerial()
{
    return QString::fromLatin1("SIM-%1")
        .arg(QRandomGenerator::system()->generate(), 8, 16, QLatin1Char('0'))
        .toUpper();
}

} // namespace

std::unique_ptr<DeviceState> DeviceState::load(const StateFolder &folder, quint16 modelId,
                                               QString &errorText)
{
    removeUnfinishedRecords(folder.path());
    DeviceRecord record;
    QFile file(folder.stateFile());
    if (!file.exists()) {
        record.modelId = modelId;
        record.serial = newSerial();
    } else {
        QString fault;
        if (!file.open(QIODevice::ReadOnly)) {
            fault = file.errorString();
        } else if (const auto read = DeviceRecord::fromJson(file.readAll(), fault)) {
            record = *read;
        }
        if (!fault.isEmpty()) {
            errorText = QString::fromLatin1("The device state \"%1\" cannot be read: %2.")
                            .arg(folder.stateFile(), fault);
            return nullptr;
        }
        if (record.modelId != modelId) {
            errorText = QString::fromLatin1("The state folder \"%1\" belongs to a device of model "
                                            "0x%2, not of model 0x%3.")
                            .arg(folder.path())
                            .arg(record.modelId, 4, 16, QLatin1Char('0'))
                            .arg(modelId, 4, 16, QLatin1Char('0'));
            return nullptr;
        }
    }
    return std::unique_ptr<DeviceState>(
        new DeviceState(folder.stateFile(), folder.path(), std::move(record)));
}

DeviceState::DeviceState(QString path, QString folder, DeviceRecord record)
    : m_path(std::move(path))
    , m_folder(std::move(folder))
    , m_record(std::move(record))
{
}

bool DeviceState::update(const std::function<void(DeviceRecord &)> &change, QString &errorText)
{
    DeviceRecord next = m_record;
    change(next);
    const QByteArray json = next.toJson();
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit()) {
        errorText = QString::fromLatin1("The device state \"%1\" cannot be written: %2.")
                        .arg(m_path, file.errorString());
        return false;
    }
    m_record = std::move(next);
    syncFolder(m_folder); // the new record is in place even if its name is not yet on the disk
    return true;
}

QString DeviceState::runningVersion(const SectionKey &key) const
{
    const auto found = m_record.sections.find(key);
    return found == m_record.sections.end() ? QString::fromLatin1(FactoryVersion)
                                            : found->second.running;
}

} // namespace Velmar::Simulator
