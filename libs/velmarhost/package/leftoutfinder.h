#ifndef VELMARHOST_LEFTOUTFINDER_H
#define VELMARHOST_LEFTOUTFINDER_H

#include "package/plan.h"

#include <QPair>
#include <QSet>
#include <QString>

#include <vector>

namespace Velmar::Host {

struct PlanOrder;

/*! What tells one entry of a unit's description from another: section, path on disk, board. */
using ItemKey = QPair<QString, QPair<QString, int>>;

/*! A file on disk and its place on the device. */
using FilePlace = QPair<QString, QString>;

/*! What of an order will be sent. */
struct SentItems {
    QSet<ItemKey> items; //!< of the sections
    QSet<FilePlace> places; //!< of all files
    QString registerUnit; //!< by registers: folder on disk of the unit that is written
};

/*! \a path, on disk, relative to \a packagePath and in its shortest form. */
QString pathInPackage(const QString &path, const QString &packagePath);

/*!
    Everything that the package of \a order lists and that is not among \a sent, in the package's
    order, each with the reason: first the units' files, then the entries of the path table.
*/
std::vector<LeftOut> findLeftOut(const PlanOrder &order, const SentItems &sent);

} // namespace Velmar::Host

#endif // VELMARHOST_LEFTOUTFINDER_H
