#include <kivo/data/kivoDataStreamIterator.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStreamIteratorImpl.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <stdexcept>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kNoImplementation[] = "No Stream Iterator implementation";

}  // namespace

uint64_t StreamIterator::_objectsCreated = 0;
uint64_t StreamIterator::_objectsAlive = 0;

StreamIterator::StreamIterator() {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamIterator::StreamIterator(StreamIteratorImpl* impl) : fImpl(impl) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamIterator::StreamIterator(const StreamIterator& other)
    : fImpl(other.fImpl ? other.fImpl->clone() : nullptr) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamIterator& StreamIterator::operator=(const StreamIterator& other) {
  if (fImpl == other.fImpl) return *this;
  StreamIteratorImpl* copy = other.fImpl ? other.fImpl->clone() : nullptr;
  delete fImpl;
  fImpl = copy;
  return *this;
}

StreamIterator::~StreamIterator() {
  --_objectsAlive;
  delete fImpl;
}

Handle& StreamIterator::operator*() { return *impl(); }

const Handle& StreamIterator::operator*() const {
  return *static_cast<const StreamIteratorImpl&>(impl());
}

Handle* StreamIterator::operator->() { return impl().operator->(); }

const Handle* StreamIterator::operator->() const {
  return static_cast<const StreamIteratorImpl&>(impl()).operator->();
}

Index StreamIterator::index() const { return impl().index(); }

bool StreamIterator::valid() const { return fImpl && fImpl->valid(); }

StreamIterator& StreamIterator::operator++() {
  ++impl();
  return *this;
}

StreamIterator StreamIterator::operator++(int) {
  // The implementation advances itself and hands back a copy at the old
  // position; this iterator keeps that copy and the advanced one is
  // returned.
  StreamIteratorImpl* before = impl()++;
  StreamIteratorImpl* advanced = fImpl;
  fImpl = before;
  return StreamIterator(advanced);
}

bool StreamIterator::operator!=(const StreamIterator& other) const {
  if (!fImpl || !other.fImpl) return !fImpl != !other.fImpl;
  return *fImpl != *other.fImpl;
}

StreamIteratorImpl& StreamIterator::impl() const {
  if (!fImpl) throw std::runtime_error(kNoImplementation);
  return *fImpl;
}

// Debug output

bool StreamIterator::Debug(const StreamIterator* iterator, kivo::Debug::Print& print) {
  if (!iterator) {
    Detail::printClassStatistics(print, "kivo::Data::StreamIterator", _objectsCreated,
                                 _objectsAlive);
    return true;
  }
  if (!iterator->fImpl) {
    Detail::printLine(print, "StreamIterator without implementation");
    return true;
  }
  return StreamIteratorImpl::Debug(iterator->fImpl, print);
}

bool StreamIterator::Debug(const StreamIterator* iterator, kivo::Debug::Footprint& footprint) {
  if (!iterator) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(iterator, sizeof(StreamIterator));
  if (iterator->fImpl) StreamIteratorImpl::Debug(iterator->fImpl, footprint);
  return true;
}

}  // namespace kivo::Data
