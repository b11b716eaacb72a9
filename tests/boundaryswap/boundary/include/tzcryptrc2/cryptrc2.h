#ifndef TINY_TZCRYPTRC2_CRYPTRC2_H
#define TINY_TZCRYPTRC2_CRYPTRC2_H

#include <QString>

enum CRYPTSTYLE { CryptStyle1 = 1 };
enum CRYPTTYPE { CryptType1 = 1, CryptType2 = 2 };

class CryptRc2
{
public:
    CryptRc2();

    bool ReadFileToEncryptOrDecrypt(QString source, QString target, CRYPTSTYLE style,
                                    CRYPTTYPE type);
};

#endif // TINY_TZCRYPTRC2_CRYPTRC2_H
