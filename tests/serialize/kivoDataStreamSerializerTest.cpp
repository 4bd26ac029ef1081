// StreamRawWrite.*  stream -> text: header, index and value lines, escapes
// StreamRawRoundTrip.*  every type through every storage and index type
// StreamRawRead.*  text -> stream: exact messages, range checks, what is
//                  consumed, errors replaced only on failure
// StreamRawFormat.*  registration at load, description text
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataIndexPair.h>
#include <kivo/data/kivoDataIndexString.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::StreamSerializer;
using kivo::Data::StreamSerializerRaw;
using kivo::Data::Structure;

const StreamSerializerRaw& raw() { return *StreamSerializerRaw::theFormat(); }

std::string writeText(const Stream& stream) {
  std::ostringstream out;
  std::string errors;
  EXPECT_EQ(raw().write(stream, out, errors), 0);
  EXPECT_EQ(errors, "");
  return out.str();
}

std::unique_ptr<Stream> readText(const std::string& text, std::string& errors) {
  std::istringstream in(text);
  return std::unique_ptr<Stream>(raw().read(in, errors));
}

// Registers the structures a test needs and removes them afterwards; no read
// leaves a structure behind.
class StreamRawTest : public ::testing::Test {
 protected:
  void SetUp() override { fBefore = Structure::allStructures(); }
  Structure& define(const char* name,
                    std::vector<std::pair<Member::eDataType, unsigned int>> members) {
    Structure* structure = Structure::create();
    structure->setName(name);
    unsigned int n = 0;
    for (const auto& [type, length] : members) {
      structure->addMember(type, length, ("m" + std::to_string(n++)).c_str());
    }
    EXPECT_TRUE(Structure::registerStructure(*structure));
    fRegistered.push_back(structure);
    return *structure;
  }
  void TearDown() override {
    for (Structure* structure : fRegistered) Structure::deregisterStructure(*structure);
    EXPECT_EQ(Structure::allStructures(), fBefore);
  }

 private:
  std::vector<Structure*> fRegistered;
  Structure::StructureSet fBefore;
};

using StreamRawWrite = StreamRawTest;
using StreamRawRoundTrip = StreamRawTest;
using StreamRawRead = StreamRawTest;

TEST_F(StreamRawWrite, HeaderThenIndexAndValueLinesThenTerminator) {
  Structure& s = define("Sample", {{Member::kInt32, 1}, {Member::kString, 1}, {Member::kFloat, 3},
                                   {Member::kBoolean, 1}, {Member::kInt8, 2}});
  Stream stream(s, "S1");
  Handle h(s);
  std::string errors;
  const char* const values[][3] = {
      {"12"}, {"say \"hi\"\\\n"}, {"-12.3", "8", "0.5"}, {"1"}, {"-5", "65"}};
  for (unsigned int m = 0; h.setPositionByMemberIndex(m); ++m) {
    for (unsigned int i = 0; i < h.dataLength(); ++i) h.fromStr(values[m][i], i, errors);
  }
  EXPECT_EQ(errors, "");
  ASSERT_TRUE(stream.setElement(Index(3), h));
  EXPECT_EQ(writeText(stream),
            "name S1\nindexType numeric\nstructure Sample\n3\n"
            "12 \"say \\\"hi\\\"\\\\\\n\" -12.3 8 0.5 true -5 65\n"
            "endStream\n");
  Stream empty(s, "Empty");
  EXPECT_EQ(writeText(empty), "name Empty\nindexType numeric\nstructure Sample\nendStream\n");
}

TEST_F(StreamRawWrite, ReportsAFailedOutput) {
  Stream stream(define("Out", {{Member::kInt32, 1}}), "S");
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  std::string errors = "kept\n";
  EXPECT_EQ(raw().write(stream, out, errors), 0);
  EXPECT_EQ(errors, "kept\nError in stream while writing.\n");
}

TEST_F(StreamRawWrite, MemberWithoutDataIsNamedByItsTypeWord) {
  const char* words[] = {"boolean", "double", "double matrix", "float",  "float matrix",
                         "Int8",    "Int16",  "Int32",         "Int64",  "String",
                         "UInt8",   "UInt16", "UInt32",        "UInt64"};
  for (unsigned int type = 0; type < Member::kInvalidType; ++type) {
    SCOPED_TRACE(words[type]);
    const auto dataType = static_cast<Member::eDataType>(type);
    Structure& s = define((std::string("Word ") + words[type]).c_str(), {{dataType, 1}});
    Handle h(s, nullptr);
    std::ostringstream out;
    std::string errors = "kept\n";
    EXPECT_EQ(raw().writeMember(h, 7, out, errors), 1);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(errors, std::string("kept\nMember at record 7 not recognized as a ") + words[type] +
                          "\n1 error found, Member may not be written correctly\n");
    std::istringstream in("1");
    errors.clear();
    EXPECT_EQ(StreamSerializerRaw::readMember(in, 7, h, errors), 1);
    EXPECT_EQ(errors, std::string("Member at record 7 not recognized as a ") + words[type] + "\n");
  }
}

// Two values per type, in type order, that print back exactly at the default
// precision: the extremes of every integer type, escapes in strings.
const char* const kValues[][2] = {
    {"false", "True"},
    {"0.5", "-1e+20"},
    {"", ""},  // matrices: see matrixText()
    {"1.5", "-3"},
    {"", ""},
    {"-128", "127"},
    {"-32768", "32767"},
    {"-2147483648", "2147483647"},
    {"-9223372036854775808", "9223372036854775807"},
    {"q\"b\\n\n \t", ""},
    {"255", "0"},
    {"65535", "1"},
    {"4294967295", "2"},
    {"18446744073709551615", "3"},
};

std::string matrixText(int k) {
  std::string text;
  for (int i = 0; i < 16; ++i) text += std::to_string(i * k - 7) + ".25 ";
  return text;
}

// Fills every value of a handle on a structure made by allTypes(); k varies
// the matrices.
void fillAllTypes(Handle& h, int k) {
  std::string errors;
  for (unsigned int m = 0; h.setPositionByMemberIndex(m); ++m) {
    for (unsigned int i = 0; i < h.dataLength(); ++i) {
      const bool matrix = h.dataType() == Member::kDoubleMatrix4x4 ||
                          h.dataType() == Member::kFloatMatrix4x4;
      h.fromStr(matrix ? matrixText(k + i) : kValues[h.dataType()][i], i, errors);
    }
  }
  EXPECT_EQ(errors, "");
}

std::vector<std::pair<Member::eDataType, unsigned int>> allTypes() {
  std::vector<std::pair<Member::eDataType, unsigned int>> members;
  for (unsigned int type = 0; type < Member::kInvalidType; ++type) {
    const bool matrix = type == Member::kDoubleMatrix4x4 || type == Member::kFloatMatrix4x4;
    members.emplace_back(static_cast<Member::eDataType>(type),
                         type == Member::kDoubleMatrix4x4 ? 2 : matrix ? 1 : 2);
  }
  return members;
}

// Every member value of every element, as text, in iteration order.
std::vector<std::string> contents(const Stream& stream) {
  std::vector<std::string> values;
  for (auto element = stream.begin(); element.valid(); ++element) {
    values.push_back(element.index().asString());
    Handle& h = *element;
    for (unsigned int m = 0; h.setPositionByMemberIndex(m); ++m) {
      for (unsigned int i = 0; i < h.dataLength(); ++i) values.push_back(h.str(i));
    }
  }
  return values;
}

TEST_F(StreamRawRoundTrip, EveryTypeThroughEveryStorageAndIndexType) {
  Structure& s = define("AllTypes", allTypes());
  struct Kind {
    const char* name;
    const char* indexType;
    bool dense;
  };
  const Kind kinds[] = {
      {"mapped", "numeric", false},
      {"dense", "numeric", true},
      {"pair", "pair", false},
      {"string", "string", false},
  };
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    Stream stream(s, std::string("All ") + kind.name);
    ASSERT_TRUE(stream.setIndexType(kind.indexType));
    if (kind.dense) stream.useDenseStorage(true);
    Handle h(s);
    for (int k = 0; k < 3; ++k) {
      fillAllTypes(h, k);
      Index index(2 * k);
      if (std::string(kind.indexType) == "pair") index = Index(kivo::Data::IndexPair(k, 7 - k));
      if (std::string(kind.indexType) == "string") {
        index = Index(kivo::Data::IndexString("key " + std::to_string(k)));
      }
      ASSERT_TRUE(stream.setElement(index, h));
    }
    const std::string text = writeText(stream);
    std::string errors;
    std::unique_ptr<Stream> back = readText(text, errors);
    ASSERT_TRUE(back) << errors;
    EXPECT_EQ(errors, "");
    EXPECT_EQ(back->name(), stream.name());
    EXPECT_EQ(back->indexType(), kind.indexType);
    EXPECT_EQ(&back->structure(), &s);
    EXPECT_EQ(contents(*back), contents(stream));
    EXPECT_EQ(writeText(*back), text);
  }
}

TEST_F(StreamRawRoundTrip, DenseElementsNeedNotBeAligned) {
  // int8, int32, int8 lays out in 9 bytes: dense element 1 starts at byte 9.
  Structure& s = define("Packed", {{Member::kInt8, 1}, {Member::kInt32, 1}, {Member::kInt8, 1}});
  std::string errors;
  std::unique_ptr<Stream> stream = readText(
      "name P\nstructure Packed\n0\n1 -70000 3\n1\n4 2147483647 -6\nendStream\n", errors);
  ASSERT_TRUE(stream) << errors;
  stream->useDenseStorage(true);
  EXPECT_EQ(writeText(*stream),
            "name P\nindexType numeric\nstructure Packed\n0\n1 -70000 3\n1\n4 2147483647 -6\n"
            "endStream\n");
  std::istringstream in("-5 12 7");
  Handle h = stream->element(Index(1));
  EXPECT_EQ(StreamSerializerRaw::readStructure(s, in, 1, h, errors), 0);
  EXPECT_EQ(stream->element(Index(1)).str(0), "-5");
  h.setPositionByMemberIndex(1);
  EXPECT_EQ(h.str(0), "12");
}

TEST_F(StreamRawRead, TextAfterTheTerminatorStaysUnread) {
  define("Pair", {{Member::kInt16, 1}, {Member::kString, 1}});
  std::istringstream in(
      "name A\nstructure Pair\n0\n1 \"x\"\nendStream\n"
      "\n  name B\nindexType numeric\nstructure Pair\n\n5\n-2\n\"y z\"\n\nendStream\nrest");
  std::string errors = "before";
  std::unique_ptr<Stream> first(raw().read(in, errors));
  std::unique_ptr<Stream> second(raw().read(in, errors));
  ASSERT_TRUE(first);
  ASSERT_TRUE(second);
  EXPECT_EQ(errors, "before");  // left as it was
  EXPECT_EQ(first->name(), "A");
  EXPECT_EQ(second->name(), "B");
  EXPECT_EQ(contents(*second), (std::vector<std::string>{"5", "-2", "y z"}));
  std::string rest;
  std::getline(in, rest);
  EXPECT_EQ(rest, "rest");
}

TEST_F(StreamRawRead, HeaderKeywordsArePrefixesAndMayComeInAnyOrder) {
  define("Rec", {{Member::kInt8, 1}});
  std::string errors;
  std::unique_ptr<Stream> stream =
      readText("  structure   Rec  \nindexTypestring\nnameless\n  a key  \n3\nendStream", errors);
  ASSERT_TRUE(stream) << errors;
  EXPECT_EQ(stream->name(), "less");
  EXPECT_EQ(stream->indexType(), "string");
  EXPECT_EQ(contents(*stream), (std::vector<std::string>{"a key", "3"}));
}

struct BadText {
  std::string text;
  std::string errors;
};

// A stream of structure `structure` whose one element holds `values`.
std::string single(const char* structure, const char* values) {
  return std::string("name s\nstructure ") + structure + "\n0\n" + values + "\nendStream\n";
}

TEST_F(StreamRawRead, RejectsBadTextWithExactMessages) {
  define("Rec", {{Member::kInt8, 1}, {Member::kBoolean, 1}, {Member::kString, 1}});
  define("Mat", {{Member::kDoubleMatrix4x4, 1}});
  define("FltMat", {{Member::kFloatMatrix4x4, 2}});
  define("F", {{Member::kFloat, 1}});
  define("D", {{Member::kDouble, 1}});
  define("M", {{Member::kFloatMatrix4x4, 1}});
  const std::string one = "1 error found, Stream not created\n";
  const BadText cases[] = {
      {"", "Index data encountered before Stream name specified at record 0\n"
           "1 error found, Stream not created\n"},
      {"structure Rec\n0\n1 true \"x\"\nendStream\n",
       "Index data encountered before Stream name specified at record 2\n"
       "1 error found, Stream not created\n"},
      {"name S\n0\n", "Index data encountered before Structure name specified at record 2\n"
                       "1 error found, Stream not created\n"},
      {"name S\nstructure Nope\n0\n1 true \"x\"\nendStream\n",
       "Structure 'Nope' not found\n"
       "Index data encountered before Structure name specified at record 3\n"
       "2 errors found, Stream not created\n"},
      {"name S\nindexType triple\nstructure Rec\n0\n1 true \"x\"\nendStream\n",
       "Creator for index type 'triple' not found\n"
       "Index data encountered before Structure name specified at record 2\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n300 true \"x\"\nendStream\n",
       "Int8 value in record 4 on or about character 27 is invalid\n"
       "1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\nabc true \"x\"\nendStream\n",
       "Int8 value in record 4 on or about character 24 is invalid\n"
       "1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 yes \"x\"\nendStream\n",
       "Boolean on or about character 29 has invalid value 'yes'. Use 't', 'true', '1', 'f', "
       "'false', '0' only.\n"
       "1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true x\nendStream\n",
       "String element on or about character 32 must be enclosed in double quotes instead of 'x'\n"
       "1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true \"abc\n",
       "String element not terminated on or about character 36\n"
       "Missing 'endStream' after record 4\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true \"x\\",
       "String element not terminated on or about character 34\n"
       "Missing 'endStream' after record 4\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true\n",
       "String element not terminated on or about character 31\n"
       "Missing 'endStream' after record 4\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure Rec\nx\n1 true \"x\"\nendStream\n",
       "Value 'x' on or about character 24 is not a legal index (code 1) of type numeric\n"
       "Value '1 true \"x\"' on or about character 35 is not a legal index (code 1) of type "
       "numeric\n"
       "2 errors found, Stream not created\n"},
      {"name S\nindexType pair\nstructure Rec\n1 2 3\n1 t \"x\"\n4 5\n1 t \"y\"\nendStream\n",
       "Value '1 2 3' on or about character 43 is not a legal index (code 2) of type pair\n"
       "Value '1 t \"x\"' on or about character 51 is not a legal index (code 1) of type pair\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true \"x\"\n",
       "Missing 'endStream' after record 4\n1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true \"x\"\nendstream\n",
       "Value 'endstream' on or about character 45 is not a legal index (code 1) of type "
       "numeric\n"
       "Missing 'endStream' after record 5\n"
       "2 errors found, Stream not created\n"},
      {"name " + std::string(1100, 'a') + "\nstructure Rec\n",
       "Line at record 1 is longer than 1023 characters\n1 error found, Stream not created\n"},
      {"name S\nstructure Rec\n0\n1 true \"x\"\n7\n1 true \"y\"" "\n" "  "
       "\n\n\n", "Missing 'endStream' after record 9\n1 error found, Stream not created\n"},
      {"name S\nstructure Mat\n0\n1 2 x 4 5 6 7 8 9 10 11 12 13 14 y 16\nendStream\n",
       "Double matrix on or about character 28 has invalid value at row 0, column 2\n"
       "Double matrix on or about character 57 has invalid value at row 3, column 2\n"
       "2 errors found, Stream not created\n"},
      {"name S\nstructure FltMat\n0\n1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 1e39 1\n",
       "Float matrix on or about character 70 has invalid value at row 0, column 0\n"
       "Float matrix on or about character 73 has invalid value at row 0, column 2\n"
       "Missing 'endStream' after record 4\n"
       "3 errors found, Stream not created\n"},
      // Numbers a float or a double cannot hold.
      {single("F", "nan"), "Float value in record 4 on or about character 22 is invalid\n" + one},
      {single("F", "inf"), "Float value in record 4 on or about character 22 is invalid\n" + one},
      {single("F", "-inf"), "Float value in record 4 on or about character 23 is invalid\n" + one},
      {single("F", "1e39"), "Float value in record 4 on or about character 26 is invalid\n" + one},
      {single("F", "-1e39"), "Float value in record 4 on or about character 27 is invalid\n" + one},
      {single("D", "inf"), "Double value in record 4 on or about character 22 is invalid\n" + one},
      {single("D", "-nan"), "Double value in record 4 on or about character 23 is invalid\n" + one},
      {single("M", "nan 1 2 3 4 5 6 7 8 9 10 11 12 13 14 1e39"),
       "Float matrix on or about character 22 has invalid value at row 0, column 0\n"
       "Float matrix on or about character 63 has invalid value at row 3, column 3\n"
       "2 errors found, Stream not created\n"},
  };
  for (const BadText& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors = "replaced";
    EXPECT_FALSE(readText(c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
}

// One value per row, read as the only member of a structure of its type:
// accepted and shown as `shown`, or rejected with a message naming `word`.
// The accepted extremes of the integer types come through the round trip.
struct ValueText {
  Member::eDataType type;
  const char* text;
  const char* shown;
  const char* word;
};

TEST_F(StreamRawRead, ChecksEveryValueAgainstItsType) {
  const ValueText cases[] = {
      {Member::kInt8, "-129", nullptr, "Int8"},
      {Member::kInt8, "128", nullptr, "Int8"},
      {Member::kUInt8, "256", nullptr, "UInt8"},
      {Member::kUInt8, "-1", nullptr, "UInt8"},
      {Member::kInt16, "-32769", nullptr, "Int16"},
      {Member::kUInt16, "65536", nullptr, "UInt16"},
      {Member::kInt32, "2147483648", nullptr, "Int32"},
      {Member::kInt32, "42abc", "42", nullptr},  // the rest of the data line is dropped
      {Member::kUInt32, "4294967296", nullptr, "UInt32"},
      {Member::kInt64, "9223372036854775808", nullptr, "Int64"},
      {Member::kUInt64, "18446744073709551616", nullptr, "UInt64"},
      {Member::kFloat, "3.4e38", "3.4e+38", nullptr},
      {Member::kFloat, "3.5e38", nullptr, "Float"},
      {Member::kFloat, "x", nullptr, "Float"},
      {Member::kDouble, "1e308", "1e+308", nullptr},
      {Member::kDouble, "1e999", nullptr, "Double"},
      {Member::kDouble, "-1e999", nullptr, "Double"},
      {Member::kDouble, "nan", nullptr, "Double"},
  };
  for (const ValueText& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string name = std::string("One ") + Member::typeName(c.type);
    if (!Structure::structureByName(name.c_str())) define(name.c_str(), {{c.type, 1}});
    std::string errors;
    std::unique_ptr<Stream> stream = readText(single(name.c_str(), c.text), errors);
    if (c.shown) {
      ASSERT_TRUE(stream) << errors;
      EXPECT_EQ(contents(*stream)[1], c.shown);
    } else {
      EXPECT_FALSE(stream);
      EXPECT_EQ(errors.rfind(std::string(c.word) + " value in record 4 on or about character ", 0),
                0u)
          << errors;
    }
  }
}

TEST_F(StreamRawRead, AcceptsTheTenBooleanWords) {
  define("Flags", {{Member::kBoolean, 10}});
  std::string errors;
  std::unique_ptr<Stream> stream = readText(
      "name F\nstructure Flags\n0\n1 t T true True\n0 f F false False\nendStream\n", errors);
  ASSERT_TRUE(stream) << errors;
  EXPECT_EQ(contents(*stream),
            (std::vector<std::string>{"0", "true", "true", "true", "true", "true", "false",
                                      "false", "false", "false", "false"}));
}

TEST_F(StreamRawRead, StringsUnescapeAndMayBeLong) {
  define("Text", {{Member::kString, 3}});
  const std::string longText(5000, 'x');
  std::string errors;
  std::unique_ptr<Stream> stream = readText(
      "name T\nstructure Text\n0\n\"a\\\"b\\\\c\\nd\\e\" \"\" \"" + longText +
          "\"\nendStream\n",
      errors);
  ASSERT_TRUE(stream) << errors;
  Handle h = stream->element(Index(0));
  EXPECT_STREQ(h.asString()[0], "a\"b\\c\nde");
  ASSERT_NE(h.asString()[1], nullptr);  // an empty string is stored, not null
  EXPECT_STREQ(h.asString()[1], "");
  EXPECT_EQ(h.asString()[2], longText);
}

// String values are strdup()/free() memory however they were made: the
// caller frees what the readers and fromStr() stored and stores its own
// strdup()ed text, which the library frees (the sanitizer build checks the
// pairs).
TEST_F(StreamRawRead, StringValuesAreStrdupMemory) {
  define("Text", {{Member::kString, 1}});
  std::string errors;
  // A line break inside the quotes sends the second value to the stream code.
  std::unique_ptr<Stream> stream = readText(
      "name T\nstructure Text\n0\n\"fast\"\n1\n\"slow\nline\"\nendStream\n", errors);
  ASSERT_TRUE(stream) << errors;
  Handle made(stream->structure());
  ASSERT_EQ(made.fromStr("made", 0, errors), 0u);
  for (const Handle& h : {stream->element(Index(0)), stream->element(Index(1)), made}) {
    std::free(*h.asString());
    *h.asString() = strdup("caller");
  }
  ASSERT_TRUE(stream->setElement(Index(2), made));  // a copy the library makes
  EXPECT_EQ(contents(*stream), (std::vector<std::string>{"0", "caller", "1", "caller", "2",
                                                         "caller"}));
}

TEST(StreamRawFormat, RegisteredAtLoadAsTheDefaultWithItsDescription) {
  EXPECT_EQ(StreamSerializer::formatByName("raw"), StreamSerializerRaw::theFormat());
  EXPECT_EQ(StreamSerializer::formatByName("RAW"), nullptr);
  EXPECT_EQ(StreamSerializer::defaultFormat(), StreamSerializerRaw::theFormat());
  EXPECT_STREQ(raw().formatType(), "raw");
  std::ostringstream out;
  raw().getFormatDescription(out);
  EXPECT_EQ(out.str(),
            "The raw format consists of a structure name and a series \n"
            "of values. The first two lines consist of the name of the stream:\n"
            "\tname {STREAM_NAME}\n"
            "optionally followed by an index type (numeric if omitted):\n"
            "\tindexType {INDEX_TYPE}\n"
            "and then the name of the structure it uses to define its data:\n"
            "\tstructure {STRUCTURE_NAME}\n"
            "This is followed by pairs of lines of data, one per element:\n"
            "\t{INDEX}\n"
            "\t{DATA_AT_INDEX}\n"
            "terminated with a line containing the literal text:\n"
            "\tendStream\n"
            "Any text after the terminator will not be read.\n"
            "The format of {INDEX} varies with the type of Index this Stream\n"
            "has been defined to accept. In the simplest case it is a number\n"
            "corresponding to the array index of the Metadata element. In\n"
            "more complex cases it could be a number pair, a string, or even\n"
            "a point or vector in space.\n"
            "The {DATA_AT_INDEX} is a space-separated series of values,\n"
            "one per structure member. If a data member has length greater\n"
            "than one then each value appears in order together.\n"
            "Numeric values are formatted as normal, boolean values can be\n"
            "0, f, F, false, False, 1, t, T, true, or True with the obvious\n"
            "meanings. String values must be enclosed in double quotation\n"
            "marks (\") and quotation marks and newlines within the string\n"
            "must be escaped using the backslash character (\\\", \\n), as\n"
            "is the backslash itself (\\\\) Matrix elements are printed in\n"
            "row-major order (R1C1 R1C2 R1C3 R1C4 R2C1 R2C2...)\n"
            "Here is a sample of a stream 'S1' that uses a structure named\n"
            "'X1' with member types integer, string, float[3], and boolean\n"
            "\tS1\n"
            "\tX1\n"
            "\t0\n"
            "\t12 \"Shoulder\" 0.0 1.0 0.5 true\n"
            "\t3\n"
            "\t88 \"Shoulder\" -12.3 8.0 2.2 true\n"
            "\t4\n"
            "\t1 \"Bicep\" 17.0 -1.0 3.5 false\n"
            "\tendStream\n");
}

}  // namespace
