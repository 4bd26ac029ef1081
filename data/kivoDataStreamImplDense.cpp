#include <kivo/data/kivoDataStreamImplDense.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamDenseIteratorImpl.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/kivoClassStatistics.h"
#include "support/kivoDebugParts.h"
#include "support/kivoOwnership.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

// The index past the last element, reported by iterators at the end.
constexpr uint32_t kPastTheEnd = 0xFFFFFFFFu;
// The first allocation holds about one page of elements.
constexpr uint64_t kFirstAllocationBytes = 4096;

// Debug texts.
constexpr char kStreamTitle[] = "Data Stream";
constexpr char kElementsTitle[] = "Stream Elements";
constexpr char kHighestValidIndex[] = "Highest valid index = ";
constexpr char kNumberAllocated[] = "Number allocated    = ";
constexpr char kElementCount[] = "Element count = ";

constexpr char kPinnedAssignment[] = "A dense stream pinned by a view cannot be assigned";

// The slot number of a numeric index; false for a complex one, which has no
// place in a block.
bool slotOf(const Index& index, uint32_t& slot) {
  if (index.isComplex()) return false;
  slot = index.index();
  return true;
}

// The width of the index field when count slots are listed: one digit, and
// one more for each division by 10 while the count is above 10 (so 100
// slots get two digits, and index 100 of 101 slots overflows the field).
int indexFieldWidth(uint32_t count) {
  int width = 1;
  for (; count > 10; count /= 10) ++width;
  return width;
}

// One line of the element listing: "[i] ", with hex the slot's address,
// then each member through the handle printer, separated by " | ". A slot
// without storage (a cleared stream) shows its index only.
void printSlot(kivo::Debug::Print& print, const Structure& structure, uint32_t i, int width,
               char* slot, bool hex) {
  std::ostringstream prefix;
  prefix << '[' << std::setw(width) << i << "] ";
  print << prefix.str().c_str();
  if (hex) {
    Detail::continueLine(print, "PTR: ");
    Detail::continueLine(print, static_cast<const void*>(slot));
    Detail::continueLine(print, " : ");
  }
  if (slot) {
    Handle view(structure, slot);
    for (unsigned int m = 0; m < structure.memberCount(); ++m) {
      if (m > 0) Detail::continueLine(print, " | ");
      view.setPositionByMemberIndex(m);
      print.skipNextIndent(true);
      Handle::Debug(&view, print);
    }
  }
  Detail::endLine(print);
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
  // A failed assignment has freed what it copied and left the block null,
  // so nothing is left for the destructor this construction never runs.
  *this = other;
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamImplDense& StreamImplDense::operator=(const StreamImplDense& other) {
  if (this == &other) return *this;
  if (pinCount() != 0) throw std::logic_error(kPinnedAssignment);
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
  uint32_t copied = 0;
  try {
    for (; copied < fAllocatedCount; ++copied)
      structure().fillWithDuplicateChunk(slot(copied), other.slot(copied));
  } catch (...) {
    // The slot cut short holds the copies made so far and null pointers (a
    // duplicate nulls its string pointers first); the slots after it are
    // untouched bytes. Free what was copied and leave the stream cleared.
    for (uint32_t i = 0; i <= copied && i < fAllocatedCount; ++i) structure().destroyChunk(slot(i));
    std::free(fBlock);
    fBlock = nullptr;
    fElementCount = 0;
    fAllocatedCount = 0;
    throw;
  }
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
  if (target >= fElementCount && pinCount() != 0) return false;
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
  if (target >= fElementCount && pinCount() != 0) return false;
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
  if (count != fElementCount && pinCount() != 0) return false;
  if (count > fElementCount) {
    // Room is asked for index count, one past the last slot. The count is
    // taken whenever the block holds count slots, also when growth fell
    // short of that one extra slot (elements wider than 2048 bytes); a count
    // the block cannot back is never taken.
    const bool room = ensureSpaceForElement(Index(count));
    if (room || (fBlock && count <= fAllocatedCount)) fElementCount = count;
    return room;
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
  if (pinCount() != 0) return false;
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
    if (pinCount() != 0) return false;  // growth may move the block
    const uint64_t size = structure().totalSize();
    if (size == 0) return true;
    // A cleared stream kept its counts but not its block: nothing to grow.
    if (!fBlock && fAllocatedCount > 0) return false;
    uint32_t capacity = fAllocatedCount <= 1 ? static_cast<uint32_t>(kFirstAllocationBytes / size)
                                             : (fAllocatedCount * 3u) >> 1;
    if (capacity <= wanted) {
      // An index x 3 past 32 bits would wrap to a capacity that has nothing
      // to do with the index: nothing is allocated for it.
      if (uint64_t(wanted) * 3u > UINT32_MAX) return false;
      // Kept as it stands: with elements wider than a page this is still at
      // or below the index for index 0 (0) and index 1 (1). The block then
      // grows to that capacity all the same, and the result is false.
      capacity = (wanted * 3u) >> 1;
    }
    // The block never shrinks, and a byte count that does not fit is not
    // asked for.
    if (capacity > fAllocatedCount) {
      if (size > SIZE_MAX / capacity) return false;
      char* grown = static_cast<char*>(std::realloc(fBlock, capacity * size));
      if (!grown) return false;  // the old block and its elements stay
      fBlock = grown;
      for (uint32_t i = fAllocatedCount; i < capacity; ++i)
        structure().fillWithDefaultChunk(slot(i));
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
  const bool hex = Detail::filterOn(print, Stream::kDebugHex);
  print.beginSection(kStreamTitle);
  StreamImpl::Debug(impl, print);
  if (hex) Detail::printAddressLine(print, impl);
  // The highest valid index is reported as the element count itself.
  Detail::printLine(print, kHighestValidIndex + std::to_string(impl->fElementCount));
  Detail::printLine(print, kNumberAllocated + std::to_string(impl->fAllocatedCount));
  print.beginSection(kElementsTitle);
  Detail::printLine(print, kElementCount + std::to_string(impl->fElementCount));
  const int width = indexFieldWidth(impl->fElementCount);
  for (uint32_t i = 0; i < impl->fElementCount; ++i) {
    char* slot = impl->fBlock && i < impl->fAllocatedCount ? impl->slot(i) : nullptr;
    printSlot(print, impl->structure(), i, width, slot, hex);
  }
  print.endSection();
  print.endSection();
  return true;
}

bool StreamImplDense::Debug(const StreamImplDense* impl, kivo::Debug::Footprint& footprint) {
  if (!impl) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(impl, sizeof(StreamImplDense));
  Detail::addStringText(footprint, impl->name());
  Detail::addStringText(footprint, impl->indexType());
  if (impl->fBlock) {
    footprint.addMember(impl->fBlock,
                        uint64_t(impl->fAllocatedCount) * impl->structure().totalSize());
  }
  return true;
}

}  // namespace kivo::Data
