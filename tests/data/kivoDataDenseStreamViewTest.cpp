// DenseStreamView.*  typed memory of a dense stream against Handle access; pins
#include <kivo/data/kivoDataDenseStreamView.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::DenseStreamView;
using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Test::element;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;
using Column = DenseStreamView::Column;
using Access = std::function<bool(const DenseStreamView&, uint32_t, const Column&, unsigned int)>;

// One member type: the text stored through a Handle and what the view reads
// of each value; what the view writes into each value and the text the
// Handle shows afterwards.
struct TypeCase {
  Member::eDataType type;
  const char* stored;
  Access reads;
  Access writes;
  const char* written;
};

// Number `at` of every value (a matrix value holds sixteen numbers).
template <class T>
TypeCase typeCase(Member::eDataType type, const char* stored, T read, T write,
                  const char* written, unsigned int at = 0, unsigned int per = 1) {
  return {type, stored,
          [=](const DenseStreamView& v, uint32_t i, const Column& c, unsigned int n) {
            return v.get<T>(i, c, n * per + at) == read;
          },
          [=](const DenseStreamView& v, uint32_t i, const Column& c, unsigned int n) {
            v.set<T>(i, c, write, n * per + at);
            return true;
          },
          written};
}

constexpr char kMatrix[] = "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15";
constexpr char kMatrixWritten5[] = "0 1 2 3 4 -2.5 6 7 8 9 10 11 12 13 14 15";
constexpr char kMatrixWritten15[] = "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 -2.5";

TEST(DenseStreamView, ReadsAndWritesWhatHandlesDoForEveryType) {
  const std::vector<TypeCase> cases = {
      typeCase<uint8_t>(Member::kBoolean, "true", 1, 0, "false"),
      typeCase<double>(Member::kDouble, "0.25", 0.25, -1e300, "-1e+300"),
      typeCase<double>(Member::kDoubleMatrix4x4, kMatrix, 5.0, -2.5, kMatrixWritten5, 5, 16),
      typeCase<float>(Member::kFloat, "1.5", 1.5f, 3e38f, "3e+38"),
      typeCase<float>(Member::kFloatMatrix4x4, kMatrix, 15.0f, -2.5f, kMatrixWritten15, 15, 16),
      typeCase<int8_t>(Member::kInt8, "-128", -128, 127, "127"),
      typeCase<int16_t>(Member::kInt16, "-300", -300, 32767, "32767"),
      typeCase<int32_t>(Member::kInt32, "-70000", -70000, 123456789, "123456789"),
      typeCase<int64_t>(Member::kInt64, "-5000000000", -5000000000, INT64_MIN,
                        "-9223372036854775808"),
      {Member::kString, "text",
       [](const DenseStreamView& v, uint32_t i, const Column& c, unsigned int n) {
         return std::strcmp(v.get<char*>(i, c, n), "text") == 0;
       },
       [](const DenseStreamView& v, uint32_t i, const Column& c, unsigned int n) {
         std::free(v.get<char*>(i, c, n));
         v.set<char*>(i, c, strdup("other"), n);
         return true;
       },
       "other"},
      typeCase<uint8_t>(Member::kUInt8, "255", 255, 7, "7"),
      typeCase<uint16_t>(Member::kUInt16, "65535", 65535, 8, "8"),
      typeCase<uint32_t>(Member::kUInt32, "4000000000", 4000000000u, 9, "9"),
      typeCase<uint64_t>(Member::kUInt64, "18446744073709551615", UINT64_MAX, 10, "10"),
  };
  // A leading int8 leaves every member of every element but the first
  // unaligned for its type.
  std::vector<kivo::Test::Field> fields = {{Member::kInt8, 1, "lead"}};
  std::vector<std::string> names;
  names.reserve(cases.size());
  for (const TypeCase& c : cases) {
    names.push_back(Member::typeName(c.type));
    fields.push_back({c.type, 2, names.back().c_str()});
  }
  StructureRef s = makeStructure("Every", fields);
  Stream stream(*s, "D");
  ASSERT_TRUE(stream.useDenseStorage(true));
  Handle source(*s);
  std::string errors;
  for (const TypeCase& c : cases) {
    ASSERT_TRUE(source.setPositionByMemberName(Member::typeName(c.type)));
    for (unsigned int n = 0; n < 2; ++n) ASSERT_EQ(source.fromStr(c.stored, n, errors), 0u);
  }
  for (unsigned int i = 0; i < 3; ++i) ASSERT_TRUE(stream.setElement(i, source));

  const DenseStreamView view(stream);
  ASSERT_TRUE(view.valid());
  EXPECT_EQ(view.count(), 3u);
  EXPECT_EQ(view.stride(), s->totalSize());
  EXPECT_EQ(view.columns().size(), cases.size() + 1);
  EXPECT_EQ(view.column("int8", Member::kUInt8), nullptr);  // the name with another type
  for (const TypeCase& c : cases) {
    SCOPED_TRACE(Member::typeName(c.type));
    const Column* column = view.column(Member::typeName(c.type), c.type);
    ASSERT_NE(column, nullptr);
    EXPECT_EQ(column->length, 2u);
    for (uint32_t i = 0; i < 3; ++i) {
      for (unsigned int n = 0; n < 2; ++n) EXPECT_TRUE(c.reads(view, i, *column, n));
    }
    for (unsigned int n = 0; n < 2; ++n) c.writes(view, 1, *column, n);
    Handle second = stream.element(1);
    ASSERT_TRUE(second.setPositionByMemberName(Member::typeName(c.type)));
    EXPECT_EQ(second.str(0), c.written);
    EXPECT_EQ(second.str(1), c.written);
    for (unsigned int n = 0; n < 2; ++n) {
      EXPECT_TRUE(c.reads(view, 0, *column, n));  // the neighbours keep their values
      EXPECT_TRUE(c.reads(view, 2, *column, n));
    }
  }
}

TEST(DenseStreamView, PinsRefuseWhatWouldChangeTheCountOrMoveTheBlock) {
  StructureRef s = makeStructure("Word", {{Member::kInt32, 1, "v"}});
  Stream stream(*s, "D");
  ASSERT_TRUE(stream.useDenseStorage(true));
  ASSERT_TRUE(stream.setElement(0, element(*s, 1)));
  ASSERT_TRUE(stream.setElement(1, element(*s, 2)));
  DenseStreamView view(stream);
  {
    DenseStreamView copy = view;
    EXPECT_EQ(stream.pinCount(), 2u);
    DenseStreamView moved = std::move(copy);  // the pin is handed on
    EXPECT_EQ(stream.pinCount(), 2u);
    moved.release();
    EXPECT_EQ(stream.pinCount(), 1u);
  }
  const char* base = view.base();
  EXPECT_TRUE(stream.setElement(1, element(*s, 9)));  // within the count
  EXPECT_TRUE(stream.removeElement(0));
  EXPECT_FALSE(stream.setElement(2, element(*s, 3)));
  EXPECT_FALSE(stream.setElement(5000, element(*s, 3)));
  EXPECT_FALSE(stream.reindexElement(0, 2));
  EXPECT_FALSE(stream.setElementRange(0, 0));
  EXPECT_FALSE(stream.clear());
  EXPECT_FALSE(stream.setIndexType("numeric"));
  EXPECT_FALSE(stream.useDenseStorage(false));
  EXPECT_EQ(stream.elementCount(), 2u);
  EXPECT_EQ(view.base(), base);
  EXPECT_EQ(view.get<int32_t>(1, view.columns()[0]), 9);

  // The view keeps the storage alive after the last stream lets it go.
  stream = Stream();
  EXPECT_EQ(view.get<int32_t>(1, view.columns()[0]), 9);
  view = DenseStreamView(stream);  // mapped: not valid, no pin
  EXPECT_FALSE(view.valid());
  EXPECT_EQ(stream.pinCount(), 0u);
}

}  // namespace
