#include "filesender.h"

#include "exchange.h"

#include <upgradeimage/imagereader.h>

#include <QCborValue>
#include <QCryptographicHash>
#include <QFileInfo>

namespace Velmar::ModelControl::Internal {

namespace {

constexpr qint64 ChunkSize = 65536; // the most that a device takes at once

} // namespace

FileSender::FileSender(BizModel::DeviceLink &link, const LinkPolicy &policy, int fileId)
    : m_link(link)
    , m_policy(policy)
    , m_fileId(fileId)
{
}

bool FileSender::open(const QString &path)
{
    // Nobody may ever write to a pipe, and opening it would wait for that.
    if (const QFileInfo info(path); info.exists() && !info.isFile())
        return fail(QStringLiteral("it is no regular file"));
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(m_file.errorString());
    m_size = m_file.size();
    return true;
}

bool FileSender::checkSize(int announcedSize)
{
    return quint32(m_size) == quint32(announcedSize)
        || fail(
               QStringLiteral("it has %1 bytes, %2 were announced").arg(m_size).arg(announcedSize));
}

bool FileSender::checkImage()
{
    QString fault;
    return UpgradeImage::ImageReader(m_file).check(fault)
        || fail(QStringLiteral("it is no sound upgrade image: %1").arg(fault));
}

bool FileSender::sendOpening(int fileType)
{
    QByteArray sha256;
    if (!hash(sha256))
        return false;
    QCborMap arguments;
    arguments.insert(QLatin1String("fileType"), fileType);
    arguments.insert(QLatin1String("size"), m_size);
    arguments.insert(QLatin1String("sha256"), sha256);
    QCborMap ignoredValues;
    return order(QStringLiteral("file.open"), arguments, m_policy.writeTimeout, ignoredValues);
}

bool FileSender::sendContents(const std::function<void(int)> &showPercentage)
{
    if (!m_file.seek(0))
        return fail(m_file.errorString());
    int shown = -1;
    for (qint64 sent = 0; sent < m_size;) {
        QByteArray chunk;
        if (!readChunk(chunk) || !sendChunk(sent, chunk))
            return false;
        sent += chunk.size();
        const int percentage = int(sent * 100 / m_size);
        if (percentage != shown)
            showPercentage(percentage);
        shown = percentage;
    }
    return checkUnchangedSize();
}

bool FileSender::sendEnd()
{
    QCborMap ignoredValues;
    return order(QStringLiteral("file.close"), {}, m_policy.closeTimeout, ignoredValues);
}

QString FileSender::errorText() const
{
    return m_errorText;
}

bool FileSender::hash(QByteArray &sha256)
{
    if (!m_file.seek(0))
        return fail(m_file.errorString());
    QCryptographicHash sum(QCryptographicHash::Sha256);
    for (qint64 done = 0; done < m_size;) {
        QByteArray chunk;
        if (!readChunk(chunk))
            return false;
        sum.addData(chunk);
        done += chunk.size();
    }
    sha256 = sum.result();
    return checkUnchangedSize();
}

// Reads on, but never behind the size that the file had when it was opened.
bool FileSender::readChunk(QByteArray &chunk)
{
    chunk.resize(int(qMin(ChunkSize, m_size - m_file.pos())));
    const qint64 count = m_file.read(chunk.data(), chunk.size());
    if (count < 0)
        return fail(m_file.errorString());
    if (count == 0)
        return fail(QStringLiteral("it became shorter while it was read"));
    chunk.truncate(int(count));
    return true;
}

bool FileSender::sendChunk(qint64 offset, const QByteArray &chunk)
{
    QCborMap arguments;
    arguments.insert(QLatin1String("offset"), offset);
    arguments.insert(QLatin1String("bytes"), chunk);
    QCborMap values;
    if (!order(QStringLiteral("file.data"), arguments, m_policy.chunkTimeout, values))
        return false;
    const QCborValue received = values.value(QLatin1String("received"));
    if (!received.isInteger() || received.toInteger() != offset + chunk.size())
        return fail(QStringLiteral("the device did not get the bytes at %1").arg(offset));
    return true;
}

bool FileSender::checkUnchangedSize()
{
    return m_file.size() == m_size || fail(QStringLiteral("its size changed while it was read"));
}

bool FileSender::order(const QString &operation, QCborMap arguments, int timeout, QCborMap &values)
{
    arguments.insert(QLatin1String("fileId"), m_fileId);
    const BizModel::LinkRequest request { operation, arguments, timeout };
    const BizModel::LinkAnswer answer = Internal::order(m_link, request, m_policy);
    if (!answer.isAccepted())
        return fail(failureText(request, answer));
    values = answer.values;
    return true;
}

bool FileSender::fail(const QString &errorText)
{
    m_errorText = errorText;
    return false;
}

} // namespace Velmar::ModelControl::Internal
