#include <kivo/data/kivoDataStreamImplDense.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStreamDenseIteratorImpl.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/kivoClassStatistics.h"
#include "support/kivoOwnership.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

// The index past the last element, reported by iterators at the end.
constexpr uint32_t kPastTheEnd = 0xFFFFFFFFu;
// The first allocation holds about one page of elements.
constexpr uint64_t kFirstAllocationBytes = 4096;

// The slot number of a numeric index; false for a complex one, which has no
// place in a block.
bool slotOf(const Index& index, uint32_t& slot) {
  if (index.isComplex()) return false;
  slot = index.index();
  return true;
}

}  // namespace

uint64_t StreamImplDense::_objectsCreated = 0;
uint64_t StreamImplDense::_objectsAlive = 0;

StreamImplDense::StreamImplDense(const Structure& structure, const std::string& name)
    : StreamImpl(structure, name) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplDense::StreamImplDense(const StreamImpl& base) : StreamImpl(base) {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplDense::StreamImplDense() {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplDense::StreamImplDense(const StreamImplDense& other) : StreamImpl(other) {
  ++_objectsCreated;
  ++_objectsAlive;
  *this = other;
}

StreamImplDense& StreamImplDense::operator=(const StreamImplDense& other) {
  if (this == &other) return *this;
  clear();
  StreamImpl::operator=(other);
  fElementCount = other.fElementCount;
  fAllocatedCount = other.fAllocatedCount;
  fBlock = nullptr;
  const uint64_t size = structure().totalSize();
  if (!other.fBlock || fAllocatedCount == 0 || size == 0) return *this;
  fBlock = static_cast<char*>(std::malloc(fAllocatedCount * size));
  if (!fBlock) return *this;  // left like a cleared stream
  // Every slot owns its strings, so every slot gets copies of its own.
  for (uint32_t i = 0; i < fAllocatedCount; ++i)
    structure().fillWithDuplicateChunk(slot(i), other.slot(i));
  return *this;
}

StreamImplDense::~StreamImplDense() {
  --_objectsAlive;
  clear();
}

StreamImpl* StreamImplDense::clone() const { return new StreamImplDense(*this); }

StreamIterator StreamImplDense::begin() const {
  if (fElementCount == 0 || !fBlock) return end();
  return StreamIterator(new StreamDenseIteratorImpl(*this, true));
}

StreamIterator StreamImplDense::end() const {
  return StreamIterator(new StreamDenseIteratorImpl(*this, false));
}

bool StreamImplDense::setElement(const Index& index, const Handle& handle) {
  uint32_t target = 0;
  if (!handle.usesStructure(structure()) || !slotOf(index, target)) return false;
  const Structure& layout = structure();
  const char* source = handle.data();
  if (source && insideBlock(source)) {
    if (source == elementAddr(index)) {  // the element onto itself
      fElementCount = std::max(fElementCount, target + 1);
      return true;
    }
    // Growing may move the block under the source: copy it out first.
    Detail::Chunk<Structure> copy(layout, layout.duplicateChunk(source));
    ensureSpaceForElement(index);
    char* dest = elementAddr(index);
    if (!dest || !copy.get()) return false;
    layout.destroyChunk(dest);
    std::memcpy(dest, copy.get(), layout.totalSize());
    delete[] copy.release();  // its strings now belong to the slot
  } else {
    ensureSpaceForElement(index);
    char* dest = elementAddr(index);
    if (!dest) return false;
    layout.destroyChunk(dest);
    const bool copied =
        source ? copyElementFromHandle(dest, handle) : layout.fillWithDefaultChunk(dest);
    if (!copied) {
      layout.fillWithDefaultChunk(dest);
      return false;
    }
  }
  fElementCount = std::max(fElementCount, target + 1);
  return true;
}

Handle StreamImplDense::element(const Index& index) const {
  uint32_t position = 0;
  char* address = elementAddr(index);
  if (!slotOf(index, position) || position >= fElementCount || !address)
    return Handle(structure(), nullptr);
  return Handle(structure(), address);
}

bool StreamImplDense::hasElement(const Index& index) const {
  uint32_t position = 0;
  return slotOf(index, position) && position < fElementCount;
}

bool StreamImplDense::reindexElement(const Index& from, const Index& to) {
  uint32_t source = 0, target = 0;
  if (!slotOf(from, source) || !slotOf(to, target)) return false;
  if (source >= fElementCount || !elementAddr(from)) return false;
  const Structure& layout = structure();
  if (source == target) {  // duplicated onto itself, then reset: defaults
    layout.destroyChunk(slot(source));
    return layout.fillWithDefaultChunk(slot(source));
  }
  ensureSpaceForElement(to);
  char* dest = elementAddr(to);
  if (!dest) return false;
  char* moving = slot(source);  // after the growth, which may move the block
  layout.destroyChunk(dest);
  std::memcpy(dest, moving, layout.totalSize());  // the strings move with it
  fElementCount = std::max(fElementCount, target + 1);
  return layout.fillWithDefaultChunk(moving);
}

bool StreamImplDense::swapElements(const Index& a, const Index& b) {
  // Assigning the two slots' handles to one another re-points handles and
  // moves no data: the block stays as it was.
  return hasElement(a) && hasElement(b);
}

bool StreamImplDense::removeElement(const Index& index) {
  uint32_t position = 0;
  char* address = elementAddr(index);
  if (!slotOf(index, position) || position >= fElementCount || !address) return true;
  structure().destroyChunk(address);
  structure().fillWithDefaultChunk(address);
  return true;
}

bool StreamImplDense::setElementRange(const Index& first, const Index& last) {
  const uint32_t count = last.index() + 1u - first.index();
  if (count > fElementCount) {
    if (!ensureSpaceForElement(Index(count))) return false;
    fElementCount = count;
    return true;
  }
  if (count == fElementCount) return true;
  const Structure& layout = structure();
  const uint32_t top = std::min(fElementCount, fBlock ? fAllocatedCount : 0u);
  for (uint32_t i = count; i < top; ++i) {
    layout.destroyChunk(slot(i));
    std::memset(slot(i), 0, layout.totalSize());
  }
  for (uint32_t i = top; i > count; --i) layout.fillWithDefaultChunk(slot(i - 1));
  // The count ends one below the size asked for (slot count - 1 keeps its
  // data but no longer counts).
  fElementCount = count > 0 ? count - 1 : 0;
  return true;
}

bool StreamImplDense::clear() {
  if (!fBlock) return true;
  releaseBlock(structure());
  return true;
}

Index StreamImplDense::indexOfPhysicalElement(unsigned int position) const {
  return position < fElementCount ? Index(position) : Index(kPastTheEnd);
}

char* StreamImplDense::elementAddr(const Index& index) const {
  uint32_t position = 0;
  if (!fBlock || !slotOf(index, position) || position >= fAllocatedCount) return nullptr;
  return slot(position);
}

bool StreamImplDense::ensureSpaceForElement(const Index& index) {
  const uint32_t wanted = index.index();
  if (wanted >= fAllocatedCount) {
    const uint64_t size = structure().totalSize();
    if (size == 0) return true;
    // A cleared stream kept its counts but not its block: nothing to grow.
    if (!fBlock && fAllocatedCount > 0) return false;
    uint32_t capacity = fAllocatedCount <= 1 ? static_cast<uint32_t>(kFirstAllocationBytes / size)
                                             : (fAllocatedCount * 3u) >> 1;
    if (capacity <= wanted) capacity = (wanted * 3u) >> 1;
    // The 32-bit arithmetic may still fall short of the index (or wrap
    // around for large ones); such a block could not hold it, so none is made.
    if (capacity > wanted) {
      char* grown = static_cast<char*>(std::realloc(fBlock, uint64_t(capacity) * size));
      if (!grown) return false;  // the old block and its elements stay
      fBlock = grown;
      for (uint32_t i = fAllocatedCount; i < capacity; ++i) structure().fillWithDefaultChunk(slot(i));
      fAllocatedCount = capacity;
    }
  }
  return fBlock && wanted < fAllocatedCount;
}

void StreamImplDense::structureReplaced(const Structure& previous) {
  if (fBlock) releaseBlock(previous);
  fElementCount = 0;
  fAllocatedCount = 0;
}

char* StreamImplDense::slot(uint32_t i) const { return fBlock + uint64_t(i) * structure().totalSize(); }

bool StreamImplDense::insideBlock(const char* p) const {
  if (!fBlock) return false;
  const uint64_t bytes = uint64_t(fAllocatedCount) * structure().totalSize();
  return p >= fBlock && p < fBlock + bytes;
}

void StreamImplDense::releaseBlock(const Structure& layout) {
  const uint64_t size = layout.totalSize();
  for (uint32_t i = 0; i < fAllocatedCount; ++i) layout.destroyChunk(fBlock + uint64_t(i) * size);
  std::free(fBlock);
  fBlock = nullptr;
}

// Debug output

bool StreamImplDense::Debug(const StreamImplDense* impl, kivo::Debug::Print& print) {
  if (!impl) return StreamImpl::Debug(nullptr, print);
  print.beginSection("Data Stream");
  StreamImpl::Debug(impl, print);
  Detail::printLine(print, "Highest valid index = " + std::to_string(impl->fElementCount));
  Detail::printLine(print, "Number allocated    = " + std::to_string(impl->fAllocatedCount));
  print.endSection();
  return true;
}

bool StreamImplDense::Debug(const StreamImplDense* impl, kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamImplDense));
  if (impl->fBlock)
    footprint.addMember(impl->fBlock, uint64_t(impl->fAllocatedCount) * impl->structure().totalSize());
  return true;
}

}  // namespace kivo::Data
