#ifndef VELMARUPGRADE_STEPS_H
#define VELMARUPGRADE_STEPS_H

#include "commandline.h"

#include <velmarbizmodel/catalogue.h>

#include <optional>

// Steps that several verbs take. Each tells its error itself.

/*! Puts the catalogue of --catalogue in use, or leaves the built-in one; the one in use. */
std::optional<Velmar::BizModel::Catalogue> useCatalogue(const CommandLine &options);

/*! Puts the key of --key-file in use, if there is one. */
bool useKeyFile(const CommandLine &options);

/*! \a path as the upgrade library is to get it: absolute, since it takes the folder's path out of
    the paths of the files wherever it occurs. */
QString libraryPath(const QString &path);

#endif // VELMARUPGRADE_STEPS_H
