// ChannelStreams.*   name order, sharing and replacement by name, lookups that create nothing
// ChannelRename.*    renaming through the shared stream, the loss on a taken name
// ChannelElements.*  addElement / removeElement across streams of one index type
// ChannelSharing.*   copies share, makeUnique separates channels and stream data
// ChannelIterator.*  walking, end behaviour, exception texts, the post-increment
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataChannelImpl.h>
#include <kivo/data/kivoDataIndexString.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Channel;
using kivo::Data::ChannelImpl;
using kivo::Data::ChannelIterator;
using kivo::Data::Index;
using kivo::Data::IndexString;
using kivo::Data::Stream;
using kivo::Test::names;
using kivo::Test::put;
using kivo::Test::StructureRef;
using kivo::Test::thrownText;
using kivo::Test::valueAt;
using Names = std::vector<std::string>;

StructureRef sample() { return kivo::Test::valueAndText("ChannelSample"); }

TEST(ChannelStreams, WalksStreamsInByteWiseNameOrder) {
  StructureRef s = sample();
  Channel channel("vertex");
  for (const char* name : {"b", "a", "ab", "B"}) channel.setDataStream(Stream(*s, name));
  EXPECT_EQ(names(channel), (Names{"B", "a", "ab", "b"}));
  ASSERT_NE(channel.dataStream(2u), nullptr);
  EXPECT_EQ(channel.dataStream(2u)->name(), "ab");
  EXPECT_EQ(channel.dataStream(4u), nullptr);
  EXPECT_EQ(Channel().name(), "Unnamed");
}

TEST(ChannelStreams, StoredStreamSharesDataAndSameNameReplaces) {
  StructureRef s = sample();
  Channel channel;
  Stream first(*s, "p");
  Stream* stored = channel.setDataStream(first);
  EXPECT_NE(stored, &first);
  put(first, 3, 30, "x");
  EXPECT_EQ(valueAt(*stored, 3), 30);
  EXPECT_EQ(channel.setDataStream(*stored), stored);  // the stored stream itself stays
  EXPECT_EQ(valueAt(*stored, 3), 30);

  Stream second(*s, "p");
  stored = channel.setDataStream(second);
  EXPECT_EQ(channel.dataStreamCount(), 1u);
  ASSERT_NE(stored, nullptr);
  EXPECT_TRUE(*stored == second);
  EXPECT_FALSE(*stored == first);
  EXPECT_EQ(channel.findDataStream("p"), stored);
}

TEST(ChannelStreams, LookupsOfMissingNamesCreateNothing) {
  StructureRef s = sample();
  Channel channel;
  channel.setDataStream(Stream(*s, "p"));
  EXPECT_EQ(channel.dataStream("q"), nullptr);
  EXPECT_EQ(channel.findDataStream("P"), nullptr);
  EXPECT_FALSE(channel.removeDataStream("q"));
  EXPECT_EQ(channel.dataStreamCount(), 1u);
  EXPECT_TRUE(channel.removeDataStream("p"));
  EXPECT_TRUE(channel.empty());
  EXPECT_TRUE(channel.begin() == channel.end());
}

TEST(ChannelStreams, NullStreamInComparisonThrows) {
  StructureRef s = sample();
  Stream a(*s, "a");
  EXPECT_EQ(thrownText<std::invalid_argument>([&] { ChannelImpl::StreamCompare()(&a, nullptr); }),
            "Null Stream found in Channel.");
}

TEST(ChannelRename, NewNameIsSeenByEverySharingStreamAndLaterRenamesAreFound) {
  StructureRef s = sample();
  Channel channel;
  Stream mine(*s, "old");
  channel.setDataStream(mine);
  channel.setDataStream(Stream(*s, "m"));
  EXPECT_TRUE(channel.renameDataStream("old", "a"));
  EXPECT_EQ(mine.name(), "a");
  EXPECT_EQ(names(channel), (Names{"a", "m"}));
  EXPECT_FALSE(channel.renameDataStream("old", "z"));
  EXPECT_EQ(names(channel), (Names{"a", "m"}));
  mine.setName("z");  // behind the channel's back: now out of place in the name order
  EXPECT_NE(channel.findDataStream("z"), nullptr);
  EXPECT_TRUE(channel.removeDataStream("z"));
  EXPECT_EQ(names(channel), (Names{"m"}));
}

TEST(ChannelRename, RenamingOntoTakenNameLosesTheRenamedStream) {
  StructureRef s = sample();
  Channel channel;
  Stream a(*s, "a");
  Stream b(*s, "b");
  channel.setDataStream(a);
  channel.setDataStream(b);
  EXPECT_FALSE(channel.renameDataStream("a", "b"));
  EXPECT_EQ(channel.dataStreamCount(), 1u);
  ASSERT_NE(channel.findDataStream("b"), nullptr);
  EXPECT_TRUE(*channel.findDataStream("b") == b);
  EXPECT_EQ(a.name(), "b");  // the caller's stream keeps the new name
}

TEST(ChannelElements, AddsDefaultElementToStreamsOfTheIndexTypeOnly) {
  StructureRef s = sample();
  Channel channel;
  EXPECT_FALSE(channel.addElement(Index(0)));
  Stream* numeric = channel.setDataStream(Stream(*s, "n"));
  EXPECT_FALSE(channel.addElement(Index(IndexString("corner"))));
  EXPECT_EQ(numeric->elementCount(), 0u);
  Stream* dense = channel.setDataStream(Stream(*s, "d"));
  dense->useDenseStorage(true);
  Stream* named = channel.setDataStream(Stream(*s, "t"));
  ASSERT_TRUE(named->setIndexType("string"));

  EXPECT_TRUE(channel.addElement(Index(4)));
  EXPECT_TRUE(numeric->element(Index(4)).isDefault());
  EXPECT_EQ(dense->elementCount(), 5u);
  EXPECT_TRUE(dense->element(Index(4)).isDefault());
  EXPECT_EQ(named->elementCount(), 0u);

  EXPECT_TRUE(channel.addElement(Index(IndexString("corner"))));
  EXPECT_EQ(named->elementCount(), 1u);
  EXPECT_EQ(numeric->elementCount(), 1u);
}

TEST(ChannelElements, RemoveReportsFalseEvenAfterRemoving) {
  StructureRef s = sample();
  Channel channel;
  Stream* a = channel.setDataStream(Stream(*s, "a"));
  Stream* b = channel.setDataStream(Stream(*s, "b"));
  put(*a, 2, 1, "one");
  put(*b, 2, 2, "two");
  put(*b, 3, 3, "three");
  EXPECT_FALSE(channel.removeElement(Index(2)));
  EXPECT_FALSE(a->hasElement(Index(2)));
  EXPECT_FALSE(b->hasElement(Index(2)));
  EXPECT_TRUE(b->hasElement(Index(3)));
}

TEST(ChannelSharing, CopiesShareStreamsUntilMadeUnique) {
  StructureRef s = sample();
  Channel original("c");
  Stream* stream = original.setDataStream(Stream(*s, "p"));
  put(*stream, 1, 10, "ten");

  Channel copy(original);
  EXPECT_TRUE(copy == original);
  copy.setDataStream(Stream(*s, "q"));
  EXPECT_EQ(original.dataStreamCount(), 2u);

  EXPECT_TRUE(copy.makeUnique());
  EXPECT_FALSE(copy == original);
  EXPECT_EQ(copy.name(), "c");
  EXPECT_EQ(names(copy), names(original));
  put(*copy.findDataStream("p"), 1, 11, "eleven");
  copy.removeDataStream("q");
  EXPECT_EQ(valueAt(*stream, 1), 10);
  EXPECT_EQ(valueAt(*copy.findDataStream("p"), 1), 11);
  EXPECT_EQ(original.dataStreamCount(), 2u);
  EXPECT_FALSE(copy.makeUnique());  // no longer shared

  Channel emptyOriginal("e");
  Channel emptyCopy = emptyOriginal;
  EXPECT_FALSE(emptyCopy.makeUnique());  // separates, but reports false without streams
  EXPECT_FALSE(emptyCopy == emptyOriginal);
  EXPECT_EQ(emptyCopy.name(), "e");
}

TEST(ChannelSharing, AssigningImplementationsKeepsExistingNames) {
  StructureRef s = sample();
  ChannelImpl target("t");
  Stream kept(*s, "p");
  target.setDataStream(kept);
  ChannelImpl source("s");
  source.setDataStream(Stream(*s, "p"));
  source.setDataStream(Stream(*s, "q"));
  target = source;
  EXPECT_EQ(target.name(), "s");
  EXPECT_EQ(target.dataStreamCount(), 2u);
  EXPECT_TRUE(*target.findDataStream("p") == kept);
  EXPECT_TRUE(*target.findDataStream("q") == *source.findDataStream("q"));
  EXPECT_EQ(target.refCount(), 0);
}

TEST(ChannelIterator, PostIncrementDoesNotAdvanceAndEndStays) {
  StructureRef s = sample();
  Channel channel;
  channel.setDataStream(Stream(*s, "a"));
  channel.setDataStream(Stream(*s, "b"));
  ChannelIterator it = channel.begin();
  ChannelIterator old = it++;
  EXPECT_EQ((*it)->name(), "a");
  EXPECT_EQ((*old)->name(), "a");
  EXPECT_TRUE(old == it);
  ++it;
  EXPECT_TRUE(it.valid());
  ++it;
  EXPECT_FALSE(it.valid());
  EXPECT_TRUE(it == channel.end());
  ++it;
  EXPECT_TRUE(it == channel.end());
  EXPECT_FALSE(channel.begin() == Channel().end());
}

TEST(ChannelIterator, InvalidDereferenceThrowsExactTexts) {
  Channel channel;
  ChannelIterator atEnd = channel.end();
  const ChannelIterator constAtEnd = channel.begin();
  ChannelIterator none;
  const auto text = [](auto&& call) { return thrownText<std::out_of_range>(call); };
  EXPECT_EQ(text([&] { *atEnd; }), "ChannelImpl::Iterator::operator*");
  EXPECT_EQ(text([&] { atEnd->name(); }), "ChannelImpl::Iterator::operator->");
  EXPECT_EQ(text([&] { constAtEnd->name(); }), "const ChannelImpl::Iterator::operator->");
  EXPECT_EQ(text([&] { *none; }), "ChannelImpl::Iterator::operator*");
}

}  // namespace
