#ifndef TZCRYPTRC2_CONVERTFILE_H
#define TZCRYPTRC2_CONVERTFILE_H

#include "tzcryptrc2_export.h"

#include <QString>

#include <functional>

namespace TZ {

/*! What became of a file that was to be enciphered or deciphered, and why. */
struct ConvertOutcome {
    enum class Result {
        Done,
        SourceRefused, //!< the source is no file, or may not be read
        SourceUnsound, //!< it is damaged, cut off, not enciphered, or of another key
        TargetRefused, //!< no file can be made at the place of the target, or it is the source
        Failed, //!< reading or writing failed on the way, for instance as the disk is full
        Interrupted, //!< the caller did not want to go on
    };

    Result result = Result::Done;
    QString cause; //!< for people; empty if it is done
};

/*!
    Enciphers the file \a source with the key of cryptKey() and makes the result the file \a target.

    The target gets its name when it is whole; a file or link that stands there is replaced in that
    step and stays as it was if anything fails. \a mayGoOn is asked every 64 KiB. Any thread;
    constant memory.
*/
TZCRYPTRC2_EXPORT ConvertOutcome encipherFile(const QString &source, const QString &target,
                                              const std::function<bool()> &mayGoOn = {});

/*! The same the other way round. The target is authentic: the code is checked before it is named.
 */
TZCRYPTRC2_EXPORT ConvertOutcome decipherFile(const QString &source, const QString &target,
                                              const std::function<bool()> &mayGoOn = {});

/*!
    What decipherFile() would say of \a source, without a target: header, authentication code and
    padding are checked. Takes a fraction of its time, as nearly nothing is deciphered.
*/
TZCRYPTRC2_EXPORT ConvertOutcome checkEncipheredFile(const QString &source,
                                                     const std::function<bool()> &mayGoOn = {});

} // namespace TZ

#endif // TZCRYPTRC2_CONVERTFILE_H
