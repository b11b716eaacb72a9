#ifndef VELMARHOST_MODELNAMES_H
#define VELMARHOST_MODELNAMES_H

#include <QHash>
#include <QString>

#include <optional>

namespace Velmar::BizModel {
class Catalogue;
}

namespace Velmar::Host {

/*! \a modelId as people write it, as in "0x7701". */
QString modelNumber(int modelId);

/*! The names of the models in a catalogue. */
class ModelNames
{
public:
    explicit ModelNames(const BizModel::Catalogue &catalogue);

    /*! "Strata S8 (0x7701)"; the number alone if the catalogue lacks the model. */
    QString describe(int modelId) const;

    /*! The device model that \a text names: by its name, whatever its case, or by its number,
        decimal or with 0x in front. Nothing if the catalogue has no such device model. */
    std::optional<quint16> findDeviceModel(const QString &text) const;

    /*! All device models in one line, in the catalogue's order. */
    QString deviceModels() const;

private:
    const BizModel::Catalogue &m_catalogue;
    QHash<int, QString> m_names;
};

} // namespace Velmar::Host

#endif // VELMARHOST_MODELNAMES_H
