#ifndef TESTS_E2E_SIDEBYSIDE_H
#define TESTS_E2E_SIDEBYSIDE_H

#include <cstddef>
#include <functional>

/*! Calls \a work with the numbers from 0 to below \a count, on \a threads threads, each of which takes the
    next number; returns when all have been worked on. */
void workSideBySide(std::size_t count, std::size_t threads,
                    const std::function<void(std::size_t)> &work);

#endif // TESTS_E2E_SIDEBYSIDE_H
