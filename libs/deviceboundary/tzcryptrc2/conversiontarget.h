#ifndef TZCRYPTRC2_CONVERSIONTARGET_H
#define TZCRYPTRC2_CONVERSIONTARGET_H

#include <QString>

namespace TZ::Internal {

/*! Why \a source must not be turned into \a target, for people; empty if nothing is against it. */
QString conversionTargetFault(const QString &source, const QString &target);

} // namespace TZ::Internal

#endif // TZCRYPTRC2_CONVERSIONTARGET_H
