// Handle: a typed cursor onto one element block of a Structure, positioned on
// one member. A handle is empty (no data), views a block owned elsewhere (a
// stream's storage: writes change the stream), or owns a block it destroys
// when it lets it go. Copies never own: a copy views the source's block;
// makeUnique() gives a private deep copy. The iterator part holds a
// reference on the structure (see StructureIterator).
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/data/kivoDataStructureIterator.h>

#include <cstdint>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Structure;

class KIVO_EXPORT Handle : public StructureIterator {
 public:
  // Print filters: "hex" adds the element address and the raw bytes of the
  // member's values, "type" the member's type name.
  static const char* const kDebugHex;
  static const char* const kDebugType;

  // On an empty structure of its own, no data, not owning.
  Handle();
  // On the first member of structure, owning a fresh copy of its defaults
  // (no data for a structure of size 0).
  explicit Handle(const Structure& structure);
  // On the first member of structure, viewing the caller's block.
  Handle(const Structure& structure, void* data);
  // Releases any block this handle owns, then views other's block (never
  // owning it) on other's structure and member. Assigning a handle that views
  // the very block this one owns keeps it owned here, rather than freeing
  // the block both would then point at.
  Handle(const Handle& other);
  Handle& operator=(const Handle& other);
  // Releases an owned block (strings freed, bytes freed).
  ~Handle();

  // Moves to member index; false, at the end, when there is no such member.
  bool setPositionByMemberIndex(unsigned int index) {
    if (this->index() == index && index < structure().memberCount()) return true;
    return setIndex(index);
  }
  // Moves to the member named exactly name; false for a null name (position
  // kept) or no match (at the end).
  bool setPositionByMemberName(const char* name);

  // Releases any block this handle owns, then points at data, owning it when
  // takeOwnership is set. Pointing again at the block it owns keeps it owned.
  void pointToData(char* data, bool takeOwnership);
  // Replaces a viewed block by a private deep copy and owns it. False when
  // the handle already owns its block.
  bool makeUnique();
  bool hasData() const { return fData != nullptr; }
  // The element block (null without data); owned by this handle only when
  // it says so in makeUnique()/pointToData() terms.
  char* data() const { return fData; }
  // Exchanges structure, position, data and ownership.
  void swap(Handle& other) noexcept;
  // True when the handle's structure is that very object.
  bool usesStructure(const Structure& structure) const;

  // Type and length of the current member; throw std::out_of_range("Member")
  // at the end.
  Member::eDataType dataType() const;
  unsigned int dataLength() const;
  // The structure's default tests on this block; false without data.
  bool isDefault() const;
  bool isDefaultMember(const char* name) const;

  // The first value of the current member inside the block; null without
  // data, at the end, or when type is not the member's type. Never converts
  // and never throws. The typed forms point at dataLength() values (sixteen
  // per value for the matrices). String pointers are owned by the block,
  // allocated like strdup() and released with free(): a caller may free()
  // a value and store its own strdup()ed text (or null) in its place, which
  // the block then owns.
  void* asType(Member::eDataType type) const {
    const Member* member = currentMember();
    if (!fData || !member || Member::type(member) != type) return nullptr;
    return fData + Member::offset(member);
  }
  bool* asBoolean() const { return static_cast<bool*>(asType(Member::kBoolean)); }
  double* asDouble() const { return static_cast<double*>(asType(Member::kDouble)); }
  double* asDoubleMatrix4x4() const {
    return static_cast<double*>(asType(Member::kDoubleMatrix4x4));
  }
  float* asFloat() const { return static_cast<float*>(asType(Member::kFloat)); }
  float* asFloatMatrix4x4() const { return static_cast<float*>(asType(Member::kFloatMatrix4x4)); }
  int8_t* asInt8() const { return static_cast<int8_t*>(asType(Member::kInt8)); }
  int16_t* asInt16() const { return static_cast<int16_t*>(asType(Member::kInt16)); }
  int32_t* asInt32() const { return static_cast<int32_t*>(asType(Member::kInt32)); }
  int64_t* asInt64() const { return static_cast<int64_t*>(asType(Member::kInt64)); }
  char** asString() const { return static_cast<char**>(asType(Member::kString)); }
  uint8_t* asUInt8() const { return static_cast<uint8_t*>(asType(Member::kUInt8)); }
  uint16_t* asUInt16() const { return static_cast<uint16_t*>(asType(Member::kUInt16)); }
  uint32_t* asUInt32() const { return static_cast<uint32_t*>(asType(Member::kUInt32)); }
  uint64_t* asUInt64() const { return static_cast<uint64_t*>(asType(Member::kUInt64)); }

  // The text of value index of the current member, in the classic locale.
  // Never fails: without data the type's fallback ("false", "0.0", "0", ""),
  // "" for an index beyond the member (or at the end), "?" for an unknown
  // type.
  std::string str(unsigned int index) const;
  // Reads value index of the current member from value. Returns the number
  // of errors (0: stored) and appends one line per error, each ending in a
  // newline, to errors. Never throws; a failed parse leaves the value as it
  // was, except that the good entries of a matrix are stored. A string is
  // stored verbatim and replaces (frees) the previous string.
  unsigned int fromStr(const std::string& value, unsigned int index, std::string& errors);

  // Writes the values on the current line (no newline): with "type" the type
  // name first, then "N elements: [ v0 v1 ... ]" or "[]"; with "hex" the
  // block address and the raw bytes of each value. Null prints nothing.
  // Returns true.
  static bool Debug(const Handle* handle, kivo::Debug::Print& print);
  // The handle object, and the block when it owns one.
  static bool Debug(const Handle* handle, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  void releaseData();
  // The member the handle is on; null at the end.
  const Member* currentMember() const {
    const Structure& layout = structure();
    const unsigned int position = index();
    return position < layout.fMemberCount ? &layout.fMembers[position] : nullptr;
  }

  char* fData = nullptr;
  bool fOwnsData = false;
};

}  // namespace Data
}  // namespace kivo
