// Internal: message pieces shared by the parsers.
#pragma once

#include <string>

namespace kivo::Detail {

// " on or about character N"
inline std::string onOrAbout(long long position) {
  return " on or about character " + std::to_string(position);
}

// "1 error" + ending, "2 errors" + ending.
inline std::string errorSummary(unsigned long count, const char* ending) {
  return std::to_string(count) + " error" + (count > 1 ? "s" : "") + ending;
}

}  // namespace kivo::Detail
