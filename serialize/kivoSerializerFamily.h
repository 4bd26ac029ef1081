// Internal: the registry operations shared by the four serializer families.
// Each family keeps its own set (a function-local static of its base) and
// calls these with it.
#pragma once

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <set>
#include <string>

#include "support/kivoPrintLine.h"

namespace kivo::Detail {

// The first format of the set, in its (pointer) order, whose formatType()
// equals name exactly; null when none does. Null entries and null format
// names are skipped.
template <class B>
const B* formatByName(const std::set<const B*>& formats, const std::string& name) {
  for (const B* format : formats) {
    if (!format) continue;
    const char* type = format->formatType();
    if (type && name == type) return format;
  }
  return nullptr;
}

// One line for a format, "<family> format 'NAME'"; for null the family's
// statistics: how many formats are registered, their names in registry order
// and the default's name.
template <class B>
bool printFormat(const B* format, const B* defaultFormat, const std::set<const B*>& formats,
                 const char* family, Debug::Print& print) {
  auto nameOf = [](const B* f) -> std::string {
    const char* type = f ? f->formatType() : nullptr;
    return type ? std::string("'") + type + "'" : std::string("none");
  };
  if (format) {
    printLine(print, std::string(family) + " format " + nameOf(format));
    return true;
  }
  std::string line = std::string(family) + " formats registered = " +
                     std::to_string(formats.size());
  const char* separator = " (";
  for (const B* f : formats) {
    line += separator + nameOf(f);
    separator = ", ";
  }
  if (!formats.empty()) line += ")";
  printLine(print, line + ", default format = " + nameOf(defaultFormat));
  return true;
}

// Serializers hold no data: a format counts its own object size.
template <class B>
bool countFormat(const B* format, Debug::Footprint& footprint) {
  if (format) footprint.addObject(format, sizeof(B));
  return true;
}

}  // namespace kivo::Detail
