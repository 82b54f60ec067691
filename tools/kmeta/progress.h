#ifndef KPL_TOOLS_KMETA_PROGRESS_H_
#define KPL_TOOLS_KMETA_PROGRESS_H_

#include <chrono>
#include <cstdint>

namespace kmeta {

// One updating line on standard error for long work: "<verb> N MB, R MB/s, T s". It appears
// only when standard error is a terminal and the work has run for a second, is redrawn a few
// times a second, and is wiped when the work ends; elsewhere nothing is written.
class Progress {
 public:
  // `verb` says what is counted ("read", "written"); kept, not copied.
  explicit Progress(const char* verb);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Counts `bytes` more.
  void advance(std::uint64_t bytes);

 private:
  using Clock = std::chrono::steady_clock;

  const char* verb_;
  const bool shown_;
  const Clock::time_point start_;
  Clock::time_point drawn_;
  std::uint64_t bytes_ = 0;
  bool visible_ = false;
};

}  // namespace kmeta

#endif  // KPL_TOOLS_KMETA_PROGRESS_H_
