#include "show/outputstyle.h"

#include <QByteArray>

#include <sys/ioctl.h>
#include <unistd.h>

namespace Velmar::Host {

OutputStyle OutputStyle::of(std::FILE *stream)
{
    const int descriptor = fileno(stream);
    OutputStyle style;
    style.redraws = isatty(descriptor) == 1 && qgetenv("TERM") != "dumb";
    style.colours = style.redraws && qEnvironmentVariableIsEmpty("NO_COLOR");
    style.columns = [descriptor] {
        winsize size {};
        return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? int(size.ws_col) : 80;
    };
    style.rows = [descriptor] {
        winsize size {};
        return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? int(size.ws_row) : 24;
    };
    return style;
}

} // namespace Velmar::Host
