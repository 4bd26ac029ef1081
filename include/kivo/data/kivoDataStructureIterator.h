// StructureIterator: walks the members of one Structure, holding a reference
// on it. A structure whose count is 0 is deleted when the last iterator or
// handle lets it go, so take a reference before iterating an unowned
// structure. Copies share the structure reference.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataIterLocation.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Member;
class Structure;

class KIVO_EXPORT StructureIterator {
 public:
  using IterLocation = kivo::Data::IterLocation;
  using iterator_category = std::forward_iterator_tag;
  using value_type = Member;
  using difference_type = std::ptrdiff_t;
  using pointer = const Member*;
  using reference = const Member&;
  // The member index of the end position.
  static constexpr uint32_t kEndIndex = 0xFFFFFFFFu;

  // At the end of a new, empty structure of its own.
  StructureIterator();
  // On member 0 of structure for kBegin, at its end for any other value.
  // Takes a reference on structure unless it is being destroyed.
  StructureIterator(const Structure& structure, IterLocation location);
  StructureIterator(const StructureIterator& other);
  StructureIterator& operator=(const StructureIterator& other);
  ~StructureIterator();

  // Next member; past the last member (or already at the end) the end.
  StructureIterator& operator++();
  StructureIterator operator++(int);

  // The current member; throws std::out_of_range("Member") at the end.
  const Member& operator*() const;
  const Member* operator->() const;

  // Equal when on the same structure object and the same index.
  bool operator==(const StructureIterator& other) const;
  bool operator!=(const StructureIterator& other) const { return !(*this == other); }

  // True when on a member (not at the structure's end).
  bool valid() const;
  // The current member index; kEndIndex at the end.
  unsigned int index() const { return fIndex; }
  const Structure& structure() const { return *fStructure; }

  // "StructureIterator on member N of 'name'" or "... at the end of 'name'";
  // null prints nothing. Returns true.
  static bool Debug(const StructureIterator* iterator, kivo::Debug::Print& print);
  static bool Debug(const StructureIterator* iterator, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  // Moves to member index, or to the end when index is not below the member
  // count. Returns valid().
  bool setIndex(unsigned int index);
  // Exchanges structure and position with other.
  void swapIterator(StructureIterator& other) noexcept;

 private:
  void attach(const Structure* structure);
  void release();

  const Structure* fStructure = nullptr;
  uint32_t fIndex = kEndIndex;
};

}  // namespace Data
}  // namespace kivo
