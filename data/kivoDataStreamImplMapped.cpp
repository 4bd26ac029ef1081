#include <kivo/data/kivoDataStreamImplMapped.h>

#include <iterator>

#include <kivo/data/kivoDataIndexType.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamMappedIteratorImpl.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <string>

#include "support/kivoClassStatistics.h"
#include "support/kivoDebugParts.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

// Debug texts.
constexpr char kStreamTitle[] = "Data Stream (Mapped)";
constexpr char kElementsTitle[] = "Stream Elements";
constexpr char kLowestValidIndex[] = "Lowest valid index = ";
constexpr char kHighestValidIndex[] = "Highest valid index = ";
constexpr char kElementCount[] = "Element count = ";

// An index on the line already started: the number of a numeric index, the
// text of a complex one's object.
void continueWithIndex(kivo::Debug::Print& print, const Index& index) {
  print.skipNextIndent(true);
  if (const IndexType* object = static_cast<IndexType*>(index)) {
    IndexType::Debug(object, print);
  } else {
    Index::Debug(&index, print);
  }
}

// "<label>", the index and a newline.
void printIndexLine(kivo::Debug::Print& print, const char* label, const Index& index) {
  print << label;
  continueWithIndex(print, index);
  Detail::endLine(print);
}

// The stand-in for missing elements: a view of the structure's default
// block, which every stream of the structure shares; a copy of its own only
// when that block is shorter than an element.
Handle defaultElement(const Structure& structure) {
  if (const char* shared = structure.sharedDefaultElement()) {
    return Handle(structure, const_cast<char*>(shared));
  }
  return Handle(structure);
}

}  // namespace

uint64_t StreamImplMapped::_objectsCreated = 0;
uint64_t StreamImplMapped::_objectsAlive = 0;

StreamImplMapped::StreamImplMapped(const Structure& structure, const std::string& name)
    : StreamImpl(structure, name), fDefault(defaultElement(structure)) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplMapped::StreamImplMapped(const StreamImpl& base)
    : StreamImpl(base), fDefault(defaultElement(base.structure())) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplMapped::StreamImplMapped() : StreamImpl(), fDefault(defaultElement(structure())) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplMapped::StreamImplMapped(const StreamImplMapped& other)
    : StreamImpl(other),
      fDefault(defaultElement(other.structure())),
      fLowest(other.fLowest),
      fHighest(other.fHighest) {
  copyElements(other);
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplMapped& StreamImplMapped::operator=(const StreamImplMapped& other) {
  if (this == &other) return *this;
  fElements.clear();
  const bool sameStructure = &structure() == &other.structure();
  StreamImpl::operator=(other);
  if (!sameStructure) {
    Handle fresh = defaultElement(structure());
    fDefault.swap(fresh);
  }
  fLowest = other.fLowest;
  fHighest = other.fHighest;
  copyElements(other);
  return *this;
}

StreamImplMapped::~StreamImplMapped() { --_objectsAlive; }

StreamImpl* StreamImplMapped::clone() const { return new StreamImplMapped(*this); }

StreamIterator StreamImplMapped::begin() const {
  if (fElements.empty()) return end();
  return StreamIterator(new StreamMappedIteratorImpl(*this, true));
}

StreamIterator StreamImplMapped::end() const {
  return StreamIterator(new StreamMappedIteratorImpl(*this, false));
}

unsigned int StreamImplMapped::elementCount() const {
  return static_cast<unsigned int>(fElements.size());
}

// Elements stored in index order (readers, copies) append: one comparison
// with the last key instead of a search.
StreamImplMapped::ElementMap::iterator StreamImplMapped::placeFor(const Index& index) {
  ElementMap::iterator found = fElements.end();
  if (!fElements.empty() && !(std::prev(found)->first < index)) {
    found = fElements.lower_bound(index);
  }
  return found;
}

bool StreamImplMapped::setElement(const Index& index, const Handle& handle) {
  if (!handle.usesStructure(structure())) return false;
  ElementMap::iterator found = placeFor(index);
  const bool present = found != fElements.end() && !(index < found->first);
  if (!handle.hasData()) {
    Handle defaults(structure());
    if (!present) found = fElements.emplace_hint(found, index, Handle(structure(), nullptr));
    found->second.swap(defaults);
    found->second.setPositionByMemberIndex(handle.index());
    return true;
  }
  // Handle::operator= takes structure, member position and data; storing an
  // element onto itself keeps the block it owns, which makeUnique() leaves.
  if (present) {
    found->second = handle;
  } else {
    found = fElements.emplace_hint(found, index, handle);
  }
  found->second.makeUnique();
  return true;
}

bool StreamImplMapped::takeElement(const Index& index, Handle& handle) {
  if (!handle.usesStructure(structure()) || !handle.hasData()) return setElement(index, handle);
  handle.makeUnique();
  ElementMap::iterator found = placeFor(index);
  if (found == fElements.end() || index < found->first)
    found = fElements.emplace_hint(found, index, Handle(structure(), nullptr));
  found->second.swap(handle);
  return true;
}

Handle StreamImplMapped::element(const Index& index) const {
  const ElementMap::const_iterator found = fElements.find(index);
  if (found == fElements.end()) return Handle(structure(), nullptr);
  return found->second;
}

bool StreamImplMapped::hasElement(const Index& index) const {
  return fElements.find(index) != fElements.end();
}

bool StreamImplMapped::reindexElement(const Index& from, const Index& to) {
  if (!hasElement(from)) return false;
  if (from == to) return true;
  const Handle moving = element(from);
  setElement(to, moving);
  removeElement(from);
  return true;
}

bool StreamImplMapped::swapElements(const Index& a, const Index& b) {
  const ElementMap::iterator first = fElements.find(a);
  const ElementMap::iterator second = fElements.find(b);
  if (first == fElements.end() || second == fElements.end()) return false;
  first->second.swap(second->second);
  return true;
}

bool StreamImplMapped::removeElement(const Index& index) {
  fElements.erase(index);
  return true;
}

bool StreamImplMapped::setElementRange(const Index& first, const Index& last) {
  fLowest = first;
  fHighest = last;
  return true;
}

bool StreamImplMapped::clear() {
  fElements.clear();
  return true;
}

void StreamImplMapped::structureReplaced(const Structure&) {
  Handle fresh = defaultElement(structure());
  fDefault.swap(fresh);
}

void StreamImplMapped::copyElements(const StreamImplMapped& other) {
  for (const auto& [index, handle] : other.fElements) {
    const ElementMap::iterator stored = fElements.emplace_hint(fElements.end(), index, handle);
    stored->second.makeUnique();
  }
}

// Debug output

bool StreamImplMapped::Debug(const StreamImplMapped* impl, kivo::Debug::Print& print) {
  if (!impl) {
    Detail::printClassStatistics(print, "kivo::Data::StreamImplMapped", _objectsCreated,
                                 _objectsAlive);
    return true;
  }
  print.beginSection(kStreamTitle);
  StreamImpl::Debug(impl, print);
  if (Detail::filterOn(print, Stream::kDebugHex)) Detail::printAddressLine(print, impl);
  printIndexLine(print, kLowestValidIndex, impl->fLowest);
  printIndexLine(print, kHighestValidIndex, impl->fHighest);
  print.beginSection(kElementsTitle);
  Detail::printLine(print, kElementCount + std::to_string(impl->elementCount()));
  for (const auto& [index, handle] : impl->fElements) {
    print << "Index (";
    continueWithIndex(print, index);
    Detail::continueLine(print, "), Handle (");
    print.skipNextIndent(true);
    Handle::Debug(&handle, print);
    Detail::continueLine(print, ")");
    Detail::endLine(print);
  }
  print.endSection();
  print.endSection();
  return true;
}

bool StreamImplMapped::Debug(const StreamImplMapped* impl, kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamImplMapped));
  Detail::addStringText(footprint, impl->name());
  Detail::addStringText(footprint, impl->indexType());
  // Each entry: the node's links, then the key and the handle with the
  // element block it owns.
  for (const auto& entry : impl->fElements) {
    footprint.addMember(&entry, Detail::kTreeNodeLinks);
    Index::Debug(&entry.first, footprint);
    Handle::Debug(&entry.second, footprint);
  }
  // The default handle lives inside this object; only its block is apart.
  if (impl->fDefault.hasData())
    footprint.addMember(impl->fDefault.data(), impl->structure().totalSize());
  // The range indices live inside this object too, but a complex one's
  // object does not.
  for (const Index* bound : {&impl->fLowest, &impl->fHighest}) {
    if (const IndexType* object = static_cast<IndexType*>(*bound))
      IndexType::Debug(object, footprint);
  }
  return true;
}

}  // namespace kivo::Data
