#include "firmwarestore.h"

#include "devicestate.h"
#include "durable.h"
#include "statefolder.h"

#include <QDir>
#include <QRegularExpression>

#include <cstdio>

namespace Velmar::Simulator {

namespace {

constexpr int HeadSize = 64; // bytes in which the first line has to end
constexpr int NameBytes = 8; // of the hash; enough to tell firmware apart

QString firmwareName(const SectionKey &target, const QByteArray &hash)
{
    const QString card = target.slotId == 0 ? QString::fromLatin1("main")
                                            : QString::fromLatin1("slot%1").arg(target.slotId);
    return QString::fromLatin1("%1-%2.bin")
        .arg(card, QString::fromLatin1(hash.left(NameBytes).toHex()));
}

} // namespace

FirmwareStore::FirmwareStore(const StateFolder &folder, DeviceState &state)
    : m_folder(folder)
    , m_state(state)
{
    removeUnknown();
}

FirmwareStore::~FirmwareStore()
{
    discard();
}

bool FirmwareStore::append(const QByteArray &bytes, QString &errorText)
{
    if (!m_file.isOpen()) {
        m_file.setFileName(incomingPath());
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
            errorText =
                QString::fromLatin1("the firmware cannot be stored: %1").arg(m_file.errorString());
            return false;
        }
    }
    const qint64 size = m_file.pos();
    // Not buffered: what is accepted is with the system.
    if (m_file.write(bytes) != bytes.size()) {
        errorText =
            QString::fromLatin1("the firmware cannot be stored: %1").arg(writeFault(m_file));
        m_file.resize(size);
        m_file.seek(size);
        return false;
    }
    m_head += bytes.left(HeadSize - m_head.size());
    m_hash.addData(bytes);
    return true;
}

bool FirmwareStore::isEnciphered() const
{
    return m_head.startsWith("VRC2");
}

bool FirmwareStore::install(const SectionKey &target, QString &errorText)
{
    const QString name = firmwareName(target, m_hash.result());
    const QString path = m_folder.firmware() + QLatin1Char('/') + name;
    // Renamed over a file of the same contents, if there is one.
    const bool isInPlace = syncFile(m_file)
        && std::rename(QFile::encodeName(incomingPath()).constData(),
                       QFile::encodeName(path).constData())
            == 0
        && syncFolder(m_folder.firmware());
    if (!isInPlace) {
        errorText = QString::fromLatin1("\"%1\" cannot be stored").arg(path);
        return false;
    }
    const bool isNoted = m_state.update(
        [&](DeviceRecord &record) {
            const QString running = m_state.runningVersion(target);
            record.sections[target] = { running, version() };
            record.firmware[target] = name;
        },
        errorText);
    removeUnknown();
    return isNoted;
}

void FirmwareStore::discard()
{
    if (m_file.isOpen()) {
        m_file.close();
        QFile::remove(incomingPath());
    }
    m_head.clear();
    m_hash.reset();
}

QString FirmwareStore::incomingPath() const
{
    return m_folder.incoming() + QLatin1String("/firmware");
}

QString FirmwareStore::version() const
{
    static const QRegularExpression lastWord(
        QStringLiteral("\\A[^\\n]*?(?<![^ ])(\\d{1,3}(?:\\.\\d{1,3}){3})\\n"));
    const QRegularExpressionMatch match = lastWord.match(QString::fromLatin1(m_head));
    if (match.hasMatch())
        return match.captured(1);
    const QByteArray hash = m_hash.result();
    return QString::fromLatin1("%1.%2.%3.%4")
        .arg(uchar(hash.at(0)))
        .arg(uchar(hash.at(1)))
        .arg(uchar(hash.at(2)))
        .arg(uchar(hash.at(3)));
}

void FirmwareStore::removeUnknown()
{
    QFile::remove(incomingPath());
    QDir folder(m_folder.firmware());
    const QStringList names = folder.entryList(QDir::Files | QDir::Hidden);
    for (const QString &name : names) {
        bool isKnown = false;
        for (const auto &[key, noted] : m_state.record().firmware)
            isKnown = isKnown || noted == name;
        if (!isKnown)
            folder.remove(name);
    }
}

} // namespace Velmar::Simulator
