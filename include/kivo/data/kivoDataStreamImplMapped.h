// StreamImplMapped: the sparse storage of a stream and the kind every stream
// starts with: an ordered map from Index (any index type) to a Handle that
// owns its element. Iteration follows Index order. A default handle on the
// structure stands for a missing element (end iterators point at it). Copies
// and clones deep-copy every element, strings included.
//
// Departure, so that a few bytes of a file cannot claim a whole element per
// stream: the default handle views the structure's default block
// (Structure::sharedDefaultElement), which every stream of the structure
// shares, instead of owning a copy of it; only when that block is shorter
// than an element (members added after it was built) does a stream keep a
// copy of its own. Writing through an end iterator's handle therefore
// changes the structure's defaults, for every stream and every new element
// block made from them.
#pragma once

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStreamImpl.h>
#include <kivo/kivoExport.h>

#include <cstdint>
#include <map>
#include <string>

namespace kivo::Data {

class StreamMappedIteratorImpl;

class KIVO_EXPORT StreamImplMapped : public StreamImpl {
 public:
  using ElementMap = std::map<Index, Handle>;

  StreamImplMapped(const Structure& structure, const std::string& name);
  // Name, structure and index type of base; no elements.
  explicit StreamImplMapped(const StreamImpl& base);
  // Named "Stream", on a new empty structure, numeric index type.
  StreamImplMapped();
  StreamImplMapped(const StreamImplMapped& other);
  // Drops every element, then copies the StreamImpl part, the valid range
  // and deep copies of other's elements.
  StreamImplMapped& operator=(const StreamImplMapped& other);
  ~StreamImplMapped() override;

  StreamImpl* clone() const override;
  StreamIterator begin() const override;
  StreamIterator end() const override;
  StreamIterator cbegin() const override { return begin(); }
  StreamIterator cend() const override { return end(); }
  // The number of entries.
  unsigned int elementCount() const override;
  // Assigns handle to the stored handle (Handle::operator=: structure,
  // member position, data), then gives the stored one a private deep copy.
  // A handle without data has no block to copy: the default element is
  // stored instead, at handle's position. False only when handle is on
  // another structure object.
  bool setElement(const Index& index, const Handle& handle) override;
  // A copy of the stored handle (viewing the stored element, at the stored
  // member position); one without data when absent.
  Handle element(const Index& index) const override;
  // Stores handle's element at index like setElement, but moves the block
  // into place when handle owns it rather than copying it: the stored
  // handle takes handle's structure, position, block and ownership, and
  // handle is left with what was stored there before (no data for a new
  // index). A handle viewing its block is copied first, as by setElement.
  bool takeElement(const Index& index, Handle& handle);
  bool hasElement(const Index& index) const override;
  // False when from is absent; (i, i) is true and changes nothing;
  // otherwise the element replaces any at to and from is removed.
  bool reindexElement(const Index& from, const Index& to) override;
  // Exchanges the two elements; false unless both are present.
  bool swapElements(const Index& a, const Index& b) override;
  // True; also when there was no such element.
  bool removeElement(const Index& index) override;
  // Records first and last as the valid range; elements are untouched.
  bool setElementRange(const Index& first, const Index& last) override;
  bool clear() override;

  const Index& lowestValidIndex() const { return fLowest; }
  const Index& highestValidIndex() const { return fHighest; }

  // "Data Stream (Mapped)" section: the stream line, with the "hex" filter
  // on the object's address, the valid range, then a "Stream Elements"
  // section with one "Index (key), Handle (value)" line per entry in key
  // order. Null prints the class counters. The footprint counts the
  // object, its name texts, each entry with its element block, and the
  // default element (the shared block too, in every stream that views it).
  static bool Debug(const StreamImplMapped* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamImplMapped* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  // Rebuilds the default handle on the new structure.
  void structureReplaced(const Structure& previous) override;

 private:
  friend class StreamMappedIteratorImpl;

  // Where index is or would go in the map.
  ElementMap::iterator placeFor(const Index& index);

  // Deep copies of other's entries.
  void copyElements(const StreamImplMapped& other);

  ElementMap fElements;
  Handle fDefault;
  Index fLowest;
  Index fHighest;
};

}  // namespace kivo::Data
