#include <velmarbizmodel/devicelink.h>

namespace Velmar::BizModel {

// The first virtual function that is not inline: it keeps the class's tables in this library.
DeviceLink::~DeviceLink() = default;

} // namespace Velmar::BizModel
