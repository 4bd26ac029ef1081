// MalformedAsciiScene.*  hostile "ta" files the scene-file tests leave open:
//                        quotes and escapes at the edges of a payload, bytes
//                        that are no text, CR-only line ends, a trailer out of
//                        reach, statements spanning many blocks and files of
//                        exactly k x 1024 bytes; refusals leave the file and
//                        the process registry as they were
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "access/kivoAccessTestFiles.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::Associations;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;
using kivo::Test::asciiBody;
using kivo::Test::kAsciiHeader;
using kivo::Test::kAsciiTrailer;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;

std::string structureStatement(const std::string& text) {
  return "dataStructure -fmt \"raw\" -as \"" + text + "\";\n";
}

class MalformedAsciiScene : public ::testing::Test {
 protected:
  void SetUp() override { fBefore = Structure::allStructures(); }
  void TearDown() override { EXPECT_EQ(Structure::allStructures(), fBefore); }

  std::string file(const std::string& content) {
    const std::string path = fFolder.path("scene.ta");
    writeBytes(path, content);
    return path;
  }

  // The names of the structures a successful read of content declares.
  std::set<std::string> structuresOf(const std::string& content) {
    std::string errors;
    std::unique_ptr<Accessor> accessor = Accessor::readFile(file(content), errors);
    EXPECT_NE(accessor, nullptr) << errors;
    std::set<std::string> names;
    if (accessor)
      for (const Structure* structure : accessor->structures()) names.insert(structure->name());
    return names;
  }

  Structure::StructureSet fBefore;
  kivo::Test::TempFolder fFolder;
};

struct Refused {
  const char* what;
  std::string metadata;
  const char* errors;
};

TEST_F(MalformedAsciiScene, ReadRefusesBrokenPayloadsWithExactMessages) {
  const Refused cases[] = {
      {"one quote", "dataStructure -fmt \"raw;\n", "Error tokenizing format/value for structure."},
      {"no payload quotes", "applyMetadata -fmt \"raw\" -v endAssociations \n\t\t-scn;\n",
       "Error tokenizing format/value for associations."},
      {"unterminated quote over many lines",
       "applyMetadata -fmt \"raw\" -v \"channel\nname C\n" + std::string(3000, '\n') +
           "endAssociations \n\t\t-scn;\n",
       "Error tokenizing format/value for associations."},
      {"backslash before the closing quote",
       "applyMetadata -fmt \"raw\" -v \"endAssociations\\\" \n\t\t-scn;\n",
       "Unrecognized keyword 'endAssociations\\' on or about character 17\n"
       "1 error found, Associations not created\n"},
      {"octal escape above 255", "applyMetadata -fmt \"raw\" -v \"\\777\" \n\t\t-scn;\n",
       "Unrecognized keyword '\xff' on or about character 2\n"
       "1 error found, Associations not created\n"},
      {"payload that is no text", "applyMetadata -fmt \"raw\" -v \"\\001\\002\" \n\t\tn;\n",
       "Unrecognized keyword '\x01\x02' on or about character 3\n"
       "1 error found, Associations not created\n"},
  };
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string content = asciiBody(200) + c.metadata + kAsciiTrailer;
    const std::string path = file(content);
    std::string errors;
    EXPECT_EQ(Accessor::readFile(path, errors), nullptr);
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }
}

TEST_F(MalformedAsciiScene, ReadKeepsOddButWellFormedPayloadsByteForByte) {
  const std::string body = asciiBody(200);
  EXPECT_EQ(structuresOf(body + structureStatement("name=S:int32=a\\") + kAsciiTrailer),
            std::set<std::string>{"S"});
  EXPECT_EQ(structuresOf(body + structureStatement("name=S\\777\\0601:int32=a") + kAsciiTrailer),
            std::set<std::string>{std::string("S\xff") + "01"});
  EXPECT_EQ(structuresOf(body + structureStatement("name=caf\xe9\xc3:int32=a") + kAsciiTrailer),
            std::set<std::string>{"caf\xe9\xc3"});
  // A header-only file and one without a trailer hold no metadata, and a
  // statement may stand after the last line end.
  EXPECT_TRUE(structuresOf(kAsciiHeader).empty());
  EXPECT_EQ(
      structuresOf(kAsciiHeader + std::string("dataStructure -fmt \"raw\" -as \"name=E:int8=b\";")),
      std::set<std::string>{"E"});
}

TEST_F(MalformedAsciiScene, StatementsSpanningManyBlocksReadBack) {
  // An associations value with literal line ends, six blocks long, and a
  // structure statement whose one line crosses three blocks.
  std::string value = "channel\nname vertex\nstream\nname values\nstructure L\n";
  for (int i = 0; i < 400; ++i) value += std::to_string(i) + "\n\"" + std::string(8, 'v') + "\"\n";
  value += "endStream\nendChannel\nendAssociations\n";
  const std::string member = std::string(2500, 'm');
  const std::string content = asciiBody(1500) + structureStatement("name=L:string=" + member) +
                              "applyMetadata -fmt \"raw\" -v \"" + value + "\" \n\t\t-scn;\n" +
                              kAsciiTrailer;
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::readFile(file(content), errors);
  ASSERT_NE(accessor, nullptr) << errors;
  ASSERT_EQ(accessor->structures().size(), 1u);
  EXPECT_EQ((*accessor->structures().begin())->memberCount(), 1u);
  const Stream* stream =
      accessor->associations().at("").findChannel("vertex")->findDataStream("values");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->elementCount(), 400u);
}

TEST_F(MalformedAsciiScene, WriteRefusesFilesWithoutAReachableTrailer) {
  const Refused cases[] = {
      {"header only", "", "Could not find trailer prefix."},
      {"trailer before the last block", std::string(kAsciiTrailer) + std::string(1100, '/') + "\n",
       "Could not find trailer prefix."},
      {"CR-only line ends after the header", "select -ne :time1;\r// End of scene.ta\r",
       "Could not find trailer prefix."},
  };
  kivo::Detail::Ref<Structure> structure(Structure::create());
  structure->setName("T");
  structure->addMember(Member::kInt8, 1, "b");
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string content = kAsciiHeader + c.metadata;
    const std::string path = file(content);
    std::string errors;
    std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
    ASSERT_NE(accessor, nullptr) << errors;
    accessor->setStructures({structure.get()});
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }
}

TEST_F(MalformedAsciiScene, FilesOfWholeBlocksRoundTrip) {
  // Files of k x 1024 bytes and one byte either side, before and after the
  // write, with the metadata starting on and around a block boundary.
  kivo::Detail::Ref<Structure> structure(Structure::create());
  structure->setName("edge");
  structure->addMember(Member::kInt32, 1, "a");
  const std::string metadata = structureStatement("name=old:int32=a") +
                               "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n\t\t-scn;\n";
  for (size_t k = 1; k <= 3; ++k) {
    for (int delta : {-1, 0, 1}) {
      for (const bool withMetadata : {false, true}) {
        const size_t size = k * 1024 + delta;
        const std::string tail = (withMetadata ? metadata : "") + kAsciiTrailer;
        std::string body = kAsciiHeader;
        if (size < body.size() + tail.size() + 2) continue;
        body += "//" + std::string(size - body.size() - tail.size() - 3, '.') + "\n";
        SCOPED_TRACE(std::to_string(size) + (withMetadata ? " with metadata" : ""));
        const std::string path = file(body + tail);
        ASSERT_EQ(readBytes(path).size(), size);
        std::string errors;
        std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
        ASSERT_NE(accessor, nullptr) << errors;
        EXPECT_EQ(accessor->structures().size(), withMetadata ? 1u : 0u);
        accessor->setStructures({structure.get()});
        ASSERT_TRUE(accessor->write(errors)) << errors;
        const std::string once = readBytes(path);
        EXPECT_EQ(once, body + structureStatement("name=edge:int32=a") +
                            (withMetadata ? "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" "
                                            "\n\t\t-scn;\n"
                                          : "") +
                            kAsciiTrailer);
        ASSERT_TRUE(accessor->write(errors)) << errors;
        EXPECT_EQ(readBytes(path), once);
      }
    }
  }
}

}  // namespace
