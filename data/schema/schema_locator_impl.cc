#include "data/schema/schema_locator_impl.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <mutex>
#include <vector>

#include "data/record/base.h"
#include "data/tree/root.h"
#include "data/tree/table.h"
#include "kestrine/platform/core/hash.h"

namespace kestrine::platform::data::metadata {

ISchemaLocator::~ISchemaLocator() = default;

core::memory::SharedPtr<ISchemaLocator> ISchemaLocator::make(
    core::storage::datastore::IDataStore* store) {
  return make(store, 0);
}

core::memory::SharedPtr<ISchemaLocator> ISchemaLocator::make(
    core::storage::datastore::IDataStore* store, unsigned fieldLimit) {
  core::memory::SharedPtr<ISchemaLocator> locator(new Schema::SchemaLocatorImpl(fieldLimit));
  if (store != nullptr) locator->push(store);
  return locator;
}

}  // namespace kestrine::platform::data::metadata

namespace kestrine::platform::data::Schema {

using core::memory::SharedPtr;
using core::string::WideString;
using tGuard = tbb::spin_rw_mutex::scoped_lock;

namespace {

// The layouts under construction on this thread, innermost last. A struct member may resolve
// further schemas while its layout is built; one that reaches a path already being built (a
// schema containing itself) would otherwise recurse until the stack overflows.
struct tBuilding {
  const SchemaLocatorImpl* locator;
  const wchar_t* path;
};
thread_local std::vector<tBuilding> tlBuilding;

class Building {
 public:
  Building(const SchemaLocatorImpl* locator, const wchar_t* path) {
    tlBuilding.push_back({locator, path});
  }
  ~Building() { tlBuilding.pop_back(); }
  Building(const Building&) = delete;
  Building& operator=(const Building&) = delete;

  static bool active(const SchemaLocatorImpl* locator, const wchar_t* path) {
    return std::any_of(tlBuilding.begin(), tlBuilding.end(), [&](const tBuilding& entry) {
      return entry.locator == locator && std::wcscmp(entry.path, path) == 0;
    });
  }
};

}  // namespace

std::size_t SchemaLocatorImpl::_tVoidKernel::hash(IDataStore* const& store) {
  return core::tMurmur2Kernel::hash(store, 8);
}

std::size_t SchemaLocatorImpl::_tPathKernel::hash(const wchar_t* const& path) {
  return core::tMurmur2Kernel()(path);
}

bool SchemaLocatorImpl::_tPathKernel::equal(const wchar_t* const& a, const wchar_t* const& b) {
  return std::wcscmp(a, b) == 0;
}

SchemaLocatorImpl::SchemaLocatorImpl(unsigned fieldLimit) : fieldLimit_(fieldLimit) {}

SchemaLocatorImpl::~SchemaLocatorImpl() {
  for (auto& entry : layouts_)
    delete entry.second;
  layouts_.clear();
  stores_.clear();
}

SharedPtr<metadata::ISchema> SchemaLocatorImpl::resolve(WideString uri) {
  return schema(uri);
}

SharedPtr<SchemaImpl> SchemaLocatorImpl::schema(const WideString& uri) {
  if (uri.empty()) return SharedPtr<SchemaImpl>();
  auto schema = std::make_unique<SchemaImpl>();
  for (const WideString& path : SchemaImpl::split(uri.string()))
    if (!cached(path.string(), *schema)) build(path.string(), *schema);
  if (schema->links() == 0) return SharedPtr<SchemaImpl>();
  return SharedPtr<SchemaImpl>(schema.release());
}

void SchemaLocatorImpl::push(IDataStore* store) {
  if (store == nullptr) return;
  {
    tGuard walk(storesWalk_, true);
    stores_.insert({store, true});
  }
  forgetTooLarge();
}

bool SchemaLocatorImpl::pop(IDataStore* store) {
  if (store == nullptr) return false;
  {
    tGuard walk(storesWalk_, true);
    if (!stores_.erase(store)) return false;
  }
  std::vector<const wchar_t*> evicted;
  {
    tGuard walk(layoutsWalk_, true);
    for (const auto& entry : layouts_)
      if (entry.second->definition()->store() == store) evicted.push_back(entry.first);
  }
  for (const wchar_t* path : evicted) {
    Layout* layout = nullptr;
    {
      tGuard walk(layoutsWalk_, false);
      tLayouts::accessor entry;
      if (layouts_.find(entry, path) && entry->second->definition()->store() == store) {
        layout = entry->second;
        layouts_.erase(entry);
      }
    }
    // Destroyed outside the bucket lock: dropping the definition writes to the store.
    delete layout;
  }
  forgetTooLarge();
  return true;
}

bool SchemaLocatorImpl::tooLarge(WideString path) {
  std::lock_guard<std::mutex> guard(tooLargeMutex_);
  return tooLarge_.count(path.string()) != 0;
}

// The store set changed, so a path may now resolve to another definition.
void SchemaLocatorImpl::forgetTooLarge() {
  std::lock_guard<std::mutex> guard(tooLargeMutex_);
  tooLarge_.clear();
}

void SchemaLocatorImpl::reset() {
  {
    tGuard walk(storesWalk_, true);
    stores_.clear();
  }
  forgetTooLarge();
}

bool SchemaLocatorImpl::cached(const wchar_t* path, SchemaImpl& schema) {
  tGuard walk(layoutsWalk_, false);
  tLayouts::const_accessor entry;
  if (!layouts_.find(entry, path)) return false;
  // Appended (and its members counted) under the read accessor: pop erases under a write
  // accessor, so the layout cannot be destroyed meanwhile.
  schema.append(entry->second);
  return true;
}

SchemaLocatorImpl::tDefinition SchemaLocatorImpl::locate(const wchar_t* path) {
  tGuard walk(storesWalk_, false);
  for (const auto& entry : stores_) {
    IDataStore* store = entry.first;
    if (store->used() == 0) continue;
    Metadata::Root root(store, 0u);
    const unsigned offset = root.lookup(path);
    if (offset != IDataStore::BADOFF && Record::peek(store, offset) == Record::kTable)
      return {store, offset};
  }
  return {nullptr, IDataStore::BADOFF};
}

void SchemaLocatorImpl::build(const wchar_t* path, SchemaImpl& schema) {
  if (Building::active(this, path)) return;
  const tDefinition found = locate(path);
  if (found.store == nullptr) return;
  std::unique_ptr<Layout> layout;
  try {
    Building building(this, path);
    // The layout owns the table as soon as it is constructed, and frees it if that fails.
    layout.reset(new Layout(this, path, new Design::Table(found.store, found.offset, false)));
  } catch (const Layout::TooLarge&) {
    std::lock_guard<std::mutex> guard(tooLargeMutex_);
    tooLarge_.insert(path);
    return;
  }
  tGuard walk(layoutsWalk_, false);
  tLayouts::accessor entry;
  // The first layout cached for a path stays, since schemas handed out may already point at
  // it; a thread that built the same path meanwhile appends that one and drops its own.
  if (layouts_.insert(entry, layout->path())) entry->second = layout.release();
  schema.append(entry->second);
}

}  // namespace kestrine::platform::data::Schema
