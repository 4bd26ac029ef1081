// StructureLayout.*    offsets and totals, every refusal of addMember
// StructureChunks.*    default block, duplication, destruction, default tests
// StructureCopy.*      copies are equal, unregistered and start at count 0
// StructureRegistry.*  identity vs equality, lookup by name, dropping references
// StructureIterator.*  walking members, the end position, references held
// StructureDebug.*     the object print and the class statistics
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Data::StructureIterator;
using StructureRef = kivo::Detail::Ref<Structure>;

struct Field {
  Member::eDataType type;
  unsigned int length;
  const char* name;
};

StructureRef makeStructure(const char* name, std::initializer_list<Field> fields) {
  StructureRef structure(new Structure(name));
  for (const Field& f : fields) EXPECT_TRUE(structure->addMember(f.type, f.length, f.name));
  return structure;
}

std::vector<uint64_t> offsets(const Structure& structure) {
  std::vector<uint64_t> result;
  for (const Member& member : structure) result.push_back(Member::offset(&member));
  return result;
}

void setString(const Structure& structure, char* block, unsigned int member, const char* text) {
  char* copy = kivo::Detail::copyName(text);
  std::memcpy(block + Member::offset(&*std::next(structure.begin(), member)), &copy, sizeof copy);
}

const char* getString(const Structure& structure, const char* block, unsigned int member) {
  const char* text;
  std::memcpy(&text, block + Member::offset(&*std::next(structure.begin(), member)), sizeof text);
  return text;
}

struct LayoutCase {
  std::vector<Field> fields;
  std::vector<uint64_t> offsets;
  uint64_t total;
};

TEST(StructureLayout, OffsetsFollowEachTypeTotalFollowsFirstMember) {
  const LayoutCase cases[] = {
      {{{Member::kInt8, 1, "a"}, {Member::kDouble, 1, "b"}}, {0, 8}, 16},
      {{{Member::kDouble, 1, "b"}, {Member::kInt8, 1, "a"}}, {0, 8}, 16},
      {{{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}, {Member::kInt8, 1, "c"}}, {0, 4, 8}, 9},
      {{{Member::kFloat, 3, "p"}, {Member::kString, 2, "s"}, {Member::kInt16, 1, "i"}},
       {0, 16, 32},
       36},
      {{{Member::kDoubleMatrix4x4, 2, "m"}, {Member::kBoolean, 1, "b"}}, {0, 256}, 264},
  };
  for (const LayoutCase& c : cases) {
    StructureRef s(new Structure);
    for (const Field& f : c.fields) ASSERT_TRUE(s->addMember(f.type, f.length, f.name));
    SCOPED_TRACE(c.total);
    EXPECT_EQ(offsets(*s), c.offsets);
    EXPECT_EQ(s->totalSize(), c.total);
    EXPECT_EQ(s->memberCount(), c.fields.size());
    EXPECT_EQ(s->size(), c.fields.size());
  }
}

TEST(StructureLayout, EmptyStructureHasNoSizeAndNoDefaults) {
  StructureRef s(Structure::create());
  EXPECT_STREQ(s->name(), "structure");
  EXPECT_TRUE(s->empty());
  EXPECT_EQ(s->totalSize(), 0u);
  EXPECT_TRUE(s->begin() == s->end());
  EXPECT_EQ(s->defaultData(), nullptr);
  EXPECT_EQ(s->allocateDefaultChunk(), nullptr);
  s->setName("named");
  s->setName(nullptr);
  EXPECT_STREQ(s->name(), "structure");
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
      // 128 x 33554432 is 2^32: wraps to 0 in 32 bits.
      {Member::kDoubleMatrix4x4, 33554432, "b"},
      {Member::kUInt64, 0x80000000u, "b"},
      // Fits in 32 bits, but the element would pass 64 MiB.
      {Member::kUInt8, (64u << 20) - 3, "b"},
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
  EXPECT_EQ(s->totalSize(), 64u << 20);
  EXPECT_FALSE(s->addMember(Member::kUInt8, 1, "c"));
}

TEST(StructureChunks, DefaultBlockIsBuiltOnceAndNotRebuilt) {
  StructureRef s = makeStructure("S", {{Member::kInt32, 1, "a"}});
  const char* defaults = s->defaultData();
  ASSERT_NE(defaults, nullptr);
  EXPECT_TRUE(s->chunkIsDefault(defaults));
  ASSERT_TRUE(s->addMember(Member::kString, 2, "text"));
  EXPECT_EQ(s->defaultData(), defaults);
  // Blocks made later still have the full size and every default.
  char* block = s->allocateDefaultChunk();
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(s->chunkIsDefault(block));
  setString(*s, block, 1, "x");
  EXPECT_FALSE(s->chunkIsDefault(block));
  s->destroyChunk(block);
  delete[] block;
}

TEST(StructureChunks, DuplicatesCopyStringsDeeply) {
  StructureRef s = makeStructure("S", {{Member::kString, 2, "t"}, {Member::kInt8, 1, "i"}});
  char* original = s->allocateDefaultChunk();
  setString(*s, original, 0, "hello");
  original[Member::offset(&*std::next(s->begin()))] = 7;
  char* copy = s->duplicateChunk(original);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(getString(*s, copy, 0), getString(*s, original, 0));
  EXPECT_STREQ(getString(*s, copy, 0), "hello");
  EXPECT_EQ(copy[Member::offset(&*std::next(s->begin()))], 7);
  s->destroyChunk(original);
  delete[] original;
  EXPECT_STREQ(getString(*s, copy, 0), "hello");
  s->destroyChunk(copy);
  EXPECT_EQ(getString(*s, copy, 0), nullptr);
  delete[] copy;
  EXPECT_EQ(s->duplicateChunk(nullptr), nullptr);
}

TEST(StructureChunks, MemberDefaultTests) {
  StructureRef s = makeStructure("S", {{Member::kInt32, 1, "a"}, {Member::kFloat, 1, "b"}});
  char* block = s->allocateDefaultChunk();
  const float one = 1.0f;
  std::memcpy(block + 4, &one, sizeof one);
  EXPECT_FALSE(s->chunkIsDefault(block));
  EXPECT_TRUE(s->chunkMemberIsDefault(block, "a"));
  EXPECT_FALSE(s->chunkMemberIsDefault(block, "b"));
  EXPECT_TRUE(s->chunkMemberIsDefault(block, "nothing"));  // no such member: true
  EXPECT_FALSE(s->chunkMemberIsDefault(nullptr, "a"));
  EXPECT_FALSE(s->chunkIsDefault(nullptr));
  s->destroyChunk(block);
  delete[] block;
}

TEST(StructureCopy, CopyIsEqualUnregisteredAndUncounted) {
  StructureRef s = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}});
  ASSERT_NE(s->defaultData(), nullptr);
  ASSERT_TRUE(Structure::registerStructure(*s));
  StructureRef copy(new Structure(*s));
  EXPECT_EQ(copy->refCount(), 1);  // 0 until this test's reference
  EXPECT_TRUE(*copy == *s);
  EXPECT_EQ(offsets(*copy), offsets(*s));
  EXPECT_NE(copy->defaultData(), s->defaultData());
  EXPECT_EQ(std::memcmp(copy->defaultData(), s->defaultData(), 8), 0);
  EXPECT_FALSE(Structure::deregisterStructure(*copy));

  Structure assigned("other");
  assigned = *s;
  EXPECT_TRUE(assigned == *s);
  assigned.setName("other");
  EXPECT_TRUE(assigned != *s);
  EXPECT_TRUE(Structure::deregisterStructure(*s));
}

class StructureRegistry : public ::testing::Test {
 protected:
  void TearDown() override {
    for (Structure* s : fRegistered) Structure::deregisterStructure(*s);
  }
  // Registers s (count 0) so that the registry holds its only reference.
  bool add(Structure* s) {
    if (!Structure::registerStructure(*s)) return false;
    fRegistered.push_back(s);
    return true;
  }
  std::vector<Structure*> fRegistered;
};

TEST_F(StructureRegistry, RefusesSameObjectAndEqualStructures) {
  StructureRef a = makeStructure("Reg", {{Member::kFloat, 3, "p"}});
  StructureRef b = makeStructure("Reg", {{Member::kFloat, 3, "p"}});
  EXPECT_TRUE(add(a.get()));
  EXPECT_EQ(a->refCount(), 2);
  EXPECT_FALSE(add(a.get()));
  EXPECT_FALSE(add(b.get()));
  EXPECT_EQ(b->refCount(), 1);
}

TEST_F(StructureRegistry, AcceptsOtherLayoutsUnderOneName) {
  StructureRef a = makeStructure("Reg", {{Member::kFloat, 3, "p"}});
  StructureRef b = makeStructure("Reg", {{Member::kDouble, 3, "p"}});
  EXPECT_TRUE(add(a.get()));
  EXPECT_TRUE(add(b.get()));
  Structure* first = std::less<Structure*>()(a.get(), b.get()) ? a.get() : b.get();
  EXPECT_EQ(Structure::structureByName("Reg"), first);
  EXPECT_EQ(Structure::structureByName("reg"), nullptr);
  EXPECT_EQ(Structure::structureByName(nullptr), nullptr);
}

TEST_F(StructureRegistry, DeregisteringTheOnlyReferenceDestroys) {
  const uint64_t alive = Structure::_objectsAlive;
  Structure* s = Structure::create();
  ASSERT_TRUE(Structure::registerStructure(*s));
  EXPECT_EQ(Structure::structureByName("structure"), s);
  EXPECT_TRUE(Structure::deregisterStructure(*s));
  EXPECT_EQ(Structure::_objectsAlive, alive);

  StructureRef kept = makeStructure("Kept", {{Member::kInt8, 1, "a"}});
  Structure* dropped = Structure::create();
  ASSERT_TRUE(Structure::registerStructure(*kept));
  ASSERT_TRUE(Structure::registerStructure(*dropped));
  Structure::deleteAllStructures();
  EXPECT_TRUE(Structure::allStructures().empty());
  EXPECT_EQ(kept->refCount(), 1);
  EXPECT_FALSE(Structure::deregisterStructure(*kept));
}

TEST(StructureIterator, WalksMembersInOrderAndThrowsAtEnd) {
  StructureRef s = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt8, 1, "b"}});
  StructureIterator it = s->begin();
  EXPECT_EQ(s->refCount(), 2);
  EXPECT_STREQ(Member::name(&*it), "a");
  StructureIterator old = it++;
  EXPECT_EQ(old.index(), 0u);
  EXPECT_STREQ(Member::name(&*it), "b");
  ++it;
  EXPECT_TRUE(it == s->end());
  EXPECT_FALSE(it.valid());
  ++it;
  EXPECT_TRUE(it == s->end());
  try {
    *it;
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "Member");
  }
  EXPECT_TRUE(StructureIterator(*s, kivo::Data::kBegin) != StructureIterator(*s, kivo::Data::kEnd));
  StructureRef other = makeStructure("S", {{Member::kInt8, 1, "a"}, {Member::kInt8, 1, "b"}});
  EXPECT_TRUE(s->end() != other->end());  // same layout, other object
}

TEST(StructureIterator, DefaultIteratorOwnsAnEmptyStructure) {
  const uint64_t alive = Structure::_objectsAlive;
  {
    StructureIterator it;
    EXPECT_FALSE(it.valid());
    EXPECT_TRUE(it == it.structure().end());
    EXPECT_EQ(Structure::_objectsAlive, alive + 1);
  }
  EXPECT_EQ(Structure::_objectsAlive, alive);
}

TEST(StructureDebug, PrintsMembersAndDefaultBlock) {
  StructureRef s = makeStructure("P", {{Member::kInt8, 1, "a"}, {Member::kInt32, 1, "b"}});
  std::ostringstream out;
  kivo::Debug::Print print(out);
  Structure::Debug(s.get(), print);
  EXPECT_EQ(out.str(),
            "RefCount : 1\nStructure 'P'\nTotal Size = 8\nMember List\n{\n"
            "    Member[0] = 'a' int8[1] +0\n    Member[1] = 'b' int32[1] +4\n}\n"
            "No default values provided\n");
  s->defaultData();
  ASSERT_TRUE(s->addMember(Member::kDouble, 2, "c"));
  out.str("");
  Structure::Debug(s.get(), print);
  EXPECT_NE(out.str().find("Total Size = 24\n"), std::string::npos);
  EXPECT_NE(out.str().find("Default Value Memory Block\n{\n"
                           "    00 00 00 00 00 00 00 00   -- -- -- -- -- -- -- --\n}\n"),
            std::string::npos)
      << out.str();
}

TEST(StructureDebug, ClassStatisticsListTypesAndRegistry) {
  StructureRef s = makeStructure("Listed", {{Member::kInt8, 1, "a"}});
  ASSERT_TRUE(Structure::registerStructure(*s));
  std::ostringstream out;
  kivo::Debug::Print print(out);
  Structure::Debug(nullptr, print);
  Structure::deregisterStructure(*s);
  const std::string text = out.str();
  EXPECT_EQ(text.rfind("kivo::Data::Structure Static Data\n{\n"
                       "    Default structure name = structure\n"
                       "    Recognized Data Types\n    {\n"
                       "        [0] = bool, size = 1bytes, alignment = 1bytes\n",
                       0),
            0u)
      << text;
  EXPECT_NE(text.find("        [2] = dbl4x4, size = 128bytes, alignment = 8bytes\n"),
            std::string::npos);
  EXPECT_NE(text.find("        [14] = invalid\n    }\n    Registered Structures\n"),
            std::string::npos);
  EXPECT_NE(text.find("Structure 'Listed'"), std::string::npos);
}

}  // namespace
