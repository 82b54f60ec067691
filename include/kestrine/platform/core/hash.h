#ifndef KESTRINE_PLATFORM_CORE_HASH_H_
#define KESTRINE_PLATFORM_CORE_HASH_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "kestrine/platform/core/string.h"

// Hash kernels and comparisons of the name indexes. Their values decide bucket placement in
// persisted-order-sensitive indexes, so they are fixed bit for bit, quirks included.
namespace kestrine::platform::core {

// MurmurHash2 (multiplier 0x5bd1e995, shift 24, seed 0) with a 64-bit accumulator: each
// 4-byte block is mixed in 32 bits and folded into the 64-bit h; the tail and the final
// avalanche run in 64 bits; h starts at the byte length.
//
// For a wide string of n characters only the first n *bytes* of its storage are hashed,
// roughly its first quarter: names that share their start and length ("item_1" ...
// "item_9") all hash alike. The data layer's name indexes therefore hash whole names; this
// kernel keeps its values for the schema locator's cache and for clients that rely on them.
struct tMurmur2Kernel {
  static std::uint64_t hash(const void* data, std::size_t length) {
    const std::uint32_t m = 0x5bd1e995;
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    std::uint64_t h = length;
    while (length >= 4) {
      std::uint32_t k = std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 |
                        std::uint32_t(bytes[2]) << 16 | std::uint32_t(bytes[3]) << 24;
      k *= m;
      k ^= k >> 24;
      k *= m;
      h *= m;
      h ^= k;
      bytes += 4;
      length -= 4;
    }
    switch (length) {
      case 3:
        h ^= std::uint64_t(bytes[2]) << 16;
        [[fallthrough]];
      case 2:
        h ^= std::uint64_t(bytes[1]) << 8;
        [[fallthrough]];
      case 1:
        h ^= bytes[0];
        h *= m;
    }
    h ^= h >> 13;
    h *= m;
    h ^= h >> 15;
    return h;
  }

  std::size_t operator()(const wchar_t* text) const { return hash(text, std::wcslen(text)); }
  std::size_t operator()(const string::WideString& text) const {
    return hash(text.string(), text.length());
  }
};

// Paul Hsieh's SuperFastHash with a 64-bit accumulator that starts at the byte length. In
// the block loop the temporary is truncated to 32 bits; tail bytes are sign-extended as in
// the published code (they are `signed char` there).
struct tSFHKernel {
  static std::uint64_t hash(const char* data, std::size_t length) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    auto half = [](const unsigned char* p) { return std::uint64_t(p[0]) | std::uint64_t(p[1]) << 8; };
    auto widen = [](unsigned char b) {
      return static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<signed char>(b)));
    };
    std::uint64_t h = length;
    if (length == 0 || data == nullptr) return 0;
    std::size_t blocks = length >> 2;
    for (; blocks > 0; --blocks) {
      h += half(bytes);
      std::uint32_t tmp = static_cast<std::uint32_t>((half(bytes + 2) << 11) ^ h);
      h = (h << 16) ^ tmp;
      bytes += 4;
      h += h >> 11;
    }
    switch (length & 3) {
      case 3:
        h += half(bytes);
        h ^= h << 16;
        h ^= widen(bytes[2]) << 18;
        h += h >> 11;
        break;
      case 2:
        h += half(bytes);
        h ^= h << 11;
        h += h >> 17;
        break;
      case 1:
        h += widen(bytes[0]);
        h ^= h << 10;
        h += h >> 1;
    }
    h ^= h << 3;
    h += h >> 5;
    h ^= h << 4;
    h += h >> 17;
    h ^= h << 25;
    h += h >> 6;
    return h;
  }

  std::size_t operator()(const char* text) const { return hash(text, std::strlen(text)); }
};

// Equality and order of zero-terminated strings by content.
template <class T>
struct tCompareEqual;
template <class T>
struct tCompareLess;

template <>
struct tCompareEqual<const char*> {
  bool operator()(const char* a, const char* b) const {
    return a == b || (a != nullptr && b != nullptr && std::strcmp(a, b) == 0);
  }
};
template <>
struct tCompareEqual<const wchar_t*> {
  bool operator()(const wchar_t* a, const wchar_t* b) const {
    return a == b || (a != nullptr && b != nullptr && std::wcscmp(a, b) == 0);
  }
};
template <>
struct tCompareLess<const char*> {
  bool operator()(const char* a, const char* b) const { return std::strcmp(a, b) < 0; }
};

using tCharCompareEqual = tCompareEqual<const char*>;
using tWCharCompareEqual = tCompareEqual<const wchar_t*>;
using tCharCompareLess = tCompareLess<const char*>;

}  // namespace kestrine::platform::core

#endif  // KESTRINE_PLATFORM_CORE_HASH_H_
