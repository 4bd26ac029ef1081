// Internal: number text without streams, for the paths that must give the
// same results as the stream code, only faster. Parsing accepts only a
// strict, simple form of each number, whose stream extraction has the same
// result; callers fall back to the stream code for anything else, so that
// every message and every odd acceptance stays the stream's. Formatting
// gives what a stream in the classic locale with default flags writes.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <type_traits>

namespace kivo::Detail {

// When set, every path with a fast form takes its stream form instead, so
// that tests can compare the two. Off by default; not for production use.
inline bool& streamTextOnly() {
  static bool only = false;
  return only;
}

// Whitespace as the classic locale classifies it.
constexpr bool isClassicSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The end of the strict number text at p: "-"? digits for signed integers,
// digits for unsigned ones (no sign: a stream wraps a negated unsigned
// value), and for floating point "-"? digits ("." digits*)? followed by an
// optional exponent [eE] [+-]? digits. Null when p does not start with one.
template <class T>
const char* strictNumberEnd(const char* p, const char* end) {
  if constexpr (std::is_signed_v<T>) {
    if (p < end && *p == '-') ++p;
  }
  const char* digits = p;
  while (p < end && isDigit(*p)) ++p;
  if (p == digits) return nullptr;
  if constexpr (std::is_floating_point_v<T>) {
    if (p < end && *p == '.') {
      ++p;
      while (p < end && isDigit(*p)) ++p;
    }
    if (p < end && (*p == 'e' || *p == 'E')) {
      ++p;
      if (p < end && (*p == '+' || *p == '-')) ++p;
      const char* exponent = p;
      while (p < end && isDigit(*p)) ++p;
      if (p == exponent) return nullptr;  // a bare exponent fails a stream
    }
  }
  return p;
}

// Reads a strict number that starts at p and ends at the end of the text
// or at whitespace. Returns the end of the number, or null when the text is
// not in strict form or the value does not fit T (no value stored then).
template <class T>
const char* parseStrict(const char* p, const char* end, T& value) {
  const char* last = strictNumberEnd<T>(p, end);
  if (!last || (last < end && !isClassicSpace(*last))) return nullptr;
  T parsed{};
  const std::from_chars_result result = std::from_chars(p, last, parsed);
  if (result.ec != std::errc() || result.ptr != last) return nullptr;
  value = parsed;
  return last;
}

// The precisions formatGeneral serves; callers use the stream beyond them.
constexpr int kMaxFastPrecision = 64;
constexpr size_t kNumberBuffer = 96;
// Writes value as a classic stream with default flags writes a double at
// precision 0 to kMaxFastPrecision ("%.<precision>g") into buffer, which
// must hold kNumberBuffer characters; returns the end of the text.
char* formatGeneral(char* buffer, double value, int precision);

// An integer in decimal. buffer must hold 24 characters.
template <class T>
char* formatInteger(char* buffer, T value) {
  return std::to_chars(buffer, buffer + 24, value).ptr;
}

}  // namespace kivo::Detail
