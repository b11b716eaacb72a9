#ifndef VELMARHOST_OUTPUTSTYLE_H
#define VELMARHOST_OUTPUTSTYLE_H

#include <cstdio>
#include <functional>

namespace Velmar::Host {

/*! What may be written to a stream. */
struct OutputStyle {
    bool redraws = false; //!< a terminal: lines may be drawn again in place
    bool colours = false; //!< a terminal, and NO_COLOR is not set
    std::function<int()> columns = [] {
        return 80;
    }; //!< width of the terminal at present
    std::function<int()> rows = [] {
        return 24;
    }; //!< height of the terminal at present

    /*! The style for \a stream, from the stream itself and from NO_COLOR and TERM. */
    static OutputStyle of(std::FILE *stream);
};

} // namespace Velmar::Host

#endif // VELMARHOST_OUTPUTSTYLE_H
