#ifndef VELMARHOST_VERDICTTEXT_H
#define VELMARHOST_VERDICTTEXT_H

#include "show/runevent.h"

#include <QStringList>

namespace Velmar::Host {

/*!
    What there is to say below the sentence of the verdict, as printable lines: its code word, the
    cause, the advice, the versions before and after, bytes and time, and where the record is.
*/
QStringList verdictLines(const RunSummary &summary);

} // namespace Velmar::Host

#endif // VELMARHOST_VERDICTTEXT_H
