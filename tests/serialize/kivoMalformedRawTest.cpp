// MalformedRawText.*  hostile raw texts the format tests leave open: empty
//                     dimensions, numbers a float or double cannot hold,
//                     over-long lines and missing end markers at every
//                     nesting level; each one a message and no object, and
//                     the process registry as it was
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>
#include <kivo/serialize/kivoDataStructureSerializerRaw.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using kivo::Data::Associations;
using kivo::Data::AssociationsSerializerRaw;
using kivo::Data::Channel;
using kivo::Data::ChannelSerializerRaw;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::StreamSerializerRaw;
using kivo::Data::Structure;
using kivo::Data::StructureSerializerRaw;

struct Bad {
  std::string text;
  std::string errors;
};

// "F" {float f}, "D" {double d}, "M" {flt4x4 m} and "T" {string t} are
// registered for every test.
class MalformedRawText : public ::testing::Test {
 protected:
  void SetUp() override {
    fBefore = Structure::allStructures();
    define("F", Member::kFloat);
    define("D", Member::kDouble);
    define("M", Member::kFloatMatrix4x4);
    define("T", Member::kString);
  }
  void TearDown() override {
    for (Structure* structure : fDefined) Structure::deregisterStructure(*structure);
    EXPECT_EQ(Structure::allStructures(), fBefore);
  }

  template <class Format>
  static bool reads(const Format& format, const std::string& text, std::string& errors) {
    std::istringstream in(text);
    auto* object = format.read(in, errors);
    const bool made = object != nullptr;
    if constexpr (std::is_same_v<Format, StructureSerializerRaw>) {
      if (object) {
        object->ref();
        object->unref();
      }
    } else {
      delete object;
    }
    return made;
  }

 private:
  void define(const char* name, Member::eDataType type) {
    Structure* structure = Structure::create();
    structure->setName(name);
    structure->addMember(type, 1, "v");
    ASSERT_TRUE(Structure::registerStructure(*structure));
    fDefined.push_back(structure);
  }

  std::vector<Structure*> fDefined;
  Structure::StructureSet fBefore;
};

TEST_F(MalformedRawText, StructureDimensionsWithoutANumberAreRefused) {
  const Bad cases[] = {
      {"name=S:float[]=a", "Member 'float[]' needs a dimension of at least 1"},
      {"name=S:float[ ]=a", "Member 'float[ ]' needs a dimension of at least 1"},
      {"name=S:float[+]=a:int8[-0]=b",
       "Member 'float[+]' needs a dimension of at least 1\n"
       "Member 'int8[-0]' needs a dimension of at least 1"},
      {"name=S:flt4x4[4194304]=m", "Member 'flt4x4[4194304]' is too large"},
  };
  for (const Bad& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors;
    EXPECT_FALSE(reads(*StructureSerializerRaw::theFormat(), c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
}

TEST_F(MalformedRawText, NumbersOutsideFloatAndDoubleAreRefused) {
  // The structure's name, then its one element line.
  const Bad cases[] = {
      {"F nan", "Float value in record 4 on or about character 22 is invalid"},
      {"F inf", "Float value in record 4 on or about character 22 is invalid"},
      {"F -inf", "Float value in record 4 on or about character 23 is invalid"},
      {"F 1e39", "Float value in record 4 on or about character 26 is invalid"},
      {"F -1e39", "Float value in record 4 on or about character 27 is invalid"},
      {"D inf", "Double value in record 4 on or about character 22 is invalid"},
      {"D -nan", "Double value in record 4 on or about character 23 is invalid"},
  };
  for (const Bad& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string text =
        "name s\nstructure " + c.text.substr(0, 1) + "\n0\n" + c.text.substr(2) + "\nendStream\n";
    std::string errors;
    EXPECT_FALSE(reads(*StreamSerializerRaw::theFormat(), text, errors));
    EXPECT_EQ(errors, c.errors + "\n1 error found, Stream not created\n");
  }
  std::string errors;
  EXPECT_FALSE(reads(*StreamSerializerRaw::theFormat(),
                     "name s\nstructure M\n0\nnan 1 2 3 4 5 6 7 8 9 10 11 12 13 14 1e39\n"
                     "endStream\n",
                     errors));
  EXPECT_EQ(errors,
            "Float matrix on or about character 22 has invalid value at row 0, column 0\n"
            "Float matrix on or about character 63 has invalid value at row 3, column 3\n"
            "2 errors found, Stream not created\n");
}

TEST_F(MalformedRawText, NestedTextsReportEveryLevel) {
  const std::string stream = "stream\nname s\nstructure T\n0\n\"x\"\n";
  const Bad channels[] = {
      // the stream's terminator missing: the stream ends the input
      {"name C\n" + stream,
       "Missing 'endStream' after record 4\n1 error found, Stream not created\n"
       "Missing Channel keyword on or about character 40\n"
       "2 errors found, Channel not created\n"},
      // an unterminated string swallows the channel's terminator
      {"name C\nstream\nname s\nstructure T\n0\n\"x\nendStream\nendChannel\n",
       "String element not terminated on or about character 60\n"
       "Missing 'endStream' after record 4\n2 errors found, Stream not created\n"
       "Missing Channel keyword on or about character 60\n"
       "2 errors found, Channel not created\n"},
      // a stream line over 1024 bytes
      {"name C\nstream\nname " + std::string(1030, 's') + "\nstructure T\nendStream\nendChannel\n",
       "Line at record 1 is longer than 1023 characters\n1 error found, Stream not created\n"
       "Missing Channel keyword on or about character 1038\n"
       "2 errors found, Channel not created\n"},
      // a word longer than a line is cut at 1023 characters, and its rest
      // does not fit the line either
      {std::string(3000, 'k') + "\nendChannel\n", "Missing Channel keyword on or about character 2047\n"
       "1 error found, Channel not created\n"},
  };
  for (const Bad& c : channels) {
    SCOPED_TRACE(c.text);
    std::string errors;
    EXPECT_FALSE(reads(*ChannelSerializerRaw::theFormat(), c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
  const Bad associations[] = {
      // the channel's terminator missing
      {"channel\nname C\n" + stream + "endStream\n",
       "Missing Channel keyword on or about character 58\n1 error found, Channel not created\n"
       "1 error found, Associations not created\n"},
      // a channel line over 1024 bytes fails the input for both readers
      {"channel " + std::string(1100, 'c') + "\nname C\nendChannel\nendAssociations\n",
       "Missing Channel keyword on or about character 1031\n1 error found, Channel not created\n"
       "Missing Associations keyword on or about character 1031\n"
       "2 errors found, Associations not created\n"},
      {"channel\nname C\nendChannel\n" + std::string(2000, ' ') + "endAssoc",
       "Unrecognized keyword 'endAssoc' on or about character 2035\n"
       "1 error found, Associations not created\n"},
      // a word longer than a line is quoted up to 1023 characters
      {std::string(5000000, 'k'), "Unrecognized keyword '" + std::string(1023, 'k') +
                                      "' on or about character 1024\n"
                                      "1 error found, Associations not created\n"},
  };
  for (const Bad& c : associations) {
    SCOPED_TRACE(c.text);
    std::string errors;
    EXPECT_FALSE(reads(*AssociationsSerializerRaw::theFormat(), c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
}

}  // namespace
