#ifndef VELMARDEVICE_CONTROLTEXT_H
#define VELMARDEVICE_CONTROLTEXT_H

#include "devicerecord.h"
#include "generation.h"

#include <velmarbizmodel/deviceconfig.h>

#include <optional>
#include <string>
#include <vector>

namespace Velmar::Simulator {

/*! One card of a control text. */
struct ControlledPart {
    PartOrder order; //!< with upgrade codes, whatever the generation
    quint8 boardId = 0;
};

/*! What the text part of an upload orders. */
struct ControlText {
    bool reboots = false; //!< restart once the installation is over
    bool deletesImage = false;
    std::vector<ControlledPart> parts;

    /*!
        Reads \a json, which a host sends to a device of \a model and \a generation.

        Strict: exactly the keys that the generation has, each once, with values of the right type
        and width. Without a value, and with \a errorText set, otherwise.
    */
    static std::optional<ControlText> read(const std::string &json, Generation generation,
                                           const BizModel::s_DeviceConfig &model,
                                           QString &errorText);
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_CONTROLTEXT_H
