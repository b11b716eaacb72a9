#include "decoding.h"
#include "records/devicerecords.h"

using namespace Velmar::ProtoModel::Auxiliary;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzzDecoding<s_DeviceVersion>(data, size);
    return 0;
}
