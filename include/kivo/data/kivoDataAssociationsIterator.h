// AssociationsIterator: walks the channels of an associations object in
// name order, yielding the stored Channel values. It holds its position by
// value in an AssociationsIteratorImpl; copies are independent. An iterator
// takes no reference: it must not outlive the associations implementation,
// and removing a channel invalidates iterators positioned on it. Advance
// with the prefix form: the post-increment, kept as it stands, returns the
// old position and does not move the iterator.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataAssociationsImpl.h>
#include <kivo/data/kivoDataIterLocation.h>

#include <cstdint>
#include <memory>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

// The position inside one associations implementation's set of channels.
class KIVO_EXPORT AssociationsIteratorImpl {
 public:
  // No associations, no position: never valid.
  AssociationsIteratorImpl();
  // On the first channel for kBegin, at the end for any other value. A null
  // associations gives an iterator without position.
  AssociationsIteratorImpl(const AssociationsImpl* associations, IterLocation location);
  // Deep copies: the position is copied, not shared.
  AssociationsIteratorImpl(const AssociationsIteratorImpl& other);
  AssociationsIteratorImpl& operator=(const AssociationsIteratorImpl& other);
  ~AssociationsIteratorImpl();

  // Equal when on the same associations and set, and both without position
  // or both at the same position.
  bool operator==(const AssociationsIteratorImpl& other) const;
  bool operator!=(const AssociationsIteratorImpl& other) const { return !(*this == other); }

  // A set, a position, and not at the end.
  bool valid() const;
  // The channel at the position; null when not valid.
  Channel* channel() const;
  // Moves to the next channel in name order; does nothing when not valid.
  void advance();
  const AssociationsImpl* associations() const { return fAssociations; }

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  friend class AssociationsIterator;  // counts the position in its footprint
  using Position = AssociationsImpl::ChannelSet::const_iterator;

  const AssociationsImpl* fAssociations = nullptr;
  const AssociationsImpl::ChannelSet* fChannels = nullptr;
  std::unique_ptr<Position> fPosition;
};

class KIVO_EXPORT AssociationsIterator {
 public:
  // Never valid; dereferencing it throws.
  AssociationsIterator();
  // On the first channel for kBegin, at the end otherwise.
  AssociationsIterator(const AssociationsImpl* associations, IterLocation location);
  AssociationsIterator(const AssociationsIterator& other);
  AssociationsIterator& operator=(const AssociationsIterator& other);
  ~AssociationsIterator();

  // The stored channel at the position (its name cannot change, so it may
  // be used to change the channel's streams). When not valid these throw
  // std::out_of_range: "AssociationsImpl::Iterator::operator*",
  // "AssociationsImpl::Iterator::operator->" and
  // "const AssociationsImpl::Iterator::operator->".
  Channel& operator*() const;
  Channel* operator->();
  const Channel* operator->() const;

  // Next channel in name order; at the end nothing changes.
  AssociationsIterator& operator++();
  // Returns a copy of the current position and leaves this iterator where it
  // was: it never advances. Kept as it stands; loops use the prefix form.
  AssociationsIterator operator++(int);

  bool operator==(const AssociationsIterator& other) const { return fImpl == other.fImpl; }
  bool operator!=(const AssociationsIterator& other) const { return !(fImpl == other.fImpl); }
  bool valid() const { return fImpl.valid(); }

  // One line naming the channel at the position, or the end. Null prints
  // the class counters.
  static bool Debug(const AssociationsIterator* iterator, kivo::Debug::Print& print);
  // The iterator object and its position.
  static bool Debug(const AssociationsIterator* iterator, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  AssociationsIteratorImpl fImpl;
};

}  // namespace Data
}  // namespace kivo
