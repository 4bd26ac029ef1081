// StreamImplDense: the contiguous storage of a stream, for numeric indices:
// elements lie back to back in one malloc'ed block, slot i at i x
// totalSize(). Every slot of the block always holds a complete element
// (defaults until set). The element count is one more than the highest
// index ever set; removal never shifts and never lowers it. The block grows
// to about one 4096-byte page of elements first, then by 3/2, which may move
// it: handles and iterators into it die when it grows. Complex indices are
// refused (absent, or false). Copies and clones deep-copy the block.
// While DenseStreamViews pin the storage (pinCount()), whatever would change
// the element count or move or free the block is refused: setElement and
// reindexElement at or beyond the count, setElementRange to another count,
// clear(), growth (false), and assignment (throws std::logic_error "A dense
// stream pinned by a view cannot be assigned").
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStreamImpl.h>
#include <kivo/kivoExport.h>

#include <cstdint>
#include <string>

namespace kivo::Data {

class KIVO_EXPORT StreamImplDense : public StreamImpl {
 public:
  StreamImplDense(const Structure& structure, const std::string& name);
  // Name, structure and index type of base; no elements.
  explicit StreamImplDense(const StreamImpl& base);
  // Named "Stream", on a new empty structure, numeric index type.
  StreamImplDense();
  StreamImplDense(const StreamImplDense& other);
  // Clears this stream, then copies the StreamImpl part, both counts and a
  // deep copy of other's block. Throws std::logic_error when pinned.
  StreamImplDense& operator=(const StreamImplDense& other);
  // Clears.
  ~StreamImplDense() override;

  StreamImpl* clone() const override;
  StreamIterator begin() const override;
  StreamIterator end() const override;
  StreamIterator cbegin() const override { return begin(); }
  StreamIterator cend() const override { return end(); }
  unsigned int elementCount() const override { return fElementCount; }
  // Grows the block as needed and deep-copies handle's element into slot
  // index (a handle without data writes the defaults). False when handle is
  // on another structure object, index is complex, or no room can be made.
  bool setElement(const Index& index, const Handle& handle) override;
  // A handle viewing the slot (no ownership, sees later changes); one
  // without data at or beyond the element count.
  Handle element(const Index& index) const override;
  bool hasElement(const Index& index) const override;
  // Moves slot from to slot to and refills from with defaults; raises the
  // count to to + 1, never lowers it. (i, i) resets element i to defaults.
  // False when from is not below the element count.
  bool reindexElement(const Index& from, const Index& to) override;
  // True when both are below the element count, and nothing moves (kept as
  // it stands); false otherwise.
  bool swapElements(const Index& a, const Index& b) override;
  // Refills the slot with defaults; the count stays. True also when there
  // is no such element.
  bool removeElement(const Index& index) override;
  // Sets the element count to n = last + 1 - first (32-bit): growing makes
  // room for index n and returns whether that worked (nothing changes when
  // it did not); shrinking resets slots n and up to defaults and leaves the
  // count at n - 1 (kept as it stands; 0 for n = 0).
  bool setElementRange(const Index& first, const Index& last) override;
  // Destroys the elements and frees the block; both counts keep their
  // values, and the stream then refuses new elements (assign it to reuse).
  // False, changing nothing, while pinned.
  bool clear() override;

  // Index(p) for p below the element count, else Index(0xFFFFFFFF).
  virtual Index indexOfPhysicalElement(unsigned int position) const;
  // The number of slots allocated.
  virtual unsigned int physicalElementCount() const { return fAllocatedCount; }
  // The slot's address; null when index is not below the allocated count,
  // is complex, or there is no block.
  virtual char* elementAddr(const Index& index) const;
  // Makes room for index: first allocation 4096 / totalSize() slots, then
  // x3/2 (32-bit arithmetic), or index x 3/2 when that is not above index
  // (kept as it stands, so it may still fall short: the block still grows
  // to that capacity when it is above the allocated count, and the result
  // is false). New slots get the defaults. True when index now has a slot
  // (also for a structure of size 0). The block never shrinks; an index x 3
  // that wraps past 32 bits, a byte count that does not fit, or a failed
  // allocation keeps the old block (false).
  virtual bool ensureSpaceForElement(const Index& index);

  // "Data Stream" section: the stream line, with the "hex" filter on the
  // object's address, the element count as "Highest valid index", the
  // allocated count, then a "Stream Elements" section listing every slot
  // below the count with its members. Null prints StreamImpl's counters.
  // The footprint counts the object, its name texts and its block.
  static bool Debug(const StreamImplDense* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamImplDense* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  // Releases the block laid out for previous; both counts become 0.
  void structureReplaced(const Structure& previous) override;

 private:
  // Slot i of the block (no checks).
  char* slot(uint32_t i) const;
  // True when p points into the block.
  bool insideBlock(const char* p) const;
  // Destroys every allocated slot through structure and frees the block.
  void releaseBlock(const Structure& structure);

  uint32_t fElementCount = 0;
  uint32_t fAllocatedCount = 0;
  char* fBlock = nullptr;
};

}  // namespace kivo::Data
