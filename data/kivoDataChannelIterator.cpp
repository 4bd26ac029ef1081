#include <kivo/data/kivoDataChannelIterator.h>

#include <stdexcept>
#include <string>

#include <kivo/data/kivoDataStream.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kDereference[] = "ChannelImpl::Iterator::operator*";
constexpr char kArrow[] = "ChannelImpl::Iterator::operator->";
constexpr char kConstArrow[] = "const ChannelImpl::Iterator::operator->";

}  // namespace

uint64_t ChannelIteratorImpl::_objectsCreated = 0;
uint64_t ChannelIteratorImpl::_objectsAlive = 0;
uint64_t ChannelIterator::_objectsCreated = 0;
uint64_t ChannelIterator::_objectsAlive = 0;

// ChannelIteratorImpl

ChannelIteratorImpl::ChannelIteratorImpl() {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelIteratorImpl::ChannelIteratorImpl(const ChannelImpl* channel, IterLocation location)
    : ChannelIteratorImpl() {
  if (!channel) return;
  fChannel = channel;
  fStreams = &channel->streams();
  fPosition = std::make_unique<Position>(location == kBegin ? fStreams->begin() : fStreams->end());
}

ChannelIteratorImpl::ChannelIteratorImpl(const ChannelIteratorImpl& other) : ChannelIteratorImpl() {
  *this = other;
}

ChannelIteratorImpl& ChannelIteratorImpl::operator=(const ChannelIteratorImpl& other) {
  if (this == &other) return *this;
  fChannel = other.fChannel;
  fStreams = other.fStreams;
  fPosition = other.fPosition ? std::make_unique<Position>(*other.fPosition) : nullptr;
  return *this;
}

ChannelIteratorImpl::~ChannelIteratorImpl() { --_objectsAlive; }

bool ChannelIteratorImpl::operator==(const ChannelIteratorImpl& other) const {
  if (fChannel != other.fChannel || fStreams != other.fStreams) return false;
  if (!fPosition || !other.fPosition) return !fPosition && !other.fPosition;
  return *fPosition == *other.fPosition;
}

bool ChannelIteratorImpl::valid() const {
  return fStreams && fPosition && *fPosition != fStreams->end();
}

Stream* ChannelIteratorImpl::stream() const { return valid() ? **fPosition : nullptr; }

void ChannelIteratorImpl::advance() {
  if (valid()) ++*fPosition;
}

// ChannelIterator

ChannelIterator::ChannelIterator() {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelIterator::ChannelIterator(const ChannelImpl* channel, IterLocation location)
    : fImpl(channel, location) {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelIterator::ChannelIterator(const ChannelIterator& other) : fImpl(other.fImpl) {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelIterator& ChannelIterator::operator=(const ChannelIterator& other) {
  fImpl = other.fImpl;
  return *this;
}

ChannelIterator::~ChannelIterator() { --_objectsAlive; }

Stream* ChannelIterator::operator*() const {
  if (!fImpl.valid()) throw std::out_of_range(kDereference);
  return fImpl.stream();
}

Stream* ChannelIterator::operator->() {
  if (!fImpl.valid()) throw std::out_of_range(kArrow);
  return fImpl.stream();
}

const Stream* ChannelIterator::operator->() const {
  if (!fImpl.valid()) throw std::out_of_range(kConstArrow);
  return fImpl.stream();
}

ChannelIterator& ChannelIterator::operator++() {
  fImpl.advance();
  return *this;
}

ChannelIterator ChannelIterator::operator++(int) {
  // The old position is handed back and restored, so this iterator stays
  // where it was.
  ChannelIterator previous(*this);
  ++*this;
  *this = previous;
  return previous;
}

// Debug output

bool ChannelIterator::Debug(const ChannelIterator* iterator, kivo::Debug::Print& print) {
  if (!iterator) {
    Detail::printClassStatistics(print, "ChannelIterator", _objectsCreated, _objectsAlive);
    return true;
  }
  std::string line = "ChannelIterator ";
  if (!iterator->valid()) {
    line += "postioned at the end.";
  } else if (const Stream* stream = iterator->fImpl.stream()) {
    line += "positioned at Stream " + stream->name();
  } else {
    line += "positioned at NULL Stream ";
  }
  Detail::printLine(print, line);
  return true;
}

bool ChannelIterator::Debug(const ChannelIterator* iterator, kivo::Debug::Footprint& footprint) {
  if (!iterator) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(iterator, sizeof(*iterator));
  if (iterator->fImpl.fPosition) {
    footprint.addMember(iterator->fImpl.fPosition.get(), sizeof(ChannelIteratorImpl::Position));
  }
  return true;
}

}  // namespace kivo::Data
