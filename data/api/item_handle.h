#ifndef KPL_DATA_API_ITEM_HANDLE_H_
#define KPL_DATA_API_ITEM_HANDLE_H_

#include "data/api/handles.h"
#include "data/api/item_operations.h"
#include "data/tree/lock.h"

namespace kestrine::platform::data::Api {

// What containers and properties offer alike, once for both: a handle of `Interface` that
// owns an opened logic object of class `Logic` (an item of the tree), with its name, path,
// store, flags and localized descriptions. Every operation but store() takes the store's lock
// for its whole length; destroying the handle closes the logic object under the lock.
template <class Interface, class Logic>
class ItemHandle : public Interface {
 public:
  ItemHandle(const ItemHandle&) = delete;
  ItemHandle& operator=(const ItemHandle&) = delete;
  ~ItemHandle() override { close(logic_); }

  // The logic object, for the library's own layers.
  Logic* logic() const { return logic_; }

  core::string::WideString tag() const override { return name(*logic_); }
  core::string::WideString path() const override { return Api::path(*logic_); }
  core::storage::datastore::IDataStore* store() const override { return logic_->store(); }
  unsigned locales() override { return Api::locales(*logic_); }
  core::string::WideString locale(unsigned int index) override {
    return Api::locale(*logic_, index);
  }
  unsigned describe(core::string::WideString locale, core::string::WideString text) override {
    return Api::describe(*logic_, locale, text);
  }
  core::string::WideString localize(core::string::WideString locale) override {
    return Api::localize(*logic_, locale);
  }
  unsigned char flags() const override {
    Metadata::Lock lock(logic_->store());
    return logic_->flags();
  }

 protected:
  // Takes ownership of an opened logic object.
  explicit ItemHandle(Logic* logic) : logic_(logic) {}

 private:
  Logic* logic_;
};

}  // namespace kestrine::platform::data::Api

#endif  // KPL_DATA_API_ITEM_HANDLE_H_
