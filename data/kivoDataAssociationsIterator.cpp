#include <kivo/data/kivoDataAssociationsIterator.h>

#include <stdexcept>
#include <string>

#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kDereference[] = "AssociationsImpl::Iterator::operator*";
constexpr char kArrow[] = "AssociationsImpl::Iterator::operator->";
constexpr char kConstArrow[] = "const AssociationsImpl::Iterator::operator->";

}  // namespace

uint64_t AssociationsIteratorImpl::_objectsCreated = 0;
uint64_t AssociationsIteratorImpl::_objectsAlive = 0;
uint64_t AssociationsIterator::_objectsCreated = 0;
uint64_t AssociationsIterator::_objectsAlive = 0;

// AssociationsIteratorImpl

AssociationsIteratorImpl::AssociationsIteratorImpl() {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsIteratorImpl::AssociationsIteratorImpl(const AssociationsImpl* associations,
                                                   IterLocation location)
    : AssociationsIteratorImpl() {
  if (!associations) return;
  fAssociations = associations;
  fChannels = &associations->channels();
  fPosition =
      std::make_unique<Position>(location == kBegin ? fChannels->begin() : fChannels->end());
}

AssociationsIteratorImpl::AssociationsIteratorImpl(const AssociationsIteratorImpl& other)
    : AssociationsIteratorImpl() {
  *this = other;
}

AssociationsIteratorImpl& AssociationsIteratorImpl::operator=(
    const AssociationsIteratorImpl& other) {
  if (this == &other) return *this;
  fAssociations = other.fAssociations;
  fChannels = other.fChannels;
  fPosition = other.fPosition ? std::make_unique<Position>(*other.fPosition) : nullptr;
  return *this;
}

AssociationsIteratorImpl::~AssociationsIteratorImpl() { --_objectsAlive; }

bool AssociationsIteratorImpl::operator==(const AssociationsIteratorImpl& other) const {
  if (fAssociations != other.fAssociations || fChannels != other.fChannels) return false;
  if (!fPosition || !other.fPosition) return !fPosition && !other.fPosition;
  return *fPosition == *other.fPosition;
}

bool AssociationsIteratorImpl::valid() const {
  return fChannels && fPosition && *fPosition != fChannels->end();
}

Channel* AssociationsIteratorImpl::channel() const {
  // The set keeps its elements const for the sake of their order; a Channel
  // cannot change its name, so handing it out for changes keeps the order.
  return valid() ? const_cast<Channel*>(&**fPosition) : nullptr;
}

void AssociationsIteratorImpl::advance() {
  if (valid()) ++*fPosition;
}

// AssociationsIterator

AssociationsIterator::AssociationsIterator() {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsIterator::AssociationsIterator(const AssociationsImpl* associations,
                                           IterLocation location)
    : fImpl(associations, location) {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsIterator::AssociationsIterator(const AssociationsIterator& other) : fImpl(other.fImpl) {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsIterator& AssociationsIterator::operator=(const AssociationsIterator& other) {
  fImpl = other.fImpl;
  return *this;
}

AssociationsIterator::~AssociationsIterator() { --_objectsAlive; }

Channel& AssociationsIterator::operator*() const {
  Channel* channel = fImpl.channel();
  if (!channel) throw std::out_of_range(kDereference);
  return *channel;
}

Channel* AssociationsIterator::operator->() {
  Channel* channel = fImpl.channel();
  if (!channel) throw std::out_of_range(kArrow);
  return channel;
}

const Channel* AssociationsIterator::operator->() const {
  const Channel* channel = fImpl.channel();
  if (!channel) throw std::out_of_range(kConstArrow);
  return channel;
}

AssociationsIterator& AssociationsIterator::operator++() {
  fImpl.advance();
  return *this;
}

AssociationsIterator AssociationsIterator::operator++(int) {
  // The old position is handed back and restored, so this iterator stays
  // where it was.
  AssociationsIterator previous(*this);
  ++*this;
  *this = previous;
  return previous;
}

// Debug output

bool AssociationsIterator::Debug(const AssociationsIterator* iterator, kivo::Debug::Print& print) {
  if (!iterator) {
    Detail::printClassStatistics(print, "AssociationsIterator", _objectsCreated, _objectsAlive);
    return true;
  }
  const Channel* channel = iterator->fImpl.channel();
  Detail::printLine(print, channel ? "AssociationsIterator positioned at Channel " + channel->name()
                                   : std::string("AssociationsIterator positioned at the end."));
  return true;
}

bool AssociationsIterator::Debug(const AssociationsIterator* iterator,
                                 kivo::Debug::Footprint& footprint) {
  if (!iterator) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(iterator, sizeof(*iterator));
  if (iterator->fImpl.fPosition) {
    footprint.addMember(iterator->fImpl.fPosition.get(),
                        sizeof(AssociationsIteratorImpl::Position));
  }
  return true;
}

}  // namespace kivo::Data
