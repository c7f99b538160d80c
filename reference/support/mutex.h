#ifndef ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_
#define ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_

#include <mutex>

// Annotations with which clang checks at compile time that locks are held where they have to be
// (-Wthread-safety, an error in the clang builds). Other compilers see nothing of them.
#ifdef __clang__
#define ZUSKUX_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define ZUSKUX_THREAD_ANNOTATION(attribute)
#endif

/// A member that is only used while `mutex` is held.
#define ZUSKUX_GUARDED_BY(mutex) ZUSKUX_THREAD_ANNOTATION(guarded_by(mutex))
/// A function that is only called while `mutex` is held.
#define ZUSKUX_REQUIRES(mutex) ZUSKUX_THREAD_ANNOTATION(requires_capability(mutex))
/// A function that locks `mutex`, and so is not called while it is held.
#define ZUSKUX_EXCLUDES(mutex) ZUSKUX_THREAD_ANNOTATION(locks_excluded(mutex))

namespace reference {

/// A `std::mutex` that clang can reason about. Locked with a `MutexLock`; a
/// `std::condition_variable_any` waits on it.
class ZUSKUX_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() = default;

  // Names of the standard library, for std::condition_variable_any.
  void lock() ZUSKUX_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() ZUSKUX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for its lifetime.
class ZUSKUX_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex* mutex) ZUSKUX_THREAD_ANNOTATION(acquire_capability(mutex))
      : mutex_(mutex) {
    mutex_->lock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() ZUSKUX_THREAD_ANNOTATION(release_capability()) { mutex_->unlock(); }

 private:
  Mutex* const mutex_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_
