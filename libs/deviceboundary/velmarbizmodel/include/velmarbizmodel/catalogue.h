#ifndef VELMARBIZMODEL_CATALOGUE_H
#define VELMARBIZMODEL_CATALOGUE_H

#include <velmarbizmodel/deviceconfig.h>

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace Velmar::BizModel {

/*! One board of a sub-card model. */
struct s_SubCardBoard {
    int boardId = 0; //!< 1 to 255; 0 stands for any board in look-ups and is nobody's id
    QList<s_UpgradeCfg> upgradeCfgs; //!< the sections of the board, in the catalogue's order
};

/*! Static description of a sub-card model. */
struct s_SubCardModel {
    unsigned short modelId = 0;
    QString name;
    QList<s_SubCardBoard> boards; //!< at least one, by ascending board id
};

/*!
    The device models and sub-card models that a host knows.

    A catalogue comes from a JSON file, whose format is that of docs/formats/device-catalogue.md. It
    is read wholly or not at all, so every object of this class is a consistent description: no
    model id or name is there twice, and each card that a device takes is described. Objects are
    plain values; any thread may use its own.
*/
class VELMARBIZMODEL_EXPORT Catalogue
{
public:
    /*!
        Reads the catalogue file at \a path, of at most 16 MiB.

        Without a value if the file cannot be read or is not a catalogue; \a errorText then tells
        the file, the line and the fault, as in "models.json:12: unknown key \"colour\"".
    */
    static std::optional<Catalogue> load(const QString &path, QString &errorText);

    /*! Reads the catalogue text \a json; \a source stands for the file in \a errorText. Otherwise
        as load(). */
    static std::optional<Catalogue> fromJson(const QByteArray &json, const QString &source,
                                             QString &errorText);

    /*! The catalogue that comes with this library. */
    static const Catalogue &builtin();

    /*!
        Makes a copy of this catalogue the one that DeviceConfigManager and InterfaceConfig look
        into, in the whole process and for all threads at once.

        Without it, they look into builtin(). What they handed out of an earlier catalogue stays
        valid until the process ends, and so does the memory of that catalogue: install at the
        start, not for each device.
    */
    void install() const;

    const QList<s_DeviceConfig> &deviceModels() const; //!< in the file's order
    const QList<s_SubCardModel> &subCardModels() const; //!< in the file's order

private:
    Catalogue(QList<s_DeviceConfig> deviceModels, QList<s_SubCardModel> subCardModels);

    QList<s_DeviceConfig> m_deviceModels;
    QList<s_SubCardModel> m_subCardModels;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_CATALOGUE_H
