// Internal: pieces shared by the debug printers and footprints of streams,
// channels and associations.
#pragma once

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace kivo::Detail {

// True when the named filter exists with a non-zero level.
inline bool filterOn(const Debug::Print& print, const char* name) {
  int level = 0;
  return print.findFilter(name, level) && level != 0;
}

// Writes text on the line already started, without indenting it.
inline void continueLine(Debug::Print& print, const char* text) {
  print.skipNextIndent(true);
  print << text;
}

// Writes the pointer on the line already started, in the printer's notation.
inline void continueLine(Debug::Print& print, const void* pointer) {
  print.skipNextIndent(true);
  print << pointer;
}

// Ends the line already started and flushes it.
inline void endLine(Debug::Print& print) {
  print.skipNextIndent(true);
  print.doIndent() << '\n' << std::flush;
}

// "PTR: " and the object's address on a line of their own.
inline void printAddressLine(Debug::Print& print, const void* object) {
  print << "PTR: ";
  continueLine(print, object);
  endLine(print);
}

// The bytes a node of an ordered set or map holds besides its value: three
// links and a colour, padded to a word.
constexpr uint64_t kTreeNodeLinks = 4 * sizeof(void*);

// Adds the heap text of a std::string, when it has one (short texts live
// inside the string object, which its owner has counted already).
inline void addStringText(Debug::Footprint& footprint, const std::string& text) {
  const auto data = reinterpret_cast<uintptr_t>(text.data());
  const auto object = reinterpret_cast<uintptr_t>(&text);
  if (data >= object && data < object + sizeof(text)) return;
  footprint.addMember(text.data(), text.capacity() + 1);
}

}  // namespace kivo::Detail
