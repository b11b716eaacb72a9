#include "installation.h"

#include "devicestate.h"
#include "durable.h"
#include "statefolder.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Velmar::Simulator {

namespace {

constexpr qint64 CopySize = 65536; // bytes at a time

bool moveFile(const QString &source, const QString &target)
{
    // QFile::rename() does not replace a file.
    return std::rename(QFile::encodeName(source).constData(), QFile::encodeName(target).constData())
        == 0;
}

/*! Removes what a stop has left behind and what the record does not refer to any more. */
void tidyUp(const StateFolder &folder, const DeviceRecord &record)
{
    if (!record.isInstalling())
        QDir(folder.staging()).removeRecursively();
    QDir incoming(folder.incoming());
    for (const QString &name : incoming.entryList(QDir::Files | QDir::Hidden))
        incoming.remove(name);
    QDir images(folder.images());
    for (const QString &name : images.entryList(QDir::Files | QDir::Hidden)) {
        if (!record.needsImage(name))
            images.remove(name);
    }
}

} // namespace

Installation::Installation(const StateFolder &folder, DeviceState &state, StepObserver observer)
    : m_folder(folder)
    , m_state(state)
    , m_observer(std::move(observer))
{
}

Outcome Installation::begin(const InstallationOrder &order)
{
    const DeviceRecord &record = m_state.record();
    if (record.isInstalling())
        return { LinkAck::NotNow, QString::fromLatin1("an installation has not ended") };
    if (!record.image)
        return { LinkAck::NotNow, QString::fromLatin1("no image waits to be installed") };

    InstallationRecord installation;
    installation.run = record.runs + 1;
    installation.image = *record.image;
    installation.deletesImage = order.deletesImage;
    installation.bricksIfCut = order.bricksIfCut;
    installation.parts = order.parts;
    installation.sections = order.sections;

    QString errorText;
    m_source.setFileName(m_folder.images() + QLatin1Char('/') + installation.image.fileName);
    if (!loadImage(errorText))
        return { LinkAck::WrongContents, errorText };
    const Outcome places = checkPlaces();
    if (!places.isAccepted())
        return places;
    if (!m_source.open(QIODevice::ReadOnly))
        return { LinkAck::Refused, fault(QString::fromLatin1("read"), m_source) };
    if (!QDir(m_folder.staging()).removeRecursively() || !QDir().mkpath(m_folder.staging()))
        return { LinkAck::Refused, QString::fromLatin1("there is no room for the files") };
    const bool isRecorded = m_state.update(
        [&installation](DeviceRecord &next) {
            next.runs = installation.run;
            next.installation = installation;
        },
        errorText);
    if (!isRecorded)
        return { LinkAck::Refused, errorText };
    report(Step::Ordered);
    return {};
}

bool Installation::stageNext(qint64 maxBytes, QString &errorText)
{
    if (!m_target.isOpen() && !openNext(errorText))
        return false;
    const ImageFile &file = m_image.files[m_next];
    const qint64 wanted = std::min({ CopySize, maxBytes, file.length - m_target.pos() });
    const QByteArray bytes = m_source.read(wanted);
    if (bytes.size() != wanted) {
        errorText = fault(QString::fromLatin1("read"), m_source);
        return false;
    }
    if (m_target.write(bytes) != wanted) {
        errorText = targetFault();
        return false;
    }
    m_stagedBytes += wanted;
    if (m_target.pos() == file.length && !finishStagedFile(errorText))
        return false;
    if (m_stagedBytes * 2 >= m_totalBytes)
        report(Step::HalfStaged);
    if (!isStaged())
        return true;
    if (!syncFileSystem(m_folder.staging())) {
        errorText = QString::fromLatin1("the disk does not take the files");
        return false;
    }
    report(Step::Staged);
    return true;
}

bool Installation::bind(QString &errorText)
{
    const bool isRecorded = m_state.update(
        [](DeviceRecord &next) {
            next.installation->phase = InstallationRecord::Phase::Committing;
        },
        errorText);
    if (isRecorded)
        report(Step::Bound);
    return isRecorded;
}

bool Installation::placeNext(QString &errorText)
{
    const QString target =
        m_folder.files() + QLatin1Char('/') + m_image.files[m_placed].installedPath;
    const QString folder = QFileInfo(target).path();
    if (!m_knownFolders.contains(folder)) {
        QDir().mkpath(folder);
        m_knownFolders.insert(folder);
    }
    if (!moveFile(stagedPath(m_placed), target)) {
        const int error = errno;
        // A file that is staged no more was moved before the device stopped.
        if (error != ENOENT || !QFileInfo(target).isFile()) {
            errorText = QString::fromLatin1("\"%1\" cannot be put in its place: %2")
                            .arg(target, QString::fromLocal8Bit(std::strerror(error)));
            return false;
        }
    }
    ++m_placed;
    if (m_placed * 2 >= m_image.files.size())
        report(Step::HalfPlaced);
    if (isPlaced()) {
        syncFileSystem(m_folder.files());
        report(Step::Placed);
    }
    return true;
}

bool Installation::complete(QString &errorText)
{
    const auto noteVersions = [](DeviceRecord &next) {
        for (const SectionKey &key : next.installation->sections) {
            const auto entry = next.sections.try_emplace(
                key,
                SectionVersions { QString::fromLatin1(DeviceState::FactoryVersion), QString() });
            entry.first->second.installed = next.installation->image.version;
        }
    };
    return conclude(noteVersions, errorText);
}

bool Installation::pretend(QString &errorText)
{
    return conclude([](DeviceRecord &) {}, errorText);
}

bool Installation::takeBack(QString &errorText)
{
    m_source.close();
    m_target.close();
    const bool isRecorded = m_state.update(
        [](DeviceRecord &next) {
            InstallationRecord &installation = *next.installation;
            installation.result = 3;
            if (installation.phase == InstallationRecord::Phase::Staging)
                installation.phase = InstallationRecord::Phase::Over;
        },
        errorText);
    if (isRecorded)
        tidyUp(m_folder, m_state.record());
    return isRecorded;
}

bool Installation::recover(const StateFolder &folder, DeviceState &state, QString &errorText)
{
    Installation interrupted(folder, state, [](Step) {});
    const std::optional<InstallationRecord> record = state.record().installation;
    bool isInOrder = true;
    if (record && record->phase == InstallationRecord::Phase::Staging)
        isInOrder = interrupted.takeBack(errorText);
    if (record && record->phase == InstallationRecord::Phase::Committing) {
        interrupted.m_source.setFileName(interrupted.imagePath());
        isInOrder = interrupted.loadImage(errorText);
        while (isInOrder && !interrupted.isPlaced())
            isInOrder = interrupted.placeNext(errorText);
        isInOrder = isInOrder && interrupted.complete(errorText);
        if (!isInOrder) {
            QString ignored; // the first cause is the one to tell
            interrupted.takeBack(ignored);
        }
    }
    tidyUp(folder, state.record());
    return isInOrder;
}

QString Installation::imagePath() const
{
    return m_folder.images() + QLatin1Char('/') + m_state.record().installation->image.fileName;
}

QString Installation::stagedPath(std::size_t index) const
{
    return QString::fromLatin1("%1/%2").arg(m_folder.staging()).arg(index);
}

QString Installation::fault(const QString &what, const QFile &file) const
{
    return QString::fromLatin1("\"%1\" cannot be %2: %3")
        .arg(file.fileName(), what, file.errorString());
}

QString Installation::targetFault() const
{
    return QString::fromLatin1("\"%1\" cannot be written: %2")
        .arg(m_target.fileName(), writeFault(m_target));
}

bool Installation::loadImage(QString &errorText)
{
    const auto image = readDeviceImage(m_source.fileName(), m_state.record().modelId, errorText);
    if (!image)
        return false;
    m_image = *image;
    for (const ImageFile &file : m_image.files)
        m_totalBytes += file.length;
    return true;
}

/*! Records the end with result 2 together with \a change, and tidies up. */
bool Installation::conclude(const std::function<void(DeviceRecord &)> &change, QString &errorText)
{
    const bool isRecorded = m_state.update(
        [&change](DeviceRecord &next) {
            InstallationRecord &installation = *next.installation;
            installation.phase = InstallationRecord::Phase::Over;
            installation.result = 2;
            change(next);
            // Another may have come while this installation waited to be completed.
            const bool isItsImageKept =
                next.image && next.image->fileName == installation.image.fileName;
            if (installation.deletesImage && isItsImageKept)
                next.image.reset();
        },
        errorText);
    if (!isRecorded)
        return false;
    report(Step::Completed);
    m_source.close();
    tidyUp(m_folder, m_state.record());
    report(Step::TidiedUp);
    return true;
}

/*! Sees to it that nothing but a broken disk can keep a staged file from its place. */
Outcome Installation::checkPlaces() const
{
    QSet<QString> passable; // folders that are known to be folders, or not to be there
    for (const ImageFile &file : m_image.files) {
        const QString path = m_folder.files() + QLatin1Char('/') + file.installedPath;
        if (QFileInfo(path).isDir())
            return {
                LinkAck::Refused,
                QString::fromLatin1("\"%1\" is a folder on this device").arg(file.installedPath)
            };
        QString folder = QFileInfo(file.installedPath).path();
        while (folder != QLatin1String(".") && !passable.contains(folder)) {
            const QFileInfo info(m_folder.files() + QLatin1Char('/') + folder);
            if (info.exists() && !info.isDir())
                return { LinkAck::Refused,
                         QString::fromLatin1("\"%1\" is a file on this device").arg(folder) };
            passable.insert(folder);
            folder = QFileInfo(folder).path();
        }
    }
    return {};
}

bool Installation::openNext(QString &errorText)
{
    m_target.setFileName(stagedPath(m_next));
    if (!m_target.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        errorText = fault(QString::fromLatin1("written"), m_target);
        return false;
    }
    if (!m_source.seek(m_image.files[m_next].offset)) {
        errorText = fault(QString::fromLatin1("read"), m_source);
        return false;
    }
    return true;
}

bool Installation::finishStagedFile(QString &errorText)
{
    if (!m_target.flush()) {
        errorText = targetFault();
        return false;
    }
    m_target.close();
    ++m_next;
    return true;
}

void Installation::report(Step step)
{
    if (int(step) <= m_reported) // the halves are passed many times
        return;
    m_reported = int(step);
    m_observer(step);
}

} // namespace Velmar::Simulator
