#include <kivo/data/kivoDataStreamImpl.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <string>

#include "support/kivoClassStatistics.h"
#include "support/kivoDebugParts.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kDefaultStreamName[] = "Stream";

// True when a creator is registered under typeName.
bool knownIndexType(const std::string& typeName) {
  try {
    Index::creator(typeName);
  } catch (Index::eCreationErrors) {
    return false;
  }
  return true;
}

// A new empty structure with its first reference taken.
const Structure* newEmptyStructure() {
  Structure* structure = Structure::create();
  structure->ref();
  return structure;
}

}  // namespace

uint64_t StreamImpl::_objectsCreated = 0;
uint64_t StreamImpl::_objectsAlive = 0;

StreamImpl::StreamImpl(const Structure& structure, const std::string& name)
    : fStructure(&structure), fName(name), fIndexType(Index::theTypeName()) {
  fStructure->ref();
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImpl::StreamImpl()
    : fStructure(newEmptyStructure()), fName(kDefaultStreamName), fIndexType(Index::theTypeName()) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImpl::StreamImpl(const StreamImpl& other)
    : RefCounted(other),
      kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Print>(other),
      kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Footprint>(other),
      fStructure(other.fStructure),
      fName(other.fName),
      fIndexType(other.fIndexType) {
  fStructure->ref();
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImpl& StreamImpl::operator=(const StreamImpl& other) {
  if (this == &other) return *this;
  other.fStructure->ref();
  const Structure* previous = fStructure;
  fStructure = other.fStructure;
  previous->unref();
  fName = other.fName;
  fIndexType = other.fIndexType;
  return *this;
}

StreamImpl::~StreamImpl() {
  --_objectsAlive;
  fStructure->unref();
}

bool StreamImpl::mergeStream(const StreamImpl& other) {
  const unsigned int count = other.elementCount();
  for (unsigned int i = 0; i < count; ++i) {
    const Handle handle = other.element(Index(i));
    if (handle.hasData() && !setElement(Index(i), handle)) return false;
  }
  return true;
}

bool StreamImpl::setUseDefaults(bool useDefaults) {
  const bool previous = fUseDefaults;
  fUseDefaults = useDefaults;
  return previous;
}

bool StreamImpl::useDefaults() const { return fUseDefaults; }

bool StreamImpl::setStructure(const Structure& structure) {
  if (elementCount() != 0 || pinCount() != 0) return false;
  if (&structure == fStructure) return true;
  structure.ref();
  const Structure* previous = fStructure;
  fStructure = &structure;
  structureReplaced(*previous);
  previous->unref();
  return true;
}

bool StreamImpl::setIndexType(const std::string& typeName) {
  if (!knownIndexType(typeName) || elementCount() != 0 || pinCount() != 0) return false;
  clear();
  fIndexType = typeName;
  return true;
}

bool StreamImpl::copyElementFromHandle(char* dest, const Handle& handle) const {
  if (!dest || !handle.hasData()) return false;
  return structure().fillWithDuplicateChunk(dest, handle.data());
}

void StreamImpl::structureReplaced(const Structure&) {}

// Debug output

bool StreamImpl::Debug(const StreamImpl* impl, kivo::Debug::Print& print) {
  if (!impl) {
    Detail::printClassStatistics(print, "kivo::Data::StreamImpl", _objectsCreated, _objectsAlive);
    return true;
  }
  const char* structureName = impl->fStructure->name();
  Detail::printLine(print, "Data Stream '" + impl->fName + "' uses structure '" +
                               (structureName ? structureName : "") + "' with index type '" +
                               impl->fIndexType + "'");
  return true;
}

bool StreamImpl::Debug(const StreamImpl* impl, kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamImpl));
  Detail::addStringText(footprint, impl->fName);
  Detail::addStringText(footprint, impl->fIndexType);
  return true;
}

}  // namespace kivo::Data
