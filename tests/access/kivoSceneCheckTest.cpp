// SceneCheck.*  one damaged file per thing a check finds: the kinds of what
//               it reports, and whether a clean rewrite of what the reader
//               sees leaves nothing to find
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/access/kivoDataAccessorTarn.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoBinaryTestFiles.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::AccessorTarn;
using kivo::Test::applyChunk;
using kivo::Test::binaryScene;
using kivo::Test::kAsciiTrailer;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;
using kivo::Test::structureChunk;

class SceneCheck : public kivo::Test::SceneFileTest {
 protected:
  SceneCheck() : SceneFileTest("scene.ta") {}

  // The kinds a check of path reports.
  std::multiset<std::string> kinds(const std::string& path) {
    std::vector<AccessorTarn::Finding> findings;
    std::string errors;
    EXPECT_TRUE(AccessorTarn::checkFile(path, findings, errors)) << errors;
    std::multiset<std::string> found;
    for (const AccessorTarn::Finding& finding : findings) found.insert(finding.kind);
    return found;
  }
};

TEST_F(SceneCheck, FindsEachDamageAndACleanRewriteMendsWhatTheReaderSees) {
  // The section the library writes for two targets, and its parts.
  const std::string body = kivo::Test::asciiBody(1200);
  const std::string bare = file(body + kAsciiTrailer, "bare.ta");
  writeOk(*readOk(bare), {{"pCube1", labelled("c")}, {"", labelled("s")}});
  const std::string written = readBytes(bare);
  const std::string section =
      written.substr(body.size(), written.size() - body.size() - std::string(kAsciiTrailer).size());
  const std::string cube = section.substr(section.find("applyMetadata"),
                                          section.find("\t\tpCube1;\n") + 10 -
                                              section.find("applyMetadata"));
  const std::string point = "name=point:int32=id:string=label";
  const std::string values = "channel\nname vertex\nstream\nname values\nindexType numeric\n"
                             "structure point\n3\n7 \"x\"\nendStream\nendChannel\nendAssociations\n";
  const std::string sparse = "channel\nname vertex\nstream\nname values\nindexType numeric\n"
                             "structure point\n4000000\n7 \"x\"\nendStream\nendChannel\n"
                             "endAssociations\n";
  struct Damaged {
    const char* what;
    const char* extension;
    std::string content;
    std::multiset<std::string> kinds;
    bool mendable;  // a clean rewrite of what the reader sees leaves no problem
  };
  const Damaged cases[] = {
      {"as written", "ta", written, {}, true},
      {"a stray target line", "ta", body + section + "\t\tpOld;\n" + kAsciiTrailer, {"stray-line"},
       true},
      {"two statements for one node", "ta", body + section + cube + kAsciiTrailer, {"duplicate"},
       true},
      {"a statement that does not read", "ta",
       body + section + "applyMetadata -fmt \"raw\" -v \"nonsense\" \n\t\tp;\n" + kAsciiTrailer,
       {"bad-statement"}, false},
      {"a stream on an undeclared structure", "ta",
       body + "applyMetadata -fmt \"raw\" -v \"channel\\nname v\\nstream\\nname s\\nstructure "
              "ghost\\nendStream\\nendChannel\\nendAssociations\\n\" \n\t\tp;\n" + kAsciiTrailer,
       {"bad-statement", "undeclared-structure"}, false},
      {"an unused structure", "ta",
       body + "dataStructure -fmt \"raw\" -as \"name=spare:int8=a\";\n" + section + kAsciiTrailer,
       {"unused-structure"}, true},
      {"text in the section", "ta", body + section + "requires x;\n" + cube + kAsciiTrailer,
       {"foreign-text"}, false},
      {"no trailer line", "ta", body + section, {"no-trailer"}, false},
      {"a body statement after the trailer", "ta",
       body + section + kAsciiTrailer + "createNode mesh;\n", {"body-after-trailer"}, false},
      {"two chunks for one node", "tb",
       binaryScene(structureChunk(point) + applyChunk("MTDA", "p", values) +
                   applyChunk("MTDA", "p", values)),
       {"duplicate"}, true},
      {"metadata that is not UTF-8", "tb",
       binaryScene(structureChunk(point) + applyChunk("MTDA", "p\xff", values)), {"not-utf8"},
       false},
      {"associations before the structures", "tb",
       binaryScene(applyChunk("MTDA", "p", values) + structureChunk(point)),
       {"bad-statement", "chunk-order"}, false},
      {"an index far beyond the elements", "tb",
       binaryScene(structureChunk(point) + applyChunk("SMTD", "", sparse)), {"index-range"}, true},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(c.content, std::string("damaged.") + c.extension);
    EXPECT_EQ(kinds(path), c.kinds);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    accessor->setCleanRewrite(true);
    std::string errors;
    bool mended = accessor->read(path, errors) && accessor->write(errors);
    std::vector<AccessorTarn::Finding> findings;
    ASSERT_TRUE(AccessorTarn::checkFile(path, findings, errors)) << errors;
    for (const AccessorTarn::Finding& finding : findings) mended = mended && !finding.problem;
    EXPECT_EQ(mended, c.mendable) << errors;
  }
  // An unfinished rewrite is reported and left as it is.
  const std::string path = file(written, "journaled.ta");
  writeBytes(Accessor::journalName(path), "KIVOJRN1");
  EXPECT_EQ(kinds(path), std::multiset<std::string>{"journal"});
  EXPECT_EQ(readBytes(Accessor::journalName(path)), "KIVOJRN1");
}

}  // namespace
