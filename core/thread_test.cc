#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "kestrine/platform/core/thread.h"

namespace kestrine::platform::core::thread {
namespace {

// A lock left held by an exception would deadlock the next caller.
TEST(ScopedLock, ReleasesTheMutexWhenTheScopeUnwinds) {
  Mutex mutex;
  EXPECT_THROW(
      {
        ScopedLock lock(mutex);
        throw std::runtime_error("fault while holding the lock");
      },
      std::runtime_error);
  EXPECT_TRUE(mutex.tryLock());
  mutex.unlock();
}

TEST(ScopedLock, ExcludesOtherThreadsWhileHeld) {
  Mutex mutex;
  bool takenElsewhere = true;
  {
    ScopedLock lock(mutex);
    std::thread([&] { takenElsewhere = mutex.tryLock(); }).join();
  }
  EXPECT_FALSE(takenElsewhere);
  std::thread([&] {
    takenElsewhere = mutex.tryLock();
    if (takenElsewhere) mutex.unlock();
  }).join();
  EXPECT_TRUE(takenElsewhere);
}

}  // namespace
}  // namespace kestrine::platform::core::thread
