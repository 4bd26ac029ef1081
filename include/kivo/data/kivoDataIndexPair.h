// IndexPair: a complex index of two unsigned 32-bit numbers, such as the two
// vertices of an edge. Type name "pair", text "3 4". Pairs order
// lexicographically (first numbers, then second numbers) and support dense
// storage: the space between two pairs is the rectangle they span. Against
// another kind of index a pair is never equal and sorts by kind. Copies copy
// both numbers; registered as "pair" when the library is loaded.
#pragma once

#include <kivo/data/kivoDataIndexType.h>
#include <kivo/kivoExport.h>
#include <kivo/support/kivoDebugCRTP.h>

#include <cstdint>
#include <string>

namespace kivo::Data {

class KIVO_EXPORT IndexPair : public CRTP_IndexType<IndexPair>,
                              public kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Print>,
                              public kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Footprint> {
 public:
  static constexpr char myTypeName[] = "pair";
  static std::string theTypeName() { return myTypeName; }

  // (0, 0).
  IndexPair();
  IndexPair(unsigned int first, unsigned int second);
  // Two numbers separated by blanks, tabs or carriage returns. Throws
  // Index::kBadNumericIndex for any other character or fewer than two
  // numbers ("3", "3,4", ""), Index::kTrailingIndexText for "3 4 5".
  explicit IndexPair(const std::string& text);
  IndexPair(const IndexPair& other);
  IndexPair& operator=(const IndexPair& other);
  ~IndexPair() override;

  void getIndexPair(unsigned int& first, unsigned int& second) const;

  // "first second", as "12 7".
  std::string asString() const override;
  bool supportsDenseMode() const override { return true; }
  // (|first difference| + 1) * (|second difference| + 1) against a pair
  // (the most a 64-bit count holds when both spans are full), else 0.
  uint64_t denseSpaceBetween(const IndexType& other) const override;
  bool operator==(const IndexType& other) const override;
  bool operator!=(const IndexType& other) const override;
  bool operator<(const IndexType& other) const override;
  bool operator<=(const IndexType& other) const override;
  bool operator>(const IndexType& other) const override;
  bool operator>=(const IndexType& other) const override;

  using kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Print>::debug;
  using kivo::Debug::CRTP_Debug<IndexPair, kivo::Debug::Footprint>::debug;
  // Print: "first second", no newline. Null prints the class counters.
  static bool Debug(const IndexPair* pair, kivo::Debug::Print& print);
  static bool Debug(const IndexPair* pair, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // Negative, 0 or positive as this pair sorts before, with or after other
  // (of any kind).
  int compare(const IndexType& other) const;

  uint32_t fFirst = 0;
  uint32_t fSecond = 0;
};

}  // namespace kivo::Data
