#include <vector>

#include "data/api/container_impl.h"
#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/record/base.h"
#include "data/tree/finder.h"
#include "data/tree/lock.h"
#include "data/tree/logic.h"
#include "data/tree/offset_set.h"
#include "data/tree/primitive.h"
#include "data/tree/root.h"
#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/thread.h"

namespace kestrine::platform::data::structure {

namespace {

// Serialises toplevel() and find() in the whole process, so that two threads never both give
// a fresh store its root. It is taken before the store lock and by nothing else. A
// namespace-scope object exists from the moment the library is loaded; a function-local one
// would be built by whichever thread came first.
core::thread::Mutex gFrontEndMutex;

}  // namespace

unsigned IContainerFrontEnd::version() {
  return 1;
}

SharedPtr<IContainer> IContainerFrontEnd::toplevel(IDataStore* store, WideString name) {
  if (store == nullptr) return {};
  core::thread::ScopedLock serial(gFrontEndMutex);
  Metadata::Lock lock(store);
  if (store->used() == 0) {
    // A fresh store: its first record, the root, lands at offset 0.
    Metadata::Root created(store, L"root");
    store->version(version());
  }
  Metadata::Root root(store, 0);
  const wchar_t* wanted = name.value();
  if (wanted == nullptr) {
    // Any top-level container will do: the first in the root's order, else "default".
    for (unsigned i = 0; i < root.items(); ++i) {
      unsigned offset = root.at(i);
      if (Record::peek(store, offset) == Record::kContainer)
        return Api::openContainer(store, offset);
    }
    wanted = L"default";
  }
  unsigned offset = root.find(wanted);
  // A name that belongs to a property is taken: nothing is created for it.
  if (offset != IDataStore::BADOFF) return Api::openContainer(store, offset);
  {
    Api::Pending<Structural::Container> made(
        Api::createChild<Structural::Container>(root, IContainer::kGroup, wanted));
    // Refused when another process made the name at the same time: its container serves.
    offset = made.get() != nullptr ? made->offset() : root.find(wanted);
  }
  return Api::openContainer(store, offset);
}

SharedPtr<IContainer> IContainerFrontEnd::find(IDataStore* store, WideString path) {
  if (store == nullptr) return {};
  core::thread::ScopedLock serial(gFrontEndMutex);
  Metadata::Lock lock(store);
  return Api::resolveContainer(store, path.value());
}

// These two never create anything, so they need not be ordered with toplevel() by the
// library-wide mutex: the store's lock is enough.
SharedPtr<metadata::IProperty> IContainerFrontEnd::property(IDataStore* store, WideString path) {
  if (store == nullptr || path.value() == nullptr) return {};
  Metadata::Lock lock(store);
  return Api::wrapProperty(store, Metadata::resolvePath(store, path.string()));
}

bool IContainerFrontEnd::children(IDataStore* store, WideString path,
                                  const std::function<void(const tChild&)>& visit) {
  if (store == nullptr) return false;
  Metadata::Lock lock(store);
  unsigned offset = Metadata::resolvePath(store, path.string());
  if (offset == IDataStore::BADOFF) return false;
  Design::Logic parent(store, offset, false);
  Metadata::Set* set = parent.set();
  if (set == nullptr) return false;
  for (unsigned i = 0; i < set->items(); ++i) {
    unsigned child = set->at(i);
    tChild handles{Api::wrapContainer(store, child), Api::wrapProperty(store, child)};
    if (handles.container || handles.property) visit(handles);
  }
  return true;
}

namespace {

// Loads everything of the record at `offset` that a reader may touch, and lists its children
// on `pending`.
void load(IDataStore* store, unsigned offset, std::vector<unsigned>& pending) {
  Design::Logic logic(store, offset, false);
  if (!logic) {
    throw core::Exception("damaged record at offset " + std::to_string(offset) +
                          ": no record of a kind the tree holds");
  }
  Metadata::Item* item = logic.operator->();
  WideString text, locale;
  for (unsigned i = 0, count = item->locales(); i < count; ++i)
    item->locale(i, text, locale);
  if (logic.kind() == Record::kPrimitive) {
    auto* primitive = static_cast<Design::Primitive*>(item);
    std::vector<char> values(primitive->valuesize());
    primitive->get(values.data(), 0, primitive->dimension());
  }
  if (Metadata::Set* set = logic.set()) {
    for (unsigned i = 0; i < set->items(); ++i)
      pending.push_back(set->at(i));
  }
}

}  // namespace

unsigned IContainerFrontEnd::check(IDataStore* store,
                                   const std::function<void(const std::string&)>& damaged) {
  if (store == nullptr) return 0;
  Metadata::Lock lock(store);
  if (store->used() == 0) return 0;
  unsigned failures = 0;
  Metadata::OffsetSet seen;
  // A stack of its own rather than recursion: a damaged list may lead anywhere, and a tree
  // may be deeper than the stack.
  std::vector<unsigned> pending{0};
  while (!pending.empty()) {
    const unsigned offset = pending.back();
    pending.pop_back();
    try {
      if (offset == IDataStore::BADOFF || !seen.insert(offset)) {
        throw core::Exception("damaged record at offset " + std::to_string(offset) +
                              ": listed twice in the tree, or in a cycle");
      }
      load(store, offset, pending);
    } catch (const core::Exception& error) {
      ++failures;
      damaged(error.what());
    }
  }
  return failures;
}

}  // namespace kestrine::platform::data::structure
