#ifndef VELMARSSPROXY_LABELS_H
#define VELMARSSPROXY_LABELS_H

#include <QtGlobal>

namespace Velmar::SSProxy::Internal {

/*! Counts the labels of requests: up from 1, and to 1 again behind the largest. */
class Labels
{
public:
    explicit Labels(quint32 last = 0)
        : m_last(last)
    {
    }

    /*! The next label for which \a isInUse(label) is false. */
    template<typename IsInUse> quint32 next(IsInUse isInUse)
    {
        do {
            if (++m_last == 0)
                m_last = 1;
        } while (isInUse(m_last));
        return m_last;
    }

private:
    quint32 m_last;
};

} // namespace Velmar::SSProxy::Internal

#endif // VELMARSSPROXY_LABELS_H
