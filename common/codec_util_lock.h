// Process-wide locks on pthread directly. std::mutex::lock() may throw,
// which would tie the library to the C++ runtime's exception support for a
// case that cannot be reported anyway (a failing lock here is a broken
// invariant). Both are constant-initialised, so a function-local static
// needs no guard.
#pragma once

#include <pthread.h>

namespace codecutil {

template <bool kRecursive>
class PthreadMutex {
public:
    constexpr PthreadMutex() = default;
    PthreadMutex(const PthreadMutex&) = delete;
    PthreadMutex& operator=(const PthreadMutex&) = delete;
    void lock() { (void)pthread_mutex_lock(&m_); }
    void unlock() { (void)pthread_mutex_unlock(&m_); }

private:
    static constexpr pthread_mutex_t initial() {
        if constexpr (kRecursive) {
            pthread_mutex_t m = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
            return m;
        } else {
            pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
            return m;
        }
    }
    pthread_mutex_t m_ = initial();
};

using PlainMutex = PthreadMutex<false>;
// May be taken again by the thread that holds it.
using RecursiveMutex = PthreadMutex<true>;

}  // namespace codecutil
