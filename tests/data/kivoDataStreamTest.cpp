// StreamSharing.*     handles share one implementation; makeUnique, identity
// StreamMapped.*      sparse storage: order, deep copies, reindex, swap, range
// StreamDense.*       block storage: growth figures, stable slots, kept oddities
// StreamConversion.*  useDenseStorage both ways, setIndexType, setStructure
// StreamIteration.*   walking both kinds, end positions, the postfix exchange
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndexPair.h>
#include <kivo/data/kivoDataIndexString.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStreamImplMapped.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/data/kivoDataStreamIteratorImpl.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::IndexPair;
using kivo::Data::IndexString;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::StreamImplDense;
using kivo::Data::StreamImplMapped;
using kivo::Data::StreamIterator;
using kivo::Data::StreamIteratorImpl;
using kivo::Data::Structure;
using kivo::Test::element;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;
using kivo::Test::textOf;
using kivo::Test::thrownText;
using kivo::Test::valueOf;

// "v" int32, "s" string: 16 bytes an element.
StructureRef labelled() { return kivo::Test::valueAndText("Labelled"); }

// One int32: 4 bytes an element, 1024 slots in the first allocation.
StructureRef word() { return makeStructure("Word", {{Member::kInt32, 1, "v"}}); }

// The indices met walking the stream with the prefix increment.
std::vector<std::string> walk(const Stream& stream) {
  std::vector<std::string> seen;
  for (StreamIterator at = stream.begin(); at != stream.end(); ++at)
    seen.push_back(at.index().asString());
  return seen;
}

Stream denseWord(const Structure& s, unsigned int count) {
  Stream stream(s, "D");
  stream.useDenseStorage(true);
  for (unsigned int i = 0; i < count; ++i) stream.setElement(i, element(s, int(i) + 100));
  return stream;
}

TEST(StreamSharing, DefaultStreamIsEmptyMappedAndNamed) {
  const Stream stream;
  EXPECT_EQ(stream.elementCount(), 0u);
  EXPECT_EQ(stream.name(), "Stream");
  EXPECT_EQ(stream.indexType(), "numeric");
  EXPECT_FALSE(stream.isDense());
  EXPECT_TRUE(stream.structure().empty());
  EXPECT_TRUE(stream.begin() == stream.end());
}

TEST(StreamSharing, CopiesShareUntilMadeUnique) {
  StructureRef s = labelled();
  Stream a(*s, "A");
  Stream b = a;
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(a.setElement(1, element(*s, 7, "seven")));
  EXPECT_EQ(valueOf(b.element(1)), 7);
  b.setName("Renamed");
  EXPECT_EQ(a.name(), "Renamed");

  EXPECT_TRUE(b.makeUnique());
  EXPECT_FALSE(b.makeUnique());  // no longer shared
  EXPECT_FALSE(a == b);
  b.setElement(1, element(*s, 8, "eight"));
  EXPECT_EQ(textOf(a.element(1)), "seven");
  EXPECT_EQ(textOf(b.element(1)), "eight");

  Stream same(*s, "Renamed");
  same.setElement(1, element(*s, 7, "seven"));
  EXPECT_FALSE(same == a);  // identity, not contents
}

TEST(StreamMapped, StoresIndependentDeepCopies) {
  StructureRef s = labelled();
  Stream stream(*s, "M");
  Handle source = element(*s, 1, "first");
  stream.setElement(3, source);
  stream.setElement(4, source);
  Handle third = stream.element(3);
  third.setPositionByMemberName("s");
  std::string errors;
  third.fromStr("changed", 0, errors);
  EXPECT_EQ(textOf(stream.element(3)), "changed");
  EXPECT_EQ(textOf(stream.element(4)), "first");
  EXPECT_EQ(textOf(source), "first");
  // The stored handle takes the caller's member position; element() is a copy of it.
  source.setPositionByMemberName("s");
  stream.setElement(7, source);
  EXPECT_EQ(stream.element(7).index(), 1u);
  EXPECT_EQ(stream.element(7).str(0), "first");
  // Storing an element onto itself keeps it, at the new position.
  Handle self = stream.element(3);
  self.setPositionByMemberName("s");
  EXPECT_TRUE(stream.setElement(3, self));
  EXPECT_EQ(stream.element(3).str(0), "changed");
  // Another structure object, even an equal one, is refused.
  StructureRef other = labelled();
  EXPECT_FALSE(stream.setElement(5, element(*other, 5)));
  // A handle without data stores the defaults.
  EXPECT_TRUE(stream.setElement(6, stream.element(99)));
  EXPECT_TRUE(stream.element(6).isDefault());
}

TEST(StreamMapped, TakeElementMovesAnOwnedBlockAndCopiesAView) {
  StructureRef s = labelled();
  StreamImplMapped impl(*s, "M");
  Handle owner = element(*s, 1, "one");
  const char* block = owner.data();
  EXPECT_TRUE(impl.takeElement(2, owner));
  EXPECT_FALSE(owner.hasData());
  EXPECT_EQ(impl.element(2).data(), block);
  Handle again = element(*s, 3, "three");
  EXPECT_TRUE(impl.takeElement(2, again));
  EXPECT_EQ(again.data(), block);  // the element it replaced comes back, owned
  EXPECT_EQ(textOf(impl.element(2)), "three");
  Handle view = impl.element(2);
  EXPECT_TRUE(impl.takeElement(5, view));
  EXPECT_NE(impl.element(5).data(), impl.element(2).data());
  EXPECT_EQ(textOf(impl.element(5)), "three");
}

TEST(StreamMapped, ComplexIndicesKeyElements) {
  StructureRef s = labelled();
  Stream stream(*s, "P");
  ASSERT_TRUE(stream.setIndexType("pair"));
  stream.setElement(Index(IndexPair(2, 0)), element(*s, 20));
  stream.setElement(Index(IndexPair(1, 9)), element(*s, 19));
  EXPECT_EQ(walk(stream), (std::vector<std::string>{"1 9", "2 0"}));
  EXPECT_EQ(valueOf(stream.element(Index::doCreate("pair", "2 0"))), 20);
  EXPECT_FALSE(stream.setIndexType("triple"));
}

TEST(StreamMapped, ReindexSwapRemoveAndRange) {
  StructureRef s = labelled();
  Stream stream(*s, "M");
  stream.setElement(5, element(*s, 5, "five"));
  stream.setElement(9, element(*s, 9, "nine"));
  EXPECT_TRUE(stream.reindexElement(5, 5));
  EXPECT_EQ(textOf(stream.element(5)), "five");
  EXPECT_FALSE(stream.reindexElement(6, 7));

  EXPECT_FALSE(stream.swapElements(5, 6));
  EXPECT_TRUE(stream.swapElements(5, 9));
  EXPECT_EQ(textOf(stream.element(5)), "nine");
  EXPECT_EQ(textOf(stream.element(9)), "five");

  EXPECT_TRUE(stream.reindexElement(5, 9));
  EXPECT_FALSE(stream.hasElement(5));
  EXPECT_EQ(textOf(stream.element(9)), "nine");
  EXPECT_EQ(stream.elementCount(), 1u);

  EXPECT_TRUE(stream.setElementRange(0, 100));
  EXPECT_EQ(stream.elementCount(), 1u);
  EXPECT_TRUE(stream.removeElement(42));
  EXPECT_TRUE(stream.removeElement(9));
  EXPECT_EQ(stream.elementCount(), 0u);
  EXPECT_FALSE(stream.element(9).hasData());
}

TEST(StreamMapped, MergeWalksNumericIndicesBelowTheOtherCount) {
  StructureRef s = labelled();
  Stream target(*s, "T");
  target.setElement(0, element(*s, 1));
  target.setElement(50, element(*s, 50));
  Stream source(*s, "S");
  source.setElement(0, element(*s, 10));
  source.setElement(7, element(*s, 70));  // 7 is not below the count 2
  EXPECT_TRUE(target.mergeStream(source));
  EXPECT_EQ(valueOf(target.element(0)), 10);
  EXPECT_FALSE(target.hasElement(7));
  EXPECT_TRUE(target.hasElement(50));
  StructureRef other = labelled();
  Stream foreign(*other, "F");
  foreign.setElement(0, element(*other, 3));
  EXPECT_FALSE(target.mergeStream(foreign));
}

TEST(StreamDense, GrowthPolicyFigures) {
  StructureRef s = word();
  StreamImplDense dense(*s, "D");
  ASSERT_TRUE(dense.setElement(10, element(*s, 10)));
  EXPECT_EQ(dense.physicalElementCount(), 1024u);
  EXPECT_EQ(dense.elementCount(), 11u);
  EXPECT_TRUE(dense.element(4).isDefault());
  EXPECT_EQ(dense.indexOfPhysicalElement(10).index(), 10u);
  EXPECT_EQ(dense.indexOfPhysicalElement(11).index(), 0xFFFFFFFFu);
  ASSERT_TRUE(dense.setElement(2000, element(*s, 2000)));
  EXPECT_EQ(dense.physicalElementCount(), 3000u);  // 1536 is not above 2000
  EXPECT_EQ(valueOf(dense.element(10)), 10);
  EXPECT_TRUE(dense.element(2999).hasData() == false);  // beyond the count
  EXPECT_NE(dense.elementAddr(2999), nullptr);
  EXPECT_EQ(dense.elementAddr(3000), nullptr);
  ASSERT_TRUE(dense.setElement(3000, element(*s, 1)));
  EXPECT_EQ(dense.physicalElementCount(), 4500u);
}

TEST(StreamDense, GrowthThatFallsShortStillGrowsTheBlockAndReportsFalse) {
  // 4800 bytes: 4096 / 4800 = 0 slots in the first allocation; kept as it stands.
  StructureRef wide = makeStructure("Wide", {{Member::kDouble, 600, "d"}});
  StreamImplDense dense(*wide, "W");
  EXPECT_FALSE(dense.ensureSpaceForElement(0));  // 0 x 3 / 2 = 0: nothing to allocate
  EXPECT_EQ(dense.elementAddr(0), nullptr);
  EXPECT_FALSE(dense.setElement(0, Handle(*wide)));
  EXPECT_EQ(dense.elementCount(), 0u);
  EXPECT_FALSE(dense.ensureSpaceForElement(1));  // 1 x 3 / 2 = 1 slot, short of index 1
  EXPECT_EQ(dense.physicalElementCount(), 1u);
  EXPECT_TRUE(Handle(*wide, dense.elementAddr(0)).isDefault());
  EXPECT_FALSE(dense.ensureSpaceForElement(1));  // the allocated count is 1: nothing changes
  EXPECT_TRUE(dense.ensureSpaceForElement(0));
  EXPECT_TRUE(dense.ensureSpaceForElement(2));  // 2 x 3 / 2 = 3 slots
  EXPECT_EQ(dense.physicalElementCount(), 3u);
  EXPECT_TRUE(Handle(*wide, dense.elementAddr(2)).isDefault());

  // A range of one element asks for room at index 1: false, but the count becomes 1.
  StreamImplDense ranged(*wide, "R");
  EXPECT_FALSE(ranged.setElementRange(0, 0));
  EXPECT_EQ(ranged.elementCount(), 1u);
  EXPECT_TRUE(ranged.element(0).isDefault());

  // An index whose x 3 wraps past 32 bits allocates nothing and keeps the block.
  StructureRef s = word();
  StreamImplDense words(*s, "D");
  ASSERT_TRUE(words.setElement(5, element(*s, 5)));
  EXPECT_FALSE(words.ensureSpaceForElement(0xAAAAAAABu));
  EXPECT_FALSE(words.ensureSpaceForElement(0xFFFFFFFCu));
  EXPECT_EQ(words.physicalElementCount(), 1024u);
  EXPECT_EQ(valueOf(words.element(5)), 5);
}

TEST(StreamDense, RemovalAndSwapNeverMoveElements) {
  StructureRef s = labelled();
  Stream stream = denseWord(*s, 5);
  EXPECT_TRUE(stream.removeElement(3));
  EXPECT_EQ(stream.elementCount(), 5u);
  EXPECT_TRUE(stream.element(3).isDefault());
  EXPECT_EQ(valueOf(stream.element(4)), 104);
  EXPECT_TRUE(stream.removeElement(99));
  EXPECT_FALSE(stream.hasElement(Index(IndexPair(0, 0))));
  EXPECT_FALSE(stream.setElement(Index(IndexPair(0, 0)), element(*s, 1)));
  EXPECT_TRUE(stream.swapElements(0, 1));  // reports success, moves nothing
  EXPECT_EQ(valueOf(stream.element(0)), 100);
  EXPECT_EQ(valueOf(stream.element(1)), 101);
  EXPECT_FALSE(stream.swapElements(0, 5));
}

TEST(StreamDense, ReindexMovesAndSelfReindexResets) {
  StructureRef s = labelled();
  Stream stream = denseWord(*s, 3);
  stream.setElement(2, element(*s, 2, "two"));
  EXPECT_TRUE(stream.reindexElement(2, 7));
  EXPECT_EQ(stream.elementCount(), 8u);
  EXPECT_EQ(textOf(stream.element(7)), "two");
  EXPECT_TRUE(stream.element(2).isDefault());
  EXPECT_TRUE(stream.element(5).isDefault());
  EXPECT_TRUE(stream.reindexElement(7, 0));
  EXPECT_EQ(stream.elementCount(), 8u);  // never shrinks
  EXPECT_EQ(textOf(stream.element(0)), "two");
  EXPECT_TRUE(stream.reindexElement(0, 0));
  EXPECT_TRUE(stream.element(0).isDefault());  // kept as it stands
  EXPECT_FALSE(stream.reindexElement(8, 1));
}

TEST(StreamDense, ElementRangeShrinksOneTooFar) {
  StructureRef s = labelled();
  Stream stream(*s, "R");
  stream.useDenseStorage(true);
  EXPECT_TRUE(stream.setElementRange(0, 9));
  EXPECT_EQ(stream.elementCount(), 10u);
  stream.setElement(3, element(*s, 3, "kept"));
  stream.setElement(5, element(*s, 5, "gone"));
  EXPECT_TRUE(stream.setElementRange(0, 3));
  EXPECT_EQ(stream.elementCount(), 3u);  // asked for 4
  EXPECT_TRUE(stream.setElementRange(5, 7));  // n = 3: unchanged
  EXPECT_EQ(stream.elementCount(), 3u);
  EXPECT_TRUE(stream.setElementRange(0, 5));
  EXPECT_EQ(textOf(stream.element(3)), "kept");  // slot 3 kept its data
  EXPECT_TRUE(stream.element(5).isDefault());
  EXPECT_TRUE(stream.setElementRange(1, 0));  // n = 0 stops at 0
  EXPECT_EQ(stream.elementCount(), 0u);
  EXPECT_FALSE(stream.setElementRange(5, 0));  // n wraps: no room, unchanged
  EXPECT_EQ(stream.elementCount(), 0u);
}

TEST(StreamDense, CopiesClearAndOwnGrowthAreSafe) {
  StructureRef s = labelled();
  Stream stream = denseWord(*s, 4);
  stream.setElement(1, element(*s, 1, "one"));
  Stream copy = stream;
  ASSERT_TRUE(copy.makeUnique());
  stream.setElement(1, element(*s, 1, "changed"));
  EXPECT_EQ(textOf(copy.element(1)), "one");
  // Storing an element of the stream itself at an index that moves the block.
  EXPECT_TRUE(copy.setElement(5000, copy.element(1)));
  EXPECT_EQ(textOf(copy.element(5000)), "one");
  EXPECT_TRUE(copy.setElement(1, copy.element(1)));
  EXPECT_EQ(textOf(copy.element(1)), "one");

  EXPECT_TRUE(stream.clear());
  EXPECT_EQ(stream.elementCount(), 4u);  // counts are kept
  EXPECT_FALSE(stream.element(1).hasData());
  EXPECT_FALSE(stream.setElement(1, element(*s, 1)));
  EXPECT_TRUE(stream.begin() == stream.end());
}

TEST(StreamConversion, DenseResultIsTrueOnlyWhenEmpty) {
  StructureRef s = labelled();
  Stream stream(*s, "C");
  for (unsigned int i : {0u, 1u, 2u}) stream.setElement(i, element(*s, int(i), "x"));
  ASSERT_TRUE(stream.setElementRange(0, 50));
  EXPECT_FALSE(stream.useDenseStorage(true));  // carried elements: false, kept as it stands
  EXPECT_TRUE(stream.isDense());
  EXPECT_EQ(stream.elementCount(), 3u);
  EXPECT_EQ(textOf(stream.element(2)), "x");
  EXPECT_TRUE(stream.useDenseStorage(true));  // already dense
  EXPECT_EQ(stream.name(), "C");

  Stream empty(*s, "E");
  EXPECT_TRUE(empty.useDenseStorage(true));
  EXPECT_TRUE(empty.isDense());
}

TEST(StreamConversion, DenseGapsBecomeDefaultEntries) {
  StructureRef s = labelled();
  Stream stream(*s, "G");
  stream.useDenseStorage(true);
  stream.setElement(0, element(*s, 1, "zero"));
  stream.setElement(5, element(*s, 5, "five"));
  EXPECT_FALSE(stream.useDenseStorage(false));
  EXPECT_FALSE(stream.isDense());
  EXPECT_EQ(stream.elementCount(), 6u);
  EXPECT_TRUE(stream.element(3).isDefault());
  EXPECT_EQ(textOf(stream.element(5)), "five");
}

TEST(StreamConversion, KeysWithoutSlotsKeepTheStreamMapped) {
  StructureRef s = labelled();
  Stream pairs(*s, "P");
  pairs.setIndexType("pair");
  pairs.setElement(Index(IndexPair(1, 2)), element(*s, 12));
  EXPECT_FALSE(pairs.useDenseStorage(true));
  EXPECT_FALSE(pairs.isDense());
  EXPECT_EQ(pairs.indexType(), "pair");
  EXPECT_EQ(valueOf(pairs.element(Index(IndexPair(1, 2)))), 12);

  Stream far(*s, "F");
  far.setElement(4000000000u, element(*s, 4));
  EXPECT_FALSE(far.useDenseStorage(true));
  EXPECT_FALSE(far.isDense());
  EXPECT_TRUE(far.hasElement(4000000000u));
}

TEST(StreamConversion, IndexTypeAndStructureChanges) {
  StructureRef s = labelled();
  Stream stream(*s, "I");
  stream.useDenseStorage(true);
  EXPECT_TRUE(stream.setIndexType("string"));
  EXPECT_FALSE(stream.isDense());  // a change of type leaves it mapped
  EXPECT_EQ(stream.indexType(), "string");
  EXPECT_EQ(stream.name(), "I");
  stream.setElement(Index(IndexString("a")), element(*s, 1));
  EXPECT_FALSE(stream.setIndexType("numeric"));
  EXPECT_FALSE(stream.setIndexType("string"));  // same type, but not empty

  StructureRef other = word();
  EXPECT_FALSE(stream.setStructure(*other));
  stream.clear();
  EXPECT_TRUE(stream.setStructure(*other));
  EXPECT_EQ(&stream.structure(), other.get());
  EXPECT_TRUE(stream.setElement(Index(IndexString("b")), element(*other, 2)));

  // A dense block laid out for the old structure does not outlive it.
  Stream dense = denseWord(*s, 3);
  dense.setElementRange(0, 0);  // count 0, block kept
  EXPECT_TRUE(dense.setStructure(*other));
  EXPECT_TRUE(dense.setElement(2000, element(*other, 9)));
  EXPECT_EQ(valueOf(dense.element(2000)), 9);
}

TEST(StreamIteration, EmptyStreamsAndEndPositions) {
  StructureRef s = labelled();
  Stream mapped(*s, "M");
  EXPECT_TRUE(mapped.begin() == mapped.end());
  EXPECT_TRUE(walk(mapped).empty());
  for (unsigned int i : {7u, 2u, 40u}) mapped.setElement(i, element(*s, int(i)));
  EXPECT_EQ(walk(mapped), (std::vector<std::string>{"2", "7", "40"}));
  StreamIterator at = mapped.begin();
  ++++++at;
  EXPECT_FALSE(at.valid());
  EXPECT_TRUE(at.index() == Index());
  EXPECT_TRUE(at == mapped.end());
  EXPECT_TRUE((*at).isDefault());  // the stream's default handle

  Stream dense = denseWord(*s, 3);
  EXPECT_EQ(walk(dense), (std::vector<std::string>{"0", "1", "2"}));
  StreamIterator past = dense.begin();
  ++++++past;
  EXPECT_FALSE(past.valid());
  EXPECT_EQ(past.index().index(), 0xFFFFFFFFu);
  EXPECT_FALSE(past->hasData());
  ++past;
  EXPECT_TRUE(past == dense.end());
  EXPECT_FALSE(dense.begin() == mapped.begin());
}

TEST(StreamIteration, PostIncrementAndHandlesThatWriteIntoTheStream) {
  StructureRef s = labelled();
  for (bool dense : {false, true}) {
    SCOPED_TRACE(dense ? "dense" : "mapped");
    Stream stream(*s, "P");
    stream.useDenseStorage(dense);
    stream.setElement(0, element(*s, 10));
    stream.setElement(1, element(*s, 11));
    StreamIterator at = stream.begin();
    const StreamIterator next = at++;
    EXPECT_EQ(next.index().index(), 1u);
    EXPECT_EQ(at.index().index(), 0u);  // kept as it stands
    EXPECT_EQ(valueOf(*next), 11);
    at->setPositionByMemberName("v");
    *at->asInt32() = 42;
    EXPECT_EQ(valueOf(stream.element(0)), 42);
    StreamIterator copy = at;
    EXPECT_TRUE(copy == at);
    copy = stream.end();
    EXPECT_TRUE(copy != at);
  }
}

TEST(StreamIteration, MisuseThrowsExactTexts) {
  StreamIterator none;
  EXPECT_FALSE(none.valid());
  EXPECT_TRUE(none == StreamIterator());
  EXPECT_TRUE(none != Stream().end());
  EXPECT_EQ(thrownText<std::runtime_error>([&] { *none; }), "No Stream Iterator implementation");
  EXPECT_THROW(++none, std::runtime_error);
  EXPECT_THROW(none.index(), std::runtime_error);

  // A position without any handle (no storage behind it).
  struct Unplaced : StreamIteratorImpl {
    StreamIteratorImpl& operator++() override { return *this; }
    StreamIteratorImpl* operator++(int) override { return clone(); }
    bool valid() const override { return false; }
    StreamIteratorImpl* clone() const override { return new Unplaced(*this); }
    Index index() const override { return Index(); }
    const kivo::Data::StreamImpl* myStream() const override { return nullptr; }
  };
  StreamIterator unplaced(new Unplaced);
  EXPECT_EQ(thrownText<std::out_of_range>([&] { unplaced->hasData(); }),
            "Iterator not at a valid position");
}

}  // namespace
