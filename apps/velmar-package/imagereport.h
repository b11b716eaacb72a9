#ifndef VELMARPACKAGE_IMAGEREPORT_H
#define VELMARPACKAGE_IMAGEREPORT_H

#include <upgradeimage/imagereader.h>

#include <QByteArray>
#include <QIODevice>
#include <QStringList>
#include <QVector>

namespace Velmar::Package {

/*! All that is to be told of an upgrade image, a sound or an unsound one. */
struct ImageReport {
    qint64 fileSize = 0;
    bool hasHeader =
        false; //!< false: the file is too short, and of the following only faults is set
    UpgradeImage::ImageHeader header;
    QVector<UpgradeImage::ImageRecord> records;
    UpgradeImage::ImageSums sums;
    QStringList faults; //!< empty if the image is sound
};

/*! Reads \a image to its end, whatever is wrong with it. */
ImageReport makeImageReport(QIODevice &image);

/*! For people: a table, with control characters in paths as "\x1b". */
QByteArray toText(const ImageReport &report);

/*! For programs: one JSON object, indented. A path that is no UTF-8 stands in hexadecimal, too. */
QByteArray toJson(const ImageReport &report);

} // namespace Velmar::Package

#endif // VELMARPACKAGE_IMAGEREPORT_H
