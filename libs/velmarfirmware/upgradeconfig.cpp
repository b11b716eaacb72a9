#include "upgradeconfig.h"

namespace Velmar::Firmware {

UpgradeConfig::UpgradeConfig(QObject *parent)
    : QObject(parent)
{
}

} // namespace Velmar::Firmware
