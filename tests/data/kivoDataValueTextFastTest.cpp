// ValueTextFast.*  Handle::str and Handle::fromStr without streams give
//                  exactly what the stream code gives: texts of every kind
//                  of double and float, and results, messages and stored
//                  values of fromStr over hostile and random texts
// NumberTextFast.*  the general-format writer against printf at every
//                   precision it serves
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kivoDataTestStructures.h"
#include "support/kivoFastText.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Test::makeStructure;
using kivo::Test::StructureRef;

std::string streamText(double value, std::streamsize precision = 6) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out.precision(precision);
  out << value;
  return out.str();
}

// Doubles of every kind: random bit patterns (NaNs, infinities, subnormals
// included), floats widened, exact halves that test the rounding, values
// near powers of ten, and the edges.
std::vector<double> doubleCorpus(size_t count) {
  std::mt19937_64 random(11);
  using limits = std::numeric_limits<double>;
  std::vector<double> values = {
      0.0, -0.0, 1.0, 0.1, 1e20, 1234567.0, 999999.5, 9999995.0, 0.00001, 0.0001, 123456.5,
      limits::max(), limits::min(), limits::denorm_min(), std::numeric_limits<float>::max(),
      limits::infinity(), -limits::infinity(), limits::quiet_NaN(), -limits::quiet_NaN()};
  for (size_t i = 0; i < count; ++i) {
    const uint64_t bits = random();
    double any;
    std::memcpy(&any, &bits, sizeof any);
    float narrow;
    const uint32_t narrowBits = static_cast<uint32_t>(random());
    std::memcpy(&narrow, &narrowBits, sizeof narrow);
    values.push_back(any);
    values.push_back(narrow);
    values.push_back(static_cast<double>(random() % 2000001) / 2.0 - 500000.0);
    values.push_back(std::pow(10.0, static_cast<int>(random() % 60) - 30) *
                     (1.0 - static_cast<double>(random() % 1000) * 1e-7));
  }
  return values;
}

TEST(NumberTextFast, GeneralFormatMatchesPrintfAtEveryPrecision) {
  const std::vector<double> values = doubleCorpus(2000);
  char text[kivo::Detail::kNumberBuffer];
  char expected[200];
  for (int precision = 0; precision <= kivo::Detail::kMaxFastPrecision; ++precision) {
    for (double value : values) {
      *kivo::Detail::formatGeneral(text, value, precision) = '\0';
      std::snprintf(expected, sizeof expected, "%.*g", precision, value);
      ASSERT_STREQ(text, expected) << "precision " << precision << ", value " << std::hexfloat
                                   << value;
    }
  }
}

TEST(ValueTextFast, StrOfDoublesAndFloatsMatchesStreamOutput) {
  StructureRef s = makeStructure(
      "S", {{Member::kDouble, 1, "d"}, {Member::kFloat, 1, "f"}, {Member::kFloatMatrix4x4, 1, "m"}});
  Handle h(*s);
  std::ostringstream matrix;
  for (double value : doubleCorpus(20000)) {
    h.setPositionByMemberIndex(0);
    *h.asDouble() = value;
    ASSERT_EQ(h.str(0), streamText(value)) << std::hexfloat << value;
    h.setPositionByMemberIndex(1);
    *h.asFloat() = static_cast<float>(value);
    ASSERT_EQ(h.str(0), streamText(static_cast<float>(value))) << std::hexfloat << value;
  }
  h.setPositionByMemberIndex(2);
  std::string expected;
  for (int i = 0; i < 16; ++i) {
    h.asFloatMatrix4x4()[i] = static_cast<float>(std::ldexp(1.0 + i, i * 7 - 50));
    expected += (i ? " " : "") + streamText(h.asFloatMatrix4x4()[i]);
  }
  EXPECT_EQ(h.str(0), expected);
}

// Texts a stream reads differently from a strict parser: signs, words,
// bare exponents, hexadecimal, ranges, blanks and trailing text.
std::vector<std::string> hostileTexts() {
  std::vector<std::string> texts = {
      "",       " ",      "0",       "-0",      "+0",     "+1",    "-",      "+",
      "1e",     "1e+",    "1e-",     "1E5",     "1e+05",  "1.",    ".5",     "-.5",
      "1.5.2",  "inf",    "-inf",    "nan",     "INF",    "0x10",  "0x1p3",  "1,5",
      "12abc",  "12 34",  "\t\n 7",  "7\t",     "7\r",    "1e400", "-1e400", "1e-400",
      "1e-40",  "1e-310", "3.4e38",  "3.5e38",  "-3.5e38", "127",  "128",    "-128",
      "-129",   "255",    "256",     "-1",      "32767",  "32768", "65535",  "65536",
      "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "4294967296",
      "9223372036854775807", "9223372036854775808", "-9223372036854775808",
      "18446744073709551615", "18446744073709551616", "00000000000000000000042",
      "true",   "True",   "TRUE",    "t",       "T",      "1",     "f",      "false",
      "False",  "0 x",    "yes",     "truex",   "\v1",    "1\f",   "1e5x"};
  texts.push_back(std::string("t\0", 2));
  texts.push_back(std::string("1\0", 2));
  std::mt19937 random(3);
  const std::string alphabet = "0123456789+-.eExn \t";
  for (int i = 0; i < 3000; ++i) {
    std::string text;
    const int length = 1 + static_cast<int>(random() % 12);
    for (int c = 0; c < length; ++c) text += alphabet[random() % alphabet.size()];
    texts.push_back(text);
  }
  return texts;
}

struct FromStrOutcome {
  unsigned int result;
  std::string errors;
  std::string stored;
};

FromStrOutcome fromStrWith(bool streamOnly, Member::eDataType type, const std::string& text) {
  StructureRef s = makeStructure("S", {{type, 2, "v"}});
  Handle h(*s);
  FromStrOutcome outcome;
  outcome.errors = "earlier\n";
  kivo::Detail::streamTextOnly() = streamOnly;  // the stream code for this call only
  outcome.result = h.fromStr(text, 1, outcome.errors);
  kivo::Detail::streamTextOnly() = false;
  std::ostringstream exact;
  exact.imbue(std::locale::classic());
  exact.precision(17);
  if (type == Member::kDouble) exact << h.asDouble()[1];
  if (type == Member::kFloat) exact << h.asFloat()[1];
  outcome.stored = h.str(1) + "/" + exact.str();
  return outcome;
}

TEST(ValueTextFast, FromStrMatchesStreamReadingForEveryType) {
  const Member::eDataType types[] = {
      Member::kBoolean, Member::kDouble, Member::kFloat,  Member::kInt8,   Member::kInt16,
      Member::kInt32,   Member::kInt64,  Member::kUInt8,  Member::kUInt16, Member::kUInt32,
      Member::kUInt64};
  for (const std::string& text : hostileTexts()) {
    for (Member::eDataType type : types) {
      const FromStrOutcome fast = fromStrWith(false, type, text);
      const FromStrOutcome slow = fromStrWith(true, type, text);
      SCOPED_TRACE(std::string(Member::typeName(type)) + " '" + text + "'");
      ASSERT_EQ(fast.result, slow.result);
      ASSERT_EQ(fast.errors, slow.errors);
      ASSERT_EQ(fast.stored, slow.stored);
    }
  }
}

}  // namespace
