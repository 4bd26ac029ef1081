#include <kivo/data/kivoDataStructure.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoOwnership.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr unsigned int kBytesPerLine = 16;

uint64_t roundUp(uint64_t value, uint64_t alignment) {
  return alignment > 1 ? (value + alignment - 1) / alignment * alignment : value;
}

bool sameName(const char* a, const char* b) {
  if (a == b) return true;
  return a && b && std::strcmp(a, b) == 0;
}

// One line of the default block dump: sixteen "%02x" bytes separated by a
// blank, two further blanks after the eighth, "--" beyond the block's end.
std::string hexLine(const unsigned char* bytes, uint64_t available) {
  std::string line;
  char text[3];
  for (unsigned int i = 0; i < kBytesPerLine; ++i) {
    if (i > 0) line += (i == kBytesPerLine / 2) ? "   " : " ";
    if (i < available) {
      std::snprintf(text, sizeof text, "%02x", bytes[i]);
      line += text;
    } else {
      line += "--";
    }
  }
  return line;
}

// A block of size bytes that deletes itself unless released.
std::unique_ptr<char[]> newBlock(uint64_t size) { return std::unique_ptr<char[]>(new char[size]); }

// From this many members on, a repeated name is looked up in an index
// rather than by walking the members.
constexpr uint32_t kIndexedMembers = 32;

}  // namespace

struct Structure::MemberNames {
  // Views of the members' own name strings, which stay where they are when
  // the member array grows.
  std::unordered_set<std::string_view> names;
};

const char* const Structure::kDefaultName = "structure";

uint64_t Structure::_objectsCreated = 0;
uint64_t Structure::_objectsAlive = 0;

Structure* Structure::create() { return new Structure(); }

Structure::Structure() : Structure(nullptr) {}

// The counters move only once nothing can throw any more.
Structure::Structure(const char* name) {
  objectChanged();
  setName(name);
  ++_objectsCreated;
  ++_objectsAlive;
}

Structure::Structure(const Structure& other) : RefCounted(other), Checkpointed(other) {
  fName = Detail::copyName(kDefaultName);
  try {
    *this = other;
  } catch (...) {
    // No destructor runs for an object whose constructor throws.
    Detail::freeName(fName);
    throw;
  }
  ++_objectsCreated;
  ++_objectsAlive;
}

Structure& Structure::operator=(const Structure& other) {
  if (this == &other) return *this;
  changingRegistered();
  objectChanged();
  fBeingDestroyed = other.fBeingDestroyed;
  std::unique_ptr<Member[]> members(other.fMemberCount ? new Member[other.fMemberCount] : nullptr);
  for (uint32_t i = 0; i < other.fMemberCount; ++i) members[i] = other.fMembers[i];
  std::unique_ptr<char[]> defaults;
  if (other.fDefaultData && other.fTotalSize != 0) {
    defaults = newBlock(other.fDefaultSize);
    std::memcpy(defaults.get(), other.fDefaultData.get(), other.fDefaultSize);
  }
  setName(other.fName);
  clear();
  fMembers = std::move(members);
  fMemberCount = other.fMemberCount;
  fMemberCapacity = other.fMemberCount;
  fTotalSize = other.fTotalSize;
  fDefaultData = std::move(defaults);
  fDefaultSize = fDefaultData ? other.fDefaultSize : 0;
  layout();
  return *this;
}

Structure::~Structure() {
  --_objectsAlive;
  objectChanged();
  fBeingDestroyed = true;
  clear();
  Detail::freeName(fName);
  fName = nullptr;
}

void Structure::setName(const char* name) {
  changingRegistered();
  objectChanged();
  char* copy = Detail::copyName(name ? name : kDefaultName);
  Detail::freeName(fName);
  fName = copy;
}

bool Structure::operator==(const Structure& other) const {
  if (this == &other) return true;
  if (!sameName(fName, other.fName) || fTotalSize != other.fTotalSize ||
      fMemberCount != other.fMemberCount)
    return false;
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    if (fMembers[i] != other.fMembers[i]) return false;
  }
  return true;
}

bool Structure::addMember(Member::eDataType type, unsigned int length, const char* name) {
  if (type >= Member::kInvalidType || length == 0 || !name || !*name) return false;
  if (hasMemberNamed(name)) return false;
  // The layout arithmetic is 32-bit: a field that does not fit, or an element
  // past the size limit, would make every later block copy overrun.
  const uint64_t bytes = uint64_t(Member::typeSize(type)) * length;
  if (bytes > 0xFFFFFFFFu) return false;
  uint64_t end = 0;
  if (fMemberCount > 0) {
    const Member& last = fMembers[fMemberCount - 1];
    end = last.fOffset + uint64_t(Member::typeSize(last.fType)) * last.fLength;
  }
  const uint64_t offset = fMemberCount ? roundUp(end, Member::typeAlignment(type)) : 0;
  const Member::eDataType first = fMemberCount ? fMembers[0].fType : type;
  if (roundUp(offset + bytes, Member::typeAlignment(first)) > kMaxElementSize) return false;

  // Everything that allocates comes before the first change.
  Member added(type, length, name, offset);
  if (fMemberCount == fMemberCapacity) growMembers();
  if (fMemberNames) fMemberNames->names.insert(added.fName);
  changingRegistered();
  objectChanged();
  Member& slot = fMembers[fMemberCount];
  slot.fType = added.fType;
  slot.fLength = added.fLength;
  slot.fOffset = added.fOffset;
  std::swap(slot.fName, added.fName);
  ++fMemberCount;
  fTotalSize = roundUp(offset + bytes, Member::typeAlignment(first));
  return true;
}

// True when a member has this name: the members are walked while they are
// few; from kIndexedMembers on, the index answers (built on first need).
bool Structure::hasMemberNamed(const char* name) {
  if (fMemberCount < kIndexedMembers) {
    for (uint32_t i = 0; i < fMemberCount; ++i) {
      if (std::strcmp(fMembers[i].fName, name) == 0) return true;
    }
    return false;
  }
  if (!fMemberNames) {
    std::unique_ptr<MemberNames> index(new MemberNames);
    index->names.reserve(fMemberCount * 2);
    for (uint32_t i = 0; i < fMemberCount; ++i) index->names.insert(fMembers[i].fName);
    fMemberNames = std::move(index);
  }
  return fMemberNames->names.count(name) > 0;
}

// Doubles the member array; the members move over with their own names.
void Structure::growMembers() {
  const uint32_t capacity = fMemberCapacity ? fMemberCapacity * 2 : 4;
  std::unique_ptr<Member[]> members(new Member[capacity]);
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    Member& from = fMembers[i];
    Member& to = members[i];
    to.fType = from.fType;
    to.fLength = from.fLength;
    to.fOffset = from.fOffset;
    std::swap(to.fName, from.fName);
  }
  fMembers = std::move(members);
  fMemberCapacity = capacity;
}

uint64_t Structure::totalSize() const {
  if (fTotalSize == 0 && fMemberCount > 0) const_cast<Structure*>(this)->layout();
  return fTotalSize;
}

const char* Structure::defaultData() const {
  if (!fDefaultData) {
    const uint64_t size = totalSize();
    if (size == 0) return nullptr;
    std::unique_ptr<char[]> block = newBlock(size);
    fillWithDefaultChunk(block.get());
    fDefaultData = std::move(block);
    fDefaultSize = size;
  }
  return fDefaultData.get();
}

const char* Structure::sharedDefaultElement() const {
  const char* defaults = defaultData();
  return defaults && fDefaultSize >= totalSize() ? defaults : nullptr;
}

bool Structure::fillWithDefaultChunk(char* block) const {
  if (!block) return false;
  std::memset(block, 0, totalSize());
  for (uint32_t i = 0; i < fMemberCount; ++i) fMembers[i].fillWithDefault(block);
  return true;
}

// The default block keeps the size it was built with; members added since
// then get their defaults from fillWithDefaultChunk.
char* Structure::allocateDefaultChunk() const {
  const char* defaults = defaultData();
  const uint64_t size = totalSize();
  if (!defaults || size == 0) return nullptr;
  std::unique_ptr<char[]> block = newBlock(size);
  fillWithDefaultChunk(block.get());
  std::memcpy(block.get(), defaults, std::min(size, fDefaultSize));
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    const Member& member = fMembers[i];
    const uint64_t end = Member::offset(&member, member.fLength);
    if (end <= fDefaultSize) member.constructDuplicate(block.get(), defaults);
  }
  return block.release();
}

// String pointers copied bytewise are nulled before the deep copies are
// made, so that a failure half-way never leaves dst sharing src's strings.
bool Structure::fillWithDuplicateChunk(char* dst, const char* src) const {
  if (!dst || !src) return false;
  std::memcpy(dst, src, totalSize());
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    if (fMembers[i].fType == Member::kString) fMembers[i].fillWithDefault(dst);
  }
  for (uint32_t i = 0; i < fMemberCount; ++i) fMembers[i].constructDuplicate(dst, src);
  return true;
}

char* Structure::duplicateChunk(const char* src) const {
  const uint64_t size = totalSize();
  if (!src || size == 0) return nullptr;
  std::unique_ptr<char[]> block = newBlock(size);
  std::memset(block.get(), 0, size);
  try {
    fillWithDuplicateChunk(block.get(), src);
  } catch (...) {
    destroyChunk(block.get());
    throw;
  }
  return block.release();
}

bool Structure::destroyChunk(char* block) const {
  if (!block) return true;
  for (uint32_t i = 0; i < fMemberCount; ++i) fMembers[i].destroy(block);
  return true;
}

bool Structure::chunkMemberIsDefault(const char* block, const char* memberName) const {
  if (!block) return false;
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    const Member& member = fMembers[i];
    if (memberName && std::strcmp(member.fName, memberName) != 0) continue;
    if (!member.isDefault(block)) return false;
  }
  return true;
}

StructureIterator Structure::begin() const { return StructureIterator(*this, kBegin); }

StructureIterator Structure::end() const { return StructureIterator(*this, kEnd); }

// The registry: the set callers see and, beside it, an index of it by name
// that registration and lookup use, so that each costs about one step
// whatever the number of structures. The index is rebuilt from the set when
// the set may have been changed without it: after allStructures() handed it
// out, when its size no longer matches, or when a structure the index holds
// changes its name or members.
struct Structure::Registry {
  struct ContentHash {
    size_t operator()(const Structure* structure) const { return contentHash(*structure); }
  };
  struct SameContent {
    bool operator()(const Structure* a, const Structure* b) const { return *a == *b; }
  };
  using Contents = std::unordered_multiset<Structure*, ContentHash, SameContent>;

  // The registered structures of one name: the first in the set's order
  // apart, the others (rarely any) in order and, once there are others,
  // all of them hashed by members as well, for the equality test.
  struct Named {
    bool holdsEqual(Structure* structure) const {
      if (contents) return contents->count(structure) > 0;
      return first && *first == *structure;
    }
    void add(Structure* structure) {
      if (!first) {
        first = structure;
        return;
      }
      if (!contents) {
        contents = std::make_unique<Contents>();
        contents->insert(first);
      }
      contents->insert(structure);
      if (std::less<Structure*>()(structure, first)) {
        others.insert(first);
        first = structure;
      } else {
        others.insert(structure);
      }
    }
    // True when none is left.
    bool remove(Structure* structure) {
      if (contents) {
        const auto range = contents->equal_range(structure);
        for (auto it = range.first; it != range.second; ++it) {
          if (*it == structure) {
            contents->erase(it);
            break;
          }
        }
      }
      if (structure != first) {
        others.erase(structure);
      } else if (others.empty()) {
        first = nullptr;
      } else {
        first = *others.begin();
        others.erase(others.begin());
      }
      return !first;
    }

    Structure* first = nullptr;
    StructureSet others;
    std::unique_ptr<Contents> contents;
  };

  ~Registry() {
    byName.clear();
    StructureSet structures;
    structures.swap(set);
    for (Structure* structure : structures) structure->unref();
  }

  void index(Structure* structure) {
    byName[structure->fName].add(structure);
    structure->fIndexed = true;
    ++indexed;
  }
  // Erases structure from the index, which must be current.
  void unindex(Structure* structure) {
    structure->fIndexed = false;
    --indexed;
    const auto named = byName.find(structure->fName);
    if (named != byName.end() && named->second.remove(structure)) byName.erase(named);
  }
  void clearIndex() {
    stale = true;
    byName.clear();
    indexed = 0;
  }

  StructureSet set;
  std::unordered_map<std::string, Named> byName;
  size_t indexed = 0;
  bool stale = false;
};

Structure::Registry& Structure::registry() {
  static Registry registry;
  return registry;
}

// The registry with its index current.
Structure::Registry& Structure::indexedRegistry() {
  Registry& r = registry();
  if (!r.stale && r.indexed == r.set.size()) return r;
  r.clearIndex();
  r.byName.reserve(r.set.size());
  for (Structure* structure : r.set) r.index(structure);
  r.stale = false;
  return r;
}

// Name, member count and every member's type, length, offset and name:
// equal structures hash alike.
size_t Structure::contentHash(const Structure& structure) {
  size_t hash = std::hash<std::string_view>()(structure.fName ? structure.fName : "");
  const auto mix = [&hash](size_t value) {
    hash ^= value + 0x9e3779b97f4a7c15ull + (hash << 6) + (hash >> 2);
  };
  mix(structure.fMemberCount);
  for (uint32_t i = 0; i < structure.fMemberCount; ++i) {
    const Member& member = structure.fMembers[i];
    mix(member.fType);
    mix(member.fLength);
    mix(member.fOffset);
    mix(std::hash<std::string_view>()(member.fName ? member.fName : ""));
  }
  return hash;
}

// A structure the index may hold is about to change its name or members:
// the index is rebuilt before it is used again. (A structure taken out of
// the set directly keeps its mark; its next change costs one rebuild.)
void Structure::changingRegistered() const {
  if (fIndexed) registry().stale = true;
}

Structure::StructureSet& Structure::allStructures() {
  Registry& r = registry();
  r.stale = true;  // the caller may change the set
  return r.set;
}

bool Structure::registerStructure(Structure& structure) {
  Registry& r = indexedRegistry();
  // With the index current, only a marked structure can be in the set.
  if (structure.fIndexed && r.set.count(&structure) > 0) return false;
  const auto named = r.byName.try_emplace(structure.fName).first;
  if (named->second.holdsEqual(&structure)) return false;
  try {
    // Structures made one after another mostly come at rising addresses:
    // the end is then the place, found without a search.
    r.set.insert(r.set.end(), &structure);
    named->second.add(&structure);
  } catch (...) {
    r.set.erase(&structure);
    r.stale = true;
    throw;
  }
  structure.fIndexed = true;
  ++r.indexed;
  structure.ref();
  return true;
}

Structure* Structure::structureByName(const char* name) {
  if (!name) return nullptr;
  Registry& r = indexedRegistry();
  const auto named = r.byName.find(name);
  return named == r.byName.end() ? nullptr : named->second.first;
}

bool Structure::deregisterStructure(Structure& structure) {
  Registry& r = indexedRegistry();
  // The set is asked first: a structure that is not in it is not touched.
  if (r.set.erase(&structure) == 0) return false;
  r.unindex(&structure);
  structure.unref();
  return true;
}

// In the set's order, as deregistering the first structure until none is
// left would; the index goes at once.
void Structure::deleteAllStructures() {
  Registry& r = registry();
  r.clearIndex();
  while (!r.set.empty()) {
    Structure* first = *r.set.begin();
    r.set.erase(r.set.begin());
    first->fIndexed = false;
    first->unref();
  }
  r.stale = false;
}

// Layout: a member not placed yet goes to offset 0 when it is the first, else
// to the running end rounded up to its own type's alignment; placed members
// keep their offsets. The total is the running end rounded up to the first
// member's alignment.
void Structure::layout() {
  if (fMemberCount == 0) {
    fTotalSize = 0;
    return;
  }
  bool haveEnd = false;
  uint64_t end = 0;
  for (uint32_t i = 0; i < fMemberCount; ++i) {
    Member& member = fMembers[i];
    if (member.fOffset == Member::kUnplaced) {
      member.fOffset = haveEnd ? roundUp(end, Member::typeAlignment(member.fType)) : 0;
    }
    end = member.fOffset + uint32_t(Member::typeSize(member.fType) * member.fLength);
    haveEnd = true;
  }
  fTotalSize = roundUp(end, Member::typeAlignment(fMembers[0].fType));
}

// Frees the default block (with any strings in it) and the members.
void Structure::clear() {
  if (fDefaultData) {
    for (uint32_t i = 0; i < fMemberCount; ++i) {
      const Member& member = fMembers[i];
      if (Member::offset(&member, member.fLength) <= fDefaultSize) member.destroy(fDefaultData.get());
    }
  }
  fDefaultData.reset();
  fDefaultSize = 0;
  fMemberNames.reset();
  fMembers.reset();
  fMemberCount = 0;
  fMemberCapacity = 0;
  fTotalSize = 0;
}

// Debug output

bool Structure::Debug(const Structure* structure, kivo::Debug::Print& print) {
  if (!structure) {
    print.beginSection("kivo::Data::Structure Static Data");
    Detail::printLine(print, std::string("Default structure name = ") + kDefaultName);
    print.beginSection("Recognized Data Types");
    for (unsigned int value = 0; value < Member::kInvalidType; ++value) {
      const auto type = static_cast<Member::eDataType>(value);
      Detail::printLine(print, "[" + std::to_string(value) + "] = " + Member::typeName(type) +
                                   ", size = " + std::to_string(Member::typeSize(type)) +
                                   "bytes, alignment = " +
                                   std::to_string(Member::typeAlignment(type)) + "bytes");
    }
    Detail::printLine(print, "[" + std::to_string(unsigned(Member::kInvalidType)) + "] = " +
                                 Member::typeName(Member::kInvalidType));
    print.endSection();
    const StructureSet& structures = registry().set;
    if (structures.empty()) {
      Detail::printLine(print, "No registered structures");
    } else {
      print.beginSection("Registered Structures");
      unsigned int position = 0;
      for (const Structure* registered : structures) {
        const std::string heading = "Structure[" + std::to_string(position++) + "]";
        if (!registered) {
          Detail::printLine(print, heading + " = NULL");
          continue;
        }
        print.beginSection(heading.c_str());
        Debug(registered, print);
        print.endSection();
      }
      print.endSection();
    }
    print.endSection();
    return true;
  }

  RefCounted::Debug(structure, print);
  Detail::printLine(print, std::string("Structure '") + structure->fName + "'");
  Detail::printLine(print, "Total Size = " + std::to_string(structure->fTotalSize));
  print.beginSection("Member List");
  for (uint32_t i = 0; i < structure->fMemberCount; ++i) {
    print.doIndent() << "Member[" << i << "] = ";
    print.skipNextIndent(true);
    Member::Debug(&structure->fMembers[i], print);
  }
  print.endSection();
  if (!structure->fDefaultData) {
    Detail::printLine(print, "No default values provided");
    return true;
  }
  print.beginSection("Default Value Memory Block");
  const auto* bytes = reinterpret_cast<const unsigned char*>(structure->fDefaultData.get());
  for (uint64_t start = 0; start < structure->fDefaultSize; start += kBytesPerLine) {
    Detail::printLine(print, hexLine(bytes + start, structure->fDefaultSize - start));
  }
  print.endSection();
  return true;
}

bool Structure::Debug(const Structure* structure, kivo::Debug::Footprint& footprint) {
  if (!structure) return true;
  footprint.addObject(structure, sizeof(Structure));
  if (structure->fName) footprint.addMember(structure->fName, std::strlen(structure->fName) + 1);
  if (structure->fMemberCount > 0) {
    footprint.addMember(structure->fMembers.get(), sizeof(Member) * structure->fMemberCapacity);
    for (uint32_t i = 0; i < structure->fMemberCount; ++i) {
      const char* name = Member::name(&structure->fMembers[i]);
      if (name) footprint.addMember(name, std::strlen(name) + 1);
    }
  }
  if (structure->fDefaultData) {
    footprint.addMember(structure->fDefaultData.get(), structure->fDefaultSize);
  }
  return true;
}

}  // namespace kivo::Data
