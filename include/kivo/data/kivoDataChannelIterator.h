// ChannelIterator: walks the streams of a channel in name order, yielding
// Stream pointers owned by the channel. It holds its position by value in a
// ChannelIteratorImpl; copies are independent. An iterator takes no
// reference: it must not outlive the channel implementation, and adding or
// removing streams invalidates iterators positioned on removed streams.
// Advance with the prefix form: the post-increment, kept as it stands,
// returns the old position and does not move the iterator.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataChannelImpl.h>
#include <kivo/data/kivoDataIterLocation.h>

#include <cstdint>
#include <memory>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Stream;

// The position inside one channel implementation's set of streams.
class KIVO_EXPORT ChannelIteratorImpl {
 public:
  // No channel, no position: never valid.
  ChannelIteratorImpl();
  // On the first stream of channel for kBegin, at its end for any other
  // value. A null channel gives an iterator without position.
  ChannelIteratorImpl(const ChannelImpl* channel, IterLocation location);
  // Deep copies: the position is copied, not shared.
  ChannelIteratorImpl(const ChannelIteratorImpl& other);
  ChannelIteratorImpl& operator=(const ChannelIteratorImpl& other);
  ~ChannelIteratorImpl();

  // Equal when on the same channel and set, and both without position or
  // both at the same position.
  bool operator==(const ChannelIteratorImpl& other) const;
  bool operator!=(const ChannelIteratorImpl& other) const { return !(*this == other); }

  // A set, a position, and not at the end.
  bool valid() const;
  // The stream at the position; null when not valid.
  Stream* stream() const;
  // Moves to the next stream in name order; does nothing when not valid.
  void advance();
  const ChannelImpl* channel() const { return fChannel; }

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  friend class ChannelIterator;  // counts the position in its footprint
  using Position = ChannelImpl::StreamSet::const_iterator;

  const ChannelImpl* fChannel = nullptr;
  const ChannelImpl::StreamSet* fStreams = nullptr;
  std::unique_ptr<Position> fPosition;
};

class KIVO_EXPORT ChannelIterator {
 public:
  // Never valid; dereferencing it throws.
  ChannelIterator();
  // On the first stream for kBegin, at the end otherwise.
  ChannelIterator(const ChannelImpl* channel, IterLocation location);
  ChannelIterator(const ChannelIterator& other);
  ChannelIterator& operator=(const ChannelIterator& other);
  ~ChannelIterator();

  // The stream at the position, owned by the channel. When not valid these
  // throw std::out_of_range: "ChannelImpl::Iterator::operator*",
  // "ChannelImpl::Iterator::operator->" and
  // "const ChannelImpl::Iterator::operator->".
  Stream* operator*() const;
  Stream* operator->();
  const Stream* operator->() const;

  // Next stream in name order; at the end nothing changes.
  ChannelIterator& operator++();
  // Returns a copy of the current position and leaves this iterator where it
  // was: it never advances. Kept as it stands; loops use the prefix form.
  ChannelIterator operator++(int);

  bool operator==(const ChannelIterator& other) const { return fImpl == other.fImpl; }
  bool operator!=(const ChannelIterator& other) const { return !(fImpl == other.fImpl); }
  bool valid() const { return fImpl.valid(); }

  // "ChannelIterator positioned at Stream <name>" or "ChannelIterator
  // postioned at the end." on one line. Null prints the class counters.
  static bool Debug(const ChannelIterator* iterator, kivo::Debug::Print& print);
  // The iterator object and its position.
  static bool Debug(const ChannelIterator* iterator, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  ChannelIteratorImpl fImpl;
};

}  // namespace Data
}  // namespace kivo
