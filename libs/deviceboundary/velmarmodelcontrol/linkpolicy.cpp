#include <velmarmodelcontrol/linkpolicy.h>

#include <mutex>

namespace Velmar::ModelControl {

namespace {

std::mutex policyMutex; // guards currentPolicy
LinkPolicy currentPolicy;

} // namespace

LinkPolicy linkPolicy()
{
    const std::lock_guard<std::mutex> lock(policyMutex);
    return currentPolicy;
}

void setLinkPolicy(const LinkPolicy &policy)
{
    const std::lock_guard<std::mutex> lock(policyMutex);
    currentPolicy = policy;
}

} // namespace Velmar::ModelControl
