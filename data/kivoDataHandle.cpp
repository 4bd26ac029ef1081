#include <kivo/data/kivoDataHandle.h>

#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoFastText.h"
#include "support/kivoMessages.h"
#include "support/kivoOwnership.h"

namespace kivo::Data {
namespace {

// "Data not recognized as a " + word, by type.
constexpr const char* kDataWords[] = {
    "boolean", "double", "double matrix", "float",  "float matrix", "Int8",   "Int16",
    "Int32",   "Int64",  "String",        "UInt8",  "UInt16",       "UInt32", "UInt64"};
constexpr char kBooleanHint[] = "'. Use 't', 'true', '1', 'f', 'false', '0' only.";
constexpr const char* kTrueWords[] = {"1", "t", "T", "true", "True"};
constexpr const char* kFalseWords[] = {"0", "f", "F", "false", "False"};
constexpr unsigned int kMatrixSide = 4;
constexpr unsigned int kMatrixEntries = kMatrixSide * kMatrixSide;

// Values inside a block may sit at any address (element sizes are rounded to
// the first member's alignment only), so they are copied, never dereferenced.
template <class T>
T load(const char* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

template <class T>
void store(char* address, T value) {
  std::memcpy(address, &value, sizeof value);
}

// What a classic stream in its default state writes: six significant digits.
std::string numberText(double value) {
  char buffer[Detail::kNumberBuffer];
  return std::string(buffer, Detail::formatGeneral(buffer, value, 6));
}

// Sixteen entries in storage order, separated by one blank; "0.0" each
// without data.
template <class T>
std::string matrixText(const char* values) {
  std::string text;
  for (unsigned int i = 0; i < kMatrixEntries; ++i) {
    if (i > 0) text += ' ';
    text += values ? numberText(static_cast<double>(load<T>(values + i * sizeof(T)))) : "0.0";
  }
  return text;
}

std::string stringText(const char* first, const char* value) {
  if (!first || !value) return "";
  const char* text = load<const char*>(value);
  return text ? text : "";
}

// The read position after an attempt, plus one; a failed stream reports -1.
long long positionAfter(std::istream& in) { return static_cast<long long>(in.tellg()) + 1; }

// True when a value read as Wide is a finite value of, or fits in, T.
template <class T, class Wide>
bool fits(Wide value) {
  if constexpr (std::is_floating_point_v<T>) {
    return value <= std::numeric_limits<T>::max() && value >= -std::numeric_limits<T>::max();
  } else if constexpr (sizeof(T) == sizeof(Wide)) {
    return true;
  } else if constexpr (std::is_signed_v<T>) {
    return value >= std::numeric_limits<T>::min() && value <= std::numeric_limits<T>::max();
  } else {
    return value <= std::numeric_limits<T>::max();
  }
}

// One number read as Wide and stored as T: 0, or 1 with "<word> value on or
// about character N is invalid".
template <class T, class Wide>
unsigned int readNumber(std::istream& in, char* target, const char* word, std::string& lines) {
  Wide value{};
  in >> value;
  if (!in.fail() && fits<T>(value)) {
    store<T>(target, static_cast<T>(value));
    return 0;
  }
  lines += std::string(word) + " value" + Detail::onOrAbout(positionAfter(in)) + " is invalid\n";
  return 1;
}

bool isBlank(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

const char* skipSpace(const std::string& text) {
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p < end && Detail::isClassicSpace(*p)) ++p;
  return p;
}

// A number in strict form (after leading whitespace, up to whitespace or
// the end) read without a stream and stored as T; false, storing nothing,
// leaves the text to the stream code, which then gives the same result or
// the message.
template <class T, class Wide>
bool storeStrictNumber(const std::string& text, char* target) {
  Wide value{};
  const char* p = skipSpace(text);
  if (!Detail::parseStrict(p, text.data() + text.size(), value) || !fits<T>(value)) return false;
  store<T>(target, static_cast<T>(value));
  return true;
}

bool isOneOf(const char* word, size_t length, const char* const (&words)[5]);

// A boolean word stored without a stream; false for anything that is not
// one of the accepted words.
bool storeBooleanWord(const std::string& text, char* target) {
  const char* p = skipSpace(text);
  const char* const end = text.data() + text.size();
  const char* last = p;
  while (last < end && !Detail::isClassicSpace(*last)) ++last;
  const size_t length = static_cast<size_t>(last - p);
  if (isOneOf(p, length, kTrueWords)) {
    store<uint8_t>(target, 1);
  } else if (isOneOf(p, length, kFalseWords)) {
    store<uint8_t>(target, 0);
  } else {
    return false;
  }
  return true;
}

// The value in strict form stored without a stream; false when the stream
// code has to read it. Matrices always go to the stream code.
bool storeStrict(Member::eDataType type, const std::string& text, char* target) {
  if (Detail::streamTextOnly()) return false;
  switch (type) {
    case Member::kBoolean:
      return storeBooleanWord(text, target);
    case Member::kDouble:
      return storeStrictNumber<double, double>(text, target);
    case Member::kFloat:
      return storeStrictNumber<float, float>(text, target);
    case Member::kInt8:
      return storeStrictNumber<int8_t, int>(text, target);
    case Member::kInt16:
      return storeStrictNumber<int16_t, int>(text, target);
    case Member::kInt32:
      return storeStrictNumber<int32_t, int>(text, target);
    case Member::kInt64:
      return storeStrictNumber<int64_t, long long>(text, target);
    case Member::kUInt8:
      return storeStrictNumber<uint8_t, unsigned int>(text, target);
    case Member::kUInt16:
      return storeStrictNumber<uint16_t, unsigned int>(text, target);
    case Member::kUInt32:
      return storeStrictNumber<uint32_t, unsigned int>(text, target);
    case Member::kUInt64:
      return storeStrictNumber<uint64_t, unsigned long long>(text, target);
    default:
      return false;
  }
}

// Drops what is left of a word that failed to read, so that the next entry
// starts after it.
void skipRestOfWord(std::istream& in) {
  for (int c = in.peek(); c != std::char_traits<char>::eof() && !isBlank(c); c = in.peek()) {
    in.get();
  }
  in.clear();
}

// Sixteen entries, row after row; each bad one is reported on its own line
// and skipped, good ones are stored. Returns the number of bad entries.
template <class T>
unsigned int readMatrix(std::istream& in, char* target, const char* word, std::string& lines) {
  in >> std::skipws;
  unsigned int errors = 0;
  for (unsigned int row = 0; row < kMatrixSide; ++row) {
    for (unsigned int column = 0; column < kMatrixSide; ++column) {
      T value{};
      in >> value;
      if (!in.fail() && fits<T>(value)) {
        store<T>(target + (row * kMatrixSide + column) * sizeof(T), value);
        continue;
      }
      lines += std::string(word) + Detail::onOrAbout(positionAfter(in)) +
               " has invalid value at row " + std::to_string(row) + ", column " +
               std::to_string(column) + "\n";
      ++errors;
      in.clear();
      skipRestOfWord(in);
    }
  }
  return errors;
}

bool isOneOf(const char* word, size_t length, const char* const (&words)[5]) {
  for (const char* candidate : words) {
    if (std::strlen(candidate) == length && std::memcmp(word, candidate, length) == 0)
      return true;
  }
  return false;
}

bool isOneOf(const std::string& word, const char* const (&words)[5]) {
  return isOneOf(word.data(), word.size(), words);
}

unsigned int readBoolean(std::istream& in, char* target, std::string& lines) {
  std::string word;
  in >> word;
  if (isOneOf(word, kTrueWords) || isOneOf(word, kFalseWords)) {
    store<uint8_t>(target, isOneOf(word, kTrueWords) ? 1 : 0);
    return 0;
  }
  lines += "Boolean" + Detail::onOrAbout(positionAfter(in)) + " has invalid value '" + word +
           kBooleanHint + "\n";
  return 1;
}

// Stores a fresh copy of text and frees the string it replaces.
void storeString(char* target, const std::string& text) {
  char* copy = Detail::copyText(text.c_str());
  Detail::freeText(load<char*>(target));
  store<char*>(target, copy);
}

}  // namespace

const char* const Handle::kDebugHex = "hex";
const char* const Handle::kDebugType = "type";

uint64_t Handle::_objectsCreated = 0;
uint64_t Handle::_objectsAlive = 0;

Handle::Handle() {
  ++_objectsCreated;
  ++_objectsAlive;
}

Handle::Handle(const Structure& structure)
    : StructureIterator(structure, kBegin), fData(structure.allocateDefaultChunk()) {
  ++_objectsCreated;
  ++_objectsAlive;
  fOwnsData = fData != nullptr;
}

Handle::Handle(const Structure& structure, void* data)
    : StructureIterator(structure, kBegin), fData(static_cast<char*>(data)) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Handle::Handle(const Handle& other) : StructureIterator(other), fData(other.fData) {
  ++_objectsCreated;
  ++_objectsAlive;
}

// A block this handle owns and other merely views stays owned here:
// releasing it would leave both handles pointing at freed memory.
Handle& Handle::operator=(const Handle& other) {
  if (this == &other) return *this;
  if (!(fOwnsData && fData == other.fData)) releaseData();
  StructureIterator::operator=(other);
  fData = other.fData;
  return *this;
}

Handle::~Handle() {
  --_objectsAlive;
  releaseData();
}

bool Handle::setPositionByMemberName(const char* name) {
  if (!name) return false;
  if (valid() && std::strcmp(Member::name(&**this), name) == 0) return true;
  for (setIndex(0); valid(); ++*this) {
    if (std::strcmp(Member::name(&**this), name) == 0) return true;
  }
  return false;
}

void Handle::pointToData(char* data, bool takeOwnership) {
  if (data && data == fData) {
    fOwnsData = fOwnsData || takeOwnership;
    return;
  }
  releaseData();
  fData = data;
  fOwnsData = data && takeOwnership;
}

bool Handle::makeUnique() {
  if (fOwnsData) return false;
  fData = structure().duplicateChunk(fData);
  fOwnsData = fData != nullptr;
  return true;
}

void Handle::swap(Handle& other) noexcept {
  swapIterator(other);
  std::swap(fData, other.fData);
  std::swap(fOwnsData, other.fOwnsData);
}

bool Handle::usesStructure(const Structure& structure) const {
  return &this->structure() == &structure;
}

Member::eDataType Handle::dataType() const { return Member::type(&**this); }

unsigned int Handle::dataLength() const { return Member::length(&**this); }

bool Handle::isDefault() const { return fData && structure().chunkIsDefault(fData); }

bool Handle::isDefaultMember(const char* name) const {
  return fData && structure().chunkMemberIsDefault(fData, name);
}

std::string Handle::str(unsigned int index) const {
  const Member* member = currentMember();
  if (!member || index >= Member::length(member)) return "";
  const char* value = fData ? fData + Member::offset(member, index) : nullptr;
  switch (Member::type(member)) {
    case Member::kBoolean:
      return value && load<uint8_t>(value) ? "true" : "false";
    case Member::kDouble:
      return value ? numberText(load<double>(value)) : "0.0";
    case Member::kFloat:
      return value ? numberText(load<float>(value)) : "0.0";
    case Member::kDoubleMatrix4x4:
      return matrixText<double>(value);
    case Member::kFloatMatrix4x4:
      return matrixText<float>(value);
    case Member::kInt8:
      return value ? std::to_string(int(load<int8_t>(value))) : "0";
    case Member::kInt16:
      return value ? std::to_string(int(load<int16_t>(value))) : "0";
    case Member::kInt32:
      return value ? std::to_string(int(load<int32_t>(value))) : "0";
    case Member::kInt64:
      return value ? std::to_string(static_cast<long long>(load<int64_t>(value))) : "0";
    case Member::kUInt8:
      return value ? std::to_string(static_cast<unsigned long long>(load<uint8_t>(value))) : "0";
    case Member::kUInt16:
      return value ? std::to_string(static_cast<unsigned long long>(load<uint16_t>(value))) : "0";
    case Member::kUInt32:
      return value ? std::to_string(static_cast<unsigned long long>(load<uint32_t>(value))) : "0";
    case Member::kUInt64:
      return value ? std::to_string(static_cast<unsigned long long>(load<uint64_t>(value))) : "0";
    case Member::kString:
      // An unset first value hides every later one.
      return fData ? stringText(load<const char*>(fData + Member::offset(member)), value) : "";
    default:
      return "?";
  }
}

unsigned int Handle::fromStr(const std::string& value, unsigned int index, std::string& errors) {
  const Member* member = currentMember();
  const unsigned int length = Member::length(member);
  if (index >= length) {
    errors += "Trying to parse element " + std::to_string(index) +
              (member ? std::string(" when the member ") + Member::name(member) +
                            " only has dimension " + std::to_string(length)
                      : std::string(" when the member does not exist")) +
              "\n";
    return 1;
  }
  const Member::eDataType type = Member::type(member);
  if (type >= Member::kInvalidType) {
    errors += "Invalid type " + std::to_string(unsigned(type)) + " in structure.\n";
    return 0;
  }
  if (!fData) {
    errors += std::string("Data not recognized as a ") + kDataWords[type] + "\n";
    return 1;
  }
  char* target = fData + Member::offset(member, index);
  if (type == Member::kString) {
    storeString(target, value);
    return 0;
  }
  if (storeStrict(type, value, target)) return 0;

  std::istringstream in(value);
  in.imbue(std::locale::classic());
  std::string lines;
  unsigned int count = 0;
  switch (type) {
    case Member::kBoolean:
      count = readBoolean(in, target, lines);
      break;
    case Member::kDouble:
      count = readNumber<double, double>(in, target, "Double", lines);
      break;
    case Member::kFloat:
      count = readNumber<float, float>(in, target, "Float", lines);
      break;
    case Member::kDoubleMatrix4x4:
      count = readMatrix<double>(in, target, "Double matrix", lines);
      break;
    case Member::kFloatMatrix4x4:
      count = readMatrix<float>(in, target, "Float matrix", lines);
      break;
    case Member::kInt8:
      count = readNumber<int8_t, int>(in, target, "Int8", lines);
      break;
    case Member::kInt16:
      count = readNumber<int16_t, int>(in, target, "Int16", lines);
      break;
    case Member::kInt32:
      count = readNumber<int32_t, int>(in, target, "Int32", lines);
      break;
    case Member::kInt64:
      count = readNumber<int64_t, long long>(in, target, "Int64", lines);
      break;
    case Member::kUInt8:
      count = readNumber<uint8_t, unsigned int>(in, target, "UInt8", lines);
      break;
    case Member::kUInt16:
      count = readNumber<uint16_t, unsigned int>(in, target, "UInt16", lines);
      break;
    case Member::kUInt32:
      count = readNumber<uint32_t, unsigned int>(in, target, "UInt32", lines);
      break;
    case Member::kUInt64:
      count = readNumber<uint64_t, unsigned long long>(in, target, "UInt64", lines);
      break;
    default:
      break;
  }
  errors += lines;
  return count;
}

void Handle::releaseData() {
  char* data = std::exchange(fData, nullptr);
  if (data && fOwnsData) {
    structure().destroyChunk(data);
    delete[] data;
  }
  fOwnsData = false;
}

// Debug output

bool Handle::Debug(const Handle* handle, kivo::Debug::Print& print) {
  if (!handle) return true;
  int level = 0;
  const bool hex = print.findFilter(kDebugHex, level) && level != 0;
  const bool typed = print.findFilter(kDebugType, level) && level != 0;
  const Member* member = handle->currentMember();
  const unsigned int length = Member::length(member);

  std::string text;
  if (typed) text += std::string(Member::typeName(Member::type(member))) + " ";
  if (length > 0) {
    text += std::to_string(length) + " elements: [ ";
    for (unsigned int i = 0; i < length; ++i) text += (i > 0 ? " " : "") + handle->str(i);
    text += " ]";
  } else {
    text += "[]";
  }
  print << text.c_str();
  if (!hex) return true;

  // The address and bytes continue the same line, so they are not indented.
  std::ostringstream address;
  address << static_cast<const void*>(handle->fData);
  print.skipNextIndent(true);
  print << ("(" + address.str() + ") ").c_str();
  if (!member || !handle->fData) return true;
  const unsigned int size = Member::typeSize(Member::type(member));
  for (unsigned int i = 0; i < length; ++i) {
    print.skipNextIndent(true);
    print << " ";
    print.skipNextIndent(true);
    print.outputHexChars(size, reinterpret_cast<unsigned char*>(handle->fData) +
                                   Member::offset(member, i));
  }
  return true;
}

bool Handle::Debug(const Handle* handle, kivo::Debug::Footprint& footprint) {
  if (!handle) return true;
  footprint.addObject(handle, sizeof(Handle));
  if (handle->fOwnsData && handle->fData) {
    footprint.addMember(handle->fData, handle->structure().totalSize());
  }
  return true;
}

}  // namespace kivo::Data
