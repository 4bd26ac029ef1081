// Member: one field of a Structure: a name, one of fourteen plain data types,
// a length (how many values of that type the field holds) and the byte
// offset of the field inside one element block. Also the type table (names,
// sizes, alignments) and the per-type rules for defaults, string duplication,
// destruction and the default test. Members are built and placed by their
// Structure.
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Structure;

class KIVO_EXPORT Member {
 public:
  // The fixed type order: tables and debug output use these numbers.
  enum eDataType : uint32_t {
    kBoolean = 0,
    kDouble = 1,
    kDoubleMatrix4x4 = 2,
    kFloat = 3,
    kFloatMatrix4x4 = 4,
    kInt8 = 5,
    kInt16 = 6,
    kInt32 = 7,
    kInt64 = 8,
    kString = 9,
    kUInt8 = 10,
    kUInt16 = 11,
    kUInt32 = 12,
    kUInt64 = 13,
    kInvalidType = 14
  };
  // The offset of a member the structure has not placed yet.
  static constexpr uint64_t kUnplaced = 0xFFFFFFFFu;

  // Null name, length 0, offset 0.
  Member();
  // A member of the given type and length, with a copy of name, at offset
  // (not placed yet by default: the structure lays it out).
  Member(eDataType type, unsigned int length, const char* name, uint64_t offset = kUnplaced);
  // Same type, length, offset and a copy of the name (null stays null).
  Member(const Member& other);
  // Copies type, length and offset and replaces the name by a fresh copy of
  // the source's name.
  Member& operator=(const Member& other);
  ~Member();

  // Type table. typeName of a value above 14 is "invalid"; typeFromName is
  // exact and case-sensitive, kInvalidType when nothing matches; size and
  // alignment of a value above 13 are 0.
  static const char* typeName(eDataType type);
  static eDataType typeFromName(const char* name);
  static unsigned int typeSize(eDataType type);
  static unsigned int typeAlignment(eDataType type);

  // Accessors that accept null (the result of a failed lookup).
  static eDataType type(const Member* member) {  // kInvalidType for null
    return member ? member->fType : kInvalidType;
  }
  static const char* name(const Member* member) {  // null for null
    return member ? member->fName : nullptr;
  }
  static unsigned int length(const Member* member) {  // 0 for null
    return member ? member->fLength : 0;
  }
  static uint64_t offset(const Member* member) {  // 4294967295 for null
    return member ? member->fOffset : kUnplaced;
  }
  // Offset of value i of the field: offset + type size * i; 0 for null. No
  // bound check on i.
  static uint64_t offset(const Member* member, unsigned int i);

  // Writes all-zero defaults into every value of the field. Returns true.
  bool fillWithDefault(char* block) const;
  // For strings, stores fresh copies of src's strings in dst (the caller has
  // already copied the block bytewise). String values are always made like
  // strdup() (malloc) and released with free(). Returns true.
  bool constructDuplicate(char* dst, const char* src) const;
  // For strings, frees each string with free() and nulls its pointer. False
  // only for a type above 13.
  bool destroy(char* block) const;
  // True when every value equals its default. NaN is not default, -0.0 is;
  // an allocated "" string is not. False for a null block.
  bool isDefault(const char* block) const;

  // Equal when type, offset, length and name are equal (a null name equals
  // only a null name).
  bool operator!=(const Member& other) const;
  bool operator==(const Member& other) const { return !(*this != other); }

  // One line: 'Name' type[length] +offset. Null prints nothing.
  static bool Debug(const Member* member, kivo::Debug::Print& print);
  static bool Debug(const Member* member, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  friend class Structure;

  eDataType fType = kInvalidType;
  char* fName = nullptr;
  uint32_t fLength = 0;
  uint64_t fOffset = 0;
};

}  // namespace Data
}  // namespace kivo
