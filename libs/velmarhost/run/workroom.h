#ifndef VELMARHOST_WORKROOM_H
#define VELMARHOST_WORKROOM_H

#include "package/plan.h"

#include <QString>

namespace Velmar::Host {

/*!
    Says that the disk has too little room for what the upgrade library writes to the folder of a
    package; an empty text if it has enough.

    That is the image of \a plan, which holds each file once, if one is built, and the plain form of one
    enciphered file at a time. \a writtenBytes of it are there already, and \a freeBytes may still be
    written; -1: not known, which is no shortage.
*/
QString roomShortage(const Plan &plan, qint64 writtenBytes, qint64 freeBytes);

/*! As above, as \a packagePath is now: with a part of the image in it, or none. */
QString roomShortage(const Plan &plan, const QString &packagePath);

} // namespace Velmar::Host

#endif // VELMARHOST_WORKROOM_H
