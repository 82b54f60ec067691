#ifndef KPL_DATA_SCHEMA_SCHEMA_LOCATOR_IMPL_H_
#define KPL_DATA_SCHEMA_SCHEMA_LOCATOR_IMPL_H_

#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include <oneapi/tbb/concurrent_hash_map.h>
#include <oneapi/tbb/spin_rw_mutex.h>
#include <oneapi/tbb/tbb_allocator.h>

#include "data/schema/layout.h"
#include "data/schema/schema_impl.h"
#include "kestrine/platform/data/metadata/schema.h"

namespace kestrine::platform::data::Schema {

using Metadata::IDataStore;

// Resolves schema URIs into chains of layouts. A schema path names a table below the root of
// one of the pushed stores ("a" or, through containers and tables, "a.b"); its layout is built
// once and cached, under the layout's own copy of the path, until the locator is destroyed or
// that store is popped.
//
// Shared between threads without any store lock: resolve, push, pop and reset may run at once.
// Each map has per-bucket reader/writer spin locks, and an accessor is always released before
// the next is taken. Two threads resolving one uncached path may both build its layout; the
// first one cached is kept and handed to both. Stores are read without their locks, so a schema
// table must not be edited while it may be resolved. The schemas that resolve hands out hold raw
// layout pointers, so the caller must not pop a store while any thread still uses (or is
// resolving) a schema defined in it, nor destroy the locator before its schemas. A popped store
// may be destroyed once pop returns; a pushed one must live until it is popped, reset or the
// locator is gone.
class SchemaLocatorImpl : public metadata::ISchemaLocator {
 public:
  // MurmurHash2-64 over the 8 bytes at the address a store pointer holds, not over the
  // pointer value. That is how the store set has always spread its keys; equality is by
  // pointer, so it decides only the bucket.
  struct _tVoidKernel {
    static std::size_t hash(IDataStore* const& store);
    static bool equal(IDataStore* const& a, IDataStore* const& b) { return a == b; }
  };
  // MurmurHash2-64 of a schema path (its first length bytes, as for every wide-name index);
  // paths are equal when wcscmp says so.
  struct _tPathKernel {
    static std::size_t hash(const wchar_t* const& path);
    static bool equal(const wchar_t* const& a, const wchar_t* const& b);
  };

  // `fieldLimit`: the most fields a layout may hold, struct members expanded; 0 for no limit.
  explicit SchemaLocatorImpl(unsigned fieldLimit = 0);
  // Destroys every cached layout. No other thread may use the locator any more.
  ~SchemaLocatorImpl() override;
  SchemaLocatorImpl(const SchemaLocatorImpl&) = delete;
  SchemaLocatorImpl& operator=(const SchemaLocatorImpl&) = delete;

  // A new schema holding, in URI order, the layout of every ";"-separated path (empty
  // segments included) that is cached or that a pushed store defines as a table; unknown
  // paths are skipped silently. Empty when the URI is empty or no path was found. A path whose
  // layout is being built on the calling thread (a schema that contains itself) counts as
  // unknown. Store and allocation failures pass through, with every lock and record released.
  core::memory::SharedPtr<metadata::ISchema> resolve(core::string::WideString uri) override;
  // resolve for callers inside the schema layer, which need the whole chain.
  core::memory::SharedPtr<SchemaImpl> schema(const core::string::WideString& uri);

  // A null store is ignored.
  void push(IDataStore* store) override;
  // Also destroys the cached layouts that `store` defines (see the class comment); false for
  // null.
  bool pop(IDataStore* store) override;
  void reset() override;

  unsigned fieldLimit() const override { return fieldLimit_; }
  bool tooLarge(core::string::WideString path) override;

 private:
  void forgetTooLarge();

  using tLayouts =
      tbb::concurrent_hash_map<const wchar_t*, Layout*, _tPathKernel,
                               tbb::tbb_allocator<std::pair<const wchar_t* const, Layout*>>>;
  using tStores = tbb::concurrent_hash_map<IDataStore*, bool, _tVoidKernel,
                                           tbb::tbb_allocator<std::pair<IDataStore* const, bool>>>;
  // Where a path's table lives; store null when no pushed store has it.
  struct tDefinition {
    IDataStore* store;
    unsigned offset;
  };

  // Appends the cached layout of `path` to `schema`; false when it is not cached.
  bool cached(const wchar_t* path, SchemaImpl& schema);
  // The first pushed store (in the set's order) whose root has a table at `path`.
  tDefinition locate(const wchar_t* path);
  // Builds, caches and appends the layout of `path`; nothing when no store defines it.
  void build(const wchar_t* path, SchemaImpl& schema);

  tLayouts layouts_;
  tStores stores_;
  const unsigned fieldLimit_;
  std::mutex tooLargeMutex_;
  std::set<std::wstring> tooLarge_;
  // A concurrent_hash_map may be walked only while nothing inserts, erases or (through a
  // lookup) rehashes a bucket. pop walks the cache holding layoutsWalk_ exclusively while every
  // other cache access holds it shared; resolve walks the store set holding storesWalk_ shared
  // while push, pop and reset change it exclusively. Neither is held while a layout is built,
  // and neither is taken twice by one thread, so they never nest.
  tbb::spin_rw_mutex layoutsWalk_;
  tbb::spin_rw_mutex storesWalk_;
};

}  // namespace kestrine::platform::data::Schema

#endif  // KPL_DATA_SCHEMA_SCHEMA_LOCATOR_IMPL_H_
