#ifndef VELMARHOST_PROGRESSCLAMP_H
#define VELMARHOST_PROGRESSCLAMP_H

#include <algorithm>

namespace Velmar::Host {

/*!
    Percentages as people expect them: never backwards, and 100 at the end alone.

    Library and devices tell 100 before all is done, begin anew with each file, and may tell
    anything.
*/
class ProgressClamp
{
public:
    /*! What to show for \a percent: 0 to 99, and no less than before. */
    int take(int percent)
    {
        m_percent = std::max(m_percent, std::clamp(percent, 0, 99));
        return m_percent;
    }

    /*! What was taken last; 0 before. */
    int percent() const { return m_percent; }

    /*! Begins anew, with the next phase. */
    void reset() { m_percent = 0; }

private:
    int m_percent = 0;
};

} // namespace Velmar::Host

#endif // VELMARHOST_PROGRESSCLAMP_H
