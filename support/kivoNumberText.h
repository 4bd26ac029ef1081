// Internal: reading a fixed count of unsigned 32-bit numbers from untrusted
// index text. Only digits, blanks, tabs and carriage returns are allowed, so
// signs, letters and newlines never turn into a number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>

namespace kivo::Detail {

enum class NumberText {
  kRead,      // every number read, nothing but blanks after them
  kBad,       // a disallowed character, a missing number or one beyond 32 bits
  kTrailing,  // further non-blank text after the last number
};

// Reads count numbers separated by blanks, tabs or carriage returns.
inline NumberText readUnsignedNumbers(const std::string& text, uint32_t* values, size_t count) {
  static constexpr char kAllowed[] = "0123456789 \t\r";
  static constexpr char kBlanks[] = " \t\r";
  if (text.find_first_not_of(kAllowed, 0, sizeof(kAllowed) - 1) != std::string::npos)
    return NumberText::kBad;
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  for (size_t i = 0; i < count; ++i) {
    unsigned int value = 0;
    if (!(in >> value)) return NumberText::kBad;
    values[i] = value;
  }
  if (in.eof()) return NumberText::kRead;
  const std::streamoff position = in.tellg();
  if (position < 0) return NumberText::kBad;
  return text.find_first_not_of(kBlanks, static_cast<size_t>(position), sizeof(kBlanks) - 1) ==
                 std::string::npos
             ? NumberText::kRead
             : NumberText::kTrailing;
}

}  // namespace kivo::Detail
