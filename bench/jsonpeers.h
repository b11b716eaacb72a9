#ifndef VELMAR_BENCH_JSONPEERS_H
#define VELMAR_BENCH_JSONPEERS_H

#include "jsondocuments.h"

#include <memory>
#include <string>

/*!
    The same records read and written by other libraries, each in its fastest documented way.

    Both keep what may be kept from one text to the next. The functions answer false for a text
    that the library does not take.
*/
namespace JsonPeers {

/*! simdjson's On Demand reader. Its texts need padding, which is not part of what is timed. */
class SimdJson
{
public:
    SimdJson();
    ~SimdJson();

    void setText(const std::string &text);
    bool decode(Velmar::ProtoModel::Auxiliary::s_DeviceVersion &document);
    bool decode(Velmar::ProtoModel::Auxiliary::s_UpgradePercent &document);
    bool decode(JsonDocuments::CompatibilityProgress &document);

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

/*! RapidJSON's SAX reader, and its writer with ASCII as the target. */
namespace RapidJson {

bool decode(const std::string &text, Velmar::ProtoModel::Auxiliary::s_DeviceVersion &document);
bool decode(const std::string &text, Velmar::ProtoModel::Auxiliary::s_UpgradePercent &document);
bool decode(const std::string &text, JsonDocuments::CompatibilityProgress &document);

void encode(std::string &text, const Velmar::ProtoModel::Auxiliary::s_UpgradeDetail &document);
void encode(std::string &text, const JsonDocuments::CompatibilityRequest &document);

} // namespace RapidJson

} // namespace JsonPeers

#endif // VELMAR_BENCH_JSONPEERS_H
