#include "data/api/container_impl.h"
#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/tree/lock.h"
#include "data/tree/finder.h"
#include "data/tree/logic.h"
#include "data/tree/root.h"
#include "data/record/base.h"
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
  offset = Api::createChild<Structural::Container>(root, IContainer::kGroup, wanted);
  // Refused when another process made the name at the same time: its container serves.
  if (offset == IDataStore::BADOFF) return Api::openContainer(store, root.find(wanted));
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

}  // namespace kestrine::platform::data::structure
