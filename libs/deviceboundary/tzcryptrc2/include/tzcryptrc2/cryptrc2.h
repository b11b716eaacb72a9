#ifndef TZCRYPTRC2_CRYPTRC2_H
#define TZCRYPTRC2_CRYPTRC2_H

#include "tzcryptrc2_export.h"

#include <QString>

/*! What is worked on. */
enum CRYPTSTYLE {
    CRYPTSTYLE_FILE = 1, //!< a whole file with its header
};

/*! What is done with it. */
enum CRYPTTYPE {
    CRYPTTYPE_ENCRYPT = 1,
    CRYPTTYPE_DECRYPT = 2,
};

/*! Enciphers and deciphers files. Objects hold no state; any thread may use its own. */
class TZCRYPTRC2_EXPORT CryptRc2
{
public:
    CryptRc2();

    /*!
        Reads the file \a source and writes the result to \a target, in constant memory.

        False if a file cannot be read or written, if \a style or \a type is unknown, or if an
        enciphered file is damaged or cut off; no file is left at \a target then.
    */
    bool ReadFileToEncryptOrDecrypt(QString source, QString target, CRYPTSTYLE style,
                                    CRYPTTYPE type);
};

#endif // TZCRYPTRC2_CRYPTRC2_H
