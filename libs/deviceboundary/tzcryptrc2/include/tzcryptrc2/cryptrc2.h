#ifndef TZCRYPTRC2_CRYPTRC2_H
#define TZCRYPTRC2_CRYPTRC2_H

#include "tzcryptrc2_export.h"

#include <QString>

/*! What is worked on. */
enum CRYPTSTYLE : int {
    CRYPTSTYLE_FILE = 1, //!< a whole file with its header
};

/*! What is done with it. */
enum CRYPTTYPE : int {
    CRYPTTYPE_ENCRYPT = 1,
    CRYPTTYPE_DECRYPT = 2,
};

/*! Enciphers and deciphers files. Objects hold no state; any thread may use its own. */
class TZCRYPTRC2_EXPORT CryptRc2
{
public:
    CryptRc2();

    /*!
        Reads the file \a source and writes the result to \a target, in constant memory, with the
        key of cryptKey().

        A file or link that stands at \a target is removed first. False, with the cause in the log,
        if a file cannot be read or written, or if an enciphered file is damaged, cut off or of
        another key; no file is left at \a target then. False with everything left as it was if
        \a style or \a type is unknown, if both paths name one file, or if a folder or device
        stands at \a target.
    */
    bool ReadFileToEncryptOrDecrypt(QString source, QString target, CRYPTSTYLE style,
                                    CRYPTTYPE type);
};

#endif // TZCRYPTRC2_CRYPTRC2_H
