#ifndef VELMARPACKAGE_EXITCODE_H
#define VELMARPACKAGE_EXITCODE_H

namespace Velmar::Package {

/*! How the program ends; the numbers are those of BSD's sysexits.h. */
enum class ExitCode {
    Ok = 0,
    Usage = 64, //!< the command line is wrong
    DataError = 65, //!< an input is there, but unsound
    NoInput = 66, //!< an input is missing or cannot be read
    CannotCreate = 73, //!< the output is there already, or cannot be made at its place
    IoError = 74, //!< reading or writing failed on the way, or was interrupted
};

} // namespace Velmar::Package

#endif // VELMARPACKAGE_EXITCODE_H
