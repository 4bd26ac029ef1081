// StructureLayout.*    offsets and totals, every refusal of addMember
// StructureChunks.*    default block, deep duplication, default tests
// StructureCopy.*      copies are equal, unregistered and start at count 0
// StructureRegistry.*  identity vs equality, lookup by name, dropping references,
//                      lookups after renames, member changes and direct edits
// StructureIterator.*  walking members, the end position
// StructureDebug.*     the object print and the class statistics
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Data::StructureIterator;
using kivo::Test::Field;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;

uint64_t offsetOf(const Structure& structure, unsigned int member) {
  return Member::offset(&*std::next(structure.begin(), member));
}

char*& stringAt(const Structure& structure, char* block, unsigned int member) {
  return *reinterpret_cast<char**>(block + offsetOf(structure, member));
}

TEST(StructureLayout, OffsetsFollowEachTypeTotalFollowsFirstMember) {
  struct Case {
    std::vector<Field> fields;
    std::vector<uint64_t> offsets;
    uint64_t total;
  };
  const Case cases[] = {
      {{}, {}, 0},
      {{{Member::kInt8, 1, "a"}, {Member::kDouble, 1, "b"}}, {0, 8}, 16},
      {{{Member::kDouble, 1, "b"}, {Member::kInt8, 1, "a"}}, {0, 8}, 16},
      {{{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}, {Member::kInt8, 1, "c"}}, {0, 4, 8}, 9},
      {{{Member::kFloat, 3, "p"}, {Member::kString, 2, "s"}, {Member::kInt16, 1, "i"}},
       {0, 16, 32}, 36},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.total);
    StructureRef s = makeStructure("S", c.fields);
    std::vector<uint64_t> offsets;
    for (const Member& member : *s) offsets.push_back(Member::offset(&member));
    EXPECT_EQ(offsets, c.offsets);
    EXPECT_EQ(s->totalSize(), c.total);
    EXPECT_EQ(s->size(), c.fields.size());
    EXPECT_EQ(s->empty(), c.fields.empty());
    kivo::Detail::Chunk<Structure> block(*s, s->allocateDefaultChunk());
    EXPECT_EQ(block.get() == nullptr, c.fields.empty());
  }
}

TEST(StructureLayout, RefusedMembersChangeNothing) {
  StructureRef s = makeStructure("S", {{Member::kFloat, 1, "a"}});
  const Field refused[] = {
      {Member::kInvalidType, 1, "b"},
      {static_cast<Member::eDataType>(99), 1, "b"},
      {Member::kFloat, 0, "b"},
      {Member::kFloat, 1, ""},
      {Member::kFloat, 1, nullptr},
      {Member::kDouble, 1, "a"},
      {Member::kDoubleMatrix4x4, 33554432, "b"},  // 2^32 bytes: 0 in 32 bits
      {Member::kUInt8, (64u << 20) - 3, "b"},     // the element would pass 64 MiB
  };
  const uint64_t checkpoint = s->checkpoint();
  for (const Field& f : refused) {
    SCOPED_TRACE(f.length);
    EXPECT_FALSE(s->addMember(f.type, f.length, f.name));
    EXPECT_EQ(s->memberCount(), 1u);
    EXPECT_EQ(s->totalSize(), 4u);
  }
  EXPECT_FALSE(s->changedSinceCheckpoint(checkpoint));
  EXPECT_TRUE(s->addMember(Member::kFloat, 1, "A"));  // names are case-sensitive
  EXPECT_TRUE(s->addMember(Member::kUInt8, (64u << 20) - 8, "b"));  // exactly 64 MiB
  EXPECT_FALSE(s->addMember(Member::kUInt8, 1, "c"));
}

TEST(StructureChunks, DefaultBlockIsNotRebuiltButNewBlocksAreComplete) {
  StructureRef s = makeStructure("S", {{Member::kFloat, 1, "a"}});
  const char* defaults = s->defaultData();
  ASSERT_TRUE(s->addMember(Member::kString, 2, "text"));
  EXPECT_EQ(s->defaultData(), defaults);
  kivo::Detail::Chunk<Structure> block(*s, s->allocateDefaultChunk());
  EXPECT_TRUE(s->chunkIsDefault(block.get()));
  EXPECT_FALSE(s->chunkIsDefault(nullptr));
  stringAt(*s, block.get(), 1) = strdup("");  // allocated "": not default
  EXPECT_FALSE(s->chunkIsDefault(block.get()));
  EXPECT_TRUE(s->chunkMemberIsDefault(block.get(), "a"));
  EXPECT_FALSE(s->chunkMemberIsDefault(block.get(), "text"));
  EXPECT_TRUE(s->chunkMemberIsDefault(block.get(), "nothing"));  // no such member
}

TEST(StructureChunks, DuplicatesCopyStringsDeeply) {
  StructureRef s = makeStructure("S", {{Member::kString, 2, "t"}, {Member::kInt8, 1, "i"}});
  kivo::Detail::Chunk<Structure> original(*s, s->allocateDefaultChunk());
  stringAt(*s, original.get(), 0) = strdup("hello");
  original.get()[offsetOf(*s, 1)] = 7;
  kivo::Detail::Chunk<Structure> copy(*s, s->duplicateChunk(original.get()));
  EXPECT_NE(stringAt(*s, copy.get(), 0), stringAt(*s, original.get(), 0));
  EXPECT_STREQ(stringAt(*s, copy.get(), 0), "hello");
  EXPECT_EQ(copy.get()[offsetOf(*s, 1)], 7);
  EXPECT_EQ(s->duplicateChunk(nullptr), nullptr);
}

TEST(StructureCopy, CopyIsEqualUnregisteredAndUncounted) {
  StructureRef s = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}});
  s->defaultData();
  ASSERT_TRUE(Structure::registerStructure(*s));
  Structure* copy = new Structure(*s);
  EXPECT_EQ(copy->refCount(), 0);
  StructureRef held(copy);
  EXPECT_TRUE(*copy == *s);
  EXPECT_EQ(offsetOf(*copy, 1), 4u);
  EXPECT_NE(copy->defaultData(), s->defaultData());
  EXPECT_FALSE(Structure::deregisterStructure(*copy));
  copy->setName("other");
  EXPECT_TRUE(*copy != *s);
  EXPECT_TRUE(Structure::deregisterStructure(*s));
}

class StructureRegistry : public ::testing::Test {
 protected:
  void TearDown() override {
    for (Structure* s : fRegistered) Structure::deregisterStructure(*s);
  }
  bool add(Structure& s) {
    if (!Structure::registerStructure(s)) return false;
    fRegistered.push_back(&s);
    return true;
  }
  std::vector<Structure*> fRegistered;
};

TEST_F(StructureRegistry, RefusesSameOrEqualAcceptsOtherLayoutUnderOneName) {
  StructureRef a = makeStructure("Reg", {{Member::kFloat, 3, "p"}});
  StructureRef equal = makeStructure("Reg", {{Member::kFloat, 3, "p"}});
  StructureRef other = makeStructure("Reg", {{Member::kDouble, 3, "p"}});
  EXPECT_TRUE(add(*a));
  EXPECT_EQ(a->refCount(), 2);
  EXPECT_FALSE(add(*a));
  EXPECT_FALSE(add(*equal));
  EXPECT_EQ(equal->refCount(), 1);
  EXPECT_TRUE(add(*other));
  EXPECT_EQ(Structure::structureByName("Reg"), std::min(a.get(), other.get(), std::less<>()));
  EXPECT_EQ(Structure::structureByName("reg"), nullptr);
  EXPECT_EQ(Structure::structureByName(nullptr), nullptr);
}

TEST_F(StructureRegistry, DroppingTheRegistryReferenceMayDestroy) {
  const uint64_t alive = Structure::_objectsAlive;
  Structure* alone = Structure::create();
  ASSERT_TRUE(Structure::registerStructure(*alone));
  EXPECT_TRUE(Structure::deregisterStructure(*alone));
  EXPECT_EQ(Structure::_objectsAlive, alive);

  StructureRef kept = makeStructure("Kept", {{Member::kInt8, 1, "a"}});
  ASSERT_TRUE(Structure::registerStructure(*kept));
  ASSERT_TRUE(Structure::registerStructure(*Structure::create()));
  Structure::deleteAllStructures();
  EXPECT_TRUE(Structure::allStructures().empty());
  EXPECT_EQ(kept->refCount(), 1);
  EXPECT_EQ(Structure::_objectsAlive, alive + 1);
}

TEST_F(StructureRegistry, LookupsFollowRenamesMemberChangesAndDirectEdits) {
  // Three layouts under one name: the lowest address is found, and the next
  // lowest once it is gone.
  std::vector<StructureRef> same;
  for (unsigned int length = 1; length <= 3; ++length) {
    same.push_back(makeStructure("Same", {{Member::kInt8, length, "a"}}));
    ASSERT_TRUE(add(*same.back()));
  }
  std::sort(same.begin(), same.end(),
            [](const StructureRef& a, const StructureRef& b) { return a.get() < b.get(); });
  EXPECT_EQ(Structure::structureByName("Same"), same[0].get());
  EXPECT_TRUE(Structure::deregisterStructure(*same[0]));
  EXPECT_EQ(Structure::structureByName("Same"), same[1].get());

  // A registered structure renamed, or given a member, is found and
  // compared as it is now.
  same[1]->setName("Renamed");
  EXPECT_EQ(Structure::structureByName("Renamed"), same[1].get());
  EXPECT_EQ(Structure::structureByName("Same"), same[2].get());
  StructureRef grown = makeStructure("Same", {{Member::kInt8, 3, "a"}, {Member::kInt8, 1, "b"}});
  EXPECT_TRUE(add(*grown));
  StructureRef twin = makeStructure("Same", {{Member::kInt8, 3, "a"}, {Member::kInt8, 1, "c"}});
  ASSERT_TRUE(same[2]->addMember(Member::kInt8, 1, "c"));
  EXPECT_FALSE(Structure::registerStructure(*twin));

  // The set changed directly (references moved by hand): lookups and
  // registration see what is in it.
  Structure::allStructures().erase(same[2].get());
  same[2]->unref();
  EXPECT_EQ(Structure::structureByName("Same"), grown.get());
  EXPECT_TRUE(Structure::registerStructure(*twin));
  Structure::allStructures().erase(twin.get());
  twin->unref();
  Structure::allStructures().insert(same[2].get());
  same[2]->ref();
  EXPECT_FALSE(Structure::registerStructure(*twin));
  EXPECT_EQ(Structure::structureByName("Same"), std::min(same[2].get(), grown.get()));
}

TEST(StructureIterator, WalksMembersAndThrowsAtEnd) {
  StructureRef s = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt8, 1, "b"}});
  StructureIterator it = s->begin();
  EXPECT_EQ((it++).index(), 0u);
  EXPECT_STREQ(Member::name(&*it), "b");
  ++it;
  EXPECT_TRUE(it == s->end());
  EXPECT_TRUE(++it == s->end());  // stays at the end
  EXPECT_EQ(kivo::Test::thrownText<std::out_of_range>([&] { *it; }), "Member");
  StructureRef twin = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt8, 1, "b"}});
  EXPECT_TRUE(s->end() != twin->end());  // same layout, other object
  EXPECT_FALSE(StructureIterator().valid());
}

TEST(StructureDebug, PrintsMembersAndDefaultBlock) {
  StructureRef s = makeStructure("P", {{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}});
  std::ostringstream out;
  kivo::Debug::Print print(out);
  Structure::Debug(s.get(), print);
  const std::string head =
      "RefCount : 1\nStructure 'P'\nTotal Size = 8\nMember List\n{\n"
      "    Member[0] = 'a' int8[1] +0\n    Member[1] = 'b' int32[1] +4\n}\n";
  EXPECT_EQ(out.str(), head + "No default values provided\n");
  s->defaultData();
  out.str("");
  Structure::Debug(s.get(), print);
  EXPECT_EQ(out.str(), head + "Default Value Memory Block\n{\n"
                              "    00 00 00 00 00 00 00 00   -- -- -- -- -- -- -- --\n}\n");
}

TEST(StructureDebug, ClassStatisticsListTypesAndRegistry) {
  StructureRef s = makeStructure("Listed", {{Member::kInt8, 1, "a"}});
  ASSERT_TRUE(Structure::registerStructure(*s));
  std::ostringstream out;
  kivo::Debug::Print print(out);
  print.setSectionStyle(kivo::Debug::Print::kIndentOnly);
  Structure::Debug(nullptr, print);
  Structure::deregisterStructure(*s);
  const std::string text = out.str();
  EXPECT_EQ(text.substr(0, text.find("[1]")),
            "kivo::Data::Structure Static Data\n    Default structure name = structure\n"
            "    Recognized Data Types\n        [0] = bool, size = 1bytes, alignment = 1bytes\n"
            "        ");
  for (const char* line : {"        [2] = dbl4x4, size = 128bytes, alignment = 8bytes\n",
                           "        [14] = invalid\n    Registered Structures\n",
                           "Structure 'Listed'"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
}

}  // namespace
