#include "run/workerwatch.h"

#include <utility>
#include <vector>

namespace Velmar::Host {

void keepForWorker(std::unique_ptr<QObject> object)
{
    // Never destroyed: the worker may outlive the static objects, too.
    static auto *const kept = new std::vector<std::unique_ptr<QObject>>;
    kept->push_back(std::move(object));
}

} // namespace Velmar::Host
