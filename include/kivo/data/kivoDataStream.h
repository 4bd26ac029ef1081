// Stream: a named array of elements of one Structure, addressed by Index. A
// Stream is a handle onto a shared, reference-counted StreamImpl: copies
// share it, every mutation is seen by every Stream sharing it, operator==
// is identity, and makeUnique() gives this handle a private clone. A new
// stream stores its elements mapped (sparse, any index type); only
// useDenseStorage(true) switches to one contiguous block addressed by
// number. The stream holds a reference on its structure: give it a heap
// structure (Structure::create()), which then lives at least as long as the
// stream. Nothing here throws; refusals are false and change nothing.
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/kivoExport.h>

#include <cstdint>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Handle;
class StreamImpl;
class Structure;

class KIVO_EXPORT Stream {
 public:
  // Print filter adding element addresses to stream output.
  static const char* const kDebugHex;  // "hex"

  // Mapped, named "Stream", on a new empty structure, numeric indices.
  Stream();
  // Mapped, on structure (referenced) with that name, numeric indices.
  Stream(const Structure& structure, const std::string& name);
  // Copies share the implementation.
  Stream(const Stream& other);
  Stream& operator=(const Stream& other);
  ~Stream();

  // True when both share one implementation (identity, not contents).
  bool operator==(const Stream& other) const;
  bool operator!=(const Stream& other) const { return !(*this == other); }
  // Replaces a shared implementation by a private clone (elements deep
  // copied); false, changing nothing, when it is not shared.
  bool makeUnique();

  const std::string& name() const;
  // Renames the implementation: every Stream sharing it sees the new name.
  void setName(const std::string& name);
  const Structure& structure() const;
  // The index type's name: "numeric", "pair", "string", ...
  const std::string& indexType() const;
  // False while the stream has elements; otherwise takes the new structure.
  bool setStructure(const Structure& structure);
  // False for an unregistered type name, or for a different type while the
  // stream has elements. A change of type always leaves the stream mapped.
  bool setIndexType(const std::string& typeName);
  // True when the elements lie in one contiguous block.
  bool isDense() const;
  // The live DenseStreamViews onto the implementation (0 for mapped
  // storage). While there is one, what would change the element count or
  // move the block is refused: setElement and reindexElement at or beyond
  // the count, setElementRange to another count, clear(), setStructure(),
  // setIndexType() and useDenseStorage(false) return false. Writes to
  // existing elements and removals (which keep the count) go ahead.
  unsigned int pinCount() const;

  // Mapped: the number of entries. Dense: one more than the highest index
  // ever set (every slot below counts, removed ones included).
  unsigned int elementCount() const;

  // Iterators in storage order (index order); begin() == end() when empty.
  // They hold a plain pointer to the implementation: do not keep one past
  // the last Stream sharing it, and a dense iterator dies when the block
  // grows.
  StreamIterator begin() const;
  StreamIterator end() const;
  StreamIterator cbegin() const { return begin(); }
  StreamIterator cend() const { return end(); }

  // A handle on the first member, viewing the stored element (writes
  // through it change the stream; it becomes invalid when the element is
  // removed or, dense, when the block grows); a handle on the structure
  // without data when there is no such element.
  Handle element(const Index& index) const;
  bool hasElement(const Index& index) const;
  // Stores a deep copy of handle's element at index (a handle without data
  // stores the default element). False when handle is on another structure
  // object, or, dense, when no room can be made for index.
  bool setElement(const Index& index, const Handle& handle);
  // True also when there was no such element. Dense removal refills the
  // slot with defaults and never shifts: elementCount() stays.
  bool removeElement(const Index& index);
  // Moves the element at from to to (overwriting to); false when from is
  // absent. Mapped: (i, i) changes nothing. Dense: (i, i) resets element i
  // to defaults, and the count never shrinks.
  bool reindexElement(const Index& from, const Index& to);
  // False unless both elements exist. Mapped: exchanges them. Dense: true
  // and nothing moves (kept as it stands).
  bool swapElements(const Index& a, const Index& b);
  // Mapped: records the valid range only. Dense: sets the element count to
  // n = last + 1 - first; shrinking leaves it at n - 1 (kept as it stands).
  bool setElementRange(const Index& first, const Index& last);
  // Mapped: removes every element. Dense: frees the block but keeps both
  // counts; such a stream refuses new elements until it is assigned.
  bool clear();
  // Copies each element of other at numeric index 0 .. other.elementCount()
  // - 1 that has data into this stream; false at the first element that
  // cannot be stored (those before stay).
  bool mergeStream(const Stream& other);
  // A flag kept for callers; nothing in the library reads it. Returns the
  // previous value.
  bool setUseDefaults(bool useDefaults);
  bool useDefaults() const;
  // Switches storage kind, carrying every element over (a dense source's
  // default slots become explicit entries); the new storage starts with the
  // numeric index type. True at once when already of that kind; otherwise
  // true only when the stream was empty, false after carrying elements
  // (kept as it stands). A stream whose elements cannot all be placed in a
  // block (pair or string keys, an index too large to allocate) stays as it
  // was and the result is false.
  bool useDenseStorage(bool dense);

  // Print: the dense or mapped storage's text. Footprint: the handle and its
  // implementation.
  static bool Debug(const Stream* stream, kivo::Debug::Print& print);
  static bool Debug(const Stream* stream, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  friend class DenseStreamView;
  friend class StreamAccess;  // the library's own readers reach the storage

  // Takes a reference on impl before dropping the current one.
  void attach(StreamImpl* impl);
  // The implementation, creating the default mapped one if there is none.
  StreamImpl& impl() const;

  mutable StreamImpl* fImpl = nullptr;
};

}  // namespace Data
}  // namespace kivo
