#ifndef KESTRINE_PLATFORM_CORE_THREAD_H_
#define KESTRINE_PLATFORM_CORE_THREAD_H_

#include <mutex>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::thread {

// A plain (not re-entrant) mutual exclusion lock.
class KPL_CORE_API Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() { mutex_.lock(); }
  bool tryLock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a Mutex for the lifetime of the object.
class KPL_CORE_API ScopedLock {
 public:
  explicit ScopedLock(Mutex& mutex) : mutex_(mutex) { mutex_.lock(); }
  ~ScopedLock() { mutex_.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace kestrine::platform::core::thread

#endif  // KESTRINE_PLATFORM_CORE_THREAD_H_
