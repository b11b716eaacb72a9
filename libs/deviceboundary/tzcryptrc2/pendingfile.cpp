#include "pendingfile.h"

#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace TZ::Internal {

namespace {

constexpr char OwnFiles[] = "/proc/self/fd"; // the way by which a file without a name gets one
constexpr mode_t AsUmaskSays = 0666;
constexpr int Attempts = 100;

QByteArray folderOf(const QString &path)
{
    return QFile::encodeName(QFileInfo(path).absolutePath());
}

// Short, so that it fits wherever the target's own name does.
QByteArray hiddenPathBeside(const QString &target)
{
    return folderOf(target) + "/.velmar-"
        + QByteArray::number(QRandomGenerator::system()->generate(), 16);
}

bool isOfTheDisk(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EIO:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return true;
    default:
        return false;
    }
}

} // namespace

PendingFile::PendingFile(const QString &target)
    : m_target(target)
{
}

PendingFile::~PendingFile()
{
    if (!m_hiddenPath.isEmpty())
        ::unlink(m_hiddenPath.constData());
}

PendingFile::Result PendingFile::open(QString &cause, Naming naming)
{
    errno = ENOENT;
    if (m_target.isEmpty() || m_target.endsWith(QLatin1Char('/')))
        return fail(cause);
    if ((naming == Naming::Late && openUnnamed()) || openHidden())
        return Result::Done;
    return fail(cause);
}

PendingFile::Result PendingFile::commit(QString &cause)
{
    const QByteArray target = QFile::encodeName(m_target);
    if (m_hiddenPath.isEmpty()) {
        if (giveName(target))
            return Result::Done;
        // A file without a name cannot take the name of another: it takes one of its own first.
        for (int i = 0; i < Attempts && errno == EEXIST && m_hiddenPath.isEmpty(); ++i) {
            const QByteArray path = hiddenPathBeside(m_target);
            if (giveName(path))
                m_hiddenPath = path;
        }
        if (m_hiddenPath.isEmpty())
            return fail(cause);
    }
    if (std::rename(m_hiddenPath.constData(), target.constData()) != 0)
        return fail(cause);
    m_hiddenPath.clear();
    return Result::Done;
}

bool PendingFile::openUnnamed()
{
    if (::access(OwnFiles, X_OK) != 0)
        return false;
    const int descriptor =
        ::open(folderOf(m_target).constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, AsUmaskSays);
    return descriptor >= 0
        && m_file.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                       QFileDevice::AutoCloseHandle);
}

bool PendingFile::openHidden()
{
    int descriptor = -1;
    QByteArray path;
    for (int i = 0; i < Attempts && descriptor < 0 && (i == 0 || errno == EEXIST); ++i) {
        path = hiddenPathBeside(m_target);
        descriptor = ::open(path.constData(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, AsUmaskSays);
    }
    if (descriptor < 0)
        return false;
    m_hiddenPath = path;
    return m_file.open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                       QFileDevice::AutoCloseHandle);
}

bool PendingFile::giveName(const QByteArray &path) const
{
    const QByteArray self = OwnFiles + ('/' + QByteArray::number(m_file.handle()));
    return ::linkat(AT_FDCWD, self.constData(), AT_FDCWD, path.constData(), AT_SYMLINK_FOLLOW) == 0;
}

// With the error in errno.
PendingFile::Result PendingFile::fail(QString &cause) const
{
    const int error = errno;
    cause = QStringLiteral("%1: %2").arg(m_target, qt_error_string(error));
    return isOfTheDisk(error) ? Result::Failed : Result::PlaceRefused;
}

} // namespace TZ::Internal
