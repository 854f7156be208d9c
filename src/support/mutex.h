// A mutex with annotations for clang's thread-safety analysis (-Wthread-safety). For other
// compilers it is a normal mutex.
#pragma once

#include <chrono>
#include <mutex>
#include <thread>

#ifdef __clang__
#define TEV_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define TEV_THREAD_ANNOTATION(annotation)
#endif

// The data may be used only while the mutex is held.
#define TEV_GUARDED_BY(mutex) TEV_THREAD_ANNOTATION(guarded_by(mutex))
// The function may be called only while the mutex is held.
#define TEV_REQUIRES(mutex) TEV_THREAD_ANNOTATION(requires_capability(mutex))
// The function takes the mutex itself.
#define TEV_EXCLUDES(mutex) TEV_THREAD_ANNOTATION(locks_excluded(mutex))

namespace tev::support {

class TEV_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() TEV_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() TEV_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

  bool tryLock() TEV_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }

  // False when the mutex is still taken at `deadline`. Tries again after each pause: the timed
  // functions of POSIX threads use the real-time clock, which may be stepped, or are not known to
  // the thread sanitizer.
  bool lockUntil(std::chrono::steady_clock::time_point deadline)
      TEV_THREAD_ANNOTATION(try_acquire_capability(true)) {
    while (!mutex_.try_lock()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(kPause);
    }
    return true;
  }

  static constexpr std::chrono::microseconds kPause{100};  // between two tries

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a mutex for the length of a scope.
class TEV_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TEV_THREAD_ANNOTATION(acquire_capability(mutex))
      : lock_(mutex.mutex_) {}
  ~MutexLock() TEV_THREAD_ANNOTATION(release_capability()) = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // For a wait, which releases the mutex and holds it again when it returns.
  std::unique_lock<std::mutex>& forWait() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace tev::support
