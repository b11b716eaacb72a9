#ifndef VELMARFIRMWARE_UPGRADEFILE_P_H
#define VELMARFIRMWARE_UPGRADEFILE_P_H

#include "upgradefile.h"

namespace Velmar::Firmware::Internal {

/*! One image: its parts and the writing of it. Used by one thread. */
class UpgradeFilePrivate : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeFilePrivate(UpgradeFile *owner);

    /*! Writes the image. Returns its path, or an empty string on failure. */
    QString start();

    /*!
        Makes the file at \a sourcePath readable and returns its length in bytes, cut to 32 bits; 0
        on failure. \a outPath receives the path to read: the plain copy of an enciphered file,
        beside its source and to be removed by the caller, or \a sourcePath itself.
    */
    int readFileToEncryptOrDecrypt(const QString &sourcePath, QString &outPath);

    UpgradeFile *const q;
    QVector<QPair<QString, QString>> filePaths; // path on disk, destination path on the device
    QString packagePath; // folder of the image
    QString upgradeFilePath; // the image itself
    int modelId = 0;
    QString version;
};

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_UPGRADEFILE_P_H
