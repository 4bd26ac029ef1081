#include <kivo/data/kivoDataMember.h>

#include <kivo/support/kivoDebugFootprint.h>

#include <cstring>

#include "support/kivoOwnership.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

struct TypeInfo {
  const char* name;
  unsigned int size;
  unsigned int alignment;
};

constexpr TypeInfo kTypes[] = {
    {"bool", 1, 1},   {"double", 8, 8}, {"dbl4x4", 128, 8}, {"float", 4, 4},
    {"flt4x4", 64, 4}, {"int8", 1, 1},   {"int16", 2, 2},    {"int32", 4, 4},
    {"int64", 8, 8},  {"string", 8, 8}, {"uint8", 1, 1},    {"uint16", 2, 2},
    {"uint32", 4, 4}, {"uint64", 8, 8}, {"invalid", 0, 0},
};

bool validType(Member::eDataType type) {
  return static_cast<unsigned int>(type) < Member::kInvalidType;
}

// True when every one of count values of T equals zero.
template <class T>
bool allZero(const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    T value;
    std::memcpy(&value, values + i * sizeof(T), sizeof(T));
    if (!(value == T(0))) return false;
  }
  return true;
}

}  // namespace

uint64_t Member::_objectsCreated = 0;
uint64_t Member::_objectsAlive = 0;

Member::Member() {
  ++_objectsCreated;
  ++_objectsAlive;
}

Member::Member(eDataType type, unsigned int length, const char* name, uint64_t offset)
    : fType(type), fName(Detail::copyName(name)), fLength(length), fOffset(offset) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Member::Member(const Member& other)
    : fType(other.fType),
      fName(Detail::copyName(other.fName)),
      fLength(other.fLength),
      fOffset(other.fOffset) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Member& Member::operator=(const Member& other) {
  if (this == &other) return *this;
  fType = other.fType;
  fLength = other.fLength;
  fOffset = other.fOffset;
  char* name = Detail::copyName(other.fName);
  Detail::freeName(fName);
  fName = name;
  return *this;
}

Member::~Member() {
  --_objectsAlive;
  Detail::freeName(fName);
  fName = nullptr;
  fLength = 0;
  fOffset = 0;
}

const char* Member::typeName(eDataType type) {
  const unsigned int value = static_cast<unsigned int>(type);
  return kTypes[value > 14u ? 14u : value].name;
}

Member::eDataType Member::typeFromName(const char* name) {
  if (!name) return kInvalidType;
  for (unsigned int value = 0; value <= kInvalidType; ++value) {
    if (std::strcmp(name, kTypes[value].name) == 0) return static_cast<eDataType>(value);
  }
  return kInvalidType;
}

unsigned int Member::typeSize(eDataType type) { return validType(type) ? kTypes[type].size : 0; }

unsigned int Member::typeAlignment(eDataType type) {
  return validType(type) ? kTypes[type].alignment : 0;
}

uint64_t Member::offset(const Member* member, unsigned int i) {
  return member ? member->fOffset + uint64_t(typeSize(member->fType)) * i : 0;
}

bool Member::fillWithDefault(char* block) const {
  if (!validType(fType) || !block) return true;
  std::memset(block + fOffset, 0, size_t(typeSize(fType)) * fLength);
  return true;
}

bool Member::constructDuplicate(char* dst, const char* src) const {
  if (fType != kString || !dst || !src) return true;
  for (unsigned int i = 0; i < fLength; ++i) {
    const char* source;
    std::memcpy(&source, src + offset(this, i), sizeof source);
    char* copy = Detail::copyText(source);
    std::memcpy(dst + offset(this, i), &copy, sizeof copy);
  }
  return true;
}

bool Member::destroy(char* block) const {
  if (!validType(fType)) return false;
  if (fType != kString || !block) return true;
  for (unsigned int i = 0; i < fLength; ++i) {
    char* text;
    std::memcpy(&text, block + offset(this, i), sizeof text);
    Detail::freeText(text);
    text = nullptr;
    std::memcpy(block + offset(this, i), &text, sizeof text);
  }
  return true;
}

bool Member::isDefault(const char* block) const {
  if (!block) return false;
  const char* values = block + fOffset;
  switch (fType) {
    case kBoolean:
    case kInt8:
    case kUInt8:
      return allZero<uint8_t>(values, fLength);
    case kInt16:
    case kUInt16:
      return allZero<uint16_t>(values, fLength);
    case kInt32:
    case kUInt32:
      return allZero<uint32_t>(values, fLength);
    case kInt64:
    case kUInt64:
      return allZero<uint64_t>(values, fLength);
    case kFloat:
      return allZero<float>(values, fLength);
    case kFloatMatrix4x4:
      return allZero<float>(values, fLength * 16);
    case kDouble:
      return allZero<double>(values, fLength);
    case kDoubleMatrix4x4:
      return allZero<double>(values, fLength * 16);
    case kString:
      return allZero<uintptr_t>(values, fLength);
    default:
      return true;
  }
}

bool Member::operator!=(const Member& other) const {
  if (fType != other.fType || fOffset != other.fOffset || fLength != other.fLength) return true;
  if (fName == other.fName) return false;
  if (!fName || !other.fName) return true;
  return std::strcmp(fName, other.fName) != 0;
}

// Debug output

bool Member::Debug(const Member* member, kivo::Debug::Print& print) {
  if (!member) return true;
  Detail::printLine(print, std::string("'") + (member->fName ? member->fName : "") + "' " +
                               typeName(member->fType) + "[" + std::to_string(member->fLength) +
                               "] +" + std::to_string(member->fOffset));
  return true;
}

bool Member::Debug(const Member* member, kivo::Debug::Footprint& footprint) {
  if (!member) return true;
  footprint.addObject(member, sizeof(Member));
  if (member->fName) footprint.addMember(member->fName, std::strlen(member->fName) + 1);
  return true;
}

}  // namespace kivo::Data
