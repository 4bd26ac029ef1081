#include <kivo/support/kivoRefCounted.h>

#include <kivo/support/kivoDebugFootprint.h>

#include "support/kivoPrintLine.h"

namespace kivo {

uint64_t RefCounted::_objectsCreated = 0;
uint64_t RefCounted::_objectsAlive = 0;

RefCounted::RefCounted() {
  ++_objectsCreated;
  ++_objectsAlive;
}

RefCounted::RefCounted(const RefCounted&) : RefCounted() {}

RefCounted& RefCounted::operator=(const RefCounted&) { return *this; }

RefCounted::~RefCounted() { --_objectsAlive; }

void RefCounted::ref() const { fCount.fetch_add(1, std::memory_order_seq_cst); }

void RefCounted::unref() const {
  if (fCount.fetch_sub(1, std::memory_order_seq_cst) == 1) delete this;
}

int RefCounted::refCount() const { return fCount.load(); }

bool RefCounted::isShared() const { return fCount.load() > 1; }

bool RefCounted::Debug(const RefCounted* object, kivo::Debug::Print& print) {
  if (object) Detail::printLine(print, "RefCount : " + std::to_string(object->refCount()));
  return true;
}

bool RefCounted::Debug(const RefCounted* object, kivo::Debug::Footprint& footprint) {
  if (object) footprint.addObject(object, sizeof(RefCounted));
  return true;
}

}  // namespace kivo
