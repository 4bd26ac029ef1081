// Internal: what one scene-file read may spend on element blocks that no
// text in the file stands behind. A structure's elements may be declared up
// to 64 MiB wide in a few bytes, and every stream on it needs the
// structure's default element and, to read its first element into, a
// working element: those blocks are counted here, against twice the file's
// size plus 63 MiB (the last MiB of 64 is left to what the text builds),
// while an accessor reads. Elements read from the file are not: each of
// their values is in the text. Process-wide, like the structure registry
// that a read already takes over: one read at a time.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace kivo::Detail {

class ReadAllowance {
 public:
  // Installs an allowance of twice fileBytes plus 63 MiB for the life of
  // this object (the one it replaces comes back after it).
  explicit ReadAllowance(uint64_t fileBytes);
  ~ReadAllowance();
  ReadAllowance(const ReadAllowance&) = delete;
  ReadAllowance& operator=(const ReadAllowance&) = delete;

  // The allowance of the read in progress; null outside a read.
  static ReadAllowance* current();

  // Counts bytes; false, counting nothing, when they would pass the limit.
  bool take(uint64_t bytes);
  // Gives back bytes taken earlier.
  void giveBack(uint64_t bytes);
  // Counts the default element of the structure at key once per read: true
  // when it was counted before or fits now.
  bool takeDefaultElement(const void* key, uint64_t bytes);

  uint64_t limit() const { return fLimit; }

 private:
  uint64_t fLimit;
  uint64_t fTaken = 0;
  std::set<const void*> fDefaults;
  ReadAllowance* fPrevious;
};

// "Structure 'S' has elements of N bytes: reading stream 'T' would take this
// read past the L bytes it may hold without text behind them (twice the
// file's size plus 63 MiB)"
std::string pastReadAllowance(const std::string& structure, uint64_t elementBytes,
                              const std::string& stream, uint64_t limit);

}  // namespace kivo::Detail
