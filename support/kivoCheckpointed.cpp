#include <kivo/support/kivoCheckpointed.h>

#include <kivo/support/kivoDebugFootprint.h>

#include "support/kivoPrintLine.h"

namespace kivo {

uint64_t Checkpointed::_objectsCreated = 0;
uint64_t Checkpointed::_objectsAlive = 0;
uint64_t Checkpointed::sfGlobalCheckpoint = 0;
// The class stamp starts from the global counter when the library is loaded.
uint64_t Checkpointed::sfCheckpoint = Checkpointed::globalCheckpoint();

Checkpointed::Checkpointed() {
  ++_objectsCreated;
  ++_objectsAlive;
  fCheckpoint = classChanged();
}

Checkpointed::Checkpointed(const Checkpointed&) {
  ++_objectsCreated;
  ++_objectsAlive;
  objectChanged();
  fCheckpoint = classChanged();
}

Checkpointed& Checkpointed::operator=(const Checkpointed&) {
  objectChanged();
  return *this;
}

Checkpointed::~Checkpointed() {
  --_objectsAlive;
  fCheckpoint = classChanged();
}

uint64_t Checkpointed::classCheckpoint() const { return sClassCheckpoint(); }

bool Checkpointed::classChangedSinceCheckpoint(const uint64_t& checkpoint) const {
  return sClassChangedSinceCheckpoint(checkpoint);
}

uint64_t Checkpointed::classChanged() { return sClassChanged(); }

uint64_t Checkpointed::globalCheckpoint() { return sfGlobalCheckpoint; }

uint64_t Checkpointed::globalChange() { return ++sfGlobalCheckpoint; }

uint64_t Checkpointed::sClassChanged() {
  sfCheckpoint = globalChange();
  return sfCheckpoint;
}

uint64_t Checkpointed::sClassCheckpoint() { return sfCheckpoint; }

bool Checkpointed::sClassChangedSinceCheckpoint(const uint64_t& checkpoint) {
  return checkpoint < sfCheckpoint;
}

void Checkpointed::objectChanged() { fCheckpoint = classChanged(); }

bool Checkpointed::changedSinceCheckpoint(const uint64_t& checkpoint) const {
  return fCheckpoint > checkpoint;
}

// Debug output

bool Checkpointed::Debug(const Checkpointed* object, kivo::Debug::Print& print) {
  if (object) {
    Detail::printLine(print, "Checkpoint : " + std::to_string(object->fCheckpoint));
  } else {
    Detail::printLine(print, "Class Checkpoint  : " + std::to_string(sfCheckpoint));
    Detail::printLine(print, "Global Checkpoint : " + std::to_string(sfGlobalCheckpoint));
  }
  return true;
}

bool Checkpointed::Debug(const Checkpointed* object, kivo::Debug::Footprint& footprint) {
  if (object) {
    footprint.addObject(object, sizeof(Checkpointed));
  } else {
    footprint.addMember(&sfCheckpoint, sizeof sfCheckpoint);
    footprint.addMember(&sfGlobalCheckpoint, sizeof sfGlobalCheckpoint);
  }
  return true;
}

}  // namespace kivo
