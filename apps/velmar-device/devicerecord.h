#ifndef VELMARDEVICE_DEVICERECORD_H
#define VELMARDEVICE_DEVICERECORD_H

#include <QByteArray>
#include <QString>

#include <map>
#include <optional>
#include <tuple>
#include <vector>

namespace Velmar::Simulator {

/*! One section of one part of the device. */
struct SectionKey {
    quint8 type = 0;
    quint8 slotId = 0;
    quint32 modelId = 0; //!< a card of another model in the same slot is another part
    quint16 code = 0;

    bool operator<(const SectionKey &other) const
    {
        return std::tie(type, slotId, modelId, code)
            < std::tie(other.type, other.slotId, other.modelId, other.code);
    }
};

/*! Versions of one section. They differ between an installation and the restart after it. */
struct SectionVersions {
    QString running; //!< what the device reports
    QString installed; //!< what it runs after the next restart
};

/*! An image that was received whole and found good. */
struct ReceivedImage {
    QString fileName; //!< in the folder of images
    QString version; //!< dotted, from the image's header
};

/*! What a host has ordered to install on one card. */
struct PartOrder {
    int type = 0; //!< as ordered, for the report of progress
    quint8 slotId = 0;
    std::vector<quint16> codes;
};

/*! The last installation, from its order to the next restart. */
struct InstallationRecord {
    enum class Phase {
        Staging, //!< files are written beside the installed ones; a stop takes all of it back
        Committing, //!< files move into their places; a stop is made up for at the next start
        Over, //!< nothing is left to do
    };

    quint32 run = 0;
    Phase phase = Phase::Staging;
    int result = 1; //!< 1: running; 2: done; 3: failed
    ReceivedImage image;
    bool deletesImage = false; //!< once it is installed
    bool bricksIfCut = false; //!< a stop before it is over is the end of the device
    std::vector<PartOrder> parts; //!< for the report of progress
    std::vector<SectionKey> sections; //!< those that get the image's version
};

/*! All that a device remembers when it is switched off, but for the installed files. */
struct DeviceRecord {
    quint16 modelId = 0;
    QString serial;
    quint32 runs = 0; //!< number of the last installation
    quint32 restarts = 0; //!< ordered ones, carried out
    std::optional<ReceivedImage> image; //!< waiting to be installed
    std::optional<InstallationRecord> installation;
    std::map<SectionKey, SectionVersions> sections;
    std::map<SectionKey, QString> firmware; //!< files of MCUs in the folder of firmware
    bool isStoring = false; //!< firmware, and a stop before its end is the end of the device
    bool isBricked = false; //!< the device stays away for good

    /*! An installation, running or bound to be completed, is not over. */
    bool isInstalling() const
    {
        return installation && installation->phase != InstallationRecord::Phase::Over;
    }

    /*! A stop now is the end of the device. */
    bool isCutFatal() const { return isStoring || (isInstalling() && installation->bricksIfCut); }

    /*! The image \a fileName waits to be installed, or belongs to an installation that is not
        over. */
    bool needsImage(const QString &fileName) const
    {
        return (image && image->fileName == fileName)
            || (isInstalling() && installation->image.fileName == fileName);
    }

    QByteArray toJson() const;

    /*! Without a value, and with \a errorText set, if \a json is not what toJson() writes. */
    static std::optional<DeviceRecord> fromJson(const QByteArray &json, QString &errorText);
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DEVICERECORD_H
