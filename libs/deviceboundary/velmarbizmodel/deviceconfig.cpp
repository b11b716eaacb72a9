#include <velmarbizmodel/deviceconfig.h>

namespace Velmar::BizModel {

s_SubCardConfig::s_SubCardConfig() = default;
s_SubCardConfig::s_SubCardConfig(const s_SubCardConfig &other) = default;
s_SubCardConfig &s_SubCardConfig::operator=(const s_SubCardConfig &other) = default;
s_SubCardConfig::~s_SubCardConfig() = default;

} // namespace Velmar::BizModel
