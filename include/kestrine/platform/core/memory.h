#ifndef KESTRINE_PLATFORM_CORE_MEMORY_H_
#define KESTRINE_PLATFORM_CORE_MEMORY_H_

#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "kestrine/platform/core/export.h"

namespace kestrine::platform::core::memory {

// A pooled allocator for the many short-lived, small buffers of record objects. Blocks of up
// to 16 KiB are served from per-size-class free lists (8, 16, 32, 48, 64, 96, 128, 256, 512,
// 1024, 2048, 4096, 16384 bytes), with a cache per thread in front of a shared pool, so that
// the common allocate/free pair touches no lock. Larger blocks go to the system allocator.
// Safe from any thread; a block may be freed on another thread than the one that got it.
class KPL_CORE_API PooledHeap {
 public:
  // Returns a block of at least `size` bytes (a valid pointer also for 0); throws
  // std::bad_alloc when the system has no memory left.
  static void* malloc(std::size_t size);

  // Returns a block got from malloc; `size` must be the size it was asked for. Null is ignored.
  static void free(void* pointer, std::size_t size);

  // The size of the block that malloc(size) hands out: the smallest of its size classes (8,
  // 16, 32, 48, 64, 96, 128, 256, 512, 1024, 2048, 4096 and 16384 bytes; there is no 8192)
  // that holds `size`, or `size` itself above the largest. A buffer sized by it can grow up
  // to that size without moving.
  static std::size_t blockSize(std::size_t size);

  // Gives every cached free block of the shared pool and of the calling thread back to the
  // system; returns the number of bytes released. Blocks cached by other running threads
  // stay with them (a thread's cache goes to the shared pool when the thread ends).
  static std::size_t trim();
};

namespace detail {

// The counters behind a SharedPtr. `uses` counts owning handles: when it falls to zero the
// object is disposed of and can never be revived. `references` counts everything that keeps
// the counter block itself alive (owning handles and weak observers).
class SharedCounter {
 public:
  SharedCounter() = default;
  SharedCounter(const SharedCounter&) = delete;
  SharedCounter& operator=(const SharedCounter&) = delete;

  void addUse() noexcept {
    references_.fetch_add(1, std::memory_order_relaxed);
    uses_.fetch_add(1, std::memory_order_relaxed);
  }
  // Takes a use only while the object is alive; false once it has been disposed of.
  bool tryAddUse() noexcept {
    unsigned uses = uses_.load(std::memory_order_relaxed);
    while (uses != 0) {
      if (uses_.compare_exchange_weak(uses, uses + 1, std::memory_order_acq_rel)) {
        references_.fetch_add(1, std::memory_order_relaxed);
        return true;
      }
    }
    return false;
  }
  void addReference() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

  void releaseUse() noexcept {
    if (uses_.fetch_sub(1, std::memory_order_acq_rel) == 1) dispose();
    releaseReference();
  }
  void releaseReference() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  unsigned uses() const noexcept { return uses_.load(std::memory_order_acquire); }
  unsigned references() const noexcept { return references_.load(std::memory_order_acquire); }

 protected:
  virtual ~SharedCounter() = default;

 private:
  virtual void dispose() noexcept = 0;

  std::atomic<unsigned> references_{1};
  std::atomic<unsigned> uses_{1};
};

template <class T, class Deleter>
class OwningCounter final : public SharedCounter {
 public:
  OwningCounter(T* object, Deleter deleter) : object_(object), deleter_(std::move(deleter)) {}

 private:
  void dispose() noexcept override { deleter_(object_); }

  T* object_;
  Deleter deleter_;
};

}  // namespace detail

template <class T>
class WeakPtr;

// A shared handle with atomic use and reference counts. A handle made from a fresh object
// starts with one use and one reference. Copies may live on different threads; one handle
// object itself must not be assigned from two threads at once.
template <class T>
class SharedPtr {
 public:
  SharedPtr() noexcept = default;

  // Takes ownership of `object` (null gives an empty handle); disposes of it with `delete`.
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  explicit SharedPtr(U* object) : SharedPtr(object, std::default_delete<U>()) {}

  // Takes ownership of `object`; disposes of it with `deleter(object)`.
  template <class U, class Deleter, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  SharedPtr(U* object, Deleter deleter) {
    if (object == nullptr) return;
    try {
      counter_ = new detail::OwningCounter<U, Deleter>(object, deleter);
    } catch (...) {
      deleter(object);
      throw;
    }
    object_ = object;
  }

  SharedPtr(const SharedPtr& other) noexcept : object_(other.object_), counter_(other.counter_) {
    if (counter_ != nullptr) counter_->addUse();
  }
  SharedPtr(SharedPtr&& other) noexcept : object_(other.object_), counter_(other.counter_) {
    other.object_ = nullptr;
    other.counter_ = nullptr;
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  SharedPtr(const SharedPtr<U>& other) noexcept : object_(other.object_), counter_(other.counter_) {
    if (counter_ != nullptr) counter_->addUse();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  SharedPtr(SharedPtr<U>&& other) noexcept : object_(other.object_), counter_(other.counter_) {
    other.object_ = nullptr;
    other.counter_ = nullptr;
  }
  // Shares the ownership of `owner` while pointing at `alias`, a part or view of it.
  template <class U>
  SharedPtr(const SharedPtr<U>& owner, T* alias) noexcept
      : object_(owner ? alias : nullptr), counter_(owner ? owner.counter_ : nullptr) {
    if (counter_ != nullptr) counter_->addUse();
  }

  ~SharedPtr() { release(); }

  SharedPtr& operator=(SharedPtr other) noexcept {
    swap(other);
    return *this;
  }

  void reset() noexcept { SharedPtr().swap(*this); }
  void swap(SharedPtr& other) noexcept {
    std::swap(object_, other.object_);
    std::swap(counter_, other.counter_);
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  // The counts of the shared object; 0 for an empty handle.
  unsigned uses() const noexcept { return counter_ ? counter_->uses() : 0; }
  unsigned references() const noexcept { return counter_ ? counter_->references() : 0; }

 private:
  template <class U>
  friend class SharedPtr;
  template <class U>
  friend class WeakPtr;

  SharedPtr(T* object, detail::SharedCounter* counter) noexcept
      : object_(object), counter_(counter) {}

  void release() noexcept {
    if (counter_ != nullptr) counter_->releaseUse();
    object_ = nullptr;
    counter_ = nullptr;
  }

  T* object_ = nullptr;
  detail::SharedCounter* counter_ = nullptr;
};

template <class T, class U>
bool operator==(const SharedPtr<T>& a, const SharedPtr<U>& b) noexcept {
  return a.get() == b.get();
}
template <class T, class U>
bool operator!=(const SharedPtr<T>& a, const SharedPtr<U>& b) noexcept {
  return a.get() != b.get();
}

// A view of another handle's type that shares its ownership; empty when the cast fails.
template <class T, class U>
SharedPtr<T> dynamic_pointer_cast(const SharedPtr<U>& from) noexcept {
  return SharedPtr<T>(from, dynamic_cast<T*>(from.get()));
}
template <class T, class U>
SharedPtr<T> static_pointer_cast(const SharedPtr<U>& from) noexcept {
  return SharedPtr<T>(from, static_cast<T*>(from.get()));
}

// Observes a shared object without keeping it alive: holds a reference but no use.
template <class T>
class WeakPtr {
 public:
  WeakPtr() noexcept = default;
  WeakPtr(const SharedPtr<T>& shared) noexcept
      : object_(shared.object_), counter_(shared.counter_) {
    if (counter_ != nullptr) counter_->addReference();
  }
  WeakPtr(const WeakPtr& other) noexcept : object_(other.object_), counter_(other.counter_) {
    if (counter_ != nullptr) counter_->addReference();
  }
  WeakPtr& operator=(WeakPtr other) noexcept {
    std::swap(object_, other.object_);
    std::swap(counter_, other.counter_);
    return *this;
  }
  ~WeakPtr() {
    if (counter_ != nullptr) counter_->releaseReference();
  }

  // An owning handle while the object lives; empty once its last use has gone.
  SharedPtr<T> lock() const noexcept {
    if (counter_ == nullptr || !counter_->tryAddUse()) return SharedPtr<T>();
    return SharedPtr<T>(object_, counter_);
  }
  bool expired() const noexcept { return counter_ == nullptr || counter_->uses() == 0; }

 private:
  T* object_ = nullptr;
  detail::SharedCounter* counter_ = nullptr;
};

}  // namespace kestrine::platform::core::memory

#endif  // KESTRINE_PLATFORM_CORE_MEMORY_H_
