// ValueTextStr.*      the text of each type, fallbacks without data, the string rule
// ValueTextFromStr.*  accepted forms and every message with its position
// ValueTextMatrix.*   entry-by-entry reading of matrices
// ValueTextLocale.*   numbers stay classic whatever the global locale
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <locale>
#include <string>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Test::StructureRef;

// A structure of one member "v" of the given type and length.
StructureRef single(Member::eDataType type, unsigned int length = 3) {
  return kivo::Test::makeStructure("Value", {{type, length, "v"}});
}

template <class T>
void put(Handle& h, unsigned int index, T value) {
  std::memcpy(static_cast<char*>(h.asType(h.dataType())) + index * sizeof(T), &value, sizeof value);
}

TEST(ValueTextStr, OneTextPerValue) {
  struct Case {
    Member::eDataType type;
    void (*store)(Handle&);
    const char* text;
  };
  const Case cases[] = {
      {Member::kBoolean, [](Handle& h) { put<uint8_t>(h, 1, 2); }, "true"},
      {Member::kInt8, [](Handle& h) { put<int8_t>(h, 1, -5); }, "-5"},
      {Member::kUInt8, [](Handle& h) { put<uint8_t>(h, 1, 65); }, "65"},
      {Member::kUInt64, [](Handle& h) { put<uint64_t>(h, 1, UINT64_MAX); }, "18446744073709551615"},
      {Member::kDouble, [](Handle& h) { put<double>(h, 1, 3.14159265); }, "3.14159"},
      {Member::kDouble, [](Handle& h) { put<double>(h, 1, 1e300); }, "1e+300"},
      {Member::kFloat, [](Handle& h) { put<float>(h, 1, 0.1f); }, "0.1"},
      {Member::kFloatMatrix4x4, [](Handle& h) { put<float>(h, 16 + 5, 2.5f); },
       "0 0 0 0 0 2.5 0 0 0 0 0 0 0 0 0 0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    StructureRef s = single(c.type);
    Handle h(*s);
    c.store(h);
    EXPECT_EQ(h.str(1), c.text);
    EXPECT_EQ(h.str(3), "");  // beyond the member
  }
}

TEST(ValueTextStr, FallbacksAndMessagesWithoutData) {
  const std::string zeros16 = "0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0";
  struct Case {
    Member::eDataType type;
    std::string text;
    const char* word;
  };
  const Case cases[] = {
      {Member::kBoolean, "false", "boolean"},   {Member::kDouble, "0.0", "double"},
      {Member::kDoubleMatrix4x4, zeros16, "double matrix"},
      {Member::kFloat, "0.0", "float"},         {Member::kFloatMatrix4x4, zeros16, "float matrix"},
      {Member::kInt8, "0", "Int8"},             {Member::kInt16, "0", "Int16"},
      {Member::kInt32, "0", "Int32"},           {Member::kInt64, "0", "Int64"},
      {Member::kString, "", "String"},          {Member::kUInt8, "0", "UInt8"},
      {Member::kUInt16, "0", "UInt16"},         {Member::kUInt32, "0", "UInt32"},
      {Member::kUInt64, "0", "UInt64"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.word);
    StructureRef s = single(c.type);
    Handle h(*s, nullptr);
    EXPECT_EQ(h.str(0), c.text);
    std::string errors = "earlier\n";
    EXPECT_EQ(h.fromStr("1", 0, errors), 1u);
    EXPECT_EQ(errors, std::string("earlier\nData not recognized as a ") + c.word + "\n");
  }
}

TEST(ValueTextStr, UnsetFirstStringHidesTheOthers) {
  StructureRef s = single(Member::kString);
  Handle h(*s);
  std::string errors;
  ASSERT_EQ(h.fromStr("second", 1, errors), 0u);
  EXPECT_EQ(h.str(1), "");
  ASSERT_EQ(h.fromStr("first", 0, errors), 0u);
  EXPECT_EQ(h.str(1), "second");
  EXPECT_EQ(h.str(2), "");
}

struct ReadCase {
  Member::eDataType type;
  const char* text;
  unsigned int result;
  const char* errors;
  const char* stored;  // str() afterwards; the seed value after a failure
};

// Seeds: true, 7, or "old", so that a failed parse shows it wrote nothing.
const char* seedFor(Member::eDataType type) {
  return type == Member::kBoolean ? "1" : type == Member::kString ? "old" : "7";
}

TEST(ValueTextFromStr, AcceptedFormsAndExactMessages) {
  const ReadCase cases[] = {
      {Member::kBoolean, "True", 0, "", "true"},
      {Member::kBoolean, "0 trailing", 0, "", "false"},
      {Member::kBoolean, "yes", 1,
       "Boolean on or about character 0 has invalid value 'yes'. Use 't', 'true', '1', 'f', "
       "'false', '0' only.\n",
       "true"},
      {Member::kBoolean, "TRUE ", 1,
       "Boolean on or about character 5 has invalid value 'TRUE'. Use 't', 'true', '1', 'f', "
       "'false', '0' only.\n",
       "true"},
      {Member::kBoolean, "", 1,
       "Boolean on or about character 0 has invalid value ''. Use 't', 'true', '1', 'f', "
       "'false', '0' only.\n",
       "true"},
      {Member::kDouble, "0.1", 0, "", "0.1"},
      {Member::kDouble, "  -2.5e-3xyz", 0, "", "-0.0025"},
      {Member::kDouble, "1e999", 1, "Double value on or about character 0 is invalid\n", "7"},
      {Member::kDouble, "abc", 1, "Double value on or about character 0 is invalid\n", "7"},
      {Member::kFloat, "1.5", 0, "", "1.5"},
      {Member::kFloat, "3.5e38", 1, "Float value on or about character 0 is invalid\n", "7"},
      {Member::kInt8, "-128", 0, "", "-128"},
      {Member::kInt8, "128", 1, "Int8 value on or about character 0 is invalid\n", "7"},
      {Member::kInt8, "128 ", 1, "Int8 value on or about character 4 is invalid\n", "7"},
      {Member::kInt8, " -129 x", 1, "Int8 value on or about character 6 is invalid\n", "7"},
      {Member::kInt16, "-32769 ", 1, "Int16 value on or about character 7 is invalid\n", "7"},
      {Member::kInt32, "  42abc", 0, "", "42"},
      {Member::kInt32, "2147483648", 1, "Int32 value on or about character 0 is invalid\n", "7"},
      {Member::kInt64, "-9223372036854775808", 0, "", "-9223372036854775808"},
      {Member::kInt64, "9223372036854775808", 1,
       "Int64 value on or about character 0 is invalid\n", "7"},
      {Member::kUInt8, "255", 0, "", "255"},
      {Member::kUInt8, "300", 1, "UInt8 value on or about character 0 is invalid\n", "7"},
      {Member::kUInt8, "300 ", 1, "UInt8 value on or about character 4 is invalid\n", "7"},
      {Member::kUInt8, "-1 ", 1, "UInt8 value on or about character 3 is invalid\n", "7"},
      {Member::kUInt16, "65536", 1, "UInt16 value on or about character 0 is invalid\n", "7"},
      {Member::kUInt32, "-1", 0, "", "4294967295"},
      {Member::kUInt32, "4294967296", 1, "UInt32 value on or about character 0 is invalid\n", "7"},
      {Member::kUInt64, "18446744073709551615", 0, "", "18446744073709551615"},
      {Member::kUInt64, "18446744073709551616", 1,
       "UInt64 value on or about character 0 is invalid\n", "7"},
      {Member::kString, "  as \"is\"\t", 0, "", "  as \"is\"\t"},
  };
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(std::string(Member::typeName(c.type)) + " '" + c.text + "'");
    StructureRef s = single(c.type);
    Handle h(*s);
    std::string errors;
    for (unsigned int i = 0; i < 3; ++i) ASSERT_EQ(h.fromStr(seedFor(c.type), i, errors), 0u);
    const std::string neighbour = h.str(0);
    EXPECT_EQ(h.fromStr(c.text, 1, errors), c.result);
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(h.str(1), c.stored);
    EXPECT_EQ(h.str(0), neighbour);
    EXPECT_EQ(h.str(2), neighbour);
  }
}

TEST(ValueTextFromStr, IndexBeyondTheMemberOrNoMember) {
  StructureRef s(new Structure("S"));
  s->addMember(Member::kFloat, 3, "Origin");
  Handle h(*s);
  std::string errors;
  EXPECT_EQ(h.fromStr("x", 5, errors), 1u);
  h.setPositionByMemberIndex(1);
  EXPECT_EQ(h.fromStr("1", 0, errors), 1u);
  EXPECT_EQ(errors,
            "Trying to parse element 5 when the member Origin only has dimension 3\n"
            "Trying to parse element 0 when the member does not exist\n");
  EXPECT_EQ(h.str(0), "");
}

TEST(ValueTextMatrix, BadEntriesAreReportedAndSkipped) {
  StructureRef s = single(Member::kDoubleMatrix4x4, 1);
  Handle h(*s);
  std::string errors;
  EXPECT_EQ(h.fromStr("1 2 x 4 5 6 7 8 9 10 1e999 12 13 14 15 16", 0, errors), 2u);
  EXPECT_EQ(errors,
            "Double matrix on or about character 0 has invalid value at row 0, column 2\n"
            "Double matrix on or about character 0 has invalid value at row 2, column 2\n");
  EXPECT_EQ(h.str(0), "1 2 0 4 5 6 7 8 9 10 0 12 13 14 15 16");
}

TEST(ValueTextMatrix, ShortTextReportsEveryMissingEntry) {
  StructureRef s = single(Member::kFloatMatrix4x4, 1);
  Handle h(*s);
  std::string errors;
  EXPECT_EQ(h.fromStr(" 1.5 -2 3e39", 0, errors), 14u);
  EXPECT_EQ(errors.substr(0, errors.find('\n')),
            "Float matrix on or about character 0 has invalid value at row 0, column 2");
  EXPECT_EQ(h.str(0), "1.5 -2 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
}

// Decimal comma and digit grouping, as some process locales have.
struct CommaPunct : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ValueTextLocale, NumbersUseTheClassicLocale) {
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new CommaPunct));
  StructureRef s = single(Member::kDouble, 1);
  Handle h(*s);
  std::string errors;
  const unsigned int result = h.fromStr("1234.5", 0, errors);
  const std::string text = h.str(0);
  std::locale::global(previous);
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(text, "1234.5");
}

}  // namespace
