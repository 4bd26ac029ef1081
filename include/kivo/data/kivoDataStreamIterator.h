// StreamIterator: walks a stream in storage order, giving at each position
// the element's Handle and its Index. Owns one polymorphic
// StreamIteratorImpl (none when default-constructed); copies clone it. An
// iterator without implementation throws std::runtime_error("No Stream
// Iterator implementation") from every operation that needs one. Advance
// with the prefix form: the postfix form returns an iterator at the NEXT
// position and leaves this one where it was (kept as it stands).
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Handle;
class StreamIteratorImpl;

class KIVO_EXPORT StreamIterator {
 public:
  // No implementation.
  StreamIterator();
  // Takes ownership of impl (may be null).
  explicit StreamIterator(StreamIteratorImpl* impl);
  // Clones the other's implementation (none if it has none).
  StreamIterator(const StreamIterator& other);
  // Nothing when both hold the same implementation object; otherwise
  // replaces its own by a clone of the other's.
  StreamIterator& operator=(const StreamIterator& other);
  ~StreamIterator();

  // The current element's handle: it writes into the stream. At the end a
  // handle without data (dense) or the stream's default handle (mapped).
  // Throws std::out_of_range("Iterator not at a valid position") when the
  // iterator has no storage.
  Handle& operator*();
  const Handle& operator*() const;
  Handle* operator->();
  const Handle* operator->() const;

  // Dense: the slot number, Index(0xFFFFFFFF) past the last element.
  // Mapped: the key, Index() at the end.
  Index index() const;
  // False without implementation or at the end.
  bool valid() const;

  StreamIterator& operator++();
  // Returns an iterator at the next position; this one stays put.
  StreamIterator operator++(int);

  // Different when exactly one side has an implementation, else when the
  // end flags, the streams or the indices differ.
  bool operator!=(const StreamIterator& other) const;
  bool operator==(const StreamIterator& other) const { return !(*this != other); }

  // Print: the iterator's position. Null prints the class counters.
  static bool Debug(const StreamIterator* iterator, kivo::Debug::Print& print);
  static bool Debug(const StreamIterator* iterator, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // The implementation; throws std::runtime_error when there is none.
  StreamIteratorImpl& impl() const;

  StreamIteratorImpl* fImpl = nullptr;
};

}  // namespace Data
}  // namespace kivo
