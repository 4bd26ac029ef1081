#include <kivo/data/kivoDataStream.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStreamImpl.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStreamImplMapped.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <memory>
#include <string>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {
namespace {

bool knownIndexType(const std::string& typeName) {
  try {
    Index::creator(typeName);
  } catch (Index::eCreationErrors) {
    return false;
  }
  return true;
}

// Copies every element of source into target, in source order. False when
// one cannot be placed (a complex index in a block, an index beyond what a
// block can hold).
bool carryElements(const StreamImpl& source, StreamImpl& target, bool toDense) {
  for (StreamIterator at = source.begin(), end = source.end(); at != end; ++at) {
    const Index index = at.index();
    if (toDense && index.isComplex()) return false;
    if (!target.setElement(index, *at)) return false;
  }
  return true;
}

}  // namespace

const char* const Stream::kDebugHex = "hex";

uint64_t Stream::_objectsCreated = 0;
uint64_t Stream::_objectsAlive = 0;

Stream::Stream() {
  attach(new StreamImplMapped());
  ++_objectsCreated;
  ++_objectsAlive;
}

Stream::Stream(const Structure& structure, const std::string& name) {
  attach(new StreamImplMapped(structure, name));
  ++_objectsCreated;
  ++_objectsAlive;
}

Stream::Stream(const Stream& other) {
  attach(other.fImpl);
  ++_objectsCreated;
  ++_objectsAlive;
}

Stream& Stream::operator=(const Stream& other) {
  attach(other.fImpl);
  return *this;
}

Stream::~Stream() {
  --_objectsAlive;
  attach(nullptr);
}

bool Stream::operator==(const Stream& other) const { return fImpl == other.fImpl; }

bool Stream::makeUnique() {
  if (!fImpl || !fImpl->isShared()) return false;
  attach(fImpl->clone());
  return true;
}

const std::string& Stream::name() const { return impl().name(); }

void Stream::setName(const std::string& name) { impl().setName(name); }

const Structure& Stream::structure() const { return impl().structure(); }

const std::string& Stream::indexType() const { return impl().indexType(); }

bool Stream::setStructure(const Structure& structure) { return impl().setStructure(structure); }

bool Stream::setIndexType(const std::string& typeName) {
  if (!knownIndexType(typeName)) return false;
  StreamImpl& current = impl();
  if (typeName == current.indexType()) return current.setIndexType(typeName);
  if (current.elementCount() != 0 || current.pinCount() != 0) return false;
  if (!isDense()) return current.setIndexType(typeName);
  // Only mapped storage takes other index types.
  StreamImplMapped* mapped = new StreamImplMapped(current);
  attach(mapped);
  return mapped->setIndexType(typeName);
}

unsigned int Stream::pinCount() const { return impl().pinCount(); }

bool Stream::isDense() const { return dynamic_cast<const StreamImplDense*>(&impl()) != nullptr; }

unsigned int Stream::elementCount() const { return impl().elementCount(); }

StreamIterator Stream::begin() const { return impl().begin(); }

StreamIterator Stream::end() const { return impl().end(); }

Handle Stream::element(const Index& index) const { return impl().element(index); }

bool Stream::hasElement(const Index& index) const { return impl().hasElement(index); }

bool Stream::setElement(const Index& index, const Handle& handle) {
  return impl().setElement(index, handle);
}

bool Stream::removeElement(const Index& index) { return impl().removeElement(index); }

bool Stream::reindexElement(const Index& from, const Index& to) {
  return impl().reindexElement(from, to);
}

bool Stream::swapElements(const Index& a, const Index& b) { return impl().swapElements(a, b); }

bool Stream::setElementRange(const Index& first, const Index& last) {
  return impl().setElementRange(first, last);
}

bool Stream::clear() { return fImpl ? fImpl->clear() : true; }

bool Stream::mergeStream(const Stream& other) { return impl().mergeStream(other.impl()); }

bool Stream::setUseDefaults(bool useDefaults) { return impl().setUseDefaults(useDefaults); }

bool Stream::useDefaults() const { return impl().useDefaults(); }

bool Stream::useDenseStorage(bool dense) {
  StreamImpl& current = impl();
  if (isDense() == dense) return true;
  if (current.pinCount() != 0) return false;
  const unsigned int count = current.elementCount();
  // The new storage is filled completely before it replaces the old one, so
  // a stream that cannot be converted stays as it was.
  std::unique_ptr<StreamImpl> target;
  if (dense) {
    target.reset(dynamic_cast<const StreamImplMapped*>(&current)
                     ? new StreamImplDense(current.structure(), current.name())
                     : new StreamImplDense());
  } else {
    target.reset(new StreamImplMapped(current.structure(), current.name()));
  }
  if (!carryElements(current, *target, dense)) return false;
  attach(target.release());
  return count == 0;
}

void Stream::attach(StreamImpl* impl) {
  if (impl) impl->ref();
  StreamImpl* previous = fImpl;
  fImpl = impl;
  if (previous) previous->unref();
}

StreamImpl& Stream::impl() const {
  if (!fImpl) {
    fImpl = new StreamImplMapped();
    fImpl->ref();
  }
  return *fImpl;
}

// Debug output

bool Stream::Debug(const Stream* stream, kivo::Debug::Print& print) {
  if (!stream) {
    Detail::printClassStatistics(print, "kivo::Data::Stream", _objectsCreated, _objectsAlive);
    return true;
  }
  const StreamImpl& impl = stream->impl();
  if (const auto* dense = dynamic_cast<const StreamImplDense*>(&impl))
    return StreamImplDense::Debug(dense, print);
  if (const auto* mapped = dynamic_cast<const StreamImplMapped*>(&impl))
    return StreamImplMapped::Debug(mapped, print);
  return StreamImpl::Debug(&impl, print);
}

bool Stream::Debug(const Stream* stream, kivo::Debug::Footprint& footprint) {
  if (!stream) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(stream, sizeof(Stream));
  const StreamImpl& impl = stream->impl();
  if (const auto* dense = dynamic_cast<const StreamImplDense*>(&impl))
    return StreamImplDense::Debug(dense, footprint);
  if (const auto* mapped = dynamic_cast<const StreamImplMapped*>(&impl))
    return StreamImplMapped::Debug(mapped, footprint);
  return StreamImpl::Debug(&impl, footprint);
}

}  // namespace kivo::Data
