// Structure: the named layout of one stream element: ordered members, their
// offsets, and the byte size of one element block, plus a lazily built block
// of defaults. Shared by reference count; a new structure starts at 0 and its
// first owner calls ref(). Iterators and handles take references too, so a
// structure nobody has referenced yet is deleted when the last of them goes:
// take a reference first. Build and register structures from one thread.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStructureIterator.h>
#include <kivo/support/kivoCheckpointed.h>
#include <kivo/support/kivoRefCounted.h>

#include <cstdint>
#include <memory>
#include <set>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class KIVO_EXPORT Structure : public RefCounted, public Checkpointed {
 public:
  using iterator = StructureIterator;
  using const_iterator = StructureIterator;
  // The registry: structure pointers ordered by object identity.
  using StructureSet = std::set<Structure*>;
  // The name of a structure that was given none.
  static const char* const kDefaultName;  // "structure"
  // The largest byte size of one element block that addMember accepts.
  static constexpr uint64_t kMaxElementSize = uint64_t(64) << 20;

  // A new heap structure named "structure", no members, count 0: the caller
  // takes the references (a kivo::Ref holds one).
  static Structure* create();
  // Named "structure" (or name; null also gives "structure"), no members.
  Structure();
  explicit Structure(const char* name);
  // A copy is a new object: same name, members, offsets, size and default
  // block, not registered, count 0.
  Structure(const Structure& other);
  Structure& operator=(const Structure& other);
  ~Structure() override;

  // Stores a copy of name; null means "structure".
  void setName(const char* name);
  const char* name() const { return fName; }
  unsigned int memberCount() const { return fMemberCount; }
  // The member count, like memberCount() (the byte size is totalSize()).
  unsigned int size() const { return fMemberCount; }
  bool empty() const { return fMemberCount == 0; }

  // The same object, or equal names, stored total sizes and members (type,
  // offset, length, name, in order).
  bool operator==(const Structure& other) const;
  bool operator!=(const Structure& other) const { return !(*this == other); }

  // Appends a member and places it after the last one (the array grows
  // geometrically, so building a structure of n members costs about n steps).
  // Returns false,
  // changing nothing, for an invalid type, length 0, a null or empty name, a
  // name already present (case-sensitive), a member whose byte size (type
  // size x length) does not fit in 32 bits, or one that would make an element
  // block larger than kMaxElementSize (64 MiB).
  bool addMember(Member::eDataType type, unsigned int length, const char* name);

  // Byte size of one element block: offsets follow each member's own
  // alignment, the total is rounded up to the FIRST member's alignment
  // (int8, int32, int8 gives 9). 0 without members.
  uint64_t totalSize() const;

  // The default block, owned by the structure, built on first use and never
  // rebuilt (complete the structure before using its defaults). Null while
  // the structure has no size.
  const char* defaultData() const;
  // The default block when it holds a whole element, for streams to share
  // as their stand-in for missing elements (see StreamImplMapped); null
  // when the structure has no size or members were added after the block
  // was built.
  const char* sharedDefaultElement() const;
  // Zeroes block (totalSize() bytes) and writes every member's default.
  // Returns true (false for a null block).
  bool fillWithDefaultChunk(char* block) const;
  // A new block of defaults copied from the default block; null when there is
  // no size. The default block keeps the size it was built with: members
  // added since then get their defaults here rather than bytes read past its
  // end. Free it with destroyChunk(), then delete[].
  char* allocateDefaultChunk() const;
  // Copies src into dst bytewise, then gives dst fresh copies of the strings.
  // Returns true (false for a null block).
  bool fillWithDuplicateChunk(char* dst, const char* src) const;
  // A new deep copy of src; null for a null src or no size. Free it with
  // destroyChunk(), then delete[].
  char* duplicateChunk(const char* src) const;
  // Frees the strings of block and nulls their pointers; the caller frees the
  // block itself. Returns true.
  bool destroyChunk(char* block) const;
  // False for a null block. With a null memberName, true when every member
  // holds its default; with a name, true unless the member of that name does
  // not (a name that matches no member gives true).
  bool chunkMemberIsDefault(const char* block, const char* memberName) const;
  bool chunkIsDefault(const char* block) const { return chunkMemberIsDefault(block, nullptr); }

  // Member iterators; they take a reference on this structure.
  StructureIterator begin() const;
  StructureIterator end() const;
  StructureIterator cbegin() const { return begin(); }
  StructureIterator cend() const { return end(); }

  // The process-wide registry, created on first use. It holds one reference
  // on each structure in it and drops them when the process ends.
  // Registration and lookup by name use an index of the set by name (and by
  // members among structures of one name), so each costs about one step
  // however many structures are registered. A caller may change the
  // returned set directly; the index is then rebuilt (one pass over the
  // set) at the next registration or lookup, as long as the change is made
  // before that call: a reference kept from an earlier call and changed
  // later, without the set's size changing, goes unseen by the index.
  static StructureSet& allStructures();
  // False when this object, or a structure equal to it, is already
  // registered; otherwise adds it, takes a reference and returns true. A
  // different layout under a registered name is accepted.
  static bool registerStructure(Structure& structure);
  // The first registered structure (in registry order) named exactly name;
  // null for a null name or no match.
  static Structure* structureByName(const char* name);
  // Removes structure and drops the registry's reference, which may delete
  // it. False when it was not registered.
  static bool deregisterStructure(Structure& structure);
  // Deregisters every structure.
  static void deleteAllStructures();

  // Object: count, name, size, members and the default block in hex.
  // Null: the class statistics (type table, registered structures).
  static bool Debug(const Structure* structure, kivo::Debug::Print& print);
  static bool Debug(const Structure* structure, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  friend class StructureIterator;
  friend class Handle;  // reads the current member without a call

  // The names of the members once there are many, for addMember's check.
  struct MemberNames;
  // The registry's set and its index.
  struct Registry;
  static Registry& registry();
  static Registry& indexedRegistry();
  static size_t contentHash(const Structure& structure);
  // Called before a change of name or members.
  void changingRegistered() const;

  void layout();
  void clear();
  bool hasMemberNamed(const char* name);
  void growMembers();

  // fMemberCount members in use, fMemberCapacity in the array.
  std::unique_ptr<Member[]> fMembers;
  std::unique_ptr<MemberNames> fMemberNames;
  mutable std::unique_ptr<char[]> fDefaultData;
  char* fName = nullptr;
  uint64_t fTotalSize = 0;
  uint32_t fMemberCount = 0;
  uint32_t fMemberCapacity = 0;
  bool fBeingDestroyed = false;
  // Set while the registry's index may hold this structure.
  mutable bool fIndexed = false;
  // Byte size of the default block when it was built.
  mutable uint64_t fDefaultSize = 0;
};

}  // namespace Data
}  // namespace kivo
