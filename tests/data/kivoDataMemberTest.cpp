// MemberTypes.*  the type table, including kInvalidType and out-of-range values
// MemberValues.*  defaults, string duplication and destruction, the default test
// MemberCompare.*  equality, assignment and the debug line
#include <kivo/data/kivoDataMember.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <sstream>

#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Member;

struct TypeRow {
  Member::eDataType type;
  const char* name;
  unsigned int size;
  unsigned int alignment;
};

TEST(MemberTypes, TableInFixedOrder) {
  const TypeRow rows[] = {
      {Member::kBoolean, "bool", 1, 1},     {Member::kDouble, "double", 8, 8},
      {Member::kDoubleMatrix4x4, "dbl4x4", 128, 8}, {Member::kFloat, "float", 4, 4},
      {Member::kFloatMatrix4x4, "flt4x4", 64, 4},   {Member::kInt8, "int8", 1, 1},
      {Member::kInt16, "int16", 2, 2},      {Member::kInt32, "int32", 4, 4},
      {Member::kInt64, "int64", 8, 8},      {Member::kString, "string", 8, 8},
      {Member::kUInt8, "uint8", 1, 1},      {Member::kUInt16, "uint16", 2, 2},
      {Member::kUInt32, "uint32", 4, 4},    {Member::kUInt64, "uint64", 8, 8},
      {Member::kInvalidType, "invalid", 0, 0},
  };
  unsigned int expectedValue = 0;
  for (const TypeRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(static_cast<unsigned int>(row.type), expectedValue++);
    EXPECT_STREQ(Member::typeName(row.type), row.name);
    EXPECT_EQ(Member::typeFromName(row.name), row.type);
    EXPECT_EQ(Member::typeSize(row.type), row.size);
    EXPECT_EQ(Member::typeAlignment(row.type), row.alignment);
  }
}

TEST(MemberTypes, OnlyShortNamesAreTypeNames) {
  for (const char* text : {"Boolean", "Float", "", "FLOAT", "float ", "double matrix"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Member::typeFromName(text), Member::kInvalidType);
  }
  EXPECT_EQ(Member::typeFromName(nullptr), Member::kInvalidType);
  EXPECT_STREQ(Member::typeName(static_cast<Member::eDataType>(99)), "invalid");
  EXPECT_EQ(Member::typeSize(static_cast<Member::eDataType>(99)), 0u);
}

TEST(MemberTypes, NullMemberAccessors) {
  EXPECT_EQ(Member::type(nullptr), Member::kInvalidType);
  EXPECT_EQ(Member::name(nullptr), nullptr);
  EXPECT_EQ(Member::length(nullptr), 0u);
  EXPECT_EQ(Member::offset(nullptr), 4294967295u);
  EXPECT_EQ(Member::offset(nullptr, 3), 0u);
}

// Members of each type, placed at offset 8 of a 2 KiB block.
class MemberValues : public ::testing::Test {
 protected:
  static Member make(Member::eDataType type, unsigned int length) {
    return Member(type, length, "m", 8);
  }
  alignas(16) char block[2048] = {};
};

TEST_F(MemberValues, DefaultsAreDefaultForEveryType) {
  for (unsigned int t = 0; t < Member::kInvalidType; ++t) {
    const Member m = make(static_cast<Member::eDataType>(t), 3);
    SCOPED_TRACE(Member::typeName(Member::type(&m)));
    std::memset(block, 0x5a, sizeof block);
    EXPECT_FALSE(m.isDefault(block));
    EXPECT_TRUE(m.fillWithDefault(block));
    EXPECT_TRUE(m.isDefault(block));
  }
  EXPECT_FALSE(make(Member::kInt32, 1).isDefault(nullptr));
}

TEST_F(MemberValues, FloatingDefaultTest) {
  const Member f = make(Member::kFloat, 1);
  const Member dm = make(Member::kDoubleMatrix4x4, 1);
  const float negativeZero = -0.0f;
  std::memcpy(block + 8, &negativeZero, sizeof negativeZero);
  EXPECT_TRUE(f.isDefault(block));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::memcpy(block + 8, &nan, sizeof nan);
  EXPECT_FALSE(f.isDefault(block));
  dm.fillWithDefault(block);
  const double one = 1.0;
  std::memcpy(block + 8 + 15 * sizeof(double), &one, sizeof one);
  EXPECT_FALSE(dm.isDefault(block));
}

TEST_F(MemberValues, StringsAreDuplicatedAndDestroyed) {
  const Member s = make(Member::kString, 2);
  alignas(16) char copy[2048] = {};
  char* text = strdup("");  // string values are malloc()ed, like the library's
  std::memcpy(block + 8, &text, sizeof text);
  EXPECT_FALSE(s.isDefault(block));  // an allocated "" is not a default
  std::memcpy(copy, block, sizeof block);
  EXPECT_TRUE(s.constructDuplicate(copy, block));
  char* copied;
  std::memcpy(&copied, copy + 8, sizeof copied);
  ASSERT_NE(copied, nullptr);
  EXPECT_NE(copied, text);
  EXPECT_STREQ(copied, "");
  EXPECT_TRUE(s.destroy(block));
  EXPECT_TRUE(s.destroy(copy));
  EXPECT_TRUE(s.isDefault(block));
  EXPECT_TRUE(s.isDefault(copy));
  EXPECT_FALSE(make(static_cast<Member::eDataType>(20), 1).destroy(block));
}

TEST(MemberCompare, EqualityAssignmentAndDebugLine) {
  const Member a = Member(Member::kFloat, 3, "Origin", 8);
  Member b;
  EXPECT_TRUE(a != b);
  b = a;
  EXPECT_TRUE(a == b);
  EXPECT_NE(Member::name(&a), Member::name(&b));
  const Member c = Member(Member::kFloat, 3, "origin", 8);
  EXPECT_TRUE(a != c);
  Member unnamed1, unnamed2;
  EXPECT_TRUE(unnamed1 == unnamed2);
  std::ostringstream out;
  kivo::Debug::Print print(out);
  Member::Debug(&a, print);
  Member::Debug(nullptr, print);
  EXPECT_EQ(out.str(), "'Origin' float[3] +8\n");
}

}  // namespace
