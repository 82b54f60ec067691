#include "core/storage/lmdb_environment.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "kestrine/platform/core/exception.h"

namespace kestrine::platform::core::storage::datastore {

namespace {

constexpr char kFormatKey[] = "format";
// Format 2 keeps a checksum before each record's bytes; files of format 1, which have none,
// are read and written as they are.
constexpr char kFormat[] = "kestrine datastore 2";
constexpr char kFormatWithoutChecksums[] = "kestrine datastore 1";
constexpr char kStateKey[] = "state";
// StoreState as stored: four 32-bit fields and one 64-bit field in native byte order, like
// LMDB's own integer keys; the file is not meant to move between architectures.
constexpr std::size_t kStateBytes = 24;

using FileId = std::pair<unsigned long long, unsigned long long>;

// Files open in this process. LMDB must never open one file twice in a process: closing the
// second environment would drop the first one's POSIX locks on the reader table.
std::mutex& openFilesMutex() {
  static std::mutex mutex;
  return mutex;
}

std::set<FileId>& openFiles() {
  static std::set<FileId> files;
  return files;
}

FileId fileId(const struct stat& status) {
  return {status.st_dev, status.st_ino};
}

// An LMDB return code other than MDB_SUCCESS, on its way to the one place that turns it into
// a core::Exception (or, for MDB_MAP_FULL, into a larger map and a retry).
struct LmdbFailure {
  int rc;
};

void check(int rc) {
  if (rc != MDB_SUCCESS) throw LmdbFailure{rc};
}

MDB_val value(const void* data, std::size_t size) {
  return MDB_val{size, const_cast<void*>(data)};
}

MDB_val text(const char* key) {
  return value(key, std::strlen(key));
}

bool holds(const MDB_val& data, const char* text) {
  return data.mv_size == std::strlen(text) && std::memcmp(data.mv_data, text, data.mv_size) == 0;
}

// A record's checksum covers its offset too, so that bytes that end up under another key
// are caught as well.
using Checksum = std::uint64_t;

Checksum checksum(unsigned offset, const void* data, std::size_t size) {
  return XXH3_64bits_withSeed(data, size, offset);
}

bool isDiskFull(int rc) {
  return rc == ENOSPC || rc == EDQUOT || rc == EFBIG;
}

void put(MDB_txn* txn, MDB_dbi dbi, MDB_val key, MDB_val data) {
  check(mdb_put(txn, dbi, &key, &data, 0));
}

void erase(MDB_txn* txn, MDB_dbi dbi, MDB_val key) {
  int rc = mdb_del(txn, dbi, &key, nullptr);
  if (rc != MDB_NOTFOUND) check(rc);
}

}  // namespace

void LmdbWriter::putRecord(unsigned offset, const RecordBytes& bytes) {
  MDB_val key = value(&offset, sizeof offset);
  std::size_t header = checksummed_ ? sizeof(Checksum) : 0;
  MDB_val data{header + bytes.size, nullptr};
  // An empty record of a file without checksums still gets a valid address to write from.
  if (data.mv_size == 0) return put(txn_, records_, key, text(""));
  check(mdb_put(txn_, records_, &key, &data, MDB_RESERVE));
  unsigned char* out = static_cast<unsigned char*>(data.mv_data);
  if (checksummed_) {
    Checksum sum = checksum(offset, bytes.data, bytes.size);
    std::memcpy(out, &sum, sizeof sum);
  }
  if (bytes.size != 0) std::memcpy(out + header, bytes.data, bytes.size);
}

void LmdbWriter::deleteRecord(unsigned offset) {
  erase(txn_, records_, value(&offset, sizeof offset));
}

void LmdbWriter::putFree(unsigned position, unsigned offset) {
  put(txn_, freeStack_, value(&position, sizeof position), value(&offset, sizeof offset));
}

void LmdbWriter::dropFree(unsigned first, unsigned end) {
  for (unsigned position = first; position < end; ++position)
    erase(txn_, freeStack_, value(&position, sizeof position));
}

void LmdbWriter::putState(const StoreState& state) {
  unsigned char bytes[kStateBytes];
  std::memcpy(bytes, &state.nextOffset, 4);
  std::memcpy(bytes + 4, &state.freeCount, 4);
  std::memcpy(bytes + 8, &state.liveRecords, 4);
  std::memcpy(bytes + 12, &state.version, 4);
  std::memcpy(bytes + 16, &state.liveBytes, 8);
  put(txn_, meta_, text(kStateKey), value(bytes, kStateBytes));
}

LmdbEnvironment::LmdbEnvironment(const std::string& path, std::size_t mapSize, bool readOnly)
    : path_(path) {
  std::lock_guard<std::mutex> guard(openFilesMutex());
  // Refuse a directory before LMDB creates its "-lock" file next to it.
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) fail("open", EISDIR);
    if (openFiles().count(fileId(status)) != 0) {
      throw Exception(path + ": open: the file is already open in this process");
    }
  }
  try {
    openEnvironment(mapSize, readOnly);
    checkLength();

    MDB_txn* txn = nullptr;
    beginRead(&txn);
    int rc = mdb_dbi_open(txn, "meta", 0, &meta_);
    if (rc == MDB_NOTFOUND) {
      mdb_txn_abort(txn);
      if (readOnly) throw Exception(path + ": open: the file holds no store yet");
      create();
    } else {
      try {
        check(rc);
        openDatabases(txn, 0);
      } catch (...) {
        mdb_txn_abort(txn);
        throw;
      }
      // Committing, not aborting, keeps the database handles for the environment.
      check(mdb_txn_commit(txn));
    }
    beginRead(&view_);
    seenTransaction_ = mdb_txn_id(view_);
    mdb_txn_reset(view_);

    int fd = -1;
    check(mdb_env_get_fd(env_, &fd));
    if (::fstat(fd, &status) != 0) check(errno);
    fileId_ = fileId(status);
    openFiles().insert(fileId_);
  } catch (const LmdbFailure& failure) {
    close();
    fail("open", failure.rc);
  } catch (...) {
    close();
    throw;
  }
}

LmdbEnvironment::~LmdbEnvironment() {
  std::lock_guard<std::mutex> guard(openFilesMutex());
  close();
  openFiles().erase(fileId_);
}

void LmdbEnvironment::openEnvironment(std::size_t mapSize, bool readOnly) {
  const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  unsigned flags = MDB_NOSUBDIR | MDB_NOTLS | (readOnly ? MDB_RDONLY : 0);
  for (;;) {
    check(mdb_env_create(&env_));
    check(mdb_env_set_maxdbs(env_, 3));
    check(mdb_env_set_mapsize(env_, (mapSize + page - 1) / page * page));
    int rc = mdb_env_open(env_, path_.c_str(), flags, 0644);
    // A reader that may not write the reader table beside the file (another user's, or in a
    // read-only folder) reads without it: its view is then not protected from writers that
    // reuse pages, but the records' checksums catch what that could garble.
    if (rc == EACCES && readOnly && (flags & MDB_NOLOCK) == 0) {
      close();
      flags |= MDB_NOLOCK;
      continue;
    }
    check(rc);
    break;
  }
  // A process killed while reading leaves its reader slot behind, and LMDB keeps every page
  // that slot's snapshot might need: the file would only grow. Clear such slots.
  int stale = 0;
  if ((flags & MDB_NOLOCK) == 0) check(mdb_reader_check(env_, &stale));
}

void LmdbEnvironment::close() {
  if (view_ != nullptr) mdb_txn_abort(view_);
  view_ = nullptr;
  if (env_ != nullptr) mdb_env_close(env_);
  env_ = nullptr;
}

// A file cut short after its last commit (a failed copy, a full disk during a copy) would
// make LMDB touch map pages past the end of the file, which kills the process with SIGBUS.
void LmdbEnvironment::checkLength() const {
  MDB_envinfo info;
  MDB_stat stat;
  check(mdb_env_info(env_, &info));
  check(mdb_env_stat(env_, &stat));
  int fd = -1;
  check(mdb_env_get_fd(env_, &fd));
  struct stat status;
  if (::fstat(fd, &status) != 0) check(errno);
  unsigned long long needed =
      (static_cast<unsigned long long>(info.me_last_pgno) + 1) * stat.ms_psize;
  if (static_cast<unsigned long long>(status.st_size) < needed) damaged("the file is truncated");
}

void LmdbEnvironment::openDatabases(MDB_txn* txn, unsigned createFlag) {
  const std::pair<const char*, MDB_dbi*> databases[] = {
      {"meta", &meta_}, {"records", &records_}, {"free", &freeStack_}};
  for (const auto& [name, dbi] : databases) {
    unsigned flags = createFlag | (dbi == &meta_ ? 0u : unsigned(MDB_INTEGERKEY));
    int rc = mdb_dbi_open(txn, name, flags, dbi);
    if (rc == MDB_NOTFOUND || rc == MDB_INCOMPATIBLE) foreign();
    check(rc);
  }
  if (createFlag != 0) {
    put(txn, meta_, text(kFormatKey), text(kFormat));
    LmdbWriter(txn, records_, freeStack_, meta_, true).putState(StoreState());
    return;
  }
  MDB_val key = text(kFormatKey), format;
  int rc = mdb_get(txn, meta_, &key, &format);
  if (rc == MDB_NOTFOUND) foreign();
  check(rc);
  checksummed_ = holds(format, kFormat);
  if (!checksummed_ && !holds(format, kFormatWithoutChecksums)) foreign();
}

// Makes the databases of a new store. Another process may be doing the same at this moment;
// LMDB's writer lock orders the two and the second finds the work done.
void LmdbEnvironment::create() {
  writeTransaction("create", [this](MDB_txn* txn) {
    if (mdb_dbi_open(txn, "meta", 0, &meta_) == MDB_SUCCESS) return openDatabases(txn, 0);
    MDB_dbi main;
    MDB_stat stat;
    check(mdb_dbi_open(txn, nullptr, 0, &main));
    check(mdb_stat(txn, main, &stat));
    if (stat.ms_entries != 0) foreign();
    openDatabases(txn, MDB_CREATE);
  });
}

void LmdbEnvironment::beginRead(MDB_txn** txn) {
  for (;;) {
    int rc = *txn != nullptr ? mdb_txn_renew(*txn) : mdb_txn_begin(env_, nullptr, MDB_RDONLY, txn);
    if (rc != MDB_MAP_RESIZED) return check(rc);
    // Another process grew the file past our map; no transaction of ours is active here.
    remap(0);
  }
}

void LmdbEnvironment::openView() {
  if (viewOpen_) return;
  try {
    beginRead(&view_);
  } catch (const LmdbFailure& failure) {
    fail("read", failure.rc);
  }
  viewOpen_ = true;
  std::size_t transaction = mdb_txn_id(view_);
  if (transaction != seenTransaction_) ++foreignChanges_;
  seenTransaction_ = transaction;
}

void LmdbEnvironment::closeView() {
  if (!viewOpen_) return;
  mdb_txn_reset(view_);
  viewOpen_ = false;
}

std::optional<RecordBytes> LmdbEnvironment::record(unsigned offset) const {
  MDB_val key = value(&offset, sizeof offset), data;
  int rc = mdb_get(view_, records_, &key, &data);
  if (rc == MDB_NOTFOUND) return std::nullopt;
  if (rc != MDB_SUCCESS) fail("read record " + std::to_string(offset), rc);
  const unsigned char* bytes = static_cast<const unsigned char*>(data.mv_data);
  if (!checksummed_) return RecordBytes{bytes, data.mv_size};
  Checksum stored;
  if (data.mv_size < sizeof stored) damagedRecord(offset, "shorter than its checksum");
  std::memcpy(&stored, bytes, sizeof stored);
  bytes += sizeof stored;
  std::size_t size = data.mv_size - sizeof stored;
  if (stored != checksum(offset, bytes, size)) {
    damagedRecord(offset, "its bytes do not match their checksum");
  }
  return RecordBytes{bytes, size};
}

unsigned LmdbEnvironment::freeOffset(unsigned position) {
  MDB_val key = value(&position, sizeof position), data;
  int rc = mdb_get(view_, freeStack_, &key, &data);
  if (rc == MDB_NOTFOUND || (rc == MDB_SUCCESS && data.mv_size != sizeof(unsigned))) {
    damaged("free list entry " + std::to_string(position) + " is missing");
  }
  if (rc != MDB_SUCCESS) fail("read free list", rc);
  unsigned offset;
  std::memcpy(&offset, data.mv_data, sizeof offset);
  return offset;
}

StoreState LmdbEnvironment::state() const {
  MDB_val key = text(kStateKey), data;
  int rc = mdb_get(view_, meta_, &key, &data);
  if (rc == MDB_NOTFOUND || (rc == MDB_SUCCESS && data.mv_size != kStateBytes)) {
    damaged("the store state is missing");
  }
  if (rc != MDB_SUCCESS) fail("read store state", rc);
  const unsigned char* bytes = static_cast<const unsigned char*>(data.mv_data);
  StoreState state;
  std::memcpy(&state.nextOffset, bytes, 4);
  std::memcpy(&state.freeCount, bytes + 4, 4);
  std::memcpy(&state.liveRecords, bytes + 8, 4);
  std::memcpy(&state.version, bytes + 12, 4);
  std::memcpy(&state.liveBytes, bytes + 16, 8);
  return state;
}

void LmdbEnvironment::commit(const std::function<void(LmdbWriter&)>& apply) {
  writeTransaction("commit", [&](MDB_txn* txn) {
    LmdbWriter writer(txn, records_, freeStack_, meta_, checksummed_);
    apply(writer);
  });
}

// LMDB writes a transaction's pages to free space and switches to them by writing one meta
// page last, so a commit that fails or is cut short by a crash leaves the previous meta page,
// and so the previous state, in force: no commit is ever seen in part.
void LmdbEnvironment::writeTransaction(const char* operation,
                                       const std::function<void(MDB_txn*)>& apply) {
  for (;;) {
    MDB_txn* txn = nullptr;
    int rc = mdb_txn_begin(env_, nullptr, 0, &txn);
    if (rc == MDB_SUCCESS) {
      try {
        apply(txn);
        std::size_t id = mdb_txn_id(txn);
        rc = mdb_txn_commit(txn);  // frees the transaction, also when it fails
        if (rc == MDB_SUCCESS) seenTransaction_ = id;
      } catch (const LmdbFailure& failure) {
        mdb_txn_abort(txn);
        rc = failure.rc;
      } catch (...) {
        mdb_txn_abort(txn);
        throw;
      }
    }
    if (rc == MDB_SUCCESS) return;
    if (rc == MDB_MAP_RESIZED) {
      remap(0);
    } else if (rc == MDB_MAP_FULL) {
      remap(mapSize() * 2);
    } else {
      fail(operation, rc);
    }
  }
}

// Changing the map size unmaps the file, so no transaction of this process may be active:
// the write transaction has ended and the view is closed here. The caller's pending changes
// live in its own memory and survive.
void LmdbEnvironment::remap(std::size_t size) {
  closeView();
  int rc = mdb_env_set_mapsize(env_, size);
  if (rc != MDB_SUCCESS) fail("resize the map", rc);
}

std::size_t LmdbEnvironment::mapSize() const {
  MDB_envinfo info;
  mdb_env_info(env_, &info);  // fails only for a null environment
  return info.me_mapsize;
}

void LmdbEnvironment::fail(const std::string& operation, int rc) const {
  std::string cause = mdb_strerror(rc);
  if (isDiskFull(rc)) cause = "disk full (" + cause + ")";
  throw Exception(path_ + ": " + operation + ": " + cause);
}

void LmdbEnvironment::damaged(const std::string& what) const {
  throw Exception(path_ + ": damaged store file: " + what);
}

void LmdbEnvironment::damagedRecord(unsigned offset, const char* what) const {
  throw Exception(path_ + ": damaged record at offset " + std::to_string(offset) + ": " + what);
}

void LmdbEnvironment::foreign() const {
  throw Exception(path_ + ": not a kestrine datastore (an LMDB file of another application)");
}

}  // namespace kestrine::platform::core::storage::datastore
