#ifndef VELMAR_TESTS_THREADTIME_H
#define VELMAR_TESTS_THREADTIME_H

#include <cstdint>
#include <time.h>

/*! The processor time that this thread has used, in ns: what other programs do does not count. */
inline std::int64_t threadTime()
{
    timespec time {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t(time.tv_sec) * 1000000000 + time.tv_nsec;
}

#endif // VELMAR_TESTS_THREADTIME_H
