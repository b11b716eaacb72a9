#ifndef VELMARFIRMWARE_COMPONENTCONFIG_H
#define VELMARFIRMWARE_COMPONENTCONFIG_H

#include <QObject>

namespace TZ::ZLoad {
class DataPackage;
}

namespace Velmar::Firmware {

/*! Loads the description of one unit. One object for the process; it holds no data. */
class ComponentConfig : public QObject
{
    Q_OBJECT

public:
    explicit ComponentConfig(QObject *parent);

    static ComponentConfig *instance();
    static void destroyInstance();

    /*!
        Reads the description file at \a path into \a package and fills its lists.

        Left out are golden images and those end commands that choose a target: they stay in the
        tree under \a package and go with it. The lists are only appended to, so that a package
        loaded twice holds everything twice. Always true: a file that cannot be read leaves
        \a package with its defaults and with empty lists.
    */
    bool loadDataPackage(const QString &path, TZ::ZLoad::DataPackage *package);
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_COMPONENTCONFIG_H
