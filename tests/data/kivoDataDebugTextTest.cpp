// DebugTextStream.*        dense and mapped stream dumps, index field width, the hex filter
// DebugTextChannel.*       channel sections, channel iterator lines
// DebugTextAssociations.*  the associations title and its channels
// DebugTextFootprint.*     owned blocks, map entries and held streams are counted
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataAssociationsImpl.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataChannelImpl.h>
#include <kivo/data/kivoDataChannelIterator.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndexString.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Associations;
using kivo::Data::AssociationsImpl;
using kivo::Data::Channel;
using kivo::Data::ChannelImpl;
using kivo::Data::ChannelIterator;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::IndexString;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::StreamImplDense;
using kivo::Data::Structure;
using kivo::Debug::Footprint;
using kivo::Debug::Print;
using kivo::Test::element;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;

// "id" int32 and "v" float[2].
StructureRef pointStructure() {
  return makeStructure("Point", {{Member::kInt32, 1, "id"}, {Member::kFloat, 2, "v"}});
}

// One int32 "v": 1024 slots in the first allocation.
StructureRef wordStructure() { return makeStructure("Word", {{Member::kInt32, 1, "v"}}); }

Handle point(const Structure& s, int id, float a, float b) {
  Handle h(s);
  *h.asInt32() = id;
  h.setPositionByMemberIndex(1);
  h.asFloat()[0] = a;
  h.asFloat()[1] = b;
  return h;
}

// The text a printer writes for a pointer.
std::string pointerText(const void* p) {
  char text[64];
  std::snprintf(text, sizeof text, "0x%p", p);
  return text;
}

// The text a standard stream writes for a pointer (the handle printer's).
std::string streamPointerText(const void* p) {
  std::ostringstream out;
  out << p;
  return out.str();
}

template <class T>
std::string printed(const T* object, bool hex = false) {
  std::ostringstream out;
  Print print(out);
  if (hex) print.addFilter("hex", 1);
  T::Debug(object, print);
  return out.str();
}

TEST(DebugTextStream, DenseStreamListsEverySlotWithItsMembers) {
  StructureRef s = pointStructure();
  Stream stream(*s, "Points");
  stream.useDenseStorage(true);
  stream.setElement(0, point(*s, 7, 1.5f, 2));
  stream.setElement(2, point(*s, 9, -1, 0.25f));
  EXPECT_EQ(printed(&stream),
            "Data Stream\n"
            "{\n"
            "    Data Stream 'Points' uses structure 'Point' with index type 'numeric'\n"
            "    Highest valid index = 3\n"
            "    Number allocated    = 341\n"
            "    Stream Elements\n"
            "    {\n"
            "        Element count = 3\n"
            "        [0] 1 elements: [ 7 ] | 2 elements: [ 1.5 2 ]\n"
            "        [1] 1 elements: [ 0 ] | 2 elements: [ 0 0 ]\n"
            "        [2] 1 elements: [ 9 ] | 2 elements: [ -1 0.25 ]\n"
            "    }\n"
            "}\n");
}

TEST(DebugTextStream, IndexFieldGrowsWithEachDivisionByTenAboveTen) {
  StructureRef s = wordStructure();
  struct Width { unsigned int count; const char* first; const char* last; };
  const Width cases[] = {
      {10, "[0] 1 elements: [ 0 ]\n", "[9] 1 elements: [ 9 ]\n"},
      {11, "[ 0] 1 elements: [ 0 ]\n", "[10] 1 elements: [ 10 ]\n"},
      {100, "[ 0] 1 elements: [ 0 ]\n", "[99] 1 elements: [ 99 ]\n"},
      {101, "[ 0] 1 elements: [ 0 ]\n", "[100] 1 elements: [ 100 ]\n"},  // kept as it stands
  };
  for (const Width& c : cases) {
    SCOPED_TRACE(c.count);
    StreamImplDense dense(*s, "D");
    for (unsigned int i = 0; i < c.count; ++i) dense.setElement(i, element(*s, int(i)));
    const std::string text = printed(&dense);
    EXPECT_NE(text.find("        " + std::string(c.first)), std::string::npos);
    EXPECT_NE(text.find("        " + std::string(c.last) + "    }\n}\n"), std::string::npos);
  }
}

TEST(DebugTextStream, MappedStreamListsEntriesInKeyOrderWithTheRange) {
  StructureRef s = wordStructure();
  Stream stream(*s, "Sparse");
  stream.setElement(40, element(*s, 4));
  stream.setElement(7, element(*s, -3));
  stream.setElementRange(2, 99);
  EXPECT_EQ(printed(&stream),
            "Data Stream (Mapped)\n"
            "{\n"
            "    Data Stream 'Sparse' uses structure 'Word' with index type 'numeric'\n"
            "    Lowest valid index = 2\n"
            "    Highest valid index = 99\n"
            "    Stream Elements\n"
            "    {\n"
            "        Element count = 2\n"
            "        Index (7), Handle (1 elements: [ -3 ])\n"
            "        Index (40), Handle (1 elements: [ 4 ])\n"
            "    }\n"
            "}\n");

  Stream named(*s, "Named");
  ASSERT_TRUE(named.setIndexType("string"));
  named.setElement(Index(IndexString("tip")), element(*s, 1));
  EXPECT_NE(printed(&named).find("        Index (tip), Handle (1 elements: [ 1 ])\n"),
            std::string::npos);
}

TEST(DebugTextStream, HexFilterAddsAddresses) {
  StructureRef s = wordStructure();
  StreamImplDense dense(*s, "D");
  dense.setElement(0, element(*s, 258));
  const std::string text = printed(&dense, true);
  const void* slot = dense.elementAddr(0);
  EXPECT_NE(text.find("    PTR: " + pointerText(&dense) + "\n    Highest valid index = 1\n"),
            std::string::npos);
  // The handle printer adds its own address and bytes after the values.
  EXPECT_NE(text.find("        [0] PTR: " + pointerText(slot) + " : 1 elements: [ 258 ](" +
                      streamPointerText(slot) + ")  02 01 00 00 \n"),
            std::string::npos)
      << text;

  Stream mapped(*s, "M");
  mapped.setElement(3, element(*s, 1));
  const std::string mappedText = printed(&mapped, true);
  EXPECT_NE(mappedText.find("    PTR: 0x"), std::string::npos);
  EXPECT_EQ(printed(&mapped).find("PTR: "), std::string::npos);

  std::ostringstream out;
  Print print(out);
  print.addFilter("hex", 0);  // a filter at level 0 is off
  StreamImplDense::Debug(&dense, print);
  EXPECT_EQ(out.str().find("PTR: "), std::string::npos);
}

TEST(DebugTextChannel, SectionsPerStreamOrEmptyChannel) {
  Channel empty("vertex");
  EXPECT_EQ(printed(&empty), "Channel vertex\n{\n    Empty Channel\n}\n");

  StructureRef s = wordStructure();
  Channel channel("face");
  Stream a(*s, "a");
  a.setElement(1, element(*s, 5));
  channel.setDataStream(a);
  EXPECT_EQ(printed(&channel),
            "Channel face\n"
            "{\n"
            "    Stream a\n"
            "    {\n"
            "        Data Stream (Mapped)\n"
            "        {\n"
            "            Data Stream 'a' uses structure 'Word' with index type 'numeric'\n"
            "            Lowest valid index = 0\n"
            "            Highest valid index = 0\n"
            "            Stream Elements\n"
            "            {\n"
            "                Element count = 1\n"
            "                Index (1), Handle (1 elements: [ 5 ])\n"
            "            }\n"
            "        }\n"
            "    }\n"
            "}\n");
}

TEST(DebugTextChannel, IteratorNamesItsStreamOrTheMisspeltEnd) {
  StructureRef s = wordStructure();
  Channel channel("c");
  channel.setDataStream(Stream(*s, "only"));
  ChannelIterator at = channel.begin();
  EXPECT_EQ(printed(&at), "ChannelIterator positioned at Stream only\n");
  ++at;
  EXPECT_EQ(printed(&at), "ChannelIterator postioned at the end.\n");
  const ChannelIterator none;
  EXPECT_EQ(printed(&none), "ChannelIterator postioned at the end.\n");
}

TEST(DebugTextAssociations, TitleThenNoChannelsOrEachChannel) {
  Associations empty;
  EXPECT_EQ(printed(&empty), "Data Associations\nNo channels\n");

  Associations associations;
  associations.channel("vertex");
  associations.channel("edge");
  EXPECT_EQ(printed(&associations),
            "Data Associations\n"
            "Channel edge\n{\n    Empty Channel\n}\n"
            "Channel vertex\n{\n    Empty Channel\n}\n");
}

TEST(DebugTextFootprint, CountsOwnedBlocksAndRecursesIntoHeldObjects) {
  StructureRef s = wordStructure();
  StreamImplDense dense(*s, "D");
  dense.setElement(10, element(*s, 1));
  Footprint blocks;
  blocks.setIgnoreObjects(true);
  StreamImplDense::Debug(&dense, blocks);
  EXPECT_EQ(blocks.totalSize(), 1024u * 4u);  // the block only: short names live inside
  EXPECT_EQ(blocks.totalFragments(), 1u);

  Stream longName(*s, std::string(100, 'n'));
  Footprint named;
  named.setIgnoreObjects(true);
  Stream::Debug(&longName, named);
  EXPECT_GE(named.totalSize(), 101u + 4u);  // the name text and the default element

  Stream mapped(*s, "M");
  Footprint before;
  Stream::Debug(&mapped, before);
  mapped.setElement(1, element(*s, 1));
  mapped.setElement(2, element(*s, 2));
  Footprint after;
  Stream::Debug(&mapped, after);
  // Each entry: its node, its key, its handle and the handle's block.
  EXPECT_EQ(after.totalFragments(), before.totalFragments() + 2 * 4);
  EXPECT_GT(after.totalSize(), before.totalSize() + 2 * (sizeof(Index) + sizeof(Handle) + 4));

  Channel channel("c");
  Footprint emptyChannel;
  Channel::Debug(&channel, emptyChannel);
  channel.setDataStream(mapped);
  Footprint withStream;
  Channel::Debug(&channel, withStream);
  EXPECT_GT(withStream.totalSize(), emptyChannel.totalSize() + after.totalSize());

  Associations associations;
  Footprint emptyAssociations;
  Associations::Debug(&associations, emptyAssociations);
  associations.setChannel(channel);
  Footprint withChannel;
  Associations::Debug(&associations, withChannel);
  EXPECT_GT(withChannel.totalSize(), emptyAssociations.totalSize() + withStream.totalSize());
}

}  // namespace
