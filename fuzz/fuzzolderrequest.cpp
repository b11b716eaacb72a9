#include "decoding.h"
#include "records/compatibilityrecords.h"

using namespace Velmar::ProtoModel::Auxiliary;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzzDecoding<std::vector<s_CompatibilityUpgradeDetail>>(data, size);
    return 0;
}
