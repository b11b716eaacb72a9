#ifndef VELMARHOST_PLAN_H
#define VELMARHOST_PLAN_H

#include "device/deviceaddress.h"
#include "package/selection.h"
#include "run/road.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>
#include <vector>

namespace Velmar::Host {

class PackageManifest;

/*! A card of a device, as a plan notes it. */
struct PlannedCard {
    quint8 slotId = 0;
    quint16 modelId = 0;
    quint8 boardId = 0;
};

/*! The device that a plan is for, with its texts as it tells them. */
struct PlannedDevice {
    DeviceAddress address; //!< with an empty host in a plan for a model alone
    quint16 modelId = 0;
    QString modelName; //!< by the catalogue in use, with the number
    QString serial;
    QString name;
    std::vector<PlannedCard> cards; //!< in slot order
};

/*! What the HTTP road has beside a package. */
struct PlannedUpload {
    QString host; //!< empty: that of the device's address
    QString filePath; //!< absolute path of the file to upload; empty: the image of the package
    bool isCompatible = false; //!< the device's version settles the generation of the service
};

/*! One file, or one of its places on the device, that will be sent. */
struct PlannedFile {
    QString section; //!< for a data file "MCU"; empty for a file given for the upload
    quint16 code = 0; //!< the device's number for the section
    bool isDataFile = false; //!< goes with the main control's "MCU" and belongs to no section
    bool isMainControl = false;
    quint8 slotId = 0; //!< first of the cards that want the file; 0: the main control
    quint16 modelId = 0;
    quint8 boardId = 0; //!< of that card; 0: the main control
    QString file; //!< relative to the package, "/" between; absolute if given for the upload
    QString target; //!< on the device; empty where the road has none
    qint64 size = 0; //!< bytes on disk, enciphered as they are
    QByteArray sha256; //!< of the same bytes, 32 of them; empty until addHashes()
};

/*! One section that a run is to renew on one part of the device. */
struct PlannedSection {
    bool isMainControl = false;
    quint8 slotId = 0; //!< 0: the main control
    quint16 modelId = 0;
    int type = 0; //!< kind of part that carries it, as in the device's version record
    quint16 code = 0;
    QString name;
    QString versionBefore; //!< empty: the device does not tell
    QString versionExpected; //!< empty: unknown, so that only a change can be expected
};

/*! Why something that a package lists will not be sent. */
enum class LeftOutReason {
    UnreadableUnit, //!< its folder has no description, or one that cannot be read
    OtherModel, //!< the unit is for another model, which is no card of this device either
    NoSuchCard, //!< a card model that is not fitted
    UnfittedBoard, //!< for a board that no fitted card of the model has
    UnknownSection, //!< the model, or the fitted boards of it, have no such section
    DoubledSection, //!< its unit names a section twice, and is dropped as a whole
    UnknownStep, //!< the unit's step type is none that a device takes
    GoldenFile, //!< a factory file, which is never sent
    MissingFile, //!< there is no such file
    NotChosen, //!< it would fit, and was not picked
    OtherUnit, //!< an earlier unit for the model is the one that is written by registers
    NotByRegisters, //!< only the main control's "MCU" is written by registers
    NoCommands, //!< no command that sends its data by registers
    NotByOlderService, //!< the older HTTP service renews the MCUs of main control and back plane
    FurtherTarget, //!< a file for one board goes to its first place alone
    Unused, //!< has a place on the device, and no section that uses it
    NotUploaded, //!< another file was given for the upload
};

/*! The word for \a reason in plans and events, as in "other-model". Words are stable. */
QString leftOutWord(LeftOutReason reason);

/*! The reason with that \a word. */
std::optional<LeftOutReason> leftOutReasonOf(const QString &word);

/*! Something that a package lists and that will not be sent. */
struct LeftOut {
    QString unit; //!< folder of the unit as the index names it; empty for one of the path table
    QString section; //!< empty if it is the unit as a whole, or belongs to none
    QString file; //!< relative to the package; empty if it is the unit as a whole
    LeftOutReason reason = LeftOutReason::NotChosen;
    QString text; //!< a sentence for people; holds names from the package, not made printable
};

/*!
    What a run will send to which device, and what it will leave out.

    A value: it may be read by any thread that has a copy. Texts of packages and devices stand in it
    as they are; whoever shows them makes them printable.
*/
struct Plan {
    static constexpr int Format = 1; //!< of the plan file

    Road road = Road::Native;
    PlannedDevice device;
    Wish wish;
    QString packagePath; //!< as the user named it
    QByteArray packageDigest; //!< PackageManifest::digest(), 32 bytes; empty until addHashes()
    PlannedUpload upload; //!< of the HTTP road
    std::vector<PlannedFile> files; //!< in the order sent, each pair of file and target once
    std::vector<PlannedSection> sections; //!< main control first, then by slot
    std::vector<LeftOut> leftOut; //!< in the package's order

    /*! Bytes of all files on disk. */
    qint64 totalSize() const;

    /*! The plan file's object, see docs/formats/upgrade-plan.md. */
    QJsonObject toJson() const;

    /*! Reads what toJson() writes, strictly: an unknown, missing or badly typed key, a number out
        of its range or a word that is none is a fault, and \a errorText then names its place. */
    static std::optional<Plan> fromJson(const QJsonObject &json, QString &errorText);

    /*!
        Writes the plan to \a path, readable by all, in one step: a former file stays as it is
        unless the new one is whole.
    */
    bool save(const QString &path, QString &errorText) const;

    /*! Reads a file of at most 64 MiB as strictly as fromJson(); keys may not occur twice, and no
        hash may be missing. */
    static std::optional<Plan> load(const QString &path, QString &errorText);

    /*! Takes size and hash of each file and the digest of all from \a manifest; a file given for
        the upload is read. False, with \a errorText naming it, if it lacks a file of the package
        or that one cannot be read. */
    bool addHashes(const PackageManifest &manifest, QString &errorText);

    /*!
        What is no longer as in this plan according to \a now, one made of the same order: the
        package, the device or what would be sent. One sentence each, the weightiest first; empty if
        \a now does the same. Where and under which path things lie does not count.
    */
    std::vector<QString> differences(const Plan &now) const;
};

} // namespace Velmar::Host

#endif // VELMARHOST_PLAN_H
