#include "device/devicelock.h"

#include "device/modelnames.h"
#include "process/privatefolder.h"
#include "show/printable.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr mode_t OwnerOnly = 0700;

/*! Opens this user's own \a folder, made if it is not there; otherwise \a errorNumber says why. */
Descriptor openFolder(const QString &folder, int &errorNumber)
{
    const auto path = QFile::encodeName(folder);
    std::error_code fault;
    std::filesystem::create_directories(std::filesystem::path(path.constData()).parent_path(),
                                        fault);
    if (fault) {
        errorNumber = fault.value();
        return {};
    }
    if (::mkdir(path.constData(), OwnerOnly) != 0 && errno != EEXIST) {
        errorNumber = errno;
        return {};
    }
    Descriptor opened(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!opened.isOpen() || ::fstat(opened.number(), &status) != 0) {
        errorNumber = errno;
        return {};
    }
    if (status.st_uid != ::geteuid()) {
        errorNumber = EPERM;
        return {};
    }
    // In a folder that others may write to, they could put a file of theirs in a lock's place.
    if ((status.st_mode & 07777) != OwnerOnly && ::fchmod(opened.number(), OwnerOnly) != 0) {
        errorNumber = errno;
        return {};
    }
    return opened;
}

QByteArray lockName(const QByteArray &key)
{
    // Serial numbers are what devices tell, and no names for files.
    return QCryptographicHash::hash(key, QCryptographicHash::Sha256).toHex() + ".lock";
}

QByteArray keyOf(const DeviceFacts &facts)
{
    if (facts.serial.isEmpty())
        return "address " + facts.address.toString().toUtf8();
    return "device " + modelNumber(facts.modelId).toUtf8() + ' ' + facts.serial.toUtf8();
}

bool isReadOnlyPlace(int errorNumber)
{
    return errorNumber == EROFS || errorNumber == EACCES || errorNumber == EPERM;
}

enum class Outcome { Taken, Held, NoPlace, Failed };

Outcome takeFile(const QByteArray &key, const QString &folder, Descriptor &file, QString &errorText)
{
    int errorNumber = 0;
    const auto place = openFolder(folder, errorNumber);
    if (place.isOpen()) {
        file = Descriptor(::openat(place.number(), lockName(key).constData(),
                                   O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        if (file.isOpen() && ::flock(file.number(), LOCK_EX | LOCK_NB) == 0)
            return Outcome::Taken;
        errorNumber = errno;
        if (file.isOpen() && errorNumber == EWOULDBLOCK) {
            errorText = QStringLiteral("Another run on this machine has the device");
            return Outcome::Held;
        }
    }
    errorText = QStringLiteral("The device cannot be locked in %1: %2")
                    .arg(printable(folder), qt_error_string(errorNumber));
    return isReadOnlyPlace(errorNumber) ? Outcome::NoPlace : Outcome::Failed;
}

} // namespace

std::unique_ptr<DeviceLock> DeviceLock::take(const DeviceFacts &facts, QString &errorText,
                                             bool &isHeld)
{
    // The cache comes first, though it is for less fleeting things: a run out of cron has no
    // runtime folder, and has to meet the one at the terminal.
    auto folders = QStringList(cacheFolder(QStringLiteral("locks")));
    const auto runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime))
        folders.append(runtime + QStringLiteral("/velmar-upgrade"));
    const auto key = keyOf(facts);
    isHeld = false;
    for (const auto &folder : folders) {
        Descriptor file;
        const auto outcome = takeFile(key, folder, file, errorText);
        isHeld = outcome == Outcome::Held;
        if (outcome == Outcome::Taken)
            return std::unique_ptr<DeviceLock>(new DeviceLock(std::move(file)));
        if (outcome != Outcome::NoPlace)
            break;
    }
    return nullptr;
}

std::unique_ptr<DeviceLock> DeviceLock::take(const QByteArray &key, const QString &folder,
                                             QString &errorText, bool &isHeld)
{
    Descriptor file;
    const auto outcome = takeFile(key, folder, file, errorText);
    isHeld = outcome == Outcome::Held;
    if (outcome != Outcome::Taken)
        return nullptr;
    return std::unique_ptr<DeviceLock>(new DeviceLock(std::move(file)));
}

DeviceLock::DeviceLock(Descriptor file)
    : m_file(std::move(file))
{
}

int DeviceLock::descriptor() const
{
    return m_file.number();
}

} // namespace Velmar::Host
