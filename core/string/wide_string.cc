#include "kestrine/platform/core/string.h"

#include <utility>

namespace kestrine::platform::core::string {

WideString::WideString(const wchar_t* text) {
  if (text != nullptr) text_.assign(text);
}

WideString::WideString(const wchar_t* text, unsigned length) {
  if (text != nullptr) text_.assign(text, length);
}

WideString::WideString(std::wstring text) : text_(std::move(text)) {}

WideString& WideString::append(const WideString& tail) {
  text_.append(tail.text_);
  return *this;
}

WideString& WideString::append(const wchar_t* tail) {
  if (tail != nullptr) text_.append(tail);
  return *this;
}

}  // namespace kestrine::platform::core::string
