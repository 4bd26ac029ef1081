#include <kivo/data/kivoDataStructureIterator.h>

#include <stdexcept>
#include <string>
#include <utility>

#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kMemberOutOfRange[] = "Member";

}  // namespace

uint64_t StructureIterator::_objectsCreated = 0;
uint64_t StructureIterator::_objectsAlive = 0;

StructureIterator::StructureIterator() {
  attach(Structure::create());
  // Counted once nothing can throw: a failed construction runs no destructor.
  ++_objectsCreated;
  ++_objectsAlive;
}

StructureIterator::StructureIterator(const Structure& structure, IterLocation location) {
  ++_objectsCreated;
  ++_objectsAlive;
  attach(&structure);
  if (location == kBegin && structure.memberCount() > 0) fIndex = 0;
}

StructureIterator::StructureIterator(const StructureIterator& other) {
  ++_objectsCreated;
  ++_objectsAlive;
  attach(other.fStructure);
  fIndex = other.fIndex;
}

StructureIterator& StructureIterator::operator=(const StructureIterator& other) {
  attach(other.fStructure);
  fIndex = other.fIndex;
  return *this;
}

StructureIterator::~StructureIterator() {
  --_objectsAlive;
  release();
}

StructureIterator& StructureIterator::operator++() {
  if (fIndex != kEndIndex && ++fIndex >= fStructure->memberCount()) fIndex = kEndIndex;
  return *this;
}

StructureIterator StructureIterator::operator++(int) {
  StructureIterator previous(*this);
  ++*this;
  return previous;
}

const Member& StructureIterator::operator*() const {
  if (!valid()) throw std::out_of_range(kMemberOutOfRange);
  return fStructure->fMembers[fIndex];
}

const Member* StructureIterator::operator->() const { return &**this; }

bool StructureIterator::operator==(const StructureIterator& other) const {
  return fStructure == other.fStructure && fIndex == other.fIndex;
}

bool StructureIterator::valid() const { return fIndex < fStructure->memberCount(); }

bool StructureIterator::setIndex(unsigned int index) {
  fIndex = index < fStructure->memberCount() ? index : kEndIndex;
  return valid();
}

void StructureIterator::swapIterator(StructureIterator& other) noexcept {
  std::swap(fStructure, other.fStructure);
  std::swap(fIndex, other.fIndex);
}

// Takes the new reference before dropping the old one, so re-attaching to
// the same structure never lets its count touch 0. A structure that is being
// destroyed is neither referenced nor released.
void StructureIterator::attach(const Structure* structure) {
  if (structure && !structure->fBeingDestroyed) structure->ref();
  release();
  fStructure = structure;
}

void StructureIterator::release() {
  const Structure* structure = std::exchange(fStructure, nullptr);
  if (structure && !structure->fBeingDestroyed) structure->unref();
}

// Debug output

bool StructureIterator::Debug(const StructureIterator* iterator, kivo::Debug::Print& print) {
  if (!iterator) return true;
  const std::string name = std::string("'") + iterator->fStructure->name() + "'";
  Detail::printLine(print, iterator->valid() ? "StructureIterator on member " +
                                                   std::to_string(iterator->fIndex) + " of " + name
                                             : "StructureIterator at the end of " + name);
  return true;
}

bool StructureIterator::Debug(const StructureIterator* iterator,
                              kivo::Debug::Footprint& footprint) {
  if (iterator) footprint.addObject(iterator, sizeof(StructureIterator));
  return true;
}

}  // namespace kivo::Data
