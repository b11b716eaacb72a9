#include "device/modelnames.h"

#include <velmarbizmodel/catalogue.h>

#include <QStringList>

namespace Velmar::Host {

QString modelNumber(int modelId)
{
    return QStringLiteral("0x%1").arg(modelId, 4, 16, QLatin1Char('0'));
}

ModelNames::ModelNames(const BizModel::Catalogue &catalogue)
    : m_catalogue(catalogue)
{
    for (const auto &model : catalogue.deviceModels())
        m_names.insert(model.modelId, model.name);
    for (const auto &model : catalogue.subCardModels())
        m_names.insert(model.modelId, model.name);
}

QString ModelNames::describe(int modelId) const
{
    const auto name = m_names.constFind(modelId);
    return name == m_names.constEnd() ? modelNumber(modelId)
                                      : QStringLiteral("%1 (%2)").arg(*name, modelNumber(modelId));
}

std::optional<quint16> ModelNames::findDeviceModel(const QString &text) const
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber, 0);
    for (const auto &model : m_catalogue.deviceModels()) {
        if (isNumber ? model.modelId == number : model.name.compare(text, Qt::CaseInsensitive) == 0)
            return model.modelId;
    }
    return std::nullopt;
}

QString ModelNames::deviceModels() const
{
    QStringList texts;
    for (const auto &model : m_catalogue.deviceModels())
        texts.append(describe(model.modelId));
    return texts.join(QLatin1String(", "));
}

} // namespace Velmar::Host
