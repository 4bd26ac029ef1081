// AttachDirectly: Attach keeping one heap Associations inside the object
// (null while there is no metadata); derive from it to give a class
// metadata. Attached metadata shares its implementation with the
// Associations it came from (setMetadata, copies), so it stays shared until
// one side calls Associations::makeUnique().
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataAttach.h>

#include <cstdint>
#include <memory>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Associations;

class KIVO_EXPORT AttachDirectly : public Attach {
 public:
  // No metadata.
  AttachDirectly();
  // Always carries metadata: a new Associations sharing other's
  // implementation, or a new empty one when other has none.
  AttachDirectly(const AttachDirectly& other);
  // As the copy constructor, replacing (deleting) the metadata held;
  // nothing happens on self-assignment.
  AttachDirectly& operator=(const AttachDirectly& other);
  // Deletes the held Associations.
  ~AttachDirectly() override;

  // The held Associations, owned by this object; null without metadata.
  Associations* editableMetadata() override;
  const Associations* metadata() const override;
  // True. Unless metadata is the very object held, the held one is deleted
  // and replaced by a new Associations sharing metadata's implementation.
  bool setMetadata(const Associations& metadata) override;
  // Deletes the held Associations (if any); true.
  bool deleteMetadata() override;

  // "AttachDirectly" and the held associations' printout, or "No metadata".
  // Null prints the class counters.
  static bool Debug(const AttachDirectly* attach, kivo::Debug::Print& print);
  // The object and the held associations.
  static bool Debug(const AttachDirectly* attach, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  std::unique_ptr<Associations> fMetadata;
};

}  // namespace Data
}  // namespace kivo
