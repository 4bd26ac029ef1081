#include <kivo/data/kivoDataAttach.h>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {

uint64_t Attach::_objectsCreated = 0;
uint64_t Attach::_objectsAlive = 0;

Attach::Attach() {
  ++_objectsCreated;
  ++_objectsAlive;
}

Attach::Attach(const Attach& /*other*/) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Attach::~Attach() { --_objectsAlive; }

// Debug output

bool Attach::Debug(const Attach* attach, kivo::Debug::Print& print) {
  if (!attach) {
    Detail::printClassStatistics(print, "Attach", _objectsCreated, _objectsAlive);
    return true;
  }
  Detail::printLine(print, attach->metadata() ? "Attach with metadata" : "Attach without metadata");
  return true;
}

bool Attach::Debug(const Attach* attach, kivo::Debug::Footprint& footprint) {
  if (!attach) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(attach, sizeof(*attach));
  return true;
}

}  // namespace kivo::Data
