#ifndef VELMARFIRMWARE_DATAFILEPATHCONFIG_H
#define VELMARFIRMWARE_DATAFILEPATHCONFIG_H

#include "records/upgraderecords.h"
#include "velmarfirmware_export.h"

#include <QObject>

namespace Velmar::Firmware {

namespace Internal {
template<typename T> class SingletonSlot;
}

/*!
    Reader of a package's DataFilPathCfg.xml, which tells where on the device each file belongs.

    One object for the process, made at its first use. It holds no data: readConfig() may run on
    any thread, and on several at a time.
*/
class VELMARFIRMWARE_EXPORT DataFilePathConfig : public QObject
{
    Q_OBJECT

public:
    static DataFilePathConfig *instance();

    /*! Ends the object, if there is one. Nobody may be using it; instance() makes a new one. */
    static void destroyInstance();

    /*!
        Appends to \a paths one record for each entry of the file at \a path, in file order.

        The root element is called "Velmar". Each element in it, of any name, is an entry and has
        the elements "SrcPath" and "DestPath", of which the first of each counts. The texts are
        taken as they stand and may be empty.

        False if the file cannot be read or an entry lacks one of the two; \a errorText then tells
        the cause in a translated text, and \a paths keeps the entries before the fault. On success
        \a errorText is left alone.
    */
    bool readConfig(const QString &path, QVector<DataFilePath> &paths, QString &errorText);

private:
    friend class Internal::SingletonSlot<DataFilePathConfig>;

    explicit DataFilePathConfig(QObject *parent);
    ~DataFilePathConfig() override;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_DATAFILEPATHCONFIG_H
