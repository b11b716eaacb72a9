#ifndef VELMARFIRMWARE_SINGLETONSLOT_H
#define VELMARFIRMWARE_SINGLETONSLOT_H

#include <QMutex>
#include <QMutexLocker>

#include <atomic>

namespace Velmar::Firmware::Internal {

/*!
    Place of the one object of a class: made at its first use, ended only on request.

    The pointer is looked at before the mutex is taken and again under it. It is atomic, so that a
    thread that finds it set also sees the object whole. The mutex guards creation and destruction
    alone: whoever destroys the object makes sure that nobody uses it.
*/
template<typename T> class SingletonSlot
{
public:
    T *instance()
    {
        T *object = m_object.load(std::memory_order_acquire);
        if (object)
            return object;
        const QMutexLocker locker(&m_mutex);
        object = m_object.load(std::memory_order_relaxed);
        if (!object) {
            object = new T(nullptr);
            m_object.store(object, std::memory_order_release);
        }
        return object;
    }

    void destroyInstance()
    {
        if (!m_object.load(std::memory_order_acquire))
            return;
        const QMutexLocker locker(&m_mutex);
        delete m_object.load(std::memory_order_relaxed);
        m_object.store(nullptr, std::memory_order_release);
    }

private:
    std::atomic<T *> m_object { nullptr };
    QBasicMutex m_mutex; // a QMutex without a destructor: workers may come to it at the very end
};

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_SINGLETONSLOT_H
