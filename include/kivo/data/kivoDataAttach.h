// Attach: the interface through which a host object exposes the metadata
// attached to it, one optional Associations. Abstract; AttachDirectly is the
// ready-made implementation that keeps the associations inside the object.
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Associations;

class KIVO_EXPORT Attach {
 public:
  Attach();
  Attach(const Attach& other);
  Attach& operator=(const Attach& other) = default;
  virtual ~Attach();

  // The attached associations for editing; null when there are none. Owned
  // by the implementation.
  virtual Associations* editableMetadata() = 0;
  // The attached associations; null when there are none.
  virtual const Associations* metadata() const = 0;
  // Attaches metadata (how it is kept is the implementation's choice);
  // true when it is attached.
  virtual bool setMetadata(const Associations& metadata) = 0;
  // Drops the attached associations; true when none remain.
  virtual bool deleteMetadata() = 0;

  // "Attach" with whether metadata is attached; null prints the class
  // counters.
  static bool Debug(const Attach* attach, kivo::Debug::Print& print);
  // The object's own size.
  static bool Debug(const Attach* attach, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;
};

}  // namespace Data
}  // namespace kivo
