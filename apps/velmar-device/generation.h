#ifndef VELMARDEVICE_GENERATION_H
#define VELMARDEVICE_GENERATION_H

namespace Velmar::Simulator {

/*! Which generation of the HTTP service a device has. */
enum class Generation {
    None, //!< no HTTP service
    Older,
    Newer,
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_GENERATION_H
