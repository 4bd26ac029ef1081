#include <kivo/support/kivoDebugFootprint.h>

#include <kivo/support/kivoDebugPrint.h>

#include <string>

namespace kivo::Debug {

void Footprint::clear() {
  fTotalSize = 0;
  fTotalFragments = 0;
}

void Footprint::addMember(const void*, unsigned long size) {
  fTotalSize += size;
  ++fTotalFragments;
}

void Footprint::addObject(const void* p, unsigned long size) {
  if (!fIgnoreObjects) addMember(p, size);
}

bool Footprint::Debug(const Footprint* footprint, Print& print) {
  if (!footprint) return true;
  const std::string line = "Footprint : " + std::to_string(footprint->fTotalSize) + " byte(s), " +
                           std::to_string(footprint->fTotalFragments) + " memory fragment(s).\n";
  print << line.c_str();
  return true;
}

}  // namespace kivo::Debug
