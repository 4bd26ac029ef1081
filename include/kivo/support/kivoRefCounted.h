// RefCounted: an intrusive, atomic reference count. The count starts at 0:
// the first owner calls ref(). unref() from 1 deletes the object through its
// virtual destructor. The count is never copied: a copy starts at 0 and
// assignment leaves both counts as they were.
#pragma once

#include <kivo/kivoExport.h>

#include <atomic>
#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

class KIVO_EXPORT RefCounted {
 public:
  RefCounted();
  RefCounted(const RefCounted&);
  // Does nothing: the target keeps its own count.
  RefCounted& operator=(const RefCounted&);
  virtual ~RefCounted();

  // Adds one reference.
  void ref() const;
  // Drops one reference; deletes the object when the count was 1. A count
  // already at 0 goes below zero unchecked.
  void unref() const;
  int refCount() const;
  // True when the count, read as a signed number, is above 1.
  bool isShared() const;

  // "RefCount : N" on one line; nothing for null. Returns true.
  static bool Debug(const RefCounted* object, kivo::Debug::Print& print);
  // The object's own size; nothing for null. Returns true.
  static bool Debug(const RefCounted* object, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  mutable std::atomic<int32_t> fCount{0};
};

}  // namespace kivo
