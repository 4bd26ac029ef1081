#include <kivo/data/kivoDataStreamDenseIteratorImpl.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {

uint64_t StreamDenseIteratorImpl::_objectsCreated = 0;
uint64_t StreamDenseIteratorImpl::_objectsAlive = 0;

StreamDenseIteratorImpl::StreamDenseIteratorImpl(const StreamImplDense& storage, bool atBegin)
    : fStorage(const_cast<StreamImplDense*>(&storage)),
      fOwnHandle(new Handle(storage.structure(), nullptr)) {
  fHandle = fOwnHandle.get();
  fAtEnd = true;
  fSlot = storage.elementCount();
  if (atBegin && storage.elementCount() > 0) {
    fSlot = 0;
    char* address = storage.elementAddr(Index(0));
    fOwnHandle->pointToData(address, false);
    fAtEnd = address == nullptr;
  }
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamDenseIteratorImpl::StreamDenseIteratorImpl(const StreamDenseIteratorImpl& other)
    : StreamIteratorImpl(other),
      fStorage(other.fStorage),
      fOwnHandle(new Handle(*other.fOwnHandle)),
      fSlot(other.fSlot) {
  fHandle = fOwnHandle.get();
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamDenseIteratorImpl& StreamDenseIteratorImpl::operator=(const StreamDenseIteratorImpl& other) {
  if (this == &other) return *this;
  StreamIteratorImpl::operator=(other);
  fStorage = other.fStorage;
  *fOwnHandle = *other.fOwnHandle;
  fHandle = fOwnHandle.get();
  fSlot = other.fSlot;
  return *this;
}

StreamDenseIteratorImpl::~StreamDenseIteratorImpl() { --_objectsAlive; }

StreamIteratorImpl& StreamDenseIteratorImpl::operator++() {
  // At the end the slot stays put, so repeated advances never wrap around.
  if (fStorage && fSlot < fStorage->elementCount()) ++fSlot;
  if (fStorage && fSlot < fStorage->elementCount()) {
    char* address = fStorage->elementAddr(Index(fSlot));
    fOwnHandle->pointToData(address, false);
    fAtEnd = address == nullptr;
  } else {
    fOwnHandle->pointToData(nullptr, false);
    fAtEnd = true;
  }
  return *this;
}

StreamIteratorImpl* StreamDenseIteratorImpl::operator++(int) {
  StreamIteratorImpl* before = new StreamDenseIteratorImpl(*this);
  ++*this;
  return before;
}

StreamIteratorImpl* StreamDenseIteratorImpl::clone() const {
  return new StreamDenseIteratorImpl(*this);
}

Index StreamDenseIteratorImpl::index() const {
  if (!fStorage) return Index();
  return fStorage->indexOfPhysicalElement(fSlot);
}

const StreamImpl* StreamDenseIteratorImpl::myStream() const { return fStorage; }

// Debug output

bool StreamDenseIteratorImpl::Debug(const StreamDenseIteratorImpl* impl,
                                    kivo::Debug::Print& print) {
  if (!impl) {
    Detail::printClassStatistics(print, "kivo::Data::StreamDenseIteratorImpl", _objectsCreated,
                                 _objectsAlive);
    return true;
  }
  return StreamIteratorImpl::Debug(impl, print);
}

bool StreamDenseIteratorImpl::Debug(const StreamDenseIteratorImpl* impl,
                                    kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamDenseIteratorImpl));
  footprint.addMember(impl->fOwnHandle.get(), sizeof(Handle));
  return true;
}

}  // namespace kivo::Data
