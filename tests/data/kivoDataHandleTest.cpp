// HandleOwnership.*  owning, viewing and private copies; nothing freed twice
// HandlePosition.*   positioning by index and by name, the end position
// HandleAccess.*     typed pointers never convert; identity of the structure
// HandleDebug.*      the value line with the "type" and "hex" filters
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;

// "i" int32, "p" float[3], "s" string: offsets 0, 4, 16.
StructureRef sample() {
  return makeStructure("Sample", {{Member::kInt32, 1, "i"}, {Member::kFloat, 3, "p"},
                                  {Member::kString, 1, "s"}});
}

TEST(HandleOwnership, CopiesViewUntilMadeUnique) {
  StructureRef s = sample();
  Handle owner(*s);
  EXPECT_TRUE(owner.isDefault());
  EXPECT_FALSE(owner.makeUnique());  // already owns its defaults
  std::string errors;
  ASSERT_TRUE(owner.setPositionByMemberName("s"));
  ASSERT_EQ(owner.fromStr("shared", 0, errors), 0u);
  { Handle view(owner); }
  EXPECT_EQ(owner.str(0), "shared");  // the view freed nothing

  Handle copy = owner;
  EXPECT_EQ(copy.data(), owner.data());
  EXPECT_TRUE(copy.makeUnique());
  EXPECT_NE(copy.data(), owner.data());
  EXPECT_FALSE(copy.makeUnique());
  ASSERT_EQ(copy.fromStr("private", 0, errors), 0u);
  EXPECT_EQ(owner.str(0), "shared");
  EXPECT_EQ(copy.str(0), "private");
}

TEST(HandleOwnership, ReassignmentNeverFreesABlockStillShown) {
  StructureRef s = sample();
  Handle a(*s);
  Handle b(a);
  a = b;  // b views a's own block: a keeps it
  EXPECT_FALSE(a.makeUnique());
  a.setPositionByMemberName("s");
  std::string errors;
  EXPECT_EQ(a.fromStr("still here", 0, errors), 0u);

  Handle c(*s);
  c = Handle();
  EXPECT_FALSE(c.hasData());
  char* block = s->allocateDefaultChunk();
  c.pointToData(block, true);   // freed by c
  c.pointToData(block, false);  // the same block stays owned
  EXPECT_FALSE(c.makeUnique());
}

TEST(HandleOwnership, SwapAndCountersAndReferences) {
  const uint64_t handles = Handle::_objectsAlive;
  StructureRef s = sample();
  StructureRef t = makeStructure("Other", {{Member::kInt8, 1, "x"}});
  {
    Handle a(*s);
    a.setPositionByMemberIndex(2);
    Handle b(*t, nullptr);
    char* owned = a.data();
    a.swap(b);
    EXPECT_TRUE(a.usesStructure(*t) && !a.hasData() && a.index() == 0);
    EXPECT_TRUE(b.usesStructure(*s) && b.data() == owned && b.index() == 2);
    EXPECT_FALSE(b.makeUnique());  // ownership moved with the block
    EXPECT_EQ(s->refCount(), 2);
    EXPECT_EQ(Handle::_objectsAlive, handles + 2);
  }
  EXPECT_EQ(s->refCount(), 1);
  EXPECT_EQ(Handle::_objectsAlive, handles);
}

TEST(HandlePosition, ByIndexAndByName) {
  StructureRef s = sample();
  Handle h(*s);
  EXPECT_TRUE(h.setPositionByMemberIndex(1));
  EXPECT_EQ(h.dataType(), Member::kFloat);
  EXPECT_EQ(h.dataLength(), 3u);
  EXPECT_FALSE(h.setPositionByMemberName(nullptr));
  EXPECT_EQ(h.index(), 1u);  // kept
  EXPECT_TRUE(h.setPositionByMemberName("i"));
  EXPECT_FALSE(h.setPositionByMemberName("I"));
  EXPECT_FALSE(h.valid());
  EXPECT_TRUE(h.setPositionByMemberName("s"));
  EXPECT_FALSE(h.setPositionByMemberIndex(s->memberCount()));
  EXPECT_FALSE(h.valid());
  for (unsigned int type = 0; type <= Member::kInvalidType; ++type) {
    EXPECT_EQ(h.asType(static_cast<Member::eDataType>(type)), nullptr);
  }
  EXPECT_THROW(h.dataType(), std::out_of_range);
  EXPECT_THROW(h.dataLength(), std::out_of_range);
}

TEST(HandleAccess, TypedPointersMatchOnlyTheMemberType) {
  StructureRef s = sample();
  Handle h(*s);
  EXPECT_EQ(h.asFloat(), nullptr);
  ASSERT_EQ(static_cast<void*>(h.asInt32()), h.data());
  *h.asInt32() = 42;
  EXPECT_FALSE(h.isDefault());
  EXPECT_FALSE(h.isDefaultMember("i"));
  EXPECT_TRUE(h.isDefaultMember("p"));
  h.setPositionByMemberIndex(1);
  EXPECT_EQ(static_cast<void*>(h.asFloat()), h.data() + 4);
  EXPECT_EQ(h.asDouble(), nullptr);

  EXPECT_FALSE(Handle(*s, nullptr).isDefault());
  EXPECT_FALSE(h.usesStructure(*sample()));  // an equal structure, but another object
}

TEST(HandleDebug, ValueLineWithFilters) {
  StructureRef s = makeStructure("V", {{Member::kFloat, 3, "p"}});
  Handle h(*s);
  std::string errors;
  for (unsigned int i = 0; i < 3; ++i) h.fromStr(std::to_string(i + 1), i, errors);
  std::ostringstream address;
  address << static_cast<const void*>(h.data());
  struct Case {
    int type, hex;
    std::string expected;
  };
  const Case cases[] = {
      {1, 0, "    float 3 elements: [ 1 2 3 ]"},
      {0, 0, "    3 elements: [ 1 2 3 ]"},
      {0, 2, "    3 elements: [ 1 2 3 ](" + address.str() + ")  00 00 80 3f  00 00 00 40  00 00 40 40 "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    std::ostringstream out;
    kivo::Debug::Print print(out);
    print.indent(1);
    print.addFilter(Handle::kDebugType, c.type);  // level 0 is off
    if (c.hex) print.addFilter(Handle::kDebugHex, c.hex);
    Handle::Debug(&h, print);
    EXPECT_EQ(out.str(), c.expected);
  }
  std::ostringstream out;
  kivo::Debug::Print print(out);
  print.addFilter(Handle::kDebugType, 1);
  h.setPositionByMemberIndex(1);
  Handle::Debug(&h, print);
  EXPECT_EQ(out.str(), "invalid []");
}

}  // namespace
