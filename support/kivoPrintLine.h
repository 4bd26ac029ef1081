// Internal: one complete debug line through a Print (indented once, ended by
// a newline and a flush), however many pieces it was built from.
#pragma once

#include <kivo/support/kivoDebugPrint.h>

#include <ostream>
#include <string>

namespace kivo::Detail {

inline void printLine(Debug::Print& print, const std::string& text) {
  print.doIndent() << text << '\n' << std::flush;
}

}  // namespace kivo::Detail
