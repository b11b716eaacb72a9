#ifndef VELMARHOST_WORKERMAIN_H
#define VELMARHOST_WORKERMAIN_H

namespace Velmar::Host {

/*! Exit codes of a worker process. */
enum class WorkerExit {
    Told = 0, //!< it has told its end, or has nobody to tell it to
    BadOrder = 64, //!< what came on its standard input was no order
    OutOfMemory = 71,
};

/*!
    Runs a worker process: reads one order from standard input, carries it out, and tells about it
    on standard output (workermessage.h). Ends the process with a WorkerExit.

    Needs a QCoreApplication, and the process for itself: it takes over standard input and output,
    Qt's message handler and the terminate handler.
*/
[[noreturn]] void workerMain();

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERMAIN_H
