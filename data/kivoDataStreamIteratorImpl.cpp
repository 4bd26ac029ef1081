#include <kivo/data/kivoDataStreamIteratorImpl.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <stdexcept>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kNotAtValidPosition[] = "Iterator not at a valid position";

}  // namespace

uint64_t StreamIteratorImpl::_objectsCreated = 0;
uint64_t StreamIteratorImpl::_objectsAlive = 0;

StreamIteratorImpl::StreamIteratorImpl() {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamIteratorImpl::StreamIteratorImpl(const StreamIteratorImpl& other)
    : fHandle(other.fHandle), fAtEnd(other.fAtEnd) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamIteratorImpl& StreamIteratorImpl::operator=(const StreamIteratorImpl& other) {
  fHandle = other.fHandle;
  fAtEnd = other.fAtEnd;
  return *this;
}

StreamIteratorImpl::~StreamIteratorImpl() { --_objectsAlive; }

Handle& StreamIteratorImpl::operator*() {
  if (!fHandle) throw std::out_of_range(kNotAtValidPosition);
  return *fHandle;
}

const Handle& StreamIteratorImpl::operator*() const {
  if (!fHandle) throw std::out_of_range(kNotAtValidPosition);
  return *fHandle;
}

Handle* StreamIteratorImpl::operator->() {
  if (!fHandle) throw std::out_of_range(kNotAtValidPosition);
  return fHandle;
}

const Handle* StreamIteratorImpl::operator->() const {
  if (!fHandle) throw std::out_of_range(kNotAtValidPosition);
  return fHandle;
}

bool StreamIteratorImpl::operator!=(const StreamIteratorImpl& other) const {
  if (fAtEnd != other.fAtEnd) return true;
  if (myStream() != other.myStream()) return true;
  return index() != other.index();
}

// Debug output

bool StreamIteratorImpl::Debug(const StreamIteratorImpl* impl, kivo::Debug::Print& print) {
  if (!impl) {
    Detail::printClassStatistics(print, "kivo::Data::StreamIteratorImpl", _objectsCreated,
                                 _objectsAlive);
    return true;
  }
  Detail::printLine(print, impl->valid() ? "StreamIterator at index " + impl->index().asString()
                                         : std::string("StreamIterator at the end"));
  return true;
}

bool StreamIteratorImpl::Debug(const StreamIteratorImpl* impl,
                               kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamIteratorImpl));
  return true;
}

}  // namespace kivo::Data
