// Number text, the stream-based conversions against to_chars/from_chars: the time to write or
// read one value of int32, uint64, scalar and double, in ns per value.
//
//   build/release/bench/number_text_bench
//
// Print: one element's bytes to wide text with 7 significant digits (Stream: the classic-locale streams;
// Charconv: printNumber), and to narrow text, which the wide form widens (CharconvNarrow).
// Scan: one token, the seven-digit text of a value, into an element's bytes (Stream:
// the streams; Charconv: scanNumber). Each benchmark walks through 4096 values of spread
// magnitudes and lengths.
// PrintBlock: a block of 4096 doubles of the magnitudes data mostly has (tens to thousands,
// of either sign, with few or many digits), as an export prints a value element's block;
// in ns per value.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "data/values/number_text.h"
#include "data/values/stream_numbers_test_support.h"

namespace {

namespace Values = kestrine::platform::data::Values;
using kestrine::platform::data::metadata::tValue;
namespace metadata = kestrine::platform::data::metadata;

constexpr std::size_t kValues = 4096;

using Element = std::array<char, 8>;

template <class T>
Element elementOf(T value) {
  Element element{};
  std::memcpy(element.data(), &value, sizeof value);
  return element;
}

// A value of the type with as many digits as chance gives: integers of random bit length,
// floating-point values with a random mantissa between 10^-8 and 10^8 or so, of either sign.
Element randomElement(tValue type, std::mt19937_64& random) {
  const std::uint64_t bits = random() >> (random() % 64);
  const double real = std::ldexp(1.0 + static_cast<double>(random() % 1000000) / 1000000,
                                 static_cast<int>(random() % 54) - 27) *
                      (random() % 2 ? 1 : -1);
  switch (type) {
    case metadata::kInt32:
      return elementOf(static_cast<std::int32_t>(bits));
    case metadata::kUInt64:
      return elementOf(bits);
    case metadata::kScalar:
      return elementOf(static_cast<float>(real));
    default:
      return elementOf(real);
  }
}

struct Samples {
  std::vector<Element> elements;
  std::vector<std::string> texts;
};

const Samples& samples(tValue type) {
  static const std::array<Samples, metadata::kDouble + 1> all = [] {
    std::array<Samples, metadata::kDouble + 1> made;
    for (tValue type :
         {metadata::kInt32, metadata::kUInt64, metadata::kScalar, metadata::kDouble}) {
      std::mt19937_64 random(type);
      for (std::size_t i = 0; i < kValues; ++i) {
        const Element element = randomElement(type, random);
        char text[Values::kNumberTextSize];
        Values::printNumber(type, element.data(), text, Values::FloatDigits::kSeven);
        made[type].elements.push_back(element);
        made[type].texts.emplace_back(text);
      }
    }
    return made;
  }();
  return all[type];
}

template <class Convert>
void eachValue(benchmark::State& state, Convert convert) {
  std::size_t i = 0;
  for (auto _ : state) {
    convert(i);
    i = (i + 1) % kValues;
  }
  state.SetItemsProcessed(state.iterations());
}

void PrintStream(benchmark::State& state, tValue type) {
  const Samples& values = samples(type);
  wchar_t out[64];
  eachValue(state, [&](std::size_t i) {
    benchmark::DoNotOptimize(Values::stream::printNumber(type, values.elements[i].data(), out));
  });
}

// Wide text as the writers need it, or the narrow text the wide form is made from.
template <class Char>
void PrintCharconv(benchmark::State& state, tValue type) {
  const Samples& values = samples(type);
  Char out[Values::kNumberTextSize];
  eachValue(state, [&](std::size_t i) {
    benchmark::DoNotOptimize(
        Values::printNumber(type, values.elements[i].data(), out, Values::FloatDigits::kSeven));
  });
}

void ScanStream(benchmark::State& state, tValue type) {
  const Samples& values = samples(type);
  Element element;
  eachValue(state, [&](std::size_t i) {
    benchmark::DoNotOptimize(Values::stream::scanNumber(type, values.texts[i].c_str(), element.data()));
  });
}

void ScanCharconv(benchmark::State& state, tValue type) {
  const Samples& values = samples(type);
  Element element;
  eachValue(state, [&](std::size_t i) {
    benchmark::DoNotOptimize(Values::scanNumber(type, values.texts[i].c_str(), element.data()));
  });
}

void PrintBlock(benchmark::State& state) {
  std::mt19937_64 random(7);
  std::vector<double> values(kValues);
  for (double& value : values) {
    const double real = std::ldexp(static_cast<double>(random() >> 11), -53) * 4000 - 2000;
    // Half with three decimals, as a value read from a seven-digit text is.
    value = random() % 2 ? std::round(real * 1000) / 1000 : real;
  }
  std::vector<char> out(kValues * Values::kNumberTextSize);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Values::printNumbers(metadata::kDouble,
                                                  reinterpret_cast<const char*>(values.data()),
                                                  kValues, out.data(), Values::FloatDigits::kSeven));
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(PrintBlock);

// Every benchmark for every type, named as in "ScanCharconv/double".
const bool kRegistered = [] {
  const std::pair<const char*, void (*)(benchmark::State&, tValue)> benchmarks[] = {
      {"PrintStream", PrintStream},
      {"PrintCharconv", PrintCharconv<wchar_t>},
      {"PrintCharconvNarrow", PrintCharconv<char>},
      {"ScanStream", ScanStream},
      {"ScanCharconv", ScanCharconv}};
  const std::pair<const char*, tValue> types[] = {{"int32", metadata::kInt32},
                                                  {"uint64", metadata::kUInt64},
                                                  {"scalar", metadata::kScalar},
                                                  {"double", metadata::kDouble}};
  for (const auto& [name, function] : benchmarks) {
    for (const auto& [typeName, type] : types)
      benchmark::RegisterBenchmark((std::string(name) + "/" + typeName).c_str(), function, type);
  }
  return true;
}();

}  // namespace
