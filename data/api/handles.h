#ifndef KPL_DATA_API_HANDLES_H_
#define KPL_DATA_API_HANDLES_H_

#include <exception>

#include "data/tree/item.h"
#include "data/tree/lock.h"
#include "kestrine/platform/core/memory.h"
#include "kestrine/platform/data/metadata/property.h"
#include "kestrine/platform/data/structure/container.h"

// How the object model turns records into handles. The functions here expect the caller to
// hold the store's lock; none takes it.
namespace kestrine::platform::data::Api {

using core::memory::SharedPtr;
using core::storage::datastore::IDataStore;

// Owns a freshly opened logic object until a handle takes it over. If anything on the way
// throws, or no handle is made, the object is closed here.
//
// Logic objects write their reference count back when they close and their destructors may
// throw, so they are never kept in a std::unique_ptr, whose noexcept reset would turn a
// store failure into a crash.
template <class Logic>
class Pending {
 public:
  explicit Pending(Logic* logic) : logic_(logic) {}
  ~Pending() noexcept(false) { delete logic_; }
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  Logic* operator->() const { return logic_; }
  Logic* get() const { return logic_; }
  Logic* release() {
    Logic* logic = logic_;
    logic_ = nullptr;
    return logic;
  }

 private:
  Logic* logic_;
};

// A new handle of class Handle, seen as Interface, that owns the pending logic object.
template <class Handle, class Interface, class Logic>
SharedPtr<Interface> makeHandle(Pending<Logic>& logic) {
  Handle* handle = new Handle(logic.get());
  logic.release();
  // If the counter cannot be allocated, SharedPtr deletes the handle and with it the object.
  return SharedPtr<Interface>(handle);
}

// Closes the logic object a handle owns. Closing writes the record's reference count, so it
// happens under the store's lock; it runs in destructors, which the shared pointer calls on
// a path that must not throw, so a store failure is dropped here. The record then stays
// counted as open one time too many, which only keeps it from being removed.
inline void close(Metadata::Item* logic) noexcept {
  if (logic == nullptr) return;
  try {
    Metadata::Lock lock(logic->store());
    delete logic;  // the memory is released even when the destructor throws
  } catch (const std::exception&) {
  }
}

// The `View` of an object whose type() is `kind`. The views are offered only by the objects
// made for their kind, so an object without one (a plain ContainerImpl) gives null.
template <class View, class Object, class Kind>
View* view(Object* object, Kind kind) {
  if (object == nullptr || object->type() != kind) return nullptr;
  return dynamic_cast<View*>(object);
}

// The container at `offset` as its kind's object (NodeImpl, GroupImpl or LinkImpl); empty
// for BADOFF, for a record that is not a container, and for an unknown container kind.
SharedPtr<structure::IContainer> wrapContainer(IDataStore* store, unsigned offset);

// The container at `offset` as a plain ContainerImpl, without a kind view: how the front end
// and links hand containers out. Empty when the record is not a container.
SharedPtr<structure::IContainer> openContainer(IDataStore* store, unsigned offset);

// The container at an absolute dotted path from the root, as openContainer gives it; empty
// when the path names no container.
SharedPtr<structure::IContainer> resolveContainer(IDataStore* store, const wchar_t* path);

// The property at `offset`: a DesignPrimitiveImpl for a primitive record, a DesignTableImpl
// for a table record; empty for anything else.
SharedPtr<metadata::IProperty> wrapProperty(IDataStore* store, unsigned offset);

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_HANDLES_H_
