#include "registerbank.h"

#include "firmwarestore.h"
#include "fitting.h"

#include <QtEndian>

namespace Velmar::Simulator {

namespace {

constexpr int CardSize = 3; // bytes: model id, low byte first, and index of the card
constexpr int LengthSize = 4; // bytes, low byte first
const QByteArray McuFileType = QByteArrayLiteral("\x01\x00");
const QByteArray OneFile = QByteArrayLiteral("\x01\x00\x01\x00"); // one file, and it is the first

RegisterAnswer refused(RegisterAck ack, const QString &errorText)
{
    return { ack, errorText };
}

RegisterAnswer wrongSize(const QByteArray &body, int size)
{
    return refused(
        RegisterAck::WrongPayloadLength,
        QString::fromLatin1("the register takes %1 bytes, not %2").arg(size).arg(body.size()));
}

quint32 lengthIn(const QByteArray &body)
{
    return qFromLittleEndian<quint32>(body.constData());
}

bool isPossibleLength(quint32 length)
{
    return length >= 1 && length <= RegisterBank::MaxFileLength;
}

/*! The MCU of the card with that index, 0 for the device itself. */
std::optional<SectionKey> findMcu(const Fitting &fitting, quint8 index, quint16 modelId)
{
    for (const FittedPart &part : fitting.parts()) {
        if (part.slotId != index || part.modelId != modelId)
            continue;
        for (const FittedSection &section : part.sections) {
            if (section.name == QLatin1String("MCU"))
                return part.key(section.code);
        }
    }
    return {};
}

} // namespace

RegisterBank::RegisterBank(const Fitting &fitting, FirmwareStore &store, bool isLying)
    : m_fitting(fitting)
    , m_store(store)
    , m_map(RegisterMap::ofModel(fitting.model().modelId))
    , m_isLying(isLying)
{
}

RegisterAnswer RegisterBank::write(const RegisterWrite &write)
{
    if (m_isComplete)
        return refused(RegisterAck::Busy, QString::fromLatin1("the device is about to restart"));
    const std::optional<FirmwareRegister> which = m_map.at(write.address);
    if (!which)
        return refused(RegisterAck::UnknownAddress,
                       QString::fromLatin1("there is no register at 0x%1")
                           .arg(write.address, 8, 16, QLatin1Char('0')));
    RegisterAnswer answer = checkFrame(write);
    if (answer.isAccepted())
        answer = checkSequence(*which);
    if (!answer.isAccepted())
        return answer;
    switch (*which) {
    case FirmwareRegister::Card:
        return chooseCard(write.body);
    case FirmwareRegister::FileType:
        return setFileType(write.body);
    case FirmwareRegister::TotalLength:
        return setLength(write.body, m_totalLength);
    case FirmwareRegister::LengthLock:
        return unlockLength(write.body);
    case FirmwareRegister::FileLength:
        return setLength(write.body, m_fileLength);
    case FirmwareRegister::FileCount:
        return setFileCount(write.body);
    case FirmwareRegister::Data:
        break;
    }
    return takeData(write.body);
}

int RegisterBank::percentWith(const RegisterWrite &write) const
{
    const bool isData = m_map.at(write.address) == FirmwareRegister::Data;
    const qint64 arrived = qint64(m_received) + write.body.size();
    if (!isData || m_fileLength == 0 || arrived > m_fileLength)
        return 0;
    return int(arrived * 100 / m_fileLength);
}

void RegisterBank::reset()
{
    m_store.discard();
    m_target.reset();
    m_hasFileType = false;
    m_isLengthUnlocked = false;
    m_totalLength = 0;
    m_fileLength = 0;
    m_hasFileCount = false;
    m_received = 0;
    m_isComplete = false;
}

RegisterAnswer RegisterBank::checkFrame(const RegisterWrite &write) const
{
    if (write.scanner != 0)
        return refused(RegisterAck::WrongFlags,
                       QString::fromLatin1("the device has no scanner behind it"));
    if (write.write != 1 || write.reserved != 0 || write.trailing != 0)
        return refused(RegisterAck::WrongFlags,
                       QString::fromLatin1("the flags are not those of a write"));
    if (write.length != write.body.size())
        return refused(RegisterAck::WrongPayloadLength,
                       QString::fromLatin1("the length says %1 bytes, the payload has %2")
                           .arg(write.length)
                           .arg(write.body.size()));
    return {};
}

RegisterAnswer RegisterBank::checkSequence(FirmwareRegister which) const
{
    if (which == FirmwareRegister::Card)
        return {};
    if (!m_target)
        return refused(RegisterAck::OutOfSequence, QString::fromLatin1("no card is chosen"));
    if (which == FirmwareRegister::FileLength && m_totalLength == 0)
        return refused(RegisterAck::OutOfSequence,
                       QString::fromLatin1("the length of all files comes first"));
    if (which != FirmwareRegister::Data)
        return m_received == 0
            ? RegisterAnswer {}
            : refused(RegisterAck::OutOfSequence, QString::fromLatin1("the data has begun"));
    if (!m_hasFileType || m_fileLength == 0 || !m_hasFileCount)
        return refused(RegisterAck::OutOfSequence,
                       QString::fromLatin1("data comes behind file type, lengths and count"));
    return {};
}

RegisterAnswer RegisterBank::chooseCard(const QByteArray &body)
{
    if (body.size() != CardSize)
        return wrongSize(body, CardSize);
    const auto modelId = qFromLittleEndian<quint16>(body.constData());
    const auto index = quint8(body.at(2));
    const std::optional<SectionKey> target = findMcu(m_fitting, index, modelId);
    if (!target)
        return refused(RegisterAck::WrongCard,
                       QString::fromLatin1("card %1 is not of model 0x%2 with an MCU")
                           .arg(index)
                           .arg(modelId, 4, 16, QLatin1Char('0')));
    reset();
    m_target = target;
    return {};
}

RegisterAnswer RegisterBank::setFileType(const QByteArray &body)
{
    if (body.size() != McuFileType.size())
        return wrongSize(body, McuFileType.size());
    if (body != McuFileType)
        return refused(RegisterAck::WrongFileType,
                       QString::fromLatin1("the file type is not that of an MCU"));
    m_hasFileType = true;
    return {};
}

RegisterAnswer RegisterBank::unlockLength(const QByteArray &body)
{
    if (body.size() != LengthSize)
        return wrongSize(body, LengthSize);
    if (lengthIn(body) != 0)
        return refused(RegisterAck::WrongLength,
                       QString::fromLatin1("the lock opens with 0 alone"));
    m_isLengthUnlocked = true;
    return {};
}

RegisterAnswer RegisterBank::setLength(const QByteArray &body, quint32 &length)
{
    if (body.size() != LengthSize)
        return wrongSize(body, LengthSize);
    if (!m_isLengthUnlocked)
        return refused(RegisterAck::LengthLocked, QString::fromLatin1("the length is locked"));
    const quint32 value = lengthIn(body);
    if (!isPossibleLength(value))
        return refused(
            RegisterAck::WrongLength,
            isPossibleLength(qbswap(value))
                ? QString::fromLatin1("the length has its high byte first")
                : QString::fromLatin1("%1 bytes are not 1 to %2").arg(value).arg(MaxFileLength));
    // The one file that can be announced is all files together.
    if (&length == &m_fileLength && value != m_totalLength)
        return refused(RegisterAck::WrongLength,
                       QString::fromLatin1("the file has %1 bytes, all files together %2")
                           .arg(value)
                           .arg(m_totalLength));
    m_isLengthUnlocked = false;
    length = value;
    if (&length == &m_totalLength)
        m_fileLength = 0; // it was judged by the former length of all files
    return {};
}

RegisterAnswer RegisterBank::setFileCount(const QByteArray &body)
{
    if (body.size() != OneFile.size())
        return wrongSize(body, OneFile.size());
    if (body != OneFile)
        return refused(RegisterAck::WrongCount, QString::fromLatin1("one file can be sent"));
    m_hasFileCount = true;
    return {};
}

RegisterAnswer RegisterBank::takeData(const QByteArray &body)
{
    if (body.isEmpty() || body.size() > MaxDataSize)
        return refused(RegisterAck::WrongPayloadLength,
                       QString::fromLatin1("%1 bytes of data are not 1 to %2")
                           .arg(body.size())
                           .arg(MaxDataSize));
    if (quint32(body.size()) > m_fileLength - m_received)
        return refused(RegisterAck::TooMuchData,
                       QString::fromLatin1("%1 of %2 bytes are missing, not %3")
                           .arg(m_fileLength - m_received)
                           .arg(m_fileLength)
                           .arg(body.size()));
    QString errorText;
    if (!m_store.append(body, errorText))
        return refused(RegisterAck::NotStored, errorText);
    m_received += quint32(body.size());
    return m_received == m_fileLength ? finish() : RegisterAnswer {};
}

RegisterAnswer RegisterBank::finish()
{
    const SectionKey target = *m_target;
    QString errorText;
    RegisterAnswer answer;
    if (m_store.isEnciphered())
        answer = refused(RegisterAck::WrongContents,
                         QString::fromLatin1("the firmware is still enciphered"));
    else if (!m_isLying && !m_store.install(target, errorText))
        answer = refused(RegisterAck::NotStored, errorText);
    reset();
    m_isComplete = answer.isAccepted();
    return answer;
}

} // namespace Velmar::Simulator
