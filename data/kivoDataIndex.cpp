#include <kivo/data/kivoDataIndex.h>

#include <kivo/data/kivoDataIndexType.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <string>

#include "support/kivoClassStatistics.h"
#include "support/kivoNumberText.h"

namespace kivo::Data {
namespace {

constexpr char kNumericTypeName[] = "numeric";

}  // namespace

uint64_t Index::_objectsCreated = 0;
uint64_t Index::_objectsAlive = 0;

Index::Index(unsigned int value) : fNumber(value) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Index::Index(const IndexType& object) : fObject(object.clone()), fComplex(true) {
  fObject->ref();
  ++_objectsCreated;
  ++_objectsAlive;
}

Index::Index(const std::string& text) {
  uint32_t value = 0;
  switch (Detail::readUnsignedNumbers(text, &value, 1)) {
    case Detail::NumberText::kBad:
      throw kBadNumericIndex;
    case Detail::NumberText::kTrailing:
      throw kTrailingIndexText;
    case Detail::NumberText::kRead:
      break;
  }
  fNumber = value;
  ++_objectsCreated;
  ++_objectsAlive;
}

Index::Index(const Index& other)
    : fNumber(other.fNumber), fObject(other.fObject), fComplex(other.fComplex) {
  if (fObject) fObject->ref();
  ++_objectsCreated;
  ++_objectsAlive;
}

Index& Index::operator=(const Index& other) {
  // Take the new reference before dropping the old: other may be this index
  // or share its object.
  IndexType* object = other.fObject;
  const uint32_t number = other.fNumber;
  const bool complex = other.fComplex;
  if (object) object->ref();
  release();
  fNumber = number;
  fObject = object;
  fComplex = complex;
  return *this;
}

Index& Index::operator=(unsigned int value) {
  release();
  fNumber = value;
  return *this;
}

Index::~Index() {
  --_objectsAlive;
  release();
}

unsigned int Index::index() const { return fComplex ? 0 : fNumber; }

Index::operator IndexType*() const { return fComplex ? fObject : nullptr; }

std::string Index::asString() const {
  if (fComplex && fObject) return fObject->asString();
  return std::to_string(fNumber);
}

std::string Index::typeName() const {
  if (fComplex && fObject) return fObject->typeName();
  return theTypeName();
}

std::string Index::theTypeName() { return kNumericTypeName; }

bool Index::operator==(const Index& other) const {
  if (fComplex != other.fComplex) return false;
  if (!fComplex) return fNumber == other.fNumber;
  return *fObject == *other.fObject;
}

bool Index::operator!=(const Index& other) const {
  if (fComplex != other.fComplex) return true;
  if (!fComplex) return fNumber != other.fNumber;
  return *fObject != *other.fObject;
}

bool Index::operator<(const Index& other) const {
  if (fComplex != other.fComplex) return !fComplex;
  if (!fComplex) return fNumber < other.fNumber;
  return *fObject < *other.fObject;
}

bool Index::operator<=(const Index& other) const {
  if (fComplex != other.fComplex) return !fComplex;
  if (!fComplex) return fNumber <= other.fNumber;
  return *fObject <= *other.fObject;
}

bool Index::operator>(const Index& other) const {
  if (fComplex != other.fComplex) return fComplex;
  if (!fComplex) return fNumber > other.fNumber;
  return *fObject > *other.fObject;
}

bool Index::operator>=(const Index& other) const {
  if (fComplex != other.fComplex) return fComplex;
  if (!fComplex) return fNumber >= other.fNumber;
  return *fObject >= *other.fObject;
}

bool Index::supportsDenseMode() const { return fComplex ? fObject->supportsDenseMode() : true; }

uint64_t Index::denseSpaceBetween(const Index& other) const {
  if (fComplex != other.fComplex) return 0;
  if (fComplex) return fObject->denseSpaceBetween(*other.fObject);
  const uint32_t distance = fNumber > other.fNumber ? fNumber - other.fNumber
                                                    : other.fNumber - fNumber;
  return uint64_t(distance) + 1;
}

Index::CreatorMap& Index::creators() {
  static CreatorMap map{{kNumericTypeName, &Index::TypeCreator}};
  return map;
}

bool Index::registerType(const std::string& name, Creator creator) {
  return creators().emplace(name, creator).second;
}

Index::Creator Index::creator(const std::string& name) {
  const CreatorMap& map = creators();
  const auto found = map.find(name);
  if (found == map.end() || !found->second) throw kUnknownIndexType;
  return found->second;
}

Index Index::doCreate(const std::string& typeName, const std::string& text) {
  return creator(typeName)(text);
}

Index Index::TypeCreator(const std::string& text) { return Index(text); }

void Index::release() {
  if (fObject) fObject->unref();
  fObject = nullptr;
  fComplex = false;
}

// Debug output

bool Index::Debug(const Index* index, kivo::Debug::Print& print) {
  if (!index) {
    Detail::printClassStatistics(print, "kivo::Data::Index", _objectsCreated, _objectsAlive);
    return true;
  }
  if (!index->fComplex) print << index->fNumber;
  return true;
}

bool Index::Debug(const Index* index, kivo::Debug::Footprint& footprint) {
  if (!index) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(index, sizeof(Index));
  if (index->fObject) IndexType::Debug(index->fObject, footprint);
  return true;
}

}  // namespace kivo::Data
