#ifndef TESTS_SUPPORT_SINGLETONRACE_H
#define TESTS_SUPPORT_SINGLETONRACE_H

#include <atomic>
#include <thread>

/*!
    Whether two threads that ask for the first instance of \a T at the same time get the same
    object.

    Ends the present instance and leaves a new one.
*/
template<typename T> bool threadsShareFirstInstance()
{
    constexpr int Rounds = 100;
    for (int round = 0; round < Rounds; ++round) {
        T::destroyInstance();
        std::atomic<int> ready { 0 };
        T *seen[2] = { nullptr, nullptr };
        const auto ask = [&ready](T *&object) {
            ++ready;
            while (ready < 2) { }
            object = T::instance();
        };
        std::thread other(ask, std::ref(seen[0]));
        ask(seen[1]);
        other.join();
        if (!seen[0] || seen[0] != seen[1])
            return false;
    }
    return true;
}

#endif // TESTS_SUPPORT_SINGLETONRACE_H
