// Internal: what a class's Debug functions write for a null object, the two
// instance counters every data class keeps.
#pragma once

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <cstdint>
#include <string>

#include "support/kivoPrintLine.h"

namespace kivo::Detail {

// A section "<className> Static Data" with "Objects created = N" and
// "Objects alive   = M".
inline void printClassStatistics(Debug::Print& print, const char* className, uint64_t created,
                                 uint64_t alive) {
  print.beginSection((std::string(className) + " Static Data").c_str());
  printLine(print, "Objects created = " + std::to_string(created));
  printLine(print, "Objects alive   = " + std::to_string(alive));
  print.endSection();
}

// The two counters themselves.
inline void addClassStatistics(Debug::Footprint& footprint, const uint64_t& created,
                               const uint64_t& alive) {
  footprint.addMember(&created, sizeof(created));
  footprint.addMember(&alive, sizeof(alive));
}

}  // namespace kivo::Detail
