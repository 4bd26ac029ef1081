#include <kivo/data/kivoDataIndexPair.h>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <limits>
#include <string>
#include <typeinfo>

#include "support/kivoClassStatistics.h"
#include "support/kivoNumberText.h"

namespace kivo::Data {
namespace {

uint32_t distance(uint32_t a, uint32_t b) { return a > b ? a - b : b - a; }

// Makes "pair" known to every program that loads the library.
const bool registeredAtLoad =
    Index::registerType(IndexPair::theTypeName(), &CRTP_IndexType<IndexPair>::doCreate);

}  // namespace

uint64_t IndexPair::_objectsCreated = 0;
uint64_t IndexPair::_objectsAlive = 0;

IndexPair::IndexPair() {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexPair::IndexPair(unsigned int first, unsigned int second) : fFirst(first), fSecond(second) {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexPair::IndexPair(const std::string& text) {
  uint32_t numbers[2] = {0, 0};
  switch (Detail::readUnsignedNumbers(text, numbers, 2)) {
    case Detail::NumberText::kBad:
      throw Index::kBadNumericIndex;
    case Detail::NumberText::kTrailing:
      throw Index::kTrailingIndexText;
    case Detail::NumberText::kRead:
      break;
  }
  fFirst = numbers[0];
  fSecond = numbers[1];
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexPair::IndexPair(const IndexPair& other)
    : CRTP_IndexType<IndexPair>(other),
      kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Print>(other),
      kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Footprint>(other),
      fFirst(other.fFirst),
      fSecond(other.fSecond) {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexPair& IndexPair::operator=(const IndexPair& other) {
  fFirst = other.fFirst;
  fSecond = other.fSecond;
  return *this;
}

IndexPair::~IndexPair() { --_objectsAlive; }

void IndexPair::getIndexPair(unsigned int& first, unsigned int& second) const {
  first = fFirst;
  second = fSecond;
}

std::string IndexPair::asString() const {
  return std::to_string(fFirst) + " " + std::to_string(fSecond);
}

uint64_t IndexPair::denseSpaceBetween(const IndexType& other) const {
  if (typeid(other) != typeid(IndexPair)) return 0;
  const IndexPair& pair = static_cast<const IndexPair&>(other);
  const uint64_t rows = uint64_t(distance(fFirst, pair.fFirst)) + 1;
  const uint64_t columns = uint64_t(distance(fSecond, pair.fSecond)) + 1;
  uint64_t cells = 0;
  if (__builtin_mul_overflow(rows, columns, &cells)) return std::numeric_limits<uint64_t>::max();
  return cells;
}

bool IndexPair::operator==(const IndexType& other) const { return compare(other) == 0; }
bool IndexPair::operator!=(const IndexType& other) const { return compare(other) != 0; }
bool IndexPair::operator<(const IndexType& other) const { return compare(other) < 0; }
bool IndexPair::operator<=(const IndexType& other) const { return compare(other) <= 0; }
bool IndexPair::operator>(const IndexType& other) const { return compare(other) > 0; }
bool IndexPair::operator>=(const IndexType& other) const { return compare(other) >= 0; }

int IndexPair::compare(const IndexType& other) const {
  if (typeid(other) != typeid(IndexPair)) return compareKind(other);
  const IndexPair& pair = static_cast<const IndexPair&>(other);
  if (fFirst != pair.fFirst) return fFirst < pair.fFirst ? -1 : 1;
  if (fSecond != pair.fSecond) return fSecond < pair.fSecond ? -1 : 1;
  return 0;
}

// Debug output

bool IndexPair::Debug(const IndexPair* pair, kivo::Debug::Print& print) {
  if (!pair) {
    Detail::printClassStatistics(print, "kivo::Data::IndexPair", _objectsCreated, _objectsAlive);
    return true;
  }
  print << pair->asString().c_str();
  return true;
}

bool IndexPair::Debug(const IndexPair* pair, kivo::Debug::Footprint& footprint) {
  if (!pair) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(pair, sizeof(IndexPair));
  return true;
}

}  // namespace kivo::Data
