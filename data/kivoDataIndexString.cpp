#include <kivo/data/kivoDataIndexString.h>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <string>
#include <typeinfo>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {
namespace {

// Makes "string" known to every program that loads the library.
const bool registeredAtLoad =
    Index::registerType(IndexString::theTypeName(), &CRTP_IndexType<IndexString>::doCreate);

// True when the text lives in a heap block of its own rather than inside the
// string object.
bool textOnHeap(const std::string& text) {
  const char* data = text.data();
  const char* object = reinterpret_cast<const char*>(&text);
  return data < object || data >= object + sizeof(text);
}

}  // namespace

uint64_t IndexString::_objectsCreated = 0;
uint64_t IndexString::_objectsAlive = 0;

IndexString::IndexString() {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexString::IndexString(const std::string& text) : fText(text) {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexString::IndexString(const IndexString& other)
    : CRTP_IndexType<IndexString>(other),
      kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Print>(other),
      kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Footprint>(other),
      fText(other.fText) {
  ++_objectsCreated;
  ++_objectsAlive;
}

IndexString& IndexString::operator=(const IndexString& other) {
  fText = other.fText;
  return *this;
}

IndexString& IndexString::operator=(const std::string& text) {
  fText = text;
  return *this;
}

IndexString::~IndexString() { --_objectsAlive; }

std::string IndexString::asString() const { return fText; }

uint64_t IndexString::denseSpaceBetween(const IndexType&) const { return 0; }

bool IndexString::operator==(const IndexType& other) const { return compare(other) == 0; }
bool IndexString::operator!=(const IndexType& other) const { return compare(other) != 0; }
bool IndexString::operator<(const IndexType& other) const { return compare(other) < 0; }
bool IndexString::operator<=(const IndexType& other) const { return compare(other) <= 0; }
bool IndexString::operator>(const IndexType& other) const { return compare(other) > 0; }
bool IndexString::operator>=(const IndexType& other) const { return compare(other) >= 0; }

int IndexString::compare(const IndexType& other) const {
  if (typeid(other) != typeid(IndexString)) return compareKind(other);
  // std::string compares as unsigned bytes, a prefix first.
  const int order = fText.compare(static_cast<const IndexString&>(other).fText);
  return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

// Debug output

bool IndexString::Debug(const IndexString* index, kivo::Debug::Print& print) {
  if (!index) {
    Detail::printClassStatistics(print, "kivo::Data::IndexString", _objectsCreated, _objectsAlive);
    return true;
  }
  print << index->fText.c_str();
  return true;
}

bool IndexString::Debug(const IndexString* index, kivo::Debug::Footprint& footprint) {
  if (!index) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(index, sizeof(IndexString));
  if (textOnHeap(index->fText)) footprint.addMember(index->fText.data(), index->fText.capacity() + 1);
  return true;
}

}  // namespace kivo::Data
