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

// Reads a number in strict form that starts at p and ends at the end of
// the text or at whitespace: a digit first (after a "-" for signed and
// floating types), then what from_chars reads. That leaves out signs "+",
// words (inf, nan), a leading ".", hexadecimal and, through the whitespace
// test, bare exponents and trailing text, where a stream differs. Returns
// the end of the number, or null, storing nothing, when the text is not in
// strict form or the value does not fit T.
template <class T>
const char* parseStrict(const char* p, const char* end, T& value) {
  const char* first = p;
  if constexpr (std::is_signed_v<T>) {
    if (first < end && *first == '-') ++first;
  }
  if (first == end || !isDigit(*first)) return nullptr;
  T parsed{};
  const std::from_chars_result result = std::from_chars(p, end, parsed);
  if (result.ec != std::errc() || (result.ptr < end && !isClassicSpace(*result.ptr)))
    return nullptr;
  value = parsed;
  return result.ptr;
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
