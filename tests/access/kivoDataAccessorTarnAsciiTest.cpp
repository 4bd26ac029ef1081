// TarnAsciiEscaping.*  payload escaping and unescaping, byte for byte
// TarnAscii.*          ASCII scene files: the header check (accepted headers,
//                      every message); the backward scan, statement messages,
//                      statements spanning many blocks, selective reads,
//                      registry isolation, hostile files; in-place rewrites
//                      (scene body untouched, trailer kept, repeatable writes,
//                      files of whole blocks, the node-line rule, refusals)
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/access/kivoDataAccessorTarn.h>
#include <kivo/data/kivoDataStructure.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoDataAccessorTarnInternal.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using ExternalContent = kivo::Data::AccessorTarn::ExternalContent;
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

struct Escape {
  const char* text;
  const char* escaped;
};

TEST(TarnAsciiEscaping, ValuesEscapeControlsQuotesAndBackslashes) {
  const Escape cases[] = {
      {"a\"b\\c\nd\te", "a\\\"b\\\\c\\nd\\te"},
      {"\a\b\f\v\r", "\\a\\b\\f\\v\\r"},
      {"\x01\x1f\x7f", "\\001\\037\\177"},
      {"plain text; 'quoted'", "plain text; 'quoted'"},
  };
  for (const Escape& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(kivo::Detail::escapeAsciiValue(c.text), c.escaped);
    EXPECT_EQ(kivo::Detail::unescapeAsciiPayload(c.escaped), c.text);
  }
  EXPECT_EQ(kivo::Detail::escapeAsciiValue(std::string("a\0b", 3)), "a\\000b");
  EXPECT_EQ(kivo::Detail::escapeAsciiStructureText("name=a\"b\\:int32=x\ny\t"),
            "name=a\"b\\:int32=x\\ny\t");
}

TEST(TarnAsciiEscaping, UnescapingDecidesTheOpenCases) {
  const std::pair<std::string, std::string> cases[] = {
      {"\\101\\60x\\0", std::string("A0x\0", 4)},  // octal ends at a non-octal character
      {"\\777\\400", std::string("\xff\0", 2)},    // above 255: the low eight bits
      {"\\1234", "S4"},                            // at most three digits
      {"\\18\\79", "\x01" "8" "\x07" "9"},            // '8' and '9' end it too
      {"end\\", "end\\"},                          // a final backslash stands for itself
      {"\\q\\\"\\\\", "q\"\\"},                    // anything else gives that character
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    EXPECT_EQ(kivo::Detail::unescapeAsciiPayload(c.first), c.second);
  }
}

TEST(TarnAsciiEscaping, EveryByteRoundTripsInEveryLocale) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  all += "\xc3\xa9 \xe2\x82\xac \xc3";  // valid UTF-8, then a cut sequence
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    const kivo::Test::CodeSet codeSet(locale);
    if (!codeSet.set()) continue;
    const std::string escaped = kivo::Detail::escapeAsciiValue(all);
    EXPECT_EQ(escaped.find_first_of(std::string("\n\r\t\0", 4)), std::string::npos);
    EXPECT_EQ(kivo::Detail::unescapeAsciiPayload(escaped), all);
    // Multibyte characters and invalid bytes are copied as they are.
    EXPECT_NE(escaped.find("\xc3\xa9 \xe2\x82\xac \xc3"), std::string::npos);
  }
}

// ASCII scene files named scene.ta by default.
class TarnAscii : public kivo::Test::SceneFileTest {
 protected:
  TarnAscii() : SceneFileTest("scene.ta") {}
};

struct Refused {
  std::string content;
  const char* errors;
};

TEST_F(TarnAscii, HeaderRefusesWithExactMessages) {
  const Refused cases[] = {
      {"", "Error reading header."},
      {"//Tarn ASCII 2014\n", "Header too small."},
      {"//Tarn ASCII 2014 scen\r\n", "Header too small."},
      {"//Tarn Ascii 2014 scene\n", "Unexpected header start."},
      {"//Tarn ASCII2014 scenes\n", "Unexpected header start."},
      {"//Tarn ASCII 2014 scene file\n", "Unexpected header end."},
      {"//Tarn ASCII 2013 scene\n", "Unsupported year."},
      {"//Tarn ASCII x2020 scene\n", "Unsupported year."},
      {"//Tarn ASCII 201: scene\n", "Unsupported year."},
      // The whole first line counts, however long it is.
      {"//Tarn ASCII 2014 " + std::string(5000, 'x') + " scene" + std::string(3000, 'y') + "\n",
       "Unexpected header end."},
      {"//Tarn ASCII 2014 scene\r\r\n", "Unexpected header end."},
      // CR-only line ends: the whole file is one first line.
      {"//Tarn ASCII 2014 scene\rselect -ne :time1;\r", "Unexpected header end."},
  };
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.content);
    const std::string path = file(c.content.empty() ? "" : c.content + kAsciiTrailer);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors = "replaced";
    EXPECT_FALSE(accessor->read(path, errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_FALSE(accessor->isFileSupported(path));
  }
  for (const std::string& header :
       {std::string("//Tarn ASCII 2014 scene\n"), std::string("//Tarn ASCII 2014 scene\r\n"),
        std::string("//Tarn ASCII 2025 big scene"),
        "//Tarn ASCII 2014 " + std::string(5000, 'x') + " scene\r\n"}) {
    SCOPED_TRACE(header.substr(0, 40));
    const std::string path = file(header);
    EXPECT_TRUE(Accessor::accessorByExtension(path)->isFileSupported(path));
    readOk(path);
  }
  EXPECT_FALSE(Accessor::accessorByExtension("ta")->isFileSupported(""));
  EXPECT_FALSE(Accessor::accessorByExtension("ta")->isFileSupported(fFolder.path("missing.ta")));
}

TEST_F(TarnAscii, ReadRefusesBadStatementsWithExactMessages) {
  const Refused cases[] = {
      {"applyMetadata -fmt \"raw\" -v \"endAssociations\" \n\t\t;\n",
       "Could not find Associations name."},
      {"applyMetadata;\n", "Could not find Associations name."},
      // One, two or three quotes, or none.
      {"applyMetadata -fmt \"raw -v endAssociations \n\t\t-scn;\n",
       "Error tokenizing format/value for associations."},
      {"applyMetadata -fmt \"raw\" -v endAssociations \n\t\t-scn;\n",
       "Error tokenizing format/value for associations."},
      {"applyMetadata -fmt \"raw\" -v \"channel\nname C\n" + std::string(3000, '\n') +
           "endAssociations \n\t\t-scn;\n",
       "Error tokenizing format/value for associations."},
      {"dataStructure -fmt raw -as name=S:int32=a;\n",
       "Error tokenizing format/value for structure."},
      // The escaped quote is the last one: it closes the payload.
      {"applyMetadata -fmt \"raw\" -v \"endAssociations\\\" \n\t\t-scn;\n",
       "Unrecognized keyword 'endAssociations\\' on or about character 17\n"
       "1 error found, Associations not created\n"},
      {"dataStructure -fmt \"json\" -as \"name=S:int32=a\";\n",
       "Could not find serializer for format json"},
      {"applyMetadata -fmt \"\" -v \"endAssociations\" \n\t\tn;\n",
       "Could not find serializer for format "},
      {"dataStructure -fmt \"raw\" -as \"name=S\";\n",
       "Structures must have a name and at least one member"},
      // The reader keeps a structure with only this message; the read fails.
      {"dataStructure -fmt \"raw\" -as \"name=S:int32=a:float=b=c\";\n",
       "Member type and name must be separated by '='"},
      // Every bad statement is told, the latest first.
      {"applyMetadata -fmt \"raw\" -v \"one\" \n\t\tn1;\n"
       "applyMetadata -fmt \"raw\" -v \"two\" \n\t\tn2;\n",
       "Unrecognized keyword 'two' on or about character 4\n"
       "1 error found, Associations not created\n"
       "Unrecognized keyword 'one' on or about character 4\n"
       "1 error found, Associations not created\n"},
  };
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.content);
    const std::string content = asciiBody(0) + c.content + kAsciiTrailer;
    const std::string path = file(content);
    std::string errors;
    EXPECT_EQ(Accessor::readFile(path, errors), nullptr);
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }
}

TEST_F(TarnAscii, ReadScansBackwardsAndStopsAtTheSceneBody) {
  // Structures inside the body are not metadata; comments, blank lines and
  // CR-LF line ends between statements are passed over; the names of the
  // last statements span more than one block.
  std::string content = asciiBody(3000);
  content.insert(content.find("createNode"),
                 "dataStructure -fmt \"raw\" -as \"name=inBody:int8=b\";\n");
  const std::string longName(2500, 'n');
  content += "dataStructure -fmt \"raw\" -as \"name=first:int32=a\";\r\n\n// comment;\n   \n";
  for (int i = 0; i < 30; ++i)
    content += "dataStructure -fmt \"raw\" -as \"name=s" + std::to_string(i) + ":int32=a\";\n";
  content += "dataStructure -fmt \"raw\" -as \"name=" + longName + "\\nfloat[3]=v\";\n";
  content += kAsciiTrailer;
  std::unique_ptr<Accessor> accessor = readOk(file(content));
  std::set<std::string> names;
  for (const Structure* s : accessor->structures()) names.insert(s->name());
  EXPECT_EQ(names.size(), 32u);
  EXPECT_EQ(names.count("first") + names.count("s29") + names.count(longName), 3u);
  EXPECT_EQ(names.count("inBody"), 0u);

  // A file shorter than one block, metadata right after the header and no
  // line feed after it.
  accessor = readOk(
      file(std::string(kAsciiHeader) + "dataStructure -fmt \"raw\" -as \"name=tiny:int32=a\";"));
  ASSERT_EQ(accessor->structures().size(), 1u);
  EXPECT_STREQ((*accessor->structures().begin())->name(), "tiny");
}

TEST_F(TarnAscii, ReadStopsAtEveryCommandOfTheSceneBody) {
  const char* commands[] = {
      "connectAttr \"a.t\" \"b.t\";",
      "createNode transform -n \"x\";",
      "setAttr \".v\" yes;",
      "relationship \"link\" \":lightLinker1\" \":initialShadingGroup.message\";",
      "select -ne :time1;",
  };
  for (const char* command : commands) {
    SCOPED_TRACE(command);
    std::unique_ptr<Accessor> accessor =
        readOk(file(std::string(kAsciiHeader) +
                    "dataStructure -fmt \"raw\" -as \"name=before:int32=a\";\n" + command +
                    "\ndataStructure -fmt \"raw\" -as \"name=after:int32=a\";\n" + kAsciiTrailer));
    ASSERT_EQ(accessor->structures().size(), 1u);
    EXPECT_STREQ((*accessor->structures().begin())->name(), "after");
  }
}

TEST_F(TarnAscii, StatementsSpanningManyBlocksReadBack) {
  // An associations value with literal line ends, six blocks long.
  std::string value = "channel\nname vertex\nstream\nname values\nstructure L\n";
  for (int i = 0; i < 400; ++i) value += std::to_string(i) + "\n\"" + std::string(8, 'v') + "\"\n";
  value += "endStream\nendChannel\nendAssociations\n";
  std::unique_ptr<Accessor> accessor =
      readOk(file(asciiBody(1500) + "dataStructure -fmt \"raw\" -as \"name=L:string=s\";\n" +
                  "applyMetadata -fmt \"raw\" -v \"" + value + "\" \n\t\t-scn;\n" + kAsciiTrailer));
  ASSERT_NE(accessor, nullptr);
  const Stream* stream =
      accessor->associations().at("").findChannel("vertex")->findDataStream("values");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->elementCount(), 400u);
}

TEST_F(TarnAscii, ReadKeepsOnlyTheNamedStructuresAndAssociations) {
  // The scene holds an external content table; node pCube1 holds points.
  kivo::Detail::Ref<Structure> table(Structure::create());
  table->setName(ExternalContent::getStructureName().c_str());
  for (const char* member : {"node", "key", "upath", "rpath", "roles"})
    table->addMember(Member::kString, 1, member);
  Stream entries(*table, ExternalContent::getStreamName());
  Handle entry(*table);
  ExternalContent::setEntry(entry, "file1", "ftn", "a.png", "/p/a.png", {"tex;ture", "-"});
  entries.setElement(Index(0), entry);
  Associations scene;
  scene.channel(ExternalContent::getChannelName()).setDataStream(entries);
  const std::string path = file(asciiBody(100) + kAsciiTrailer);
  {
    std::unique_ptr<Accessor> writer = readOk(path);
    writer->setStructures({fPoint, table.get()});
    writer->associations() = {{"", scene}, {"pCube1", labelled("cube")}};
    std::string errors;
    ASSERT_TRUE(writer->write(errors)) << errors;
  }
  const std::set<std::string> structures{"point", "absent"}, associations{"pCube1"};
  std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
  std::string errors;
  ASSERT_TRUE(accessor->read(path, &structures, &associations, errors)) << errors;
  ASSERT_EQ(accessor->structures().size(), 1u);
  EXPECT_STREQ((*accessor->structures().begin())->name(), "point");
  ASSERT_EQ(accessor->associations().size(), 1u);
  EXPECT_EQ(labelOf(accessor->associations().at("pCube1")), "cube");
  // Names of one kind only: everything of the other kind is kept.
  const std::set<std::string> both{"point", ExternalContent::getStructureName()};
  ASSERT_TRUE(accessor->read(path, &both, nullptr, errors)) << errors;
  EXPECT_EQ(accessor->structures().size(), 2u);
  EXPECT_EQ(accessor->associations().size(), 2u);
  // A name that is never found: the scan goes on to the scene body.
  const std::set<std::string> point{"point"}, absent{"absent"};
  ASSERT_TRUE(accessor->read(path, &point, &absent, errors)) << errors;
  EXPECT_EQ(accessor->structures().size(), 1u);
  EXPECT_TRUE(accessor->associations().empty());

  Associations out;
  ASSERT_TRUE(ExternalContent::readTable(path, out, errors)) << errors;
  Stream* stream = ExternalContent::getStream(out);
  ASSERT_NE(stream, nullptr);
  Handle back = stream->element(Index(0));
  std::string node, key, upath, rpath;
  std::set<std::string> roles;
  ExternalContent::getEntry(back, node, key, upath, rpath, roles);
  EXPECT_EQ(node + " " + key + " " + upath + " " + rpath, "file1 ftn a.png /p/a.png");
  EXPECT_EQ(roles, (std::set<std::string>{"tex;ture", "-"}));
  ExternalContent::updateEntry(back, "/q/a.png");
  ExternalContent::getEntry(back, node, key, upath, rpath, roles);
  EXPECT_EQ(upath + " " + rpath, "a.png /q/a.png");

  // Without scene associations out stays as it was; a missing file fails.
  Associations kept;
  kept.channel("kept");
  ASSERT_TRUE(ExternalContent::readTable(file(asciiBody(100) + kAsciiTrailer, "bare.ta"), kept,
                                         errors))
      << errors;
  EXPECT_EQ(kept.channelCount(), 1u);
  errors.clear();
  EXPECT_FALSE(ExternalContent::readTable(fFolder.path("missing.ta"), kept, errors));
  EXPECT_EQ(errors, "Could not open " + fFolder.path("missing.ta"));
}

TEST_F(TarnAscii, WriteInsertsMetadataBeforeTheTrailerAndReadsItBack) {
  const std::string body = asciiBody(2000);
  const std::string trailer = std::string(kAsciiTrailer) + "// more trailer text\n";
  const std::string path = file(body + trailer);
  std::unique_ptr<Accessor> accessor = readOk(path);
  writeOk(*accessor, {{"", labelled("say \"hi\"\\\n\tthere")},
                      {"zeta", labelled("z")},
                      {"|group|alpha", labelled("a")}});
  const std::string written = readBytes(path);
  ASSERT_EQ(written.compare(0, body.size(), body), 0);
  ASSERT_EQ(written.compare(written.size() - trailer.size(), trailer.size(), trailer), 0);
  const std::string section =
      written.substr(body.size(), written.size() - body.size() - trailer.size());
  EXPECT_EQ(section.find("dataStructure -fmt \"raw\" -as \"name=point:int32=id:string=label\";\n"
                         "applyMetadata -fmt \"raw\" -v \""),
            0u);
  // Node names in byte order ('|' after 'z'), the scene last.
  const size_t zeta = section.find("\" \n\t\tzeta;\n");
  const size_t group = section.find("\" \n\t\t|group|alpha;\n");
  const size_t scene = section.find("\" \n\t\t-scn;\n");
  EXPECT_LT(zeta, group);
  EXPECT_LT(group, scene);
  EXPECT_EQ(scene + 11, section.size());
  EXPECT_NE(section.find("say \\\\\\\"hi\\\\\\\"\\\\\\\\\\\\n\\tthere"), std::string::npos)
      << section;

  std::unique_ptr<Accessor> back = readOk(path);
  ASSERT_EQ(back->structures().size(), 1u);
  EXPECT_TRUE(**back->structures().begin() == *fPoint);
  ASSERT_EQ(back->associations().size(), 3u);
  EXPECT_EQ(labelOf(back->associations().at("")), "say \"hi\"\\\n\tthere");
  EXPECT_EQ(labelOf(back->associations().at("|group|alpha")), "a");
}

TEST_F(TarnAscii, WritingTwiceLeavesTheFileAsWritingOnce) {
  // Bodies of several lengths move the section across block boundaries.
  for (size_t pad = 0; pad < 1100; pad += 53) {
    SCOPED_TRACE(pad);
    const std::string body = asciiBody(1500) + "//" + std::string(pad, '.') + "\n";
    const std::string path = file(body + kAsciiTrailer);
    std::unique_ptr<Accessor> accessor = readOk(path);
    const Accessor::AssociationsMap scene{{"", labelled(std::string(900, 'x'))}};
    writeOk(*accessor, scene);
    const std::string once = readBytes(path);
    writeOk(*accessor, scene);
    EXPECT_EQ(readBytes(path), once);
    writeOk(*readOk(path), scene);
    EXPECT_EQ(readBytes(path), once);
    EXPECT_EQ(once.compare(0, body.size(), body), 0);
  }
}

TEST_F(TarnAscii, FilesOfWholeBlocksRoundTrip) {
  // Files of k x 1024 bytes and one byte either side, before and after the
  // write, with the metadata starting on and around a block boundary.
  const std::string point = "dataStructure -fmt \"raw\" -as \"name=point:int32=id:string=label\";\n";
  const std::string scene = "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n\t\t-scn;\n";
  const std::string old = "dataStructure -fmt \"raw\" -as \"name=old:int32=a\";\n" + scene;
  for (size_t k = 1; k <= 3; ++k) {
    for (int delta : {-1, 0, 1}) {
      for (const bool withMetadata : {false, true}) {
        const size_t size = k * 1024 + delta;
        const std::string tail = (withMetadata ? old : "") + kAsciiTrailer;
        std::string body = kAsciiHeader;
        if (size < body.size() + tail.size() + 2) continue;
        body += "//" + std::string(size - body.size() - tail.size() - 3, '.') + "\n";
        SCOPED_TRACE(std::to_string(size) + (withMetadata ? " with metadata" : ""));
        const std::string path = file(body + tail);
        ASSERT_EQ(readBytes(path).size(), size);
        std::unique_ptr<Accessor> accessor = readOk(path);
        EXPECT_EQ(accessor->structures().size(), withMetadata ? 1u : 0u);
        accessor->setStructures({fPoint});
        writeOk(*accessor);
        const std::string once = readBytes(path);
        EXPECT_EQ(once, body + point + (withMetadata ? scene : "") + kAsciiTrailer);
        writeOk(*accessor);
        EXPECT_EQ(readBytes(path), once);
      }
    }
  }
}

TEST_F(TarnAscii, WriteReplacesOldMetadataAndTruncates) {
  const std::string body = asciiBody(1200);
  std::string old;
  for (int i = 0; i < 60; ++i)
    old += "dataStructure -fmt \"raw\" -as \"name=old" + std::to_string(i) + ":int32=a\";\n";
  old += "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n\t\t-scn;\n";
  const std::string path = file(body + old + kAsciiTrailer);
  std::unique_ptr<Accessor> accessor = readOk(path);
  ASSERT_EQ(accessor->structures().size(), 60u);
  accessor->clear();
  std::string errors;
  ASSERT_TRUE(accessor->write(errors)) << errors;
  EXPECT_EQ(readBytes(path), body + kAsciiTrailer);
  // The section is gone; a new one goes before the trailer again.
  writeOk(*accessor, {});
  EXPECT_EQ(readBytes(path),
            body + "dataStructure -fmt \"raw\" -as \"name=point:int32=id:string=label\";\n" +
                kAsciiTrailer);
}

TEST_F(TarnAscii, RewriteKeepsTheNodeLineAndWhatFollowsAsTrailer) {
  const std::string body = asciiBody(500);
  const std::string path = file(body + kAsciiTrailer);
  const Accessor::AssociationsMap metadata{{"", labelled("s")},
                                           {"pCube1", labelled("c")}};
  writeOk(*readOk(path), metadata);
  const std::string once = readBytes(path);
  const std::string section =
      once.substr(body.size(), once.size() - body.size() - std::string(kAsciiTrailer).size());
  const std::string fromNodeLine = section.substr(section.find("\t\tpCube1;\n"));

  std::unique_ptr<Accessor> accessor = readOk(path);
  writeOk(*accessor, metadata);
  EXPECT_EQ(readBytes(path), body + section + fromNodeLine + kAsciiTrailer);
  std::unique_ptr<Accessor> back = readOk(path);
  EXPECT_EQ(labelOf(back->associations().at("pCube1")), "c");
  EXPECT_EQ(labelOf(back->associations().at("")), "s");
}

TEST_F(TarnAscii, SectionBlocksAreThoseInWhichTheScanCompletesEachStatement) {
  // The scene statement starts in the last block, but the scan completes it
  // at the line feed before the node line, in the block before: both
  // statements count as in that block, so the rewrite reads forward from
  // the node statement, and the node line ends the section.
  const std::string body = asciiBody(500);
  const std::string node = "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n\t\tpCube1;\n";
  const std::string sceneStart = "applyMetadata -fmt \"raw\" -v \"endAssociations\\n";
  const std::string sceneEnd = "\" \n\t\t-scn;\n";
  const size_t padding =
      1020 - sceneStart.size() - sceneEnd.size() - std::string(kAsciiTrailer).size();
  const std::string scene = sceneStart + std::string(padding, 'x') + sceneEnd;
  const std::string path = file(body + node + scene + kAsciiTrailer);
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->clear();
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), body + "\t\tpCube1;\n" + scene + kAsciiTrailer);
}

TEST_F(TarnAscii, SectionEndIsSoughtFromTheSectionOnward) {
  // The last block starts exactly at a statement before the section (the
  // first statement of the section is completed in the block before): the
  // search for the section's end starts at the section, not at that line.
  const std::string body = asciiBody(500);
  const std::string note = "note \"kept\";\n";
  const std::string first = "dataStructure -fmt \"raw\" -as \"name=a:int32=x\";\n";
  const std::string lastStart = "dataStructure -fmt \"raw\" -as \"name=b:int32=";
  const std::string lastEnd = "\";\n";
  const size_t name = 1024 - note.size() - first.size() - lastStart.size() - lastEnd.size() -
                      std::string(kAsciiTrailer).size();
  const std::string last = lastStart + std::string(name, 'y') + lastEnd;
  const std::string path = file(body + note + first + last + kAsciiTrailer);
  std::unique_ptr<Accessor> accessor = readOk(path);
  ASSERT_EQ(accessor->structures().size(), 2u);
  accessor->clear();
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), body + note + kAsciiTrailer);
}

TEST_F(TarnAscii, WriteWithoutMetadataGoesBeforeTheFirstTrailerLine) {
  const std::string body = asciiBody(300);
  const std::string path = file(body + "  // End of the body\n" + kAsciiTrailer);
  writeOk(*readOk(path), {});
  EXPECT_EQ(readBytes(path), body +
                                 "dataStructure -fmt \"raw\" -as "
                                 "\"name=point:int32=id:string=label\";\n"
                                 "  // End of the body\n" +
                                 kAsciiTrailer);
  // The header line is never the trailer, whatever it holds.
  const std::string small = "//Tarn ASCII 2014 // End of it scene\ncreateNode a;\n";
  const std::string header = file(small + kAsciiTrailer, "header.ta");
  writeOk(*readOk(header), {});
  EXPECT_EQ(readBytes(header),
            small + "dataStructure -fmt \"raw\" -as \"name=point:int32=id:string=label\";\n" +
                kAsciiTrailer);
}

TEST_F(TarnAscii, WriteReplacesHandEditedSectionsAndKeepsWhatSurroundsThem) {
  struct Layout {
    const char* what;
    std::string before;   // after the scene body, before the section
    std::string section;  // the old metadata
    std::string after;    // the trailer as the file has it
    std::string kept;     // what follows the new section
  };
  const std::string old = "dataStructure -fmt \"raw\" -as \"name=old:int32=a\";\n";
  const std::string value = "applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n";
  const std::string trailer = kAsciiTrailer;
  const Layout cases[] = {
      {"blank lines, a target indented with blanks, no final line feed", "\n \t\n",
       old + "\n" + value + "  -scn;\n\n", "// End of scene.ta", "// End of scene.ta"},
      {"the last block starts on a line", "//" + std::string(1024 - 3 - trailer.size(), '.') + "\n",
       "", trailer, trailer},
      {"a last body statement and a comment line of many blocks each",
       "setAttr \".notes\" -type \"string\" \"" + std::string(70000, 'x') + "\";\n//" +
           std::string(70000, '/') + "\n",
       old, trailer, trailer},
      // A node path does not start with a letter: the section goes on.
      {"node path target", "", old + value + "\t\t|group|cube;\n", trailer, trailer},
      // A node name that starts with a letter ends the section there.
      {"capitalized node target", "", value, "\t\tCube;\n" + trailer, "\t\tCube;\n" + trailer},
  };
  for (const Layout& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string start = asciiBody(1500) + c.before;
    const std::string path = file(start + c.section + c.after);
    std::unique_ptr<Accessor> accessor = readOk(path);
    writeOk(*accessor, {{"", labelled("new")}});
    const std::string once = readBytes(path);
    EXPECT_EQ(once.compare(0, start.size(), start), 0);
    ASSERT_GE(once.size(), start.size() + c.kept.size());
    EXPECT_EQ(once.substr(once.size() - c.kept.size()), c.kept);
    std::unique_ptr<Accessor> back = readOk(path);
    ASSERT_EQ(back->structures().size(), 1u);
    EXPECT_STREQ((*back->structures().begin())->name(), "point");
    ASSERT_EQ(back->associations().size(), 1u);
    EXPECT_EQ(labelOf(back->associations().at("")), "new");
    writeOk(*back);
    EXPECT_EQ(readBytes(path), once);
  }
}

TEST_F(TarnAscii, CleanRewriteReplacesTheWholeOldSectionOrRefusesWithTheLine) {
  // A clean rewrite of any of these sections gives the file that the same
  // metadata written into the bare scene gives; what it cannot place is
  // refused with its line, the file unchanged.
  struct Section {
    const char* what;
    std::string section;  // between the scene body and the trailer
    int foreignLine;      // 0: rewritten; else the line refused, from the section's first
  };
  const std::string structure = "dataStructure -fmt \"raw\" -as \"name=old:int32=a\";\n";
  const auto node = [](const std::string& name, const std::string& value) {
    return "applyMetadata -fmt \"raw\" -v \"" + value + "\" \n\t\t" + name + ";\n";
  };
  const std::string body = asciiBody(1500);
  // A section whose value holds ';', quotes and backslashes, as written.
  const std::string quoted = file(body + kAsciiTrailer, "quoted.ta");
  writeOk(*readOk(quoted), {{"pCube1", labelled("a;\"b\"; \\\" c;")}});
  const std::string withQuotes = readBytes(quoted).substr(
      body.size(), readBytes(quoted).size() - body.size() - std::string(kAsciiTrailer).size());
  const Section cases[] = {
      {"structures, nodes and the scene",
       structure + node("pCube1", "endAssociations\\n") + node("-scn", "endAssociations\\n"), 0},
      {"what literal rewrites leave: a stray target line and old statements after it",
       structure + node("aNew", "endAssociations\\n") + "\t\tpCube1;\n" +
           node("pCube1", "endAssociations\\n") + "\n  \t\n",
       0},
      {"';', quotes and backslashes inside a value", withQuotes + structure, 0},
      {"a comment line", structure + "// by hand\n" + node("-scn", "endAssociations\\n"), 2},
      {"a statement that is not metadata",
       structure + "requires tarn \"2014\";\n" + node("pCube1", "endAssociations\\n"), 2},
      {"text after a statement's ';'",
       structure + node("pCube1", "endAssociations\\n") + "\t\tp; setAttr x;\n", 4},
  };
  const Accessor::AssociationsMap metadata{{"", labelled("s")}, {"pSphere1", labelled("p")}};
  const std::string bare = file(body + kAsciiTrailer, "bare.ta");
  writeOk(*readOk(bare), metadata);
  const std::string expected = readBytes(bare);
  const int bodyLines = static_cast<int>(std::count(body.begin(), body.end(), '\n'));
  for (const Section& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(body + c.section + kAsciiTrailer);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors;
    ASSERT_TRUE(accessor->read(path, errors)) << errors;
    accessor->setCleanRewrite(true);
    accessor->setStructures({fPoint});
    accessor->associations() = metadata;
    if (c.foreignLine == 0) {
      writeOk(*accessor);
      EXPECT_EQ(readBytes(path), expected);
    } else {
      EXPECT_FALSE(accessor->write(errors));
      EXPECT_EQ(errors, "Line " + std::to_string(bodyLines + c.foreignLine) + " of " + path +
                            " is neither metadata nor the trailer; a clean rewrite leaves the "
                            "file unchanged.");
      EXPECT_EQ(readBytes(path), body + c.section + kAsciiTrailer);
    }
  }
}

TEST_F(TarnAscii, WriteRefusesAFileChangedSinceItWasSeen) {
  const std::string content = asciiBody(300) + kAsciiTrailer;
  const std::string path = file(content);
  std::unique_ptr<Accessor> accessor = readOk(path);
  writeBytes(path, content + " ");
  std::string errors;
  accessor->setStructures({fPoint});
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(
      errors,
      "The file " + path +
          " changed since this accessor last read or wrote it; read it again before writing.");
  EXPECT_EQ(readBytes(path), content + " ");

  // Same size, other modification time.
  accessor = readOk(path);
  const struct timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(readBytes(path), content + " ");
  // Same size and second, other nanoseconds.
  accessor = readOk(path);
  const struct timespec later[2] = {{0, UTIME_OMIT}, {1000000000, 500}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), later, 0), 0);
  errors.clear();
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_NE(errors.find(" changed since this accessor"), std::string::npos) << errors;

  // A read that failed leaves nothing to write against.
  const std::string bad = file("//Tarn ASCII 1999 scene\n" + std::string(kAsciiTrailer), "bad.ta");
  accessor = Accessor::accessorByExtension(bad);
  accessor->read(bad, errors);
  errors.clear();
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "The file " + bad +
                        " was not read successfully by this accessor; read it before writing.");
  errors.clear();
  EXPECT_FALSE(Accessor::accessorByExtension("ta")->write(errors));
  EXPECT_EQ(errors, "Could not open  for writing.");
}

TEST_F(TarnAscii, WriteRefusesFilesItCannotRewriteSafely) {
  const std::string metadata = "dataStructure -fmt \"raw\" -as \"name=m:int32=a\";\n";
  const Refused cases[] = {
      {"", "Could not find trailer prefix."},
      {"setAttr \".s\" -type \"string\" \"// End of scene.ta\";\n",
       "Could not find trailer prefix."},
      // Only the last block is searched.
      {std::string(kAsciiTrailer) + std::string(1100, '/') + "\n", "Could not find trailer prefix."},
      // The first prefix of the last block is taken, here inside the body.
      {"setAttr \".s\" -type \"string\" \"// End of notes\";\n" + std::string(kAsciiTrailer),
       "A statement of the scene body follows the metadata section; the file is left "
       "unchanged."},
      {"dataStructure -fmt \"raw\" -as \"name=m:int32=a\";\n",
       "Failed reading line while searching metadata end."},
      // The node line ends the section and no trailer line follows it.
      {"applyMetadata -fmt \"raw\" -v \"endAssociations\\n\" \n\t\tpCube1;\n  ",
       "Could not find trailer prefix."},
      // A last body line of many blocks that does not end its statement,
      // after comment lines that are as long.
      {"setAttr \".notes\" -type \"string\" \"" + std::string(70000, 'x') + "\"\n//" +
           std::string(70000, '/') + "\n  //" + std::string(70000, 'c') + "\n\n" + kAsciiTrailer,
       "The line before the metadata section does not end a statement with ';'; the file is "
       "left unchanged."},
  };
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.content);
    expectWriteRefused(
        asciiBody(1500) + c.content, [&](Accessor& a) { a.setStructures({fPoint}); }, c.errors);
  }
  // The header alone, and lines that end in CR only after it.
  for (const char* tail : {"", "select -ne :time1;\r// End of scene.ta\r"}) {
    expectWriteRefused(std::string(kAsciiHeader) + tail,
                       [&](Accessor& a) { a.setStructures({fPoint}); },
                       "Could not find trailer prefix.");
  }
  const std::string content = asciiBody(100) + metadata + kAsciiTrailer;
  for (const char* node : {"two words", "a;b", "-scn", "q\"uote", "//x", "del\x7f"}) {
    SCOPED_TRACE(node);
    expectWriteRefused(
        content, [&](Accessor& a) { a.associations()[node] = Associations(); },
        std::string("The node name \"") + node +
            "\" cannot be written as an applyMetadata target.\n"
            "Could not write node associations statement to file.");
  }
  // A backslash in a structure text would read back as an escape.
  for (const auto& names : {std::make_pair("dir\\new", "id"), std::make_pair("S", "a\\tb")}) {
    SCOPED_TRACE(names.first);
    kivo::Detail::Ref<Structure> structure(new Structure(names.first));
    structure->addMember(Member::kInt32, 1, names.second);
    expectWriteRefused(
        content, [&](Accessor& a) { a.setStructures({structure.get()}); },
        std::string("The structure \"") + names.first +
            "\" holds a backslash, which its dataStructure statement cannot keep.\n"
            "Could not write structure chunk to file.");
  }
  // The file is opened and its section found before a statement is composed.
  const std::string path = file(asciiBody(100) + kAsciiTrailer, "gone.ta");
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->associations()["two words"] = Associations();
  ASSERT_EQ(std::remove(path.c_str()), 0);
  std::string errors;
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "Could not open " + path + " for writing.");
}

TEST_F(TarnAscii, HostileBodyLinesAndBytesAreCarriedThrough) {
  const std::string body = asciiBody(2000);
  // A line of the scene body that looks like metadata is never taken for
  // the start of the section.
  const std::string tricky =
      body + "setAttr \".notes\" -type \"string\" \"line1\napplyMetadata is mentioned\";\n";
  const std::string trickyPath =
      file(tricky + "dataStructure -fmt \"raw\" -as \"name=old:int32=a\";\n" + kAsciiTrailer,
           "tricky.ta");
  writeOk(*readOk(trickyPath), {});
  EXPECT_EQ(readBytes(trickyPath),
            tricky + "dataStructure -fmt \"raw\" -as \"name=point:int32=id:string=label\";\n" +
                kAsciiTrailer);

  // Invalid UTF-8 inside a string value is carried through unchanged.
  const std::string path = file(body + kAsciiTrailer, "bytes.ta");
  writeOk(*readOk(path), {{"", labelled("\xff\xfe bad \xc3")}});
  EXPECT_EQ(labelOf(readOk(path)->associations().at("")), "\xff\xfe bad \xc3");
}

}  // namespace
