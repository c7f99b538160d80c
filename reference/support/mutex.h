#ifndef ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_
#define ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_

#include <condition_variable>
#include <mutex>

// Annotations from which clang checks at compile time that the required locks are held
// (-Wthread-safety, an error in the clang builds). Other compilers ignore them.
#ifdef __clang__
#define ZUSKUX_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define ZUSKUX_THREAD_ANNOTATION(attribute)
#endif

/// A member that may only be used while `mutex` is held.
#define ZUSKUX_GUARDED_BY(mutex) ZUSKUX_THREAD_ANNOTATION(guarded_by(mutex))
/// A function that may only be called while `mutex` is held.
#define ZUSKUX_REQUIRES(mutex) ZUSKUX_THREAD_ANNOTATION(requires_capability(mutex))
/// A function that locks `mutex`, so it must not be called while `mutex` is held.
#define ZUSKUX_EXCLUDES(mutex) ZUSKUX_THREAD_ANNOTATION(locks_excluded(mutex))

namespace reference {

/// A `std::mutex` that clang can reason about. Lock it with a `MutexLock`.
class ZUSKUX_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() = default;

  void Lock() ZUSKUX_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void Unlock() ZUSKUX_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

  /// Waits on `condition` with the mutex unlocked meanwhile. Wake-ups may be spurious.
  void Wait(std::condition_variable* condition) ZUSKUX_REQUIRES(this) {
    std::unique_lock lock(mutex_, std::adopt_lock);
    condition->wait(lock);
    // The caller keeps holding it.
    lock.release();
  }

 private:
  std::mutex mutex_;
};

/// Holds a mutex for its lifetime.
class ZUSKUX_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex* mutex) ZUSKUX_THREAD_ANNOTATION(acquire_capability(mutex))
      : mutex_(mutex) {
    mutex_->Lock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() ZUSKUX_THREAD_ANNOTATION(release_capability()) { mutex_->Unlock(); }

 private:
  Mutex* const mutex_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SUPPORT_MUTEX_H_
