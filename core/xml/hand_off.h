#ifndef KPL_CORE_XML_HAND_OFF_H_
#define KPL_CORE_XML_HAND_OFF_H_

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace kestrine::platform::core::xml {

// A bounded queue from one thread to another. Spent items go back into a pool for the sender
// to fill again, so that buffers travel to and fro instead of being allocated for each item.
// Either side may cancel: waits end at once, and nothing is sent or received after that.
template <class T>
class HandOff {
 public:
  explicit HandOff(std::size_t capacity) : capacity_(capacity) {}

  // Waits while the queue is full. False, and `item` dropped, once cancelled.
  bool send(T&& item) {
    std::unique_lock<std::mutex> lock(mutex_);
    notFull_.wait(lock, [&] { return cancelled_ || queue_.size() < capacity_; });
    if (cancelled_) return false;
    queue_.push_back(std::move(item));
    notEmpty_.notify_one();
    return true;
  }

  // The oldest item, waiting while there is none. False once cancelled.
  bool receive(T& item) {
    std::unique_lock<std::mutex> lock(mutex_);
    notEmpty_.wait(lock, [&] { return cancelled_ || !queue_.empty(); });
    return pop(item);
  }

  // The oldest item, without waiting: false when there is none.
  bool tryReceive(T& item) {
    std::lock_guard<std::mutex> lock(mutex_);
    return pop(item);
  }

  // Whether send() would wait.
  bool full() {
    std::lock_guard<std::mutex> lock(mutex_);
    return queue_.size() >= capacity_;
  }
  // How many items wait to be received.
  std::size_t waiting() {
    std::lock_guard<std::mutex> lock(mutex_);
    return queue_.size();
  }

  // Gives a spent item back, and takes one to fill (a default one when none is spare).
  void recycle(T&& item) {
    std::lock_guard<std::mutex> lock(mutex_);
    spare_.push_back(std::move(item));
  }
  T reuse() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (spare_.empty()) return T();
    T item = std::move(spare_.back());
    spare_.pop_back();
    return item;
  }

  void cancel() {
    std::lock_guard<std::mutex> lock(mutex_);
    cancelled_ = true;
    notFull_.notify_all();
    notEmpty_.notify_all();
  }

 private:
  bool pop(T& item) {
    if (cancelled_ || queue_.empty()) return false;
    item = std::move(queue_.front());
    queue_.pop_front();
    // A sender waits only on a full queue, and is woken once it is half empty, so that it
    // fills several places for each time it is woken rather than one.
    if (queue_.size() == capacity_ / 2) notFull_.notify_one();
    return true;
  }

  const std::size_t capacity_;
  std::mutex mutex_;
  std::condition_variable notFull_;
  std::condition_variable notEmpty_;
  std::deque<T> queue_;
  std::vector<T> spare_;
  bool cancelled_ = false;
};

}  // namespace kestrine::platform::core::xml

#endif  // KPL_CORE_XML_HAND_OFF_H_
