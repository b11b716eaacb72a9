#include "steps.h"

#include "console.h"

#include <tzcryptrc2/cryptkey.h>

#include <QDir>

using namespace Velmar;
using namespace Velmar::Host;

std::optional<BizModel::Catalogue> useCatalogue(const CommandLine &options)
{
    constexpr const char *option = "catalogue";
    if (!options.isSet(option))
        return BizModel::Catalogue::builtin();
    QString errorText;
    auto catalogue = BizModel::Catalogue::load(options.value(option), errorText);
    if (catalogue)
        catalogue->install();
    else
        complain(VerdictCode::Usage, QStringLiteral("--catalogue: ") + errorText);
    return catalogue;
}

bool useKeyFile(const CommandLine &options)
{
    constexpr const char *option = "key-file";
    if (!options.isSet(option))
        return true;
    TZ::CryptKey key;
    QString errorText;
    if (TZ::readCryptKeyFile(options.value(option), key, errorText) && TZ::setCryptKey(key))
        return true;
    complain(VerdictCode::Usage, QStringLiteral("--key-file: ") + errorText);
    return false;
}

QString libraryPath(const QString &path)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}
