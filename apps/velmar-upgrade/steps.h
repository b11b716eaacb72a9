#ifndef VELMARUPGRADE_STEPS_H
#define VELMARUPGRADE_STEPS_H

#include "commandline.h"
#include "process/logcapture.h"

#include <velmarbizmodel/catalogue.h>

#include <chrono>
#include <memory>
#include <optional>

namespace Velmar::Host {
class DeviceSession;
class PackageParse;
} // namespace Velmar::Host

// Steps that several verbs take. Each tells its error itself.

/*! Puts the catalogue of --catalogue in use, or leaves the built-in one; the one in use. */
std::optional<Velmar::BizModel::Catalogue> useCatalogue(const CommandLine &options);

/*! Puts the key of --key-file in use, if there is one. */
bool useKeyFile(const CommandLine &options);

/*! Opens a session with \a address, or null. */
std::unique_ptr<Velmar::Host::DeviceSession> openSession(const Velmar::Host::DeviceAddress &address,
                                                         const Velmar::Host::LogCapture &log);

/*! \a path as the upgrade library is to get it: absolute, since it takes the folder's path out of
    the paths of the files wherever it occurs. */
QString libraryPath(const QString &path);

/*! Runs \a parse for the active device, or for \a model if that is given. */
bool finishParse(Velmar::Host::PackageParse &parse, std::optional<quint16> model,
                 std::chrono::milliseconds timeLimit, const Velmar::Host::LogCapture &log);

#endif // VELMARUPGRADE_STEPS_H
