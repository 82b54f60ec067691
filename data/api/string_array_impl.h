#ifndef KPL_DATA_API_STRING_ARRAY_IMPL_H_
#define KPL_DATA_API_STRING_ARRAY_IMPL_H_

#include <vector>

#include "kestrine/platform/data/metadata/property.h"

namespace kestrine::platform::data::metadata {

using core::string::WideString;

// IStringArray: wide strings in insertion order, in memory only. Text primitives hold such a
// list packed as the strings end to end, each with one zero terminator; to() unpacks that
// form and write() produces it.
class StringArrayImpl : public IStringArray {
 public:
  StringArrayImpl() = default;
  // Unpacks `count` characters of `packed`: every zero ends a string (an empty one between
  // two zeros), and characters after the last zero are dropped.
  StringArrayImpl(const wchar_t* packed, unsigned count);

  unsigned strings() const override { return static_cast<unsigned>(strings_.size()); }
  WideString get(unsigned int index) const override { return strings_[index]; }
  void add(WideString text) override { strings_.push_back(text); }
  // Replaces the target's values by the packed strings (none for an empty array); false,
  // writing nothing, for a target that is not text-typed, and when the target refuses the
  // values (a URI stands for them).
  bool write(IPrimitive* target) override;

 private:
  std::vector<WideString> strings_;
};

}  // namespace kestrine::platform::data::metadata

#endif  // KPL_DATA_API_STRING_ARRAY_IMPL_H_
