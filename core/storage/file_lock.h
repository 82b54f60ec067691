#ifndef KPL_CORE_STORAGE_FILE_LOCK_H_
#define KPL_CORE_STORAGE_FILE_LOCK_H_

#include <string>

namespace kestrine::platform::core::storage::datastore {

// An exclusive flock() on a side file, to take turns with other processes. The kernel drops
// it when the process dies, so a killed holder never blocks the others. The lock belongs to
// the open file, not to a thread: any thread may release it. Not thread-safe.
class FileLock {
 public:
  // Opens (creating if needed) the file at `path`; throws core::Exception when it cannot.
  explicit FileLock(std::string path);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // Blocks until no other process holds the lock, then holds it. Throws core::Exception.
  void lock();
  void unlock();

 private:
  std::string path_;
  int fd_;
};

}  // namespace kestrine::platform::core::storage::datastore

#endif  // KPL_CORE_STORAGE_FILE_LOCK_H_
