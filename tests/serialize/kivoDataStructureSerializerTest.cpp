// StructureRawWrite.*  structure -> text
// StructureRawRead.*  text -> structure: accepted forms, every message, what
//                     fails the read and what does not
// StructureRawFormat.*  round trips, registration at load, description text
// StructureDebugFormat.*  the write-only debug format
// StructureRawHostile.*  structure texts found by fuzzing: whatever the reader
//                        accepts, its writer writes as a text that reads back
//                        equal, and nothing in a name is dropped silently
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataStructureSerializerDebug.h>
#include <kivo/serialize/kivoDataStructureSerializerRaw.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Data::StructureSerializer;
using kivo::Data::StructureSerializerDebug;
using kivo::Data::StructureSerializerRaw;
using StructureRef = kivo::Detail::Ref<Structure>;

const StructureSerializer& raw() { return *StructureSerializerRaw::theFormat(); }

// Reads text; the result is held by a reference (empty when the read failed).
StructureRef readText(const std::string& text, std::string& errors) {
  std::istringstream in(text);
  return StructureRef(raw().read(in, errors));
}

std::string writeText(const Structure& structure) {
  std::ostringstream out;
  EXPECT_EQ(raw().write(structure, out), 0);
  return out.str();
}

TEST(StructureRawWrite, NameThenMembersWithoutLengthOne) {
  StructureRef s(new Structure("My Structure"));
  s->addMember(Member::kInt32, 1, "ID");
  s->addMember(Member::kFloat, 3, "Origin");
  s->addMember(Member::kDoubleMatrix4x4, 2, "two words");
  EXPECT_EQ(writeText(*s), "name=My Structure:int32=ID:float[3]=Origin:dbl4x4[2]=two words");
  StructureRef empty(new Structure());
  EXPECT_EQ(writeText(*empty), "name=structure");
}

// Text that reads into the structure whose written form is `written`.
struct Accepted {
  const char* text;
  const char* written;
};

TEST(StructureRawRead, AcceptsColonsNewlinesAndNameAnywhere) {
  const Accepted cases[] = {
      {"name=My Structure:int32=ID:float[3]=Origin", "name=My Structure:int32=ID:float[3]=Origin"},
      {"name=My Structure\nint32=ID\nfloat[3]=Origin", "name=My Structure:int32=ID:float[3]=Origin"},
      {"name=S::int32=a", "name=S:int32=a"},
      {"\n\n name=S\n:\n:int32=a\n\n", "name=S:int32=a"},
      {"int32=a:name=S", "name=S:int32=a"},
      {"name=A:int32=a:name=B", "name=B:int32=a"},
      {"name= A B :int32= x ", "name=A B:int32=x"},
      {"name=S: float[ 3x] = v ", "name=S:float[3]=v"},
      {"name=S:int8[1]=a:ab:=c", "name=S:int8=a"},  // fields of two characters or fewer skipped
      {"name=S:int32=a:float=a", "name=S:int32=a"},  // a repeated name keeps the first
  };
  for (const Accepted& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors = "previous";
    StructureRef s = readText(c.text, errors);
    ASSERT_TRUE(s);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(writeText(*s), c.written);
    EXPECT_EQ(s->refCount(), 1);
  }
}

TEST(StructureRawRead, SeparatorMessagesKeepTheStructureAndTheWholeInputIsRead) {
  // "float=b=c" has one '=' too many, "int8" and the trailing lines none.
  std::istringstream in("name=S:int32=a:float=b=c:int8\nendStream\nmore text");
  std::string errors;
  StructureRef s(raw().read(in, errors));
  ASSERT_TRUE(s);
  std::string expected;
  for (int i = 0; i < 4; ++i) expected += "\nMember type and name must be separated by '='";
  EXPECT_EQ(errors, expected.substr(1));
  EXPECT_EQ(writeText(*s), "name=S:int32=a");
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.rdbuf()->sgetc(), std::char_traits<char>::eof());
}

struct Rejected {
  std::string text;
  const char* errors;
};

template <size_t N>
void expectRejected(const Rejected (&cases)[N]) {
  for (const Rejected& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors = "previous";
    EXPECT_FALSE(readText(c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
}

TEST(StructureRawRead, RejectsBadFieldsWithExactMessages) {
  const Rejected cases[] = {
      {"name=S", "Structures must have a name and at least one member"},
      {"name=S:", "Structures must have a name and at least one member"},
      {"", "Structures must have a name and at least one member"},
      {"name=S:vec=a", "Member type 'vec' not recognized"},
      {"name=S:Float=a", "Member type 'Float' not recognized"},
      {"name=S:invalid=a", "Member type 'invalid' not recognized"},
      {"name=S:vec[2]=a", "Member type 'vec' not recognized"},
      {"name=S:[3]=v", "Member '[3]' needs name before dimension specifier"},
      {"name=S:float3]=v",
       "Member 'float3]' has opening bracket '[' but no closing bracket ']' for "
       "dimension specification"},
      {"name=S:float[3=v",
       "Member 'float[3' has closing bracket ']' but no opening bracket '[' for "
       "dimension specification"},
      {"int32=a:float=b", "Name is missing; member type 'name' is used to set it"},
      {"name=S:dbl4x4[33554432]=big", "Member 'dbl4x4[33554432]' is too large"},
      {"name=S:flt4x4[4194304]=m", "Member 'flt4x4[4194304]' is too large"},
      {"name=S:int8[67108865]=big", "Member 'int8[67108865]' is too large"},
      {"name=S:float[4294967295]=big", "Member 'float[4294967295]' is too large"},
      {"name=S:float[99999999999]=big", "Member 'float[99999999999]' is too large"},
      {"name=S:float[-1]=wraps", "Member 'float[-1]' is too large"},
      {"name=S:float[0]=none", "Member 'float[0]' needs a dimension of at least 1"},
      {"name=S:float[x]=none", "Member 'float[x]' needs a dimension of at least 1"},
      // Dimensions without a number.
      {"name=S:float[]=a", "Member 'float[]' needs a dimension of at least 1"},
      {"name=S:float[ ]=a", "Member 'float[ ]' needs a dimension of at least 1"},
      {"name=S:float[+]=a:int8[-0]=b",
       "Member 'float[+]' needs a dimension of at least 1\n"
       "Member 'int8[-0]' needs a dimension of at least 1"},
      {"name=S:float]3[=v", "Member type 'float]3' not recognized"},
      {"name=S:float [3]=v", "Member type 'float ' not recognized"},
      {"name=S:int32==", "Member 'int32' needs a name"},
      {"[1]=a:vec=b:int32=c=d",
       "Member '[1]' needs name before dimension specifier\n"
       "Member type 'vec' not recognized\n"
       "Member type and name must be separated by '='\n"
       "Name is missing; member type 'name' is used to set it"},
  };
  expectRejected(cases);
}

TEST(StructureRawFormat, RoundTripsEveryTypeAndLength) {
  StructureRef s(new Structure("All Types"));
  for (unsigned int type = 0; type < Member::kInvalidType; ++type) {
    const auto dataType = static_cast<Member::eDataType>(type);
    s->addMember(dataType, 1, (std::string("one ") + Member::typeName(dataType)).c_str());
    s->addMember(dataType, type + 2, (std::string("many ") + Member::typeName(dataType)).c_str());
  }
  std::string errors;
  StructureRef back = readText(writeText(*s), errors);
  ASSERT_TRUE(back);
  EXPECT_EQ(errors, "");
  EXPECT_TRUE(*back == *s);
  EXPECT_EQ(back->totalSize(), s->totalSize());
}

TEST(StructureRawFormat, RegisteredAtLoadAsTheDefaultWithItsDescription) {
  EXPECT_EQ(StructureSerializer::formatByName("raw"), StructureSerializerRaw::theFormat());
  EXPECT_EQ(StructureSerializer::formatByName("RAW"), nullptr);
  EXPECT_EQ(StructureSerializer::defaultFormat(), StructureSerializerRaw::theFormat());
  EXPECT_STREQ(raw().formatType(), "raw");
  std::ostringstream out;
  raw().getFormatDescription(out);
  EXPECT_EQ(out.str(),
            "\nThe raw format consists of a series of colon or"
            "\nnewline separated fields. The first field  must"
            "\nbe the name field,  indicating  the name of the"
            "\nstructure:"
            "\n"
            "\n    name=NAME"
            "\n"
            "\nAfter that  is one  or more  member fields, one"
            "\nfor each member of the structure:"
            "\n"
            "\n    TYPE[DIM]=TYPENAME"
            "\n"
            "\nTYPE is one  of the valid  data structure types"
            "\ntaken from kivo::Data::Structure:"
            "\n"
            "\n    (bool, double, dbl4x4, float, flt4x4, int8, int16, int32, int64, string, "
            "uint8, uint16, uint32, uint64)"
            "\n"
            "\n[DIM] is an optional suffix denoting the length"
            "\nof the data  member  type with a  default of 1."
            "\ne.g. a float[3] is a data  member consisting of"
            "\n3 float values."
            "\n"
            "\nTYPENAME is the unique string defining the name"
            "\nof each member type. It is an error to have the"
            "\nsame 'TYPENAME' more than once in a structure."
            "\n"
            "\nAny extra newlines/whitespace will be ignored."
            "\nMember names and the  structure  name may only"
            "\nhave  internal  whitespace.  (e.g. the  member"
            "\nname 'My Height' is  legal but neither of  the"
            "\nnames ' My Height' or 'My Height ' are)"
            "\n"
            "\nEither  newlines  or  colons  may  be  used to"
            "\nseparate  member  definitions. These two forms"
            "\nboth represent the same structure:"
            "\n"
            "\n    name=My Structure:int32=ID:float[3]=Origin"
            "\nand"
            "\n    name=My Structure"
            "\n    int32=ID"
            "\n    float[3]=Origin");
}

TEST(StructureDebugFormat, WritesThePrintOnlyAndIsFoundOnlyOnceRegistered) {
  const StructureSerializerDebug& debug = *StructureSerializerDebug::theFormat();
  EXPECT_STREQ(debug.formatType(), "debug");
  EXPECT_EQ(StructureSerializer::formatByName("debug"), nullptr);
  StructureSerializer::registerFormat(debug);
  EXPECT_EQ(StructureSerializer::formatByName("debug"), &debug);
  StructureSerializer::deregisterFormat(debug);
  EXPECT_EQ(StructureSerializer::defaultFormat(), StructureSerializerRaw::theFormat());

  std::istringstream in("name=S:int32=a");
  std::string errors = "previous";
  EXPECT_EQ(debug.read(in, errors), nullptr);
  EXPECT_EQ(errors, "Cannot read the debug format");
  EXPECT_EQ(in.tellg(), 0);

  StructureRef s(new Structure("S"));
  s->addMember(Member::kFloat, 3, "Origin");
  std::ostringstream expected;
  kivo::Debug::Print print(expected);
  Structure::Debug(s.get(), print);
  std::ostringstream out;
  EXPECT_EQ(debug.write(*s, out), 0);
  EXPECT_EQ(out.str(), expected.str());
  EXPECT_NE(out.str().find("'Origin' float[3] +0"), std::string::npos);
  std::ostringstream description;
  debug.getFormatDescription(description);
  EXPECT_EQ(description.str(),
            "\nThe Debug format will be self-explanatory"
            "\nas it dumps all of the  information about"
            "\nthe structure in a verbose format.");
}

// "name==" and "name= =" split into the key and an empty value: a structure
// named "" would be written as "name=", which reads as a field without '='
// and no name at all.
TEST(StructureRawHostile, EmptyNameIsRefusedOrReadsBack) {
  for (const char* text : {"int32=a:name==", "name= =:int32=a"}) {
    SCOPED_TRACE(text);
    std::string errors;
    StructureRef first = readText(text, errors);
    if (!first) {
      EXPECT_FALSE(errors.empty());
      continue;
    }
    const std::string written = writeText(*first);
    StructureRef second = readText(written, errors);
    ASSERT_TRUE(second) << written << " gives " << errors;
    EXPECT_TRUE(*second == *first) << written;
  }
}

// A NUL inside a name would cut the name short ("a\0b" stored as "a"), and
// a name cut just after a blank ("b\f\0c") no longer reads back, since the
// reader trims names: such text is refused with a message.
TEST(StructureRawHostile, NulInsideANameIsRefused) {
  const Rejected cases[] = {
      {std::string("name=S:int32=a\0b", 16), "Field 'int32=a\\0b' holds a NUL character"},
      {std::string("name=S:int32=b\f\0c", 17), "Field 'int32=b\f\\0c' holds a NUL character"},
      {std::string("name=S\0T:int32=a", 16),
       "Field 'name=S\\0T' holds a NUL character\n"
       "Name is missing; member type 'name' is used to set it"},
      {"int32=a:name=",
       "Member type and name must be separated by '='\n"
       "Name is missing; member type 'name' is used to set it"},
      {"int32=a:name= =",
       "Name is missing; member type 'name' is used to set it\n"
       "Name is missing; member type 'name' is used to set it"},
  };
  expectRejected(cases);
}

}  // namespace
