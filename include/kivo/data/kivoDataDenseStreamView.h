// DenseStreamView: the elements of a dense stream as typed memory: the
// block's base address, the byte stride of one element (the structure's
// totalSize()), the element count, and per member its name, type, length and
// byte offset. Value n of member c of element i lies at
//   base() + i * stride() + c.offset + n * sizeof(value)
// (a matrix value counts as sixteen numbers). It is what NumPy needs for a
// structured array over the block without a copy.
//
// A view pins the stream's implementation: it holds a reference on it (and
// so on its structure), and while any view lives, whatever would change the
// element count, the structure, or move or free the block is refused (see
// Stream::pinCount()), so the view stays valid for as long as it exists.
// Writing values through it changes the stream, as writing through a Handle
// does. Copies pin again; a move hands the pin on; release() or the
// destructor unpins. Pin and unpin from the thread that changes the stream.
//
// Values may sit at any address (the layout aligns elements only to their
// first member's type), so get() and set() copy bytes and never dereference
// a typed pointer. The type T is not checked: look columns up with their
// type (column(name, type)) and use bool as uint8_t (any non-zero byte is
// true), int8 as int8_t and so on, float and double for the matrices, and
// char* for strings, which follow Handle::asString(): malloc()ed, owned by
// the element, freed with free() before another is stored.
#pragma once

#include <kivo/data/kivoDataMember.h>
#include <kivo/kivoExport.h>
#include <kivo/support/kivoRef.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace kivo::Data {

class Stream;
class StreamImpl;
class Structure;

class KIVO_EXPORT DenseStreamView {
 public:
  // One member of the element layout.
  struct Column {
    const char* name;  // owned by the structure, which the view keeps alive
    Member::eDataType type;
    unsigned int length;  // values in one element
    uint64_t offset;      // bytes from an element's start to its first value
  };

  // Not valid: no stream, count 0.
  DenseStreamView();
  // Pins stream's implementation when it is dense; otherwise (mapped
  // storage) the view is not valid and pins nothing. A dense stream without
  // a block (nothing allocated yet, or cleared) gives a null base.
  explicit DenseStreamView(const Stream& stream);
  DenseStreamView(const DenseStreamView& other);
  DenseStreamView(DenseStreamView&& other) noexcept;
  DenseStreamView& operator=(DenseStreamView other) noexcept;
  ~DenseStreamView();

  // Unpins now; the view is then not valid.
  void release();

  bool valid() const { return fImpl.get() != nullptr; }
  char* base() const { return fBase; }
  uint64_t stride() const { return fStride; }
  uint32_t count() const { return fCount; }
  const std::vector<Column>& columns() const { return fColumns; }
  // The member named name (exact) of that type; null when there is none.
  const Column* column(const char* name, Member::eDataType type) const;

  // The first value of column in element i. No bound checks.
  char* address(uint32_t i, const Column& column) const {
    return fBase + uint64_t(i) * fStride + column.offset;
  }
  // Value n (a number of a matrix) of column in element i, as T.
  template <class T>
  T get(uint32_t i, const Column& column, unsigned int n = 0) const {
    T value;
    std::memcpy(&value, address(i, column) + uint64_t(n) * sizeof(T), sizeof(T));
    return value;
  }
  template <class T>
  void set(uint32_t i, const Column& column, T value, unsigned int n = 0) const {
    std::memcpy(address(i, column) + uint64_t(n) * sizeof(T), &value, sizeof(T));
  }

 private:
  void pin();

  Ref<StreamImpl> fImpl;
  char* fBase = nullptr;
  uint64_t fStride = 0;
  uint32_t fCount = 0;
  std::vector<Column> fColumns;
};

}  // namespace kivo::Data
