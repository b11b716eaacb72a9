#include "sidebyside.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

void workSideBySide(std::size_t count, std::size_t threads,
                    const std::function<void(std::size_t)> &work)
{
    std::atomic<std::size_t> next { 0 };
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i < std::min(threads, count); ++i)
        workers.emplace_back([&] {
            for (std::size_t number = next++; number < count; number = next++)
                work(number);
        });
    for (auto &worker : workers)
        worker.join();
}
