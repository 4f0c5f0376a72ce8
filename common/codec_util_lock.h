// Process-wide locks on pthread directly. std::mutex::lock() may throw,
// which would tie the library to the C++ runtime's exception support for a
// case that cannot be reported anyway (a failing lock here is a broken
// invariant). Both are constant-initialised, so a function-local static
// needs no guard.
#pragma once

#include <pthread.h>

namespace codecutil {

class PlainMutex {
public:
    constexpr PlainMutex() = default;
    PlainMutex(const PlainMutex&) = delete;
    PlainMutex& operator=(const PlainMutex&) = delete;
    void lock() { (void)pthread_mutex_lock(&m_); }
    void unlock() { (void)pthread_mutex_unlock(&m_); }

private:
    pthread_mutex_t m_ = PTHREAD_MUTEX_INITIALIZER;
};

// May be taken again by the thread that holds it.
class RecursiveMutex {
public:
    constexpr RecursiveMutex() = default;
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;
    void lock() { (void)pthread_mutex_lock(&m_); }
    void unlock() { (void)pthread_mutex_unlock(&m_); }

private:
    pthread_mutex_t m_ = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
};

}  // namespace codecutil
