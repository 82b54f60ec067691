#include "data/xml/value_text.h"

#include <cwchar>
#include <sstream>
#include <string>
#include <type_traits>

namespace kestrine::platform::data::XML {

const std::locale lc(std::locale::classic());

namespace {

// Building a stream and imbuing it costs far more than converting one number, and a document
// holds millions of them; each thread keeps one stream per direction and type instead.
template <class Stream>
Stream& reusable(Stream& stream) {
  stream.clear();
  return stream;
}

template <class Stream>
Stream imbued() {
  Stream stream;
  stream.imbue(lc);
  return stream;
}

}  // namespace

template <class T>
void ToWString(wchar_t* out, const T& value) {
  thread_local std::wostringstream stream = imbued<std::wostringstream>();
  reusable(stream).str(std::wstring());
  if constexpr (std::is_floating_point_v<T>) {
    stream.precision(7);
    stream << value;
  } else if constexpr (std::is_signed_v<T>) {
    stream << static_cast<long long>(value);
  } else {
    stream << static_cast<unsigned long long>(value);
  }
  const std::wstring text = stream.str();
  std::size_t length = text.size() < kNumberText ? text.size() : kNumberText - 1;
  std::wmemcpy(out, text.data(), length);
  out[length] = L'\0';
}

template <class T>
bool CastTo(const char* text, T& result) {
  thread_local std::istringstream stream = imbued<std::istringstream>();
  reusable(stream).str(text);
  T value{};
  stream >> value;
  // Reaching the end of the text is not a failure; only a missing or unreadable number is.
  if (stream.fail()) return false;
  result = value;
  return true;
}

template void ToWString(wchar_t*, const bool&);
template void ToWString(wchar_t*, const signed char&);
template void ToWString(wchar_t*, const unsigned char&);
template void ToWString(wchar_t*, const short&);
template void ToWString(wchar_t*, const unsigned short&);
template void ToWString(wchar_t*, const int&);
template void ToWString(wchar_t*, const unsigned int&);
template void ToWString(wchar_t*, const long&);
template void ToWString(wchar_t*, const unsigned long&);
template void ToWString(wchar_t*, const float&);
template void ToWString(wchar_t*, const double&);

template bool CastTo(const char*, int&);
template bool CastTo(const char*, unsigned int&);
template bool CastTo(const char*, long long&);
template bool CastTo(const char*, unsigned long long&);
template bool CastTo(const char*, float&);
template bool CastTo(const char*, double&);

}  // namespace kestrine::platform::data::XML
