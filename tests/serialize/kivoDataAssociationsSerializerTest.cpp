// AssociationsRawFormat.*  associations <-> text: empty channels skipped,
//                          round trips, channels named by their own name
//                          line, exact read messages (missing end markers
//                          and over-long lines at every level), help text
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

using kivo::Data::Associations;
using kivo::Data::AssociationsSerializer;
using kivo::Data::AssociationsSerializerRaw;
using kivo::Data::Channel;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;

const AssociationsSerializerRaw& raw() { return *AssociationsSerializerRaw::theFormat(); }

std::unique_ptr<Associations> readText(const std::string& text, std::string& errors) {
  std::istringstream in(text);
  return std::unique_ptr<Associations>(raw().read(in, errors));
}

// One channel text holding one stream "s" of structure "Tag" {string t}.
std::string channelText(const std::string& name, const std::string& value) {
  return "name " + name + "\nstream\nname s\nindexType numeric\nstructure Tag\n0\n\"" + value +
         "\"\nendStream\nendChannel\n";
}

class AssociationsRawFormat : public ::testing::Test {
 protected:
  void SetUp() override {
    fStructure = Structure::create();
    fStructure->setName("Tag");
    fStructure->addMember(Member::kString, 1, "t");
    ASSERT_TRUE(Structure::registerStructure(*fStructure));
  }
  void TearDown() override { Structure::deregisterStructure(*fStructure); }

  Structure* fStructure = nullptr;
};

TEST_F(AssociationsRawFormat, WritesChannelsWithStreamsAndReadsThemBack) {
  Associations associations;
  Stream stream(*fStructure, "s");
  Handle h(*fStructure);
  std::string errors;
  h.fromStr("v", 0, errors);
  stream.setElement(Index(0), h);
  associations.channel("vertex").setDataStream(stream);
  associations.channel("edge");  // no streams: not written
  associations.channel("face").setDataStream(stream);
  std::ostringstream out;
  EXPECT_EQ(raw().write(associations, out, errors), 0);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(out.str(), "channel\n" + channelText("face", "v") + "channel\n" +
                           channelText("vertex", "v") + "endAssociations\n");

  std::istringstream in(out.str() + "after");
  std::unique_ptr<Associations> back(raw().read(in, errors));
  ASSERT_TRUE(back) << errors;
  EXPECT_EQ(back->channelCount(), 2u);
  ASSERT_TRUE(back->findChannel("vertex"));
  EXPECT_EQ(back->findChannel("vertex")->findDataStream("s")->element(Index(0)).str(0), "v");
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, "after");
}

TEST_F(AssociationsRawFormat, TerminatorAloneOrNoTextReadsAsEmpty) {
  std::string errors;
  std::istringstream in("endAssociations");
  std::unique_ptr<Associations> first(raw().read(in, errors));
  ASSERT_TRUE(first);  // the word ended the input
  EXPECT_TRUE(first->empty());
  std::unique_ptr<Associations> second(raw().read(in, errors));  // input already at its end
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->empty());
  EXPECT_EQ(errors, "");
}

TEST_F(AssociationsRawFormat, ChannelLineTypeIsIgnoredForTheNameLine) {
  std::string errors;
  std::unique_ptr<Associations> back =
      readText("channel face\n" + channelText("vertex", "x") + "endAssociations\n", errors);
  ASSERT_TRUE(back) << errors;
  EXPECT_EQ(back->findChannel("face"), nullptr);
  EXPECT_NE(back->findChannel("vertex"), nullptr);
}

struct BadText {
  std::string text;
  std::string errors;
};

TEST_F(AssociationsRawFormat, RejectsBadTextWithExactMessages) {
  const BadText cases[] = {
      {"", "Missing Associations keyword on or about character 1\n"
           "1 error found, Associations not created\n"},
      {"channel\n" + channelText("a", "x"),
       "Missing Associations keyword on or about character 89\n"
       "1 error found, Associations not created\n"},
      {"stream\n", "Unrecognized keyword 'stream' on or about character 7\n"
                   "1 error found, Associations not created\n"},
      // A bad channel in the middle: the later channel is still read, up to the terminator.
      {"channel\nname a\nbogus\nchannel\n" + channelText("b", "y") + "endAssociations\n",
       "Unrecognized keyword 'bogus' on or about character 22\n"
       "1 error found, Channel not created\n"
       "1 error found, Associations not created\n"},
      {"channel\n" + channelText("a", "x") + "channel\nname b\nstream\nname s\nstructure Tag\n0\n"
       "unquoted\nendStream\nendChannel\nendAssociations\n",
       "String element on or about character 135 must be enclosed in double quotes instead of "
       "'u'\n"
       "1 error found, Stream not created\n"
       "1 error found, Channel not created\n"
       "1 error found, Associations not created\n"},
      // the channel's terminator missing
      {"channel\nname C\nstream\nname s\nstructure Tag\n0\n\"x\"\nendStream\n",
       "Missing Channel keyword on or about character 60\n1 error found, Channel not created\n"
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
  for (const BadText& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors;
    EXPECT_FALSE(readText(c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
  std::istringstream in("channel\nname a\nbogus\nchannel\n" + channelText("b", "y") +
                        "endAssociations\nafter");
  std::string errors, rest;
  EXPECT_EQ(raw().read(in, errors), nullptr);
  in >> rest;
  EXPECT_EQ(rest, "after");
}

TEST(AssociationsRawFormatRegistry, RegisteredAtLoadAsTheDefaultWithItsDescription) {
  EXPECT_EQ(AssociationsSerializer::formatByName("raw"), AssociationsSerializerRaw::theFormat());
  EXPECT_EQ(AssociationsSerializer::defaultFormat(), AssociationsSerializerRaw::theFormat());
  EXPECT_STREQ(raw().formatType(), "raw");
  std::ostringstream out;
  raw().getFormatDescription(out);
  EXPECT_EQ(out.str(),
            "The raw format consists of a list of channels and a marker\n"
            "indicating the end of the Associations data. Each channel\n"
            "starts with the literal channel indicator text and the name\n"
            "of the association type to which the channel is attached:\n"
            "\tchannel {ASSOCIATION_TYPE}\n"
            "This is followed by channel data as described by the\n"
            "raw channel format type.\n"
            "terminated with a line containing the literal text:\n"
            "\tendAssociations\n"
            "Any text after the terminator will not be read.\n"
            "\n"
            "Here is a sample of associations with 3 channels:\n"
            "\tchannel face\n"
            "\t{CHANNEL_DATA_IN_RAW_FORMAT}[0]\n"
            "\tchannel vertex\n"
            "\t{CHANNEL_DATA_IN_RAW_FORMAT}[1]\n"
            "\tchannel edge\n"
            "\t{CHANNEL_DATA_IN_RAW_FORMAT}[2]\n"
            "\tendAssociations\n"
            "\n"
            "See the documentation for the raw\n"
            "channel serialization format for a detailed description\n"
            "of the {CHANNEL_DATA_IN_RAW_FORMAT} lines.\n");
}

}  // namespace
