// AsciiSceneHostile.*  "ta" files found by fuzzing: a write that succeeds
//                      leaves a file that reads back what was written
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "access/kivoAccessTestFiles.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::Associations;
using kivo::Data::Channel;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;
using StructureRef = kivo::Detail::Ref<Structure>;

struct Case {
  const char* what;
  std::string file;
  const char* refusal;  // the message of the refused write
};

// Writes a structure and scene associations into file; a write that
// succeeds must give a file that reads them back, and a refused one must
// leave the file as it was.
void expectWrittenMetadataReadsBack(const std::string& file, const char* refusal) {
  kivo::Test::TempFolder folder;
  const std::string path = folder.path("hostile.ta");
  kivo::Test::writeBytes(path, file);

  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
  ASSERT_TRUE(accessor) << errors;
  StructureRef structure(new Structure("fz"));
  ASSERT_TRUE(structure->addMember(Member::kInt32, 1, "id"));
  Stream stream(*structure, "pos");
  ASSERT_TRUE(stream.setElement(Index(1), Handle(*structure)));
  Channel channel("vertex");
  channel.setDataStream(stream);
  Associations scene;
  scene.setChannel(channel);
  accessor->setStructures({structure.get()});
  accessor->associations()[""] = scene;
  if (!accessor->write(errors)) {
    EXPECT_EQ(errors, refusal);
    EXPECT_EQ(kivo::Test::readBytes(path), file);
    return;
  }

  errors.clear();
  std::unique_ptr<Accessor> again = Accessor::readFile(path, errors);
  ASSERT_TRUE(again) << errors << kivo::Test::readBytes(path);
  ASSERT_EQ(again->structures().size(), 1u) << kivo::Test::readBytes(path);
  EXPECT_TRUE(**again->structures().begin() == *structure);
  ASSERT_EQ(again->associations().count(""), 1u);
  EXPECT_EQ(again->associations().at("").channelCount(), 1u);
  EXPECT_STREQ(refusal, "") << "written, not refused";
}

// Files whose writes succeeded, but whose metadata then did not read back:
// - the last line of the body does not end in ';': read backwards, that
//   line and the first "dataStructure" statement make one statement of the
//   body, so the structure is lost and the associations using it no longer
//   read;
// - no "// End of" trailer, and a body line after the metadata: the writer
//   keeps that line as the trailer, and the reader, scanning back from the
//   end, stops at it before reaching the new statements;
// - a body statement after the "// End of" line: the new statements go
//   before the trailer, and the reader stops at that statement first.
TEST(AsciiSceneHostile, WrittenMetadataReadsBackOrIsNotWritten) {
  const std::string header = kivo::Test::kAsciiHeader;
  // Metadata over several blocks with a line of the body inside it: the
  // section runs from the first statement to the end found after the last
  // block, so that line would go with the old statements.
  std::string spread = header + "createNode a;\n" +
                       "dataStructure -fmt \"raw\" -as \"name=s0:int8=v\";\npolyCube -w 1;\n";
  for (int i = 1; i < 60; ++i) {
    spread += "dataStructure -fmt \"raw\" -as \"name=s" + std::to_string(i) + ":int8=v\";\n";
  }
  spread += kivo::Test::kAsciiTrailer;
  const Case cases[] = {
      {"body line inside the section", spread,
       "The metadata section holds a line that is not metadata; the file is left unchanged."},
      {"unended body line", header + "createNode x;\nxx\n" + kivo::Test::kAsciiTrailer,
       "The line before the metadata section does not end a statement with ';'; the file is "
       "left unchanged."},
      {"body line as trailer",
       header + "createNode a;\n" + "dataStructure -fmt \"raw\" -as \"name=q:int8=v\"\n" +
           "createNode b\n",
       "Could not find trailer prefix."},
      {"statement after the trailer",
       header + "createNode a;\n" + kivo::Test::kAsciiTrailer + "createNode b;\n",
       "A statement of the scene body follows the metadata section; the file is left "
       "unchanged."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    expectWrittenMetadataReadsBack(c.file, c.refusal);
  }
}

}  // namespace
