#ifndef KPL_DATA_XML_REMARKS_H_
#define KPL_DATA_XML_REMARKS_H_

#include "kestrine/platform/core/string.h"

namespace kestrine::platform::data::XML {

// Where the element handlers tell, in a thorough parse, what a lenient one passes over in
// silence: a token that is no number or does not fit, an unknown unit or class, a name or
// default that blocks later ones, a child merged into or dropped beside another of its name.
// The parsing driver implements it and reports each remark like a problem of the element at
// hand; handlers of a lenient parse have none.
class Remarks {
 public:
  virtual void remark(const core::string::WideString& text) = 0;

 protected:
  ~Remarks() = default;
};

}  // namespace kestrine::platform::data::XML

#endif  // KPL_DATA_XML_REMARKS_H_
