// ChannelRawFormat.*  channel <-> text: writing, round trips, exact read
//                     messages (missing end markers, over-long lines, a
//                     failing stream), errors appended (a failing stream
//                     replaces), text after the terminator left unread,
//                     help text
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

using kivo::Data::Channel;
using kivo::Data::ChannelSerializer;
using kivo::Data::ChannelSerializerRaw;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;

const ChannelSerializerRaw& raw() { return *ChannelSerializerRaw::theFormat(); }

// Registered structures "Cell" {int32 v} and "T" {string v} for the streams
// of every test.
class ChannelRawFormat : public ::testing::Test {
 protected:
  void SetUp() override {
    fStructure = Structure::create();
    fStructure->setName("Cell");
    fStructure->addMember(Member::kInt32, 1, "v");
    fText = Structure::create();
    fText->setName("T");
    fText->addMember(Member::kString, 1, "v");
    ASSERT_TRUE(Structure::registerStructure(*fStructure));
    ASSERT_TRUE(Structure::registerStructure(*fText));
  }
  void TearDown() override {
    Structure::deregisterStructure(*fStructure);
    Structure::deregisterStructure(*fText);
  }

  // A stream named name with value v at index 0.
  Stream stream(const std::string& name, int v) {
    Stream s(*fStructure, name);
    Handle h(*fStructure);
    *h.asInt32() = v;
    s.setElement(Index(0), h);
    return s;
  }

  Structure* fStructure = nullptr;
  Structure* fText = nullptr;
};

std::string streamText(const std::string& name, int v) {
  return "name " + name + "\nindexType numeric\nstructure Cell\n0\n" + std::to_string(v) +
         "\nendStream\n";
}

std::unique_ptr<Channel> readText(const std::string& text, std::string& errors) {
  std::istringstream in(text);
  return std::unique_ptr<Channel>(raw().read(in, errors));
}

TEST_F(ChannelRawFormat, WritesStreamsInNameOrderReadsBackAndLeavesLaterTextUnread) {
  Channel channel("vertex");
  channel.setDataStream(stream("b", 2));
  channel.setDataStream(stream("a", -1));
  std::ostringstream out;
  std::string errors = "kept\n";
  EXPECT_EQ(raw().write(channel, out, errors), 0);
  EXPECT_EQ(raw().write(Channel("C"), out, errors), 0);
  EXPECT_EQ(errors, "kept\n");
  EXPECT_EQ(out.str(), "name vertex\nstream\n" + streamText("a", -1) + "stream\n" +
                           streamText("b", 2) + "endChannel\nname C\nendChannel\n");
  std::istringstream in(out.str() + "next");
  std::unique_ptr<Channel> first(raw().read(in, errors));
  std::unique_ptr<Channel> second(raw().read(in, errors));
  ASSERT_TRUE(first && second) << errors;
  EXPECT_EQ(errors, "kept\n");
  EXPECT_EQ(first->name(), "vertex");
  ASSERT_EQ(first->dataStreamCount(), 2u);
  EXPECT_EQ(first->findDataStream("a")->element(Index(0)).str(0), "-1");
  EXPECT_EQ(second->name(), "C");
  EXPECT_TRUE(second->empty());
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, "next");
}

TEST_F(ChannelRawFormat, ReadsWithoutNameAndLaterStreamOfSameNameWins) {
  std::string errors;
  std::unique_ptr<Channel> channel = readText(
      "\n  stream  \n" + streamText("s", 1) + "stream\n" + streamText("s", 2) + "endChannel\n",
      errors);
  ASSERT_TRUE(channel) << errors;
  EXPECT_EQ(channel->name(), "Unnamed");
  ASSERT_EQ(channel->dataStreamCount(), 1u);
  EXPECT_EQ(channel->findDataStream("s")->element(Index(0)).str(0), "2");
}

struct BadText {
  std::string text;
  const char* errors;
};

// The reader is given errors "previous\n": its messages are appended, but a
// failing stream replaces everything before its own messages.
TEST_F(ChannelRawFormat, RejectsBadTextWithExactMessages) {
  const std::string stream = "stream\nname s\nstructure T\n0\n\"x\"\n";
  const BadText cases[] = {
      {"", "previous\nMissing Channel keyword on or about character 1\n"
           "1 error found, Channel not created\n"},
      {"name C\nindexType numeric\nendChannel\n",
       "previous\nUnrecognized keyword 'indexType' on or about character 26\n"
       "1 error found, Channel not created\n"},
      {"name C\nstream\n" + streamText("s", 1),
       "previous\nMissing Channel keyword on or about character 69\n"
       "1 error found, Channel not created\n"},
      {"name C\nendChannel", "previous\nMissing Channel keyword on or about character 18\n"
                             "1 error found, Channel not created\n"},
      {"name C\nname " + std::string(1100, 'x') + "\nendChannel\n",
       "previous\nMissing Channel keyword on or about character 1035\n"
       "1 error found, Channel not created\n"},
      // a word longer than a line is cut at 1023 characters, and its rest
      // does not fit the line either
      {std::string(3000, 'k') + "\nendChannel\n",
       "previous\nMissing Channel keyword on or about character 2047\n"
       "1 error found, Channel not created\n"},
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
      // the first stream's messages are wiped too by the last failing
      // stream; the channel's own count comes last
      {"name C\nstream\nname s\nstructure Cell\n0\nx\nendStream\nstream\n" +
           streamText("t", 1) + "stream\nname u\nstructure Cell\n0\nabc\nendStream\nendChannel\n",
       "Int32 value in record 4 on or about character 143 is invalid\n"
       "1 error found, Stream not created\n"
       "2 errors found, Channel not created\n"},
  };
  for (const BadText& c : cases) {
    SCOPED_TRACE(c.text);
    std::string errors = "previous\n";
    EXPECT_FALSE(readText(c.text, errors));
    EXPECT_EQ(errors, c.errors);
  }
}

TEST(ChannelRawFormatRegistry, RegisteredAtLoadAsTheDefaultWithItsDescription) {
  EXPECT_EQ(ChannelSerializer::formatByName("raw"), ChannelSerializerRaw::theFormat());
  EXPECT_EQ(ChannelSerializer::defaultFormat(), ChannelSerializerRaw::theFormat());
  EXPECT_STREQ(raw().formatType(), "raw");
  std::ostringstream out;
  raw().getFormatDescription(out);
  EXPECT_EQ(out.str(),
            "The raw format consists of a Channel name followed by an optional index\n"
            " type followed by a list of streams and a marker which indicates\n"
            " the end of the channel data. The stream data consists of two or\n"
            "more lines in the following pattern:\n"
            "\tstream\n"
            "\t{FORMATTED_STREAM_DATA}\n"
            "terminated with a line containing the literal text:\n"
            "\tendChannel\n"
            "Any text after the terminator will not be read.\n"
            "If the index type is omitted a standard numerical index is used.\n"
            "\n"
            "Here is a sample of a channel 'C1' with two streams:\n"
            "\tname C1\n"
            "\tstream\n"
            "\t{FORMATTED_STREAM_DATA}\n"
            "\tstream\n"
            "\t{FORMATTED_STREAM_DATA}\n"
            "\tendChannel\n"
            "\n"
            "See the documentation for the raw stream serialization\n"
            "format for a detailed description of the \n"
            "{FORMATTED_STREAM_DATA} lines.\n");
}

}  // namespace
