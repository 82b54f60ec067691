#ifndef KPL_DATA_API_MEMBER_FILTER_H_
#define KPL_DATA_API_MEMBER_FILTER_H_

#include "data/api/cursor.h"
#include "data/api/design_table_impl.h"

namespace kestrine::platform::data::metadata {

// DesignTableImpl::DesignFilter: the members of a table, read from the table's live children
// list at every step through a table object of its own, but over only as many positions as
// the table had members when the filter was made. A removal moves the later members down a
// place; a member added beyond that count is not visited.
class DesignTableImpl::DesignFilter : public IPropertyFilter, public Api::Cursor {
 public:
  // Opens the table at `table` afresh; the caller holds the store lock.
  DesignFilter(IDataStore* store, unsigned table);
  ~DesignFilter() override;

  bool next() override { return Cursor::next(); }
  bool prev() override { return Cursor::prev(); }
  SharedPtr<IProperty> current() override;

 protected:
  unsigned child(unsigned position) const override { return table_->at(position); }
  unsigned end() const override { return table_->items(); }

 private:
  Design::Table* table_;
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_MEMBER_FILTER_H_
