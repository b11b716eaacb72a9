#include "receivedimage.h"

#include "deviceimage.h"
#include "devicestate.h"
#include "durable.h"
#include "statefolder.h"

#include <QFile>

#include <cstdio>

namespace Velmar::Simulator {

Outcome keepImage(const QString &path, const QByteArray &sha256, const StateFolder &folder,
                  DeviceState &state)
{
    QString fault;
    const auto image = readDeviceImage(path, state.record().modelId, fault);
    if (!image)
        return { LinkAck::WrongContents, fault };

    // Named by its contents: a stop between the two steps leaves the old record with the old image.
    const ReceivedImage received { QString::fromLatin1(sha256.toHex()), image->version };
    const QString keptPath = folder.images() + QLatin1Char('/') + received.fileName;
    if (std::rename(QFile::encodeName(path).constData(), QFile::encodeName(keptPath).constData())
        != 0)
        return { LinkAck::Refused, QString::fromLatin1("the image cannot be kept") };
    syncFolder(folder.images());
    const std::optional<ReceivedImage> before = state.record().image;
    if (!state.update([&received](DeviceRecord &record) { record.image = received; }, fault))
        return { LinkAck::Refused, fault };
    if (before && !state.record().needsImage(before->fileName))
        QFile::remove(folder.images() + QLatin1Char('/') + before->fileName);
    return {};
}

} // namespace Velmar::Simulator
