// IndexText.*      numeric, pair and string text: accepted forms, each creation error
// IndexOrder.*     ordering and equality within and across kinds
// IndexDense.*     dense support and the space between indices
// IndexRegistry.*  unknown type names, load-time registrations
// IndexSharing.*   complex indices share one counted object
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataIndexPair.h>
#include <kivo/data/kivoDataIndexString.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

namespace {

using kivo::Data::Index;
using kivo::Data::IndexPair;
using kivo::Data::IndexString;
using kivo::Data::IndexType;

// The error value thrown by make(), or -1 when it returned normally.
template <class F>
int thrown(F make) {
  try {
    make();
  } catch (Index::eCreationErrors error) {
    return static_cast<int>(error);
  }
  return -1;
}

TEST(IndexText, CreatorsReadTheirTextOrRefuseWithTheRightError) {
  struct Case {
    const char* type;
    std::string text;
    int error;                  // -1: accepted
    const char* asString = "";  // of an accepted index
  };
  const Case cases[] = {
      {"numeric", " 42\t", -1, "42"},  {"numeric", "\r7 \r", -1, "7"},
      {"numeric", "4294967295", -1, "4294967295"},
      {"numeric", "", 1},              {"numeric", "  \t", 1},        {"numeric", "-1", 1},
      {"numeric", "+1", 1},            {"numeric", "1a", 1},          {"numeric", "0x10", 1},
      {"numeric", "1\n", 1},           {"numeric", "1.5", 1},         {"numeric", "4294967296", 1},
      {"numeric", "99999999999", 1},   {"numeric", std::string("1\0", 2), 1},
      {"numeric", "12 34", 2},         {"numeric", "1 \t 0", 2},
      {"pair", "3 4", -1, "3 4"},      {"pair", " 12\t7\r", -1, "12 7"},
      {"pair", "3", 1},                {"pair", "3,4", 1},            {"pair", "", 1},
      {"pair", "3 -4", 1},             {"pair", "3 4294967296", 1},   {"pair", "3 4 x", 1},
      {"pair", "3 4 5", 2},
      {"string", " a b\n", -1, " a b\n"}, {"string", "", -1, ""},  // taken as they stand
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.type) + " '" + c.text + "'");
    Index index;
    EXPECT_EQ(thrown([&] { index = Index::doCreate(c.type, c.text); }), c.error);
    if (c.error >= 0) continue;
    EXPECT_EQ(index.typeName(), c.type);
    EXPECT_EQ(index.asString(), c.asString);
    EXPECT_EQ(index.isComplex(), std::string(c.type) != "numeric");
  }
  unsigned int first = 0, second = 0;
  IndexPair(std::string("3 4")).getIndexPair(first, second);
  EXPECT_TRUE(first == 3u && second == 4u);
}

// Checks that a sorts strictly before b through every comparison operator, both ways round.
void expectBefore(const Index& a, const Index& b) {
  EXPECT_TRUE(a < b && a <= b && !(a > b) && !(a >= b) && a != b && !(a == b));
  EXPECT_TRUE(b > a && b >= a && !(b < a) && !(b <= a) && b != a && !(b == a));
}

TEST(IndexOrder, NumbersPairsAndStringsSortByValue) {
  expectBefore(Index(3), Index(4));
  EXPECT_TRUE(Index(4) == Index(4) && Index(4) <= Index(4) && Index(4) >= Index(4));
  EXPECT_EQ(Index().index(), 0u);
  expectBefore(Index(IndexPair(1, 9)), Index(IndexPair(2, 0)));  // lexicographic
  expectBefore(Index(IndexPair(2, 0)), Index(IndexPair(2, 1)));
  const Index pair(IndexPair(2, 1));
  EXPECT_TRUE(pair == Index(IndexPair(2, 1)) && pair >= Index(IndexPair(2, 1)));
  EXPECT_FALSE(pair < Index(IndexPair(2, 1)));
  expectBefore(Index(IndexString("a")), Index(IndexString("b")));  // bytewise, prefix first
  expectBefore(Index(IndexString("a")), Index(IndexString("ab")));
  expectBefore(Index(IndexString("")), Index(IndexString("a")));
  expectBefore(Index(IndexString("z")), Index(IndexString("\xc3\xa9")));  // above 0x7f last
}

TEST(IndexOrder, EveryNumericIndexSortsBeforeEveryComplexOne) {
  expectBefore(Index(0xFFFFFFFFu), Index(IndexPair(0, 0)));
  expectBefore(Index(0xFFFFFFFFu), Index(IndexString("")));
  EXPECT_FALSE(Index(0) == Index(IndexPair(0, 0)));
}

TEST(IndexOrder, KindsOrderConsistentlyAndNeverEqual) {
  const IndexPair pair(0, 0);
  const IndexString text("");
  EXPECT_FALSE(pair == text);
  EXPECT_TRUE(pair != text);
  EXPECT_FALSE(text == pair);
  // Exactly one direction holds, whatever the values.
  EXPECT_NE(pair < text, text < pair);
  EXPECT_EQ(pair < text, IndexPair(9, 9) < IndexString("zzz"));
  EXPECT_EQ(pair < text, pair <= text);
  EXPECT_EQ(text > pair, pair < text);
  EXPECT_EQ(text >= pair, pair < text);
}

TEST(IndexDense, SpaceBetweenIndicesAndSupportByKind) {
  EXPECT_EQ(Index(5).denseSpaceBetween(Index(5)), 1u);
  EXPECT_EQ(Index(3).denseSpaceBetween(Index(7)), 5u);
  EXPECT_EQ(Index(9).denseSpaceBetween(Index(2)), 8u);
  EXPECT_EQ(Index(0).denseSpaceBetween(Index(0xFFFFFFFFu)), 4294967296u);
  EXPECT_EQ(Index(3).denseSpaceBetween(Index(IndexPair(1, 1))), 0u);
  EXPECT_EQ(Index(IndexPair(1, 1)).denseSpaceBetween(Index(3)), 0u);
  EXPECT_EQ(Index(IndexPair(1, 1)).denseSpaceBetween(Index(IndexPair(3, 4))), 12u);
  EXPECT_EQ(Index(IndexPair(3, 4)).denseSpaceBetween(Index(IndexPair(1, 1))), 12u);
  EXPECT_EQ(Index(IndexPair(1, 1)).denseSpaceBetween(Index(IndexString("a"))), 0u);
  EXPECT_EQ(Index(IndexString("a")).denseSpaceBetween(Index(IndexString("b"))), 0u);
  EXPECT_EQ(IndexPair(0, 0).denseSpaceBetween(IndexPair(0xFFFFFFFFu, 0xFFFFFFFFu)),
            UINT64_MAX);
  EXPECT_TRUE(Index(1).supportsDenseMode());
  EXPECT_TRUE(Index(IndexPair(1, 2)).supportsDenseMode());
  EXPECT_FALSE(Index(IndexString("a")).supportsDenseMode());
}

TEST(IndexRegistry, UnknownTypeNamesAreRefused) {
  const Index pair = Index::doCreate("pair", "3 4");
  EXPECT_EQ(pair.index(), 0u);
  EXPECT_NE(static_cast<IndexType*>(pair), nullptr);
  EXPECT_EQ(static_cast<IndexType*>(Index(7)), nullptr);
  EXPECT_EQ(thrown([] { Index::doCreate("triple", "1"); }), 0);
  EXPECT_EQ(thrown([] { Index::creator("Pair"); }), 0);
}

TEST(IndexRegistry, FirstRegistrationStays) {
  EXPECT_FALSE(Index::registerType("numeric", &IndexPair::doCreate));
  EXPECT_EQ(Index::creator("numeric"), &Index::TypeCreator);
  EXPECT_FALSE(Index::registerType("pair", &Index::TypeCreator));
  EXPECT_EQ(Index::creators().count("string"), 1u);
}

TEST(IndexSharing, CopiesShareTheObjectAndOutliveTheOriginal) {
  Index* original = new Index(IndexString("edge"));
  IndexType* object = static_cast<IndexType*>(*original);
  EXPECT_EQ(object->refCount(), 1);
  Index copy(*original);
  Index assigned;
  assigned = copy;
  EXPECT_EQ(static_cast<IndexType*>(copy), object);
  EXPECT_EQ(object->refCount(), 3);
  delete original;
  EXPECT_EQ(object->refCount(), 2);
  EXPECT_EQ(copy.asString(), "edge");
  assigned = 12u;
  EXPECT_FALSE(assigned.isComplex());
  EXPECT_EQ(assigned.typeName(), "numeric");
  EXPECT_EQ(object->refCount(), 1);
  copy = copy;
  EXPECT_EQ(object->refCount(), 1);
  EXPECT_EQ(copy.asString(), "edge");
}

TEST(IndexSharing, ConstructionClonesTheGivenObject) {
  IndexPair pair(1, 2);
  const Index index(pair);
  pair = IndexPair(5, 6);
  EXPECT_EQ(index.asString(), "1 2");
  EXPECT_EQ(pair.refCount(), 0);
}

TEST(IndexSharing, DebugPrintsNumbersAndObjectsWithoutNewline) {
  std::ostringstream out;
  kivo::Debug::Print print(out);
  const Index numeric(17);
  const Index complex(IndexPair(3, 4));
  EXPECT_TRUE(Index::Debug(&numeric, print));
  EXPECT_TRUE(Index::Debug(&complex, print));
  EXPECT_TRUE(static_cast<IndexType*>(complex)->Debug(static_cast<IndexType*>(complex), print));
  EXPECT_EQ(out.str(), "173 4");
}

}  // namespace
