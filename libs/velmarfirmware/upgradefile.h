#ifndef VELMARFIRMWARE_UPGRADEFILE_H
#define VELMARFIRMWARE_UPGRADEFILE_H

#include <QObject>
#include <QPair>
#include <QString>
#include <QVector>

#include <memory>

namespace Velmar::Firmware {

namespace Internal {
class UpgradeFilePrivate;
}

/*! Packs the files of an upgrade into the one image that a device takes. */
class UpgradeFile : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeFile(QObject *parent);
    ~UpgradeFile() override;

    /*!
        Writes the files of \a filePaths into one image, the file "upgrade" in \a packagePath, and
        returns its path. An older file of that name is removed first.

        Each pair is a path on disk and a destination path on the device, in image order. A file
        whose name ends with ".dat" is deciphered on the way, but for "font12.dat". \a version is
        dotted, as in "1.2.3.4"; an empty one is stored as 0. The low 16 bits of \a modelId are
        stored. Memory: a fixed buffer and 264 bytes a file, whatever the size of the files.

        Returns an empty string if the image cannot be created, if a file is missing, empty, cannot
        be deciphered, opened or read, or has another length than was found just before, or if a
        destination path takes more than 256 bytes; the log names the cause. A partly written image
        then stays until the next call removes it. So does the plain copy of the file that failed,
        if deciphering made one, until a call that has the same file in it. Whether the disk took
        every byte is not looked at here: the layer that sends the image checks it first.
    */
    QString makeUpgradeFile(QVector<QPair<QString, QString>> filePaths, const QString &packagePath,
                            int modelId, const QString &version);

private:
    const std::unique_ptr<Internal::UpgradeFilePrivate> d;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADEFILE_H
