// Checkpointed: change stamps drawn from one process-wide counter that only
// grows. Each object keeps the counter value of its last change, each class
// the value of the last change of any of its objects. Constructing,
// copy-constructing (two steps), assigning and destroying all count as
// changes. Comparisons are strict: changedSinceCheckpoint(checkpoint()) is
// false. The counters are unsynchronised; change the data model from one
// thread.
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

class KIVO_EXPORT Checkpointed {
 public:
  Checkpointed();
  Checkpointed(const Checkpointed&);
  // Marks this object changed; the source's stamp is not copied.
  Checkpointed& operator=(const Checkpointed&);

  // Class-level stamps; a class wanting its own counter overrides all three
  // with its own static.
  virtual uint64_t classCheckpoint() const;
  virtual bool classChangedSinceCheckpoint(const uint64_t& checkpoint) const;
  virtual uint64_t classChanged();
  virtual ~Checkpointed();

  static uint64_t globalCheckpoint();
  // Advances the global counter by one and returns the new value.
  static uint64_t globalChange();
  // Stamps the class with a fresh global value and returns it.
  static uint64_t sClassChanged();
  static uint64_t sClassCheckpoint();
  // True when checkpoint is below the class stamp.
  static bool sClassChangedSinceCheckpoint(const uint64_t& checkpoint);

  // Stamps this object (and its class) with a fresh global value.
  void objectChanged();
  uint64_t checkpoint() const { return fCheckpoint; }
  // True when this object's stamp is above checkpoint.
  bool changedSinceCheckpoint(const uint64_t& checkpoint) const;

  // Object: "Checkpoint : N". Null: the class and global counters.
  static bool Debug(const Checkpointed* object, kivo::Debug::Print& print);
  // Object: its own size. Null: the two static counters.
  static bool Debug(const Checkpointed* object, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  uint64_t fCheckpoint = 0;
  static uint64_t sfCheckpoint;
  static uint64_t sfGlobalCheckpoint;
};

}  // namespace kivo
