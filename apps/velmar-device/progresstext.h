#ifndef VELMARDEVICE_PROGRESSTEXT_H
#define VELMARDEVICE_PROGRESSTEXT_H

#include "generation.h"

#include <records/devicerecords.h>

#include <string>

namespace Velmar::BizModel {
struct s_DeviceConfig;
}

namespace Velmar::Simulator {

/*!
    \a progress as the JSON text that a device of \a model and \a generation answers a poll with.

    The older form tells nothing of cards and knows no failure: 0 stands for done, 1 for all else; a
    device that has nothing to tell answers an empty list.
*/
std::string progressText(const ProtoModel::Auxiliary::s_UpgradePercent &progress,
                         Generation generation, const BizModel::s_DeviceConfig &model);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_PROGRESSTEXT_H
