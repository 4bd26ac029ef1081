// Internal: single owners for names, string values, references and element
// blocks.
#pragma once

#include <kivo/support/kivoRef.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace kivo::Detail {

// The one duplicate/free pair for owned C-string names: null stays null,
// "" stays "".
inline char* copyName(const char* name) {
  if (!name) return nullptr;
  const size_t size = std::strlen(name) + 1;
  char* copy = new char[size];
  std::memcpy(copy, name, size);
  return copy;
}

inline void freeName(char* name) { delete[] name; }

// The pair for string values inside element blocks: the C allocator, the
// same as strdup()/free(), so that callers storing their own strdup()ed text
// through Handle::asString() and releasing a stored value with free() meet
// the allocator the library uses. Null stays null; running out of memory
// throws std::bad_alloc, as operator new would.
inline char* newText(size_t length) {  // room for length characters and the end
  char* text = static_cast<char*>(std::malloc(length + 1));
  if (!text) throw std::bad_alloc();
  text[length] = '\0';
  return text;
}

inline char* copyText(const char* text) {
  if (!text) return nullptr;
  const size_t length = std::strlen(text);
  char* copy = newText(length);
  std::memcpy(copy, text, length);
  return copy;
}

inline void freeText(char* text) { std::free(text); }

// The public holder of one reference (kivo/support/kivoRef.h), under the
// name the library's sources use.
template <class T>
using Ref = kivo::Ref<T>;

// One element block, destroyed through its structure (which frees the
// strings inside) and then freed, unless released. S is the structure type.
template <class S>
class Chunk {
 public:
  Chunk(const S& structure, char* block) : fStructure(structure), fBlock(block) {}
  ~Chunk() {
    if (fBlock) {
      const_cast<S&>(fStructure).destroyChunk(fBlock);
      delete[] fBlock;
    }
  }
  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;
  char* get() const { return fBlock; }
  char* release() { return std::exchange(fBlock, nullptr); }

 private:
  const S& fStructure;
  char* fBlock;
};

}  // namespace kivo::Detail
