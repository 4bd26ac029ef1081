// HandleOwnership.*  owning, viewing and private copies; nothing freed twice
// HandlePosition.*   positioning by index and by name, the end position
// HandleAccess.*     typed pointers never convert; identity of the structure
// HandleDebug.*      the value line with the "type" and "hex" filters
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Data::Structure;
using StructureRef = kivo::Detail::Ref<Structure>;

// "i" int32, "p" float[3], "s" string: offsets 0, 4, 16; 24 bytes.
StructureRef sample() {
  StructureRef s(new Structure("Sample"));
  s->addMember(Member::kInt32, 1, "i");
  s->addMember(Member::kFloat, 3, "p");
  s->addMember(Member::kString, 1, "s");
  return s;
}

TEST(HandleOwnership, StructureHandleOwnsDefaults) {
  StructureRef s = sample();
  Handle h(*s);
  EXPECT_TRUE(h.hasData());
  EXPECT_NE(h.data(), s->defaultData());
  EXPECT_TRUE(h.isDefault());
  EXPECT_EQ(h.index(), 0u);
  EXPECT_FALSE(h.makeUnique());  // already owns its block
  EXPECT_EQ(s->refCount(), 2);
}

TEST(HandleOwnership, CopiesViewUntilMadeUnique) {
  StructureRef s = sample();
  Handle owner(*s);
  std::string errors;
  ASSERT_TRUE(owner.setPositionByMemberName("s"));
  ASSERT_EQ(owner.fromStr("shared", 0, errors), 0u);
  {
    Handle view(owner);
    EXPECT_EQ(view.data(), owner.data());
  }
  EXPECT_EQ(owner.str(0), "shared");  // the view freed nothing

  Handle copy = owner;
  EXPECT_TRUE(copy.makeUnique());
  EXPECT_NE(copy.data(), owner.data());
  EXPECT_FALSE(copy.makeUnique());
  ASSERT_EQ(copy.fromStr("private", 0, errors), 0u);
  EXPECT_EQ(owner.str(0), "shared");
  EXPECT_EQ(copy.str(0), "private");
  EXPECT_EQ(errors, "");
}

TEST(HandleOwnership, AssignmentReleasesOwnedBlockButKeepsOneItIsShown) {
  StructureRef s = sample();
  Handle a(*s);
  Handle b(a);
  a = b;  // b views a's own block: a keeps it
  EXPECT_EQ(a.data(), b.data());
  EXPECT_FALSE(a.makeUnique());
  std::string errors;
  a.setPositionByMemberName("s");
  EXPECT_EQ(a.fromStr("still here", 0, errors), 0u);

  Handle c(*s);
  c = Handle();  // c's block is released, c now has no data
  EXPECT_FALSE(c.hasData());
  EXPECT_FALSE(c.usesStructure(*s));

  char* block = s->allocateDefaultChunk();
  c.pointToData(block, true);  // freed by c
  c.pointToData(block, false);  // the same block stays owned
  EXPECT_FALSE(c.makeUnique());
}

TEST(HandleOwnership, SwapExchangesEverything) {
  StructureRef s = sample();
  StructureRef t(new Structure("Other"));
  t->addMember(Member::kInt8, 1, "x");
  Handle a(*s);
  a.setPositionByMemberIndex(2);
  Handle b(*t, nullptr);
  char* aData = a.data();
  a.swap(b);
  EXPECT_TRUE(a.usesStructure(*t));
  EXPECT_EQ(a.index(), 0u);
  EXPECT_FALSE(a.hasData());
  EXPECT_TRUE(b.usesStructure(*s));
  EXPECT_EQ(b.index(), 2u);
  EXPECT_EQ(b.data(), aData);
  EXPECT_FALSE(b.makeUnique());  // ownership moved with the block
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
  EXPECT_EQ(h.index(), 0u);
  EXPECT_FALSE(h.setPositionByMemberName("I"));
  EXPECT_FALSE(h.valid());
  EXPECT_TRUE(h.setPositionByMemberName("s"));
  EXPECT_FALSE(h.setPositionByMemberIndex(s->memberCount()));
  EXPECT_FALSE(h.valid());
  for (unsigned int type = 0; type < Member::kInvalidType; ++type) {
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
  h.setPositionByMemberIndex(2);
  EXPECT_EQ(static_cast<void*>(h.asString()), h.data() + 16);

  Handle empty(*s, nullptr);
  EXPECT_EQ(empty.asInt32(), nullptr);
  EXPECT_FALSE(empty.isDefault());
  EXPECT_FALSE(empty.isDefaultMember(nullptr));

  StructureRef twin = sample();
  EXPECT_TRUE(*twin == *s);
  EXPECT_TRUE(h.usesStructure(*s));
  EXPECT_FALSE(h.usesStructure(*twin));
}

TEST(HandleOwnership, CountersAndReferencesReturn) {
  const uint64_t handles = Handle::_objectsAlive;
  StructureRef s = sample();
  {
    Handle a(*s);
    Handle b(a);
    Handle c;
    c = b;
    EXPECT_EQ(s->refCount(), 4);
    EXPECT_EQ(Handle::_objectsAlive, handles + 3);
  }
  EXPECT_EQ(s->refCount(), 1);
  EXPECT_EQ(Handle::_objectsAlive, handles);
}

struct DebugCase {
  bool type;
  bool hex;
  const char* expected;
};

TEST(HandleDebug, ValueLineWithFilters) {
  StructureRef s(new Structure("V"));
  s->addMember(Member::kFloat, 3, "p");
  Handle h(*s);
  std::string errors;
  for (unsigned int i = 0; i < 3; ++i) h.fromStr(std::to_string(i + 1), i, errors);
  const DebugCase cases[] = {
      {true, false, "    float 3 elements: [ 1 2 3 ]"},
      {false, false, "    3 elements: [ 1 2 3 ]"},
      {false, true, "    3 elements: [ 1 2 3 ](ADDR)  00 00 80 3f  00 00 00 40  00 00 40 40 "},
  };
  std::ostringstream address;
  address << static_cast<const void*>(h.data());
  for (const DebugCase& c : cases) {
    SCOPED_TRACE(c.expected);
    std::ostringstream out;
    kivo::Debug::Print print(out);
    print.indent(1);
    if (c.type) print.addFilter(Handle::kDebugType, 1);
    if (c.hex) print.addFilter(Handle::kDebugHex, 2);
    print.addFilter("unrelated", 1);
    Handle::Debug(&h, print);
    std::string expected = c.expected;
    const size_t at = expected.find("ADDR");
    if (at != std::string::npos) expected.replace(at, 4, address.str());
    EXPECT_EQ(out.str(), expected);
  }
  std::ostringstream out;
  kivo::Debug::Print print(out);
  print.addFilter(Handle::kDebugType, 1);
  h.setPositionByMemberIndex(1);
  Handle::Debug(&h, print);
  EXPECT_EQ(out.str(), "invalid []");
}

}  // namespace
