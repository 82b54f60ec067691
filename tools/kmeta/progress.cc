#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace kmeta {

namespace {

constexpr std::chrono::milliseconds kQuiet(1000);
constexpr std::chrono::milliseconds kRedraw(250);

}  // namespace

Progress::Progress(const char* verb)
    : verb_(verb), shown_(isatty(STDERR_FILENO) == 1), start_(Clock::now()), drawn_(start_) {}

Progress::~Progress() {
  // Wiped, so that what follows (a message, the prompt) starts on a clean line.
  if (visible_) std::fputs("\r\033[K", stderr);
}

void Progress::advance(std::uint64_t bytes) {
  bytes_ += bytes;
  if (!shown_) return;
  const Clock::time_point now = Clock::now();
  if (now - start_ < kQuiet || now - drawn_ < kRedraw) return;
  drawn_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double megabytes = bytes_ / 1e6;
  std::fprintf(stderr, "\r\033[K%s %.1f MB, %.1f MB/s, %.0f s", verb_, megabytes,
               megabytes / seconds, seconds);
  visible_ = true;
}

}  // namespace kmeta
