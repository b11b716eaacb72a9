#include <velmarbizmodel/catalogue.h>

#include "cataloguereader_p.h"
#include "installedcatalogue_p.h"

#include <QFile>

#include <memory>
#include <utility>

namespace Velmar::BizModel {

namespace {

constexpr int LargestFile = 16 * 1024 * 1024; // bytes

Catalogue readBuiltin()
{
    QString errorText;
    const auto catalogue =
        Catalogue::load(QStringLiteral(":/velmarbizmodel/catalogue.json"), errorText);
    if (!catalogue)
        qFatal("%s", qUtf8Printable(errorText)); // this library was built wrongly
    return *catalogue;
}

} // namespace

Catalogue::Catalogue(QList<s_DeviceConfig> deviceModels, QList<s_SubCardModel> subCardModels)
    : m_deviceModels(std::move(deviceModels))
    , m_subCardModels(std::move(subCardModels))
{
}

std::optional<Catalogue> Catalogue::load(const QString &path, QString &errorText)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("%1: cannot be read: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    // One byte more tells a file that is too long, also one that has no size, such as a pipe.
    const QByteArray json = file.read(LargestFile + 1);
    if (file.error() != QFileDevice::NoError) {
        errorText = QStringLiteral("%1: cannot be read: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    if (json.size() > LargestFile) {
        errorText =
            QStringLiteral("%1: is longer than %2 bytes").arg(path, QString::number(LargestFile));
        return std::nullopt;
    }
    return fromJson(json, path, errorText);
}

std::optional<Catalogue> Catalogue::fromJson(const QByteArray &json, const QString &source,
                                             QString &errorText)
{
    Internal::CatalogueReader reader(json, source);
    if (!reader.read()) {
        errorText = reader.errorText;
        return std::nullopt;
    }
    return Catalogue(reader.deviceModels, reader.subCardModels);
}

const Catalogue &Catalogue::builtin()
{
    static const auto *const catalogue = new Catalogue(readBuiltin());
    return *catalogue;
}

void Catalogue::install() const
{
    Internal::InstalledCatalogue::install(std::make_unique<Internal::InstalledCatalogue>(*this));
}

const QList<s_DeviceConfig> &Catalogue::deviceModels() const
{
    return m_deviceModels;
}

const QList<s_SubCardModel> &Catalogue::subCardModels() const
{
    return m_subCardModels;
}

} // namespace Velmar::BizModel
