#include <kivo/data/kivoDataIndexType.h>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <typeinfo>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {

uint64_t IndexType::_objectsCreated = 0;
uint64_t IndexType::_objectsAlive = 0;

IndexType::IndexType() {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexType::IndexType(const IndexType& other) : RefCounted(other) {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexType& IndexType::operator=(const IndexType&) { return *this; }

IndexType::~IndexType() { --_objectsAlive; }

int IndexType::compareKind(const IndexType& other) const {
  const int byName = typeName().compare(other.typeName());
  if (byName != 0) return byName;
  const std::type_info& mine = typeid(*this);
  const std::type_info& theirs = typeid(other);
  if (mine == theirs) return 0;
  return mine.before(theirs) ? -1 : 1;
}

// Debug output

bool IndexType::Debug(const IndexType* object, kivo::Debug::Print& print) {
  if (!object) {
    Detail::printClassStatistics(print, "kivo::Data::IndexType", _objectsCreated, _objectsAlive);
    return true;
  }
  print << object->asString().c_str();
  return true;
}

bool IndexType::Debug(const IndexType* object, kivo::Debug::Footprint& footprint) {
  if (!object) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(object, sizeof(IndexType));
  return true;
}

}  // namespace kivo::Data
