// Scoped ownership of a record's raw pthread mutex, with the annotations that clang's lock analysis reads.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define KEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KEL_THREAD_ANNOTATION(x)
#endif
#define KEL_SCOPED_CAPABILITY KEL_THREAD_ANNOTATION(scoped_lockable)
#define KEL_REQUIRES(...) KEL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KEL_ACQUIRE(...) KEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KEL_RELEASE(...) KEL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace kel {

// Takes a lock that another scope gives back; everywhere else lock_guard serves.
inline void acquire(pthread_mutex_t& mutex) KEL_ACQUIRE(mutex)
    KEL_THREAD_ANNOTATION(no_thread_safety_analysis) {
    pthread_mutex_lock(&mutex);
}

// Tells the lock analysis what the interface demands of the caller.
inline void assume_held(pthread_mutex_t& mutex) KEL_THREAD_ANNOTATION(assert_capability(mutex)) {
    (void)mutex;
}

struct adopt_t {};
// Says that the caller holds the lock already.
inline constexpr adopt_t adopt{};

class KEL_SCOPED_CAPABILITY lock_guard {
  public:
    explicit lock_guard(pthread_mutex_t& mutex) KEL_ACQUIRE(mutex) : mutex_(mutex) {
        pthread_mutex_lock(&mutex_);
    }
    lock_guard(pthread_mutex_t& mutex, adopt_t) KEL_REQUIRES(mutex) : mutex_(mutex) {}
    ~lock_guard() KEL_RELEASE() { pthread_mutex_unlock(&mutex_); }
    lock_guard(const lock_guard&) = delete;
    lock_guard& operator=(const lock_guard&) = delete;

  private:
    pthread_mutex_t& mutex_;
};

// Fields that are read without their lock on purpose: the value may be old, never torn.
template <typename T>
T read_unlocked(const T& field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

// The matching write, by whoever holds the lock.
template <typename T>
void write_for_unlocked(T& field, T value) {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

}  // namespace kel
