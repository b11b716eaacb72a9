#ifndef TESTS_SUPPORT_THREADSHORTAGE_H
#define TESTS_SUPPORT_THREADSHORTAGE_H

#include <cstddef>

#include <pthread.h>

/*! For as long as it lives, the system has no room for another thread: each would get a stack that is
    larger than all addresses. */
class ThreadShortage
{
public:
    ThreadShortage()
    {
        pthread_getattr_default_np(&m_usual);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t(1) << 47);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~ThreadShortage()
    {
        pthread_setattr_default_np(&m_usual);
        pthread_attr_destroy(&m_usual);
    }
    ThreadShortage(const ThreadShortage &) = delete;
    ThreadShortage &operator=(const ThreadShortage &) = delete;

private:
    pthread_attr_t m_usual;
};

#endif // TESTS_SUPPORT_THREADSHORTAGE_H
