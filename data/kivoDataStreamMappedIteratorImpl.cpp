#include <kivo/data/kivoDataStreamMappedIteratorImpl.h>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {

uint64_t StreamMappedIteratorImpl::_objectsCreated = 0;
uint64_t StreamMappedIteratorImpl::_objectsAlive = 0;

StreamMappedIteratorImpl::StreamMappedIteratorImpl(const StreamImplMapped& storage, bool atBegin)
    : fStorage(const_cast<StreamImplMapped*>(&storage)) {
  StreamImplMapped::ElementMap& elements = fStorage->fElements;
  fHandle = &fStorage->fDefault;
  fAtEnd = true;
  fPosition = elements.end();
  if (atBegin && !elements.empty()) {
    fPosition = elements.begin();
    fHandle = &fPosition->second;
    fAtEnd = false;
  }
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamMappedIteratorImpl::StreamMappedIteratorImpl(const StreamMappedIteratorImpl& other)
    : StreamIteratorImpl(other), fPosition(other.fPosition), fStorage(other.fStorage) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamMappedIteratorImpl& StreamMappedIteratorImpl::operator=(
    const StreamMappedIteratorImpl& other) {
  StreamIteratorImpl::operator=(other);
  fPosition = other.fPosition;
  fStorage = other.fStorage;
  return *this;
}

StreamMappedIteratorImpl::~StreamMappedIteratorImpl() { --_objectsAlive; }

StreamIteratorImpl& StreamMappedIteratorImpl::operator++() {
  fAtEnd = true;
  if (!fStorage) {
    fHandle = nullptr;
    return *this;
  }
  StreamImplMapped::ElementMap& elements = fStorage->fElements;
  // At the end the position stays put: the map's end cannot be advanced.
  if (fPosition != elements.end()) ++fPosition;
  if (fPosition == elements.end()) {
    fHandle = &fStorage->fDefault;
  } else {
    fAtEnd = false;
    fHandle = &fPosition->second;
  }
  return *this;
}

StreamIteratorImpl* StreamMappedIteratorImpl::operator++(int) {
  StreamIteratorImpl* before = new StreamMappedIteratorImpl(*this);
  ++*this;
  return before;
}

StreamIteratorImpl* StreamMappedIteratorImpl::clone() const {
  return new StreamMappedIteratorImpl(*this);
}

Index StreamMappedIteratorImpl::index() const { return valid() ? fPosition->first : Index(); }

const StreamImpl* StreamMappedIteratorImpl::myStream() const { return fStorage; }

// Debug output

bool StreamMappedIteratorImpl::Debug(const StreamMappedIteratorImpl* impl,
                                     kivo::Debug::Print& print) {
  if (!impl) {
    Detail::printClassStatistics(print, "kivo::Data::StreamMappedIteratorImpl", _objectsCreated,
                                 _objectsAlive);
    return true;
  }
  return StreamIteratorImpl::Debug(impl, print);
}

bool StreamMappedIteratorImpl::Debug(const StreamMappedIteratorImpl* impl,
                                     kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamMappedIteratorImpl));
  return true;
}

}  // namespace kivo::Data
