#include "session.h"

#include <cstdio>
#include <filesystem>

#include "document.h"
#include "failure.h"

namespace kmeta {

namespace core = kestrine::platform::core;
using core::storage::datastore::LmdbDataStore;
using core::storage::datastore::MemoryDataStore;
using core::storage::datastore::PostgresDataStore;
using core::storage::datastore::StoreAccess;

namespace {

bool isDatabaseAddress(const std::string& store) {
  return store.rfind("postgresql://", 0) == 0 || store.rfind("postgres://", 0) == 0;
}

}  // namespace

void LineReporter::report(core::string::WideString message) {
  std::string line = core::string::StringAlgorithm::UTF8Encode(message);
  line += '\n';
  std::fputs(line.c_str(), out_);
}

Session::~Session() = default;

void Session::open(const Options& options, const std::string& store, Use use) {
  const bool create = use == Use::kImport;
  if (!options.schemas.empty()) {
    locator_ = kestrine::platform::data::metadata::ISchemaLocator::make(
        nullptr, static_cast<unsigned>(options.limits.fields));
  }
  for (const std::string& path : options.schemas) {
    schemaStores_.push_back(std::make_unique<MemoryDataStore>());
    // Earlier schema documents serve the later ones' classes and struct types.
    importDocument(path, schemaStores_.back().get(), locator_.get(), &reporter_,
                   readingOptions(options.limits, false));
    locator_->push(schemaStores_.back().get());
  }
  bool readOnly = false;
  if (store == ":memory:") {
    store_ = std::make_unique<MemoryDataStore>();
  } else if (isDatabaseAddress(store)) {
    auto database = std::make_unique<PostgresDataStore>(store, create);
    persistent_ = database.get();
    store_ = std::move(database);
  } else {
    // Opening a store file for writing creates it; only import means to.
    std::error_code ignored;
    bool exists = std::filesystem::exists(store, ignored);
    if (!create && !exists) throw Failure(store + ": no such store file");
    readOnly = !create;
    auto file = std::make_unique<LmdbDataStore>(
        store, readOnly ? StoreAccess::kReadOnly : StoreAccess::kReadWrite);
    if (!exists) created_ = store;
    persistent_ = file.get();
    store_ = std::move(file);
  }
  lock_.reset(store_->lock());
  // The transaction's first change, before anything is read (see the class comment).
  if (!readOnly) store_->version(store_->version());
}

kestrine::platform::data::metadata::ISchemaLocator* Session::locator() const {
  return locator_.get();
}

unsigned Session::records() const {
  if (persistent_ != nullptr) return persistent_->records();
  return static_cast<MemoryDataStore*>(store_.get())->records();
}

void Session::commit() {
  if (persistent_ != nullptr) persistent_->flush();
  lock_.reset();
  created_.clear();
}

void Session::abandon() noexcept {
  try {
    if (store_) store_->abandon();
    lock_.reset();
  } catch (...) {
    // What is pending stays uncommitted: the store is closed below without a commit point
    // having anything to commit, or, if it cannot be, dies with the process.
  }
  if (created_.empty()) return;
  // A store file that this command made and that holds nothing goes again, with the lock
  // files LMDB keeps beside it.
  persistent_ = nullptr;
  store_.reset();
  std::error_code ignored;
  for (const char* suffix : {"", "-lock", "-writer"})
    std::filesystem::remove(created_ + suffix, ignored);
}

}  // namespace kmeta
