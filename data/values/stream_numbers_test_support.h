#ifndef KPL_DATA_VALUES_STREAM_NUMBERS_TEST_SUPPORT_H_
#define KPL_DATA_VALUES_STREAM_NUMBERS_TEST_SUPPORT_H_

#include <cstring>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>

#include "kestrine/platform/data/metadata/value.h"

// The number text that documents were written and read with before the conversions went
// stream-free: classic-locale streams, one formatted insertion or extraction per element. It
// is the reference that number_text must agree with byte for byte and bit for bit, and the
// speed it is measured against.
namespace kestrine::platform::data::Values::stream {

template <class T>
void print(const char* element, wchar_t* out) {
  T value;
  std::memcpy(&value, element, sizeof value);
  std::wostringstream stream;
  stream.imbue(std::locale::classic());
  if constexpr (std::is_floating_point_v<T>) {
    stream.precision(7);
    stream << value;
  } else if constexpr (std::is_signed_v<T>) {
    stream << static_cast<long long>(value);
  } else {
    stream << static_cast<unsigned long long>(value);
  }
  std::wcscpy(out, stream.str().c_str());
}

template <class T>
bool scan(const char* text, char* element) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  T value{};
  stream >> value;
  if (stream.fail()) return false;
  std::memcpy(element, &value, sizeof value);
  return true;
}

// One element of a numeric type as text; false, writing nothing, for the other types. A bool
// is its byte, any non-zero one true.
inline bool printNumber(metadata::tValue type, const char* element, wchar_t* out) {
  switch (type) {
    case metadata::kBool: {
      char byte = *element != 0;
      print<bool>(&byte, out);
      return true;
    }
    case metadata::kInt8: return print<signed char>(element, out), true;
    case metadata::kUInt8: return print<unsigned char>(element, out), true;
    case metadata::kInt16: return print<short>(element, out), true;
    case metadata::kUInt16: return print<unsigned short>(element, out), true;
    case metadata::kInt32: return print<int>(element, out), true;
    case metadata::kUInt32: return print<unsigned>(element, out), true;
    case metadata::kInt64: return print<long>(element, out), true;
    case metadata::kUInt64: return print<unsigned long>(element, out), true;
    case metadata::kScalar: return print<float>(element, out), true;
    default:
      if (type < metadata::kDouble || type > metadata::kMatrix4x4) return false;
      return print<double>(element, out), true;
  }
}

inline bool scanNumber(metadata::tValue type, const char* text, char* element) {
  switch (type) {
    case metadata::kBool:
    case metadata::kInt8:
    case metadata::kInt16:
    case metadata::kInt32: return scan<int>(text, element);
    case metadata::kUInt8:
    case metadata::kUInt16:
    case metadata::kUInt32: return scan<unsigned>(text, element);
    case metadata::kInt64: return scan<long long>(text, element);
    case metadata::kUInt64: return scan<unsigned long long>(text, element);
    case metadata::kScalar: return scan<float>(text, element);
    default:
      if (type < metadata::kDouble || type > metadata::kMatrix4x4) return false;
      return scan<double>(text, element);
  }
}

}  // namespace kestrine::platform::data::Values::stream

#endif  // KPL_DATA_VALUES_STREAM_NUMBERS_TEST_SUPPORT_H_
