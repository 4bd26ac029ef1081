// TarnBinaryChunks.*  chunk bytes: sizes, padding, header reading, text
//                     conversion
// TarnBinary.*        binary scene files: finding the trailer from the end
//                     (every message of a damaged file, sizes and offsets at
//                     and past their bounds), the trailer's metadata, selective
//                     reads, hostile chunks; the rebuilt trailer (order, sizes,
//                     host chunks, round trips) and refusals that leave the
//                     file and the process registry as they were
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoBinaryTestFiles.h"
#include "access/kivoDataAccessorTarnInternal.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::Associations;
using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Detail::BinaryReader;
using kivo::Detail::BinaryWriter;
using kivo::Test::applyChunk;
using kivo::Test::bigEndian;
using kivo::Test::binaryScene;
using kivo::Test::chunk;
using kivo::Test::chunkHeader;
using kivo::Test::patched;
using kivo::Test::readBytes;
using kivo::Test::structureChunk;
using kivo::Test::writeBytes;

const std::string kZeros4(4, '\0');
const std::string kScene = kivo::Test::binarySceneChunks();

std::string rawText(const Structure& structure) {
  std::ostringstream text;
  kivo::Data::StructureSerializer::formatByName("raw")->write(structure, text);
  return text.str();
}

std::string rawText(const Associations& associations) {
  std::ostringstream text;
  std::string errors;
  kivo::Data::AssociationsSerializer::formatByName("raw")->write(associations, text, errors);
  return text.str();
}

TEST(TarnBinaryChunks, StructureChunkSizeCountsTheTextAndPadsToEight) {
  struct Sized {
    std::string text;
    uint64_t size;
    size_t padding;
  };
  const Sized cases[] = {{"abc", 8, 0}, {"abcd", 9, 7}, {"", 5, 3}, {"abcdefghijk", 16, 0}};
  for (const Sized& c : cases) {
    SCOPED_TRACE(c.text);
    std::ostringstream out;
    ASSERT_TRUE(BinaryWriter::writeStructureChunk(out, "raw", c.text));
    EXPECT_EQ(out.str(), "DATS" + kZeros4 + bigEndian(c.size, 8) + std::string("raw\0", 4) +
                             c.text + '\0' + std::string(c.padding, '\0'));
    std::istringstream in(out.str());
    std::vector<char> buffer;
    const kivo::Detail::ChunkHeader header = BinaryReader::readChunkHeader(in, buffer);
    EXPECT_EQ(header.tag, "DATS");
    EXPECT_EQ(header.size, c.size);
    EXPECT_EQ(buffer.size(), 16u);
  }
  std::ostringstream out;
  BinaryWriter::writeChunkSize(out, 0x0102030405060708u);
  EXPECT_EQ(out.str(), "\x01\x02\x03\x04\x05\x06\x07\x08");
  std::istringstream shortHeader(std::string("MTDA\0\0\0\0\0", 9));
  std::vector<char> buffer;
  EXPECT_EQ(BinaryReader::readChunkHeader(shortHeader, buffer).tag, "");
  EXPECT_FALSE(shortHeader);
}

TEST(TarnBinaryChunks, ConversionGivesTheTextUpToTheFirstNulOrNothing) {
  using kivo::Detail::eConversionType;
  struct Converted {
    std::string text;
    eConversionType type;
    std::string result;
    bool converted;
  };
  const Converted cases[] = {
      {"", eConversionType::ToUtf8, "", true},
      {"plain", eConversionType::FromUtf8, "plain", true},
      {"caf\xc3\xa9", eConversionType::FromUtf8, "", false},  // no form in ASCII
      {std::string("a\0b", 3), eConversionType::ToUtf8, "a", false},
  };
  kivo::Test::CodeSet ascii("C");
  for (const Converted& c : cases) {
    SCOPED_TRACE(c.text);
    bool converted = !c.converted;
    EXPECT_EQ(kivo::Detail::convertString(c.text, c.type, &converted), c.result);
    EXPECT_EQ(converted, c.converted);
    EXPECT_EQ(kivo::Detail::convertString(c.text, c.type), c.result);
  }
}

// Binary scene files named scene.tb by default.
class TarnBinary : public kivo::Test::SceneFileTest {
 protected:
  TarnBinary() : SceneFileTest("scene.tb") {}

  // Metadata in the writer's order: "point", the scene, node "pCube1".
  std::string metadata(const std::string& sceneLabel, const std::string& nodeLabel) {
    return structureChunk(rawText(*fPoint)) +
           applyChunk("SMTD", "", rawText(labelled(sceneLabel))) +
           applyChunk("MTDA", "pCube1", rawText(labelled(nodeLabel)));
  }
};

struct Damaged {
  const char* what;
  std::string content;
  std::string errors;
};

TEST_F(TarnBinary, TrailerSearchRefusesDamagedFilesWithExactMessages) {
  const std::string good = binaryScene(chunk("HOST", "kept"));
  const size_t bcsz = good.size() - 24;
  const uint64_t offsetEnd = good.size() - 4;
  const std::string mainEnd = "Error seeking to the end of main chunk.";
  const Damaged cases[] = {
      {"empty", "", "Could not read file identification."},
      {"tag", patched(good, 0, "FORM"), "Not a supported file type."},
      {"type", patched(good, 16, "Tarm"), "Not a supported file type."},
      {"cut", good.substr(0, good.size() - 8), mainEnd},
      {"shorter than a trailer-size chunk", good.substr(0, 20), mainEnd},
      {"main size 7", patched(good, 8, bigEndian(7, 8)), mainEnd},
      {"main size one past the end", patched(good, 8, bigEndian(good.size() - 15, 8)), mainEnd},
      {"main size 2^63", patched(good, 8, bigEndian(uint64_t(1) << 63, 8)), mainEnd},
      {"main size near 2^64", patched(good, 8, bigEndian(~uint64_t(0) - 3, 8)), mainEnd},
      {"main size one below", patched(good, 8, bigEndian(good.size() - 17, 8)),
       "File does not end with trailer-size chunk."},
      {"tag of last chunk", patched(good, bcsz, "BCSY"),
       "File does not end with trailer-size chunk."},
      {"trailer-size chunk of size 8", patched(good, bcsz + 8, bigEndian(8, 8)),
       "Invalid trailer-size chunk."},
      {"trailer-size chunk of size 0", patched(good, bcsz + 8, bigEndian(0, 8)),
       "Invalid trailer-size chunk."},
      {"offset past start", patched(good, bcsz + 16, bigEndian(0xFFFFFFFFu, 4)),
       "Could not seek to start of trailer."},
      {"offset into identification", patched(good, bcsz + 16, bigEndian(offsetEnd - 39, 4)),
       "Could not seek to start of trailer."},
      {"offset after trailer start", patched(good, bcsz + 16, bigEndian(19, 4)),
       "Could not seek to start of trailer."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(c.content);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors = "replaced";
    EXPECT_FALSE(accessor->read(path, errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_FALSE(accessor->isFileSupported(path));
    EXPECT_EQ(readBytes(path), c.content);
  }
  // An offset into the scene body: the node group and the trailer group read
  // as trailer chunks, and the trailer group runs past the trailer-size chunk.
  std::string errors;
  EXPECT_EQ(Accessor::readFile(file(patched(good, bcsz + 16, bigEndian(offsetEnd - 44, 4))),
                               errors),
            nullptr);
  EXPECT_EQ(errors, "Could not skip chunk in trailer.");

  errors = "replaced";
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->read(fFolder.path("missing.tb"), errors));
  EXPECT_EQ(errors, "File not valid.");
  EXPECT_TRUE(Accessor::accessorByExtension("tb")->isFileSupported(file(good)));
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->isFileSupported(""));
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->isFileSupported(fFolder.path("missing.tb")));
}

TEST_F(TarnBinary, ReadTakesTheTrailerMetadataAndSkipsHostChunks) {
  const std::string bytes =
      binaryScene(chunk("HOST", "a") + metadata("scene", "cube") + chunk("HOST", "tail"));
  std::unique_ptr<Accessor> accessor = readOk(file(bytes));
  ASSERT_EQ(accessor->structures().size(), 1u);
  EXPECT_TRUE(**accessor->structures().begin() == *fPoint);
  ASSERT_EQ(accessor->associations().size(), 2u);
  EXPECT_EQ(rawText(accessor->associations().at("")), rawText(labelled("scene")));
  EXPECT_EQ(rawText(accessor->associations().at("pCube1")), rawText(labelled("cube")));
  // An empty trailer, and a host chunk of size 0.
  EXPECT_TRUE(readOk(file(binaryScene(""), "empty.tb"))->structures().empty());
  EXPECT_EQ(readOk(file(binaryScene(chunkHeader("HOST", 0) + structureChunk(rawText(*fPoint))),
                        "zero.tb"))
                ->structures()
                .size(),
            1u);

  // Only what is named; the broken chunk after them is never reached.
  const std::string path =
      file(binaryScene(metadata("scene", "cube") + chunk("DATS", "raw")), "two.tb");
  const std::set<std::string> structures{"point"}, associations{"pCube1"};
  accessor = Accessor::accessorByExtension(path);
  std::string errors;
  ASSERT_TRUE(accessor->read(path, &structures, &associations, errors)) << errors;
  EXPECT_EQ(accessor->structures().size(), 1u);
  ASSERT_EQ(accessor->associations().size(), 1u);
  EXPECT_EQ(rawText(accessor->associations().at("pCube1")), rawText(labelled("cube")));
  EXPECT_FALSE(accessor->read(path, errors));
  EXPECT_EQ(errors, "Could not read data structure chunk.");
}

TEST_F(TarnBinary, ReadRefusesHostileChunksWithExactMessages) {
  const std::string text = rawText(*fPoint);
  const char* const structureUnread = "Could not read data structure chunk.";
  const char* const applyUnread = "Could not read apply metadata chunk.";
  const char* const unskipped = "Could not skip chunk in trailer.";
  const Damaged cases[] = {
      {"structure past trailer end", structureChunk(text).substr(0, 8) + bigEndian(200, 8),
       structureUnread},
      {"structure of size 2^63", chunkHeader("DATS", uint64_t(1) << 63), structureUnread},
      // The padding would take the size past 2^64.
      {"structure size near 2^64", chunkHeader("DATS", ~uint64_t(0) - 2), structureUnread},
      {"structure of size 0", chunk("DATS", ""), structureUnread},
      {"structure text without NUL", chunk("DATS", std::string("raw\0", 4) + text),
       structureUnread},
      {"node associations of size 0", chunk("MTDA", ""), applyUnread},
      {"format without NUL", chunk("MTDA", std::string("pCube1\0raw", 10)), applyUnread},
      {"apply text without NUL", chunk("MTDA", std::string("n\0raw\0", 6) + "endAssociations"),
       applyUnread},
      {"scene past trailer end", chunkHeader("SMTD", 1 << 30), applyUnread},
      {"host chunk past trailer end", chunkHeader("HOST", ~uint64_t(0)), unskipped},
      {"host chunk one byte past the end", chunkHeader("HOST", 25) + std::string(24, 'x'),
       unskipped},
      {"host chunk without its padding", chunkHeader("HOST", 5) + "abcde", unskipped},
      {"stray bytes", chunk("HOST", "x") + "12345678", "Could not read chunk header in trailer."},
      {"unknown format", structureChunk("name=s:int8=a", "json"),
       "Could not find serializer for format json"},
      {"structure cut at a NUL", chunk("DATS", std::string("raw\0name=S\0:int32=a\0", 21)),
       "Structures must have a name and at least one member"},
      // A structure that comes with a message fails the read too.
      {"structure with a separator message", structureChunk("name=S:int32=a:float=b=c"),
       "Member type and name must be separated by '='"},
      {"not UTF-8", structureChunk("name=\xff:int8=a"),
       "Could not convert the text of a data structure chunk from UTF-8."},
      {"associations not UTF-8", applyChunk("MTDA", "n", "caf\xc3"),
       "Could not convert the text of the associations of node \"n\" from UTF-8."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string content = binaryScene(c.content);
    const std::string path = file(content);
    std::string errors;
    EXPECT_EQ(Accessor::readFile(path, errors), nullptr);
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
    // The trailer is found; only its content is refused.
    EXPECT_TRUE(Accessor::accessorByExtension(path)->isFileSupported(path));
  }
}

TEST_F(TarnBinary, ReadTakesEachChunkAsItComes) {
  // Associations are read where they stand: before the structure their
  // stream names, that structure is unknown.
  const std::string early = applyChunk("MTDA", "pCube1", rawText(labelled("cube")));
  std::string errors;
  EXPECT_EQ(Accessor::readFile(file(binaryScene(early + structureChunk(rawText(*fPoint)))), errors),
            nullptr);
  EXPECT_EQ(errors.rfind("Structure 'point' not found\n", 0), 0u) << errors;

  // Every chunk of a wanted node is read, selectively or not: the last holds.
  const std::string path = file(
      binaryScene(metadata("s", "first") + applyChunk("MTDA", "pCube1", rawText(labelled("second")))),
      "twice.tb");
  const std::set<std::string> node{"pCube1"};
  for (const std::set<std::string>* names : {static_cast<const std::set<std::string>*>(nullptr),
                                             &node}) {
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    ASSERT_TRUE(accessor->read(path, nullptr, names, errors)) << errors;
    EXPECT_EQ(rawText(accessor->associations().at("pCube1")), rawText(labelled("second")));
  }
}

TEST_F(TarnBinary, WriteWithoutMetadataLeavesTheHostChunksAndTheSizes) {
  const std::string host = chunk("HOST", "a") + chunk("FOR8", "GRUP" + chunk("HOST", "inner"));
  for (const std::string& kept : {std::string(), host}) {
    SCOPED_TRACE(kept.size());
    const std::string path = file(binaryScene(kept + metadata("s", "c")));
    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->clear();
    writeOk(*accessor);
    EXPECT_EQ(readBytes(path), binaryScene(kept));
  }
  // Spelled out: an empty trailer is 28 bytes of group, B = 20.
  const std::string empty = readBytes(fFolder.path("scene.tb"));
  EXPECT_EQ(empty.substr(empty.size() - host.size() - 44),
            "FOR8" + kZeros4 + bigEndian(host.size() + 28, 8) + "TRLR" + host + "BCSZ" + kZeros4 +
                bigEndian(4, 8) + bigEndian(host.size() + 20, 4) + kZeros4);
  EXPECT_EQ(empty.substr(8, 8), bigEndian(empty.size() - 16, 8));
}

TEST_F(TarnBinary, WriteOrdersStructuresThenSceneThenNodes) {
  const std::string path = file(binaryScene(chunk("HOST", "a")));
  std::unique_ptr<Accessor> accessor = readOk(path);
  kivo::Detail::Ref<Structure> early(Structure::create());
  early->setName("abc");
  early->addMember(Member::kInt8, 1, "v");
  accessor->setStructures({fPoint, early.get()});
  accessor->associations() = {{"zeta", Associations()}, {"A", labelled("a")}, {"", labelled("s")}};
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path),
            binaryScene(chunk("HOST", "a") + structureChunk(rawText(*early)) +
                        structureChunk(rawText(*fPoint)) +
                        applyChunk("SMTD", "", rawText(labelled("s"))) +
                        applyChunk("MTDA", "A", rawText(labelled("a"))) +
                        applyChunk("MTDA", "zeta", rawText(Associations()))));
}

TEST_F(TarnBinary, ReadModifyWriteKeepsEveryByteBeforeTheTrailer) {
  for (const std::string& host : {std::string(), chunk("HOST", "trailer chunk of the host")}) {
    SCOPED_TRACE(host.size());
    const std::string original = binaryScene(host + metadata("scene", "cube"));
    const std::string path = file(original);
    writeOk(*readOk(path));
    EXPECT_EQ(readBytes(path), original);

    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->associations()["pCube1"] = labelled(std::string(300, 'x'));
    writeOk(*accessor);
    EXPECT_EQ(readBytes(path), binaryScene(host + metadata("scene", std::string(300, 'x'))));
    // The same accessor writes again over its own result, and shrinks it.
    accessor->associations()["pCube1"] = labelled("cube");
    writeOk(*accessor);
    EXPECT_EQ(readBytes(path), original);
    EXPECT_EQ(rawText(readOk(path)->associations().at("pCube1")), rawText(labelled("cube")));
  }
}

TEST_F(TarnBinary, WriteKeepsHostChunksAroundTheMetadataRunInOrder) {
  const std::string before = chunk("HOST", "1");
  const std::string after = chunk("HOST", "2") + chunk("HOST", "3");
  // Chunks after the run follow the new metadata; old metadata after them is dropped.
  std::string path = file(binaryScene(before + metadata("s", "c") + after +
                                      applyChunk("MTDA", "old", rawText(Associations()))));
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->associations().erase("old");
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), binaryScene(before + metadata("s", "c") + after));
  // Associations before the first structure chunk are old metadata too: a
  // file with associations and no structures keeps one copy of them however
  // often it is written.
  const std::string early = applyChunk("MTDA", "early", rawText(Associations()));
  path = file(binaryScene(before + early + metadata("s", "c")), "early.tb");
  accessor = readOk(path);
  accessor->associations().erase("early");
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), binaryScene(before + metadata("s", "c")));
  path = file(binaryScene(before + early + after), "alone.tb");
  accessor = readOk(path);
  writeOk(*accessor);
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), binaryScene(before + early + after));
}

TEST_F(TarnBinary, WriteRefusesFilesItCannotRewriteSafely) {
  const std::string good = binaryScene(metadata("s", "c"));
  // A scene without trailer group whose backward offset points at its second
  // chunk: the write would land in the first.
  const std::string second = chunk("FOR8", "NODE" + chunk("NAME", "pCube1"));
  const std::string noTrailer = chunkHeader("FOR8", 4 + kScene.size() + 24) + "Tarn" + kScene +
                                chunk("BCSZ", bigEndian(second.size() + 20, 4));
  // An offset of 20 says the trailer holds nothing: the read finds no
  // metadata, and the trailer group's size field is not where the offset
  // puts it.
  const std::string hiding = binaryScene(metadata("s", "c") + chunk("HOST", "kept"));
  const std::string changed =
      "The chunk sizes of " + fFolder.path("scene.tb") +
      " do not describe its trailer as this accessor found it; the file is left unchanged.";
  const Damaged cases[] = {
      {"trailer size", patched(good, kivo::Test::binaryTrailerSizePosition(), bigEndian(999, 8)),
       changed},
      {"offset into the scene", noTrailer, changed},
      {"offset that hides the metadata", patched(hiding, hiding.size() - 8, bigEndian(20, 4)),
       changed},
      {"bytes after the main group", good + good.substr(good.size() - 24), changed},
      {"trailer-size chunk inside the trailer",
       binaryScene(chunk("HOST", "1") + chunk("BCSZ", bigEndian(0, 4)) + chunk("HOST", "2")),
       "Error reading chunk header before metadata."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    expectWriteRefused(c.content, [&](Accessor& a) { a.setStructures({fPoint}); }, c.errors);
  }

  // A read of named metadata stops before damage further on; the write,
  // which walks the whole trailer, refuses it.
  const std::set<std::string> structures{"point"}, associations{"pCube1"};
  const Damaged later[] = {
      {"stray bytes", metadata("s", "c") + "1234", "Error skipping existing metadata chunks."},
      {"host chunk past the end", metadata("s", "c") + chunkHeader("HOST", 99),
       "Error reading chunk before metadata."},
      {"structure past the end", metadata("s", "c") + chunkHeader("DATS", 99),
       "Error skipping existing metadata chunks."},
  };
  for (const Damaged& c : later) {
    SCOPED_TRACE(c.what);
    const std::string content = binaryScene(c.content);
    const std::string path = file(content);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors;
    ASSERT_TRUE(accessor->read(path, &structures, &associations, errors)) << errors;
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }

  const std::string path = file(good);
  std::unique_ptr<Accessor> accessor = readOk(path);
  writeBytes(path, good + "x");
  std::string errors;
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(
      errors,
      "The file " + path +
          " changed since this accessor last read or wrote it; read it again before writing.");
  EXPECT_EQ(readBytes(path), good + "x");
  writeBytes(path, "not a scene");
  EXPECT_FALSE(accessor->read(path, errors));
  errors.clear();
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "The file " + path +
                        " was not read successfully by this accessor; read it before writing.");
  errors.clear();
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->write(errors));
  EXPECT_EQ(errors, "Could not open  for writing.");
}

TEST_F(TarnBinary, WriteRefusesTextsThatDoNotConvertAndWritesThemInUtf8) {
  const std::string content = binaryScene(metadata("s", "c"));
  kivo::Detail::Ref<Structure> accented(Structure::create());
  accented->setName("caf\xc3\xa9");
  accented->addMember(Member::kInt8, 1, "v");
  // Each case writes one structure, or associations under one name, in a
  // process whose code set is ASCII.
  struct Refused {
    const Structure* structure;
    std::string node;
    std::string errors;
  };
  const std::string label = "\xc3\xa9t\xc3\xa9";
  const std::string nul("a\0b", 3);
  const Refused cases[] = {
      {accented.get(), "",
       "Could not convert the text of structure \"caf\xc3\xa9\" to UTF-8.\n"
       "Could not write structure chunk to in-memory trailer."},
      {nullptr, "",
       "Could not convert the text of the scene associations to UTF-8.\n"
       "Could not write scene associations chunk to in-memory trailer."},
      {nullptr, "pCube1",
       "Could not convert the text of the associations of node \"pCube1\" to UTF-8.\n"
       "Could not write node associations chunk to in-memory trailer."},
      {nullptr, nul,
       "The node name \"" + nul +
           "\" holds a NUL character and cannot be written.\n"
           "Could not write node associations chunk to in-memory trailer."},
  };
  kivo::Test::CodeSet ascii("C");
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.errors);
    const auto prepare = [&](Accessor& a) {
      a.clear();
      if (c.structure) a.setStructures({c.structure});
      if (!c.structure) a.associations()[c.node] = labelled(label);
    };
    expectWriteRefused(content, prepare, c.errors);
  }
  {
    // The file is opened, and its old trailer walked, before a payload is.
    const std::string gone = file(content, "gone.tb");
    std::unique_ptr<Accessor> accessor = readOk(gone);
    accessor->associations()["pCube1"] = labelled(label);
    ASSERT_EQ(std::remove(gone.c_str()), 0);
    std::string errors;
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, "Could not open " + gone + " for writing.");
  }
  kivo::Test::CodeSet utf8("C.UTF-8");
  if (!utf8.set()) GTEST_SKIP() << "no C.UTF-8 locale";
  const std::string path = file(content);
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->associations()["pCube1"] = labelled(label);
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), binaryScene(metadata("s", label)));
  EXPECT_EQ(rawText(readOk(path)->associations().at("pCube1")), rawText(labelled(label)));
}

}  // namespace
