#ifndef VELMARUPGRADE_PLANTEXT_H
#define VELMARUPGRADE_PLANTEXT_H

#include "package/plan.h"

#include <QStringList>

/*! What the device gets by \a plan, in short: the device, and a line for each of its parts. */
QStringList planSummary(const Velmar::Host::Plan &plan);

/*! All of \a plan: the summary, each file in the order sent, and what is left out with its reason.
 */
QStringList planText(const Velmar::Host::Plan &plan);

#endif // VELMARUPGRADE_PLANTEXT_H
