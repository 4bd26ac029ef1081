// TarnBinaryChunks.*         chunk bytes: sizes, padding, header reading, UTF-8
//                            conversion
// TarnBinaryTrailerSearch.*  finding the trailer from the end: positions, every
//                            message of a damaged file
// TarnBinaryRead.*           the trailer's metadata, selective reads, hostile
//                            chunks
// TarnBinaryWrite.*          the rebuilt trailer: order, sizes, host chunks,
//                            round trips, refusals that leave the file as it was
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoDataAccessorTarnInternal.h"
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
using kivo::Detail::BinaryReader;
using kivo::Detail::BinaryWriter;
using kivo::Detail::convertString;
using kivo::Detail::eConversionType;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;

// Binary files, chunk by chunk ---------------------------------------------------

std::string bigEndian(uint64_t value, size_t width) {
  std::string bytes(width, '\0');
  for (size_t i = width; i-- > 0; value >>= 8) bytes[i] = static_cast<char>(value & 0xFF);
  return bytes;
}

const std::string kZeros4(4, '\0');

std::string chunk(const std::string& tag, const std::string& data) {
  return tag + kZeros4 + bigEndian(data.size(), 8) + data + std::string((8 - data.size() % 8) % 8, '\0');
}

std::string structureChunk(const std::string& text, const std::string& format = "raw") {
  return chunk("DATS", format + '\0' + text + '\0');
}

std::string applyChunk(const std::string& tag, const std::string& name, const std::string& text) {
  return chunk(tag, name + '\0' + "raw" + '\0' + text + '\0');
}

// A scene file: the main group holding the scene chunks and, last, the
// trailer group: the trailer content and the trailer-size chunk.
struct BinaryScene {
  std::string scene;
  std::string trailer;

  std::string bytes() const { return head() + trailerGroup(); }
  // Everything before the trailer group's size field, main size excluded.
  std::string head() const {
    const std::string body = "Tarn" + scene + trailerGroup();
    return "FOR8" + kZeros4 + bigEndian(body.size(), 8) + "Tarn" + scene;
  }
  std::string trailerGroup() const {
    return "FOR8" + kZeros4 + bigEndian(trailer.size() + 28, 8) + "TRLR" + trailer +
           chunk("BCSZ", bigEndian(trailer.size() + 20, 4));
  }
};

// The scene chunks of every test file: a header chunk and a node group.
const std::string kScene = chunk("HEAD", "v2025") + chunk("FOR8", "NODE" + chunk("NAME", "pCube1"));

std::string patched(std::string bytes, size_t at, const std::string& with) {
  return bytes.replace(at, with.size(), with);
}

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

// Sets LC_CTYPE for one scope.
class CodeSet {
 public:
  explicit CodeSet(const char* locale) : fSaved(std::setlocale(LC_CTYPE, nullptr)) {
    fSet = std::setlocale(LC_CTYPE, locale) != nullptr;
  }
  ~CodeSet() { std::setlocale(LC_CTYPE, fSaved.c_str()); }
  CodeSet(const CodeSet&) = delete;
  CodeSet& operator=(const CodeSet&) = delete;
  bool set() const { return fSet; }

 private:
  std::string fSaved;
  bool fSet = false;
};

// Chunks ---------------------------------------------------------------------------

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

TEST(TarnBinaryChunks, AssociationsChunkHoldsNameFormatAndText) {
  const std::string text = rawText(Associations());
  for (const std::string name : {"", "pCube1"}) {
    SCOPED_TRACE(name);
    std::ostringstream out;
    std::string errors;
    ASSERT_TRUE(BinaryWriter::writeAssociationsChunk(out, "SMTD", name, Associations(), errors));
    EXPECT_EQ(out.str(), applyChunk("SMTD", name, text));
    EXPECT_EQ(out.str().substr(8, 8), bigEndian(name.size() + text.size() + 6, 8));
  }
  std::ostringstream out;
  std::string errors;
  EXPECT_FALSE(BinaryWriter::writeAssociationsChunk(out, "MTDA", std::string("a\0b", 3),
                                                    Associations(), errors));
  EXPECT_EQ(errors, "The node name \"" + std::string("a\0b", 3) +
                        "\" holds a NUL character and cannot be written.");
  EXPECT_EQ(out.str(), "");
}

TEST(TarnBinaryChunks, ConvertStringFollowsTheLocaleCodeSet) {
  struct Conversion {
    std::string text;
    eConversionType type;
    std::string result;
    bool converted;
  };
  {
    CodeSet codeSet("C");
    const Conversion cases[] = {
        {"name=a:int32=b", eConversionType::ToUtf8, "name=a:int32=b", true},
        {"name=a:int32=b", eConversionType::FromUtf8, "name=a:int32=b", true},
        {"", eConversionType::ToUtf8, "", true},
        {"caf\xc3\xa9", eConversionType::ToUtf8, "", false},
        {"caf\xc3\xa9", eConversionType::FromUtf8, "", false},
        {std::string("a\0b", 3), eConversionType::ToUtf8, "a", false},
    };
    for (const Conversion& c : cases) {
      SCOPED_TRACE(c.text);
      bool converted = !c.converted;
      EXPECT_EQ(convertString(c.text, c.type, &converted), c.result);
      EXPECT_EQ(converted, c.converted);
    }
  }
  CodeSet codeSet("C.UTF-8");
  if (!codeSet.set()) GTEST_SKIP() << "no C.UTF-8 locale";
  bool converted = false;
  EXPECT_EQ(convertString("caf\xc3\xa9 \xe2\x82\xac", eConversionType::ToUtf8, &converted),
            "caf\xc3\xa9 \xe2\x82\xac");
  EXPECT_TRUE(converted);
  EXPECT_EQ(convertString("bad \xff", eConversionType::FromUtf8, &converted), "");
  EXPECT_FALSE(converted);
}

// Files -----------------------------------------------------------------------------

// Scene files in a private folder; the structure "point" {int32 id, string
// label} is registered in the process for each test.
class TarnBinary : public ::testing::Test {
 protected:
  void SetUp() override {
    fPoint = Structure::create();
    fPoint->setName("point");
    fPoint->addMember(Member::kInt32, 1, "id");
    fPoint->addMember(Member::kString, 1, "label");
    Structure::registerStructure(*fPoint);
    fBefore = Structure::allStructures();
  }
  void TearDown() override {
    EXPECT_EQ(Structure::allStructures(), fBefore);
    Structure::deregisterStructure(*fPoint);
  }

  // Associations with channel "vertex", stream "values", element 3 labelled.
  Associations pointsLabelled(const std::string& label) {
    Stream stream(*fPoint, "values");
    Handle h(*fPoint);
    std::string errors;
    h.setPositionByMemberName("label");
    h.fromStr(label, 0, errors);
    stream.setElement(Index(3), h);
    Channel channel("vertex");
    channel.setDataStream(stream);
    Associations associations;
    associations.setChannel(channel);
    return associations;
  }

  static std::string labelOf(const Associations& associations) {
    const Channel* channel = associations.findChannel("vertex");
    const Stream* stream = channel ? channel->findDataStream("values") : nullptr;
    if (!stream) return "<no stream>";
    Handle h = stream->element(Index(3));
    h.setPositionByMemberName("label");
    return h.str(0);
  }

  std::string file(const std::string& content, const std::string& name = "scene.tb") {
    const std::string path = fFolder.path(name);
    writeBytes(path, content);
    return path;
  }

  static std::unique_ptr<Accessor> readOk(const std::string& path) {
    std::string errors;
    std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
    EXPECT_NE(accessor, nullptr) << errors;
    EXPECT_EQ(errors, "");
    return accessor;
  }

  static void writeOk(Accessor& accessor) {
    std::string errors;
    EXPECT_TRUE(accessor.write(errors)) << errors;
    EXPECT_EQ(errors, "");
  }

  // Metadata in the writer's order: "point", the scene, node "pCube1".
  std::string metadata(const std::string& sceneLabel, const std::string& nodeLabel) {
    return structureChunk(rawText(*fPoint)) + applyChunk("SMTD", "", rawText(pointsLabelled(sceneLabel))) +
           applyChunk("MTDA", "pCube1", rawText(pointsLabelled(nodeLabel)));
  }

  Structure* fPoint = nullptr;
  Structure::StructureSet fBefore;
  kivo::Test::TempFolder fFolder;
};

struct Damaged {
  const char* what;
  std::string content;
  std::string errors;
};

TEST_F(TarnBinary, TrailerSearchFindsThePositionsFromTheEnd) {
  const BinaryScene scene{kScene, chunk("HOST", "kept")};
  const std::string bytes = scene.bytes();
  std::istringstream in(bytes);
  uint64_t main = 0, trailer = 0, backward = 0;
  std::string errors = "earlier text";
  ASSERT_TRUE(BinaryReader::seekToTrailerStart(in, main, trailer, backward, errors));
  EXPECT_EQ(main, 8u);
  EXPECT_EQ(trailer, 20 + kScene.size() + 8);
  EXPECT_EQ(backward, bytes.size() - 24);
  EXPECT_EQ(static_cast<uint64_t>(in.tellg()), trailer + 12);
  EXPECT_EQ(errors, "earlier text");
  EXPECT_TRUE(Accessor::accessorByExtension("tb")->isFileSupported(file(bytes)));
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->isFileSupported(""));
}

TEST_F(TarnBinary, TrailerSearchRefusesDamagedFilesWithExactMessages) {
  const std::string good = BinaryScene{kScene, chunk("HOST", "kept")}.bytes();
  const size_t bcsz = good.size() - 24;
  const Damaged cases[] = {
      {"empty", "", "Could not read file identification."},
      {"short", good.substr(0, 19), "Could not read file identification."},
      {"tag", patched(good, 0, "FORM"), "Not a supported file type."},
      {"type", patched(good, 16, "Tarm"), "Not a supported file type."},
      {"cut", good.substr(0, good.size() - 8), "Error seeking to the end of main chunk."},
      {"size past end", patched(good, 8, bigEndian(good.size() - 15, 8)),
       "Error seeking to the end of main chunk."},
      {"size near 2^64", patched(good, 8, bigEndian(~uint64_t(0) - 3, 8)),
       "Error seeking to the end of main chunk."},
      {"size below 8", patched(good, 8, bigEndian(7, 8)), "Error seeking to the end of main chunk."},
      {"size short", patched(good, 8, bigEndian(good.size() - 24, 8)),
       "File does not end with trailer-size chunk."},
      {"tag of last chunk", patched(good, bcsz, "BCSY"), "File does not end with trailer-size chunk."},
      {"size of last chunk", patched(good, bcsz + 8, bigEndian(8, 8)), "Invalid trailer-size chunk."},
      {"offset past start", patched(good, bcsz + 16, bigEndian(0xFFFFFFFFu, 4)),
       "Could not seek to start of trailer."},
      {"offset into identification", patched(good, bcsz + 16, bigEndian(good.size() - 4 - 39, 4)),
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
  std::string errors = "replaced";
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->read(fFolder.path("missing.tb"), errors));
  EXPECT_EQ(errors, "File not valid.");
}

TEST_F(TarnBinary, ReadTakesTheTrailerMetadataAndSkipsHostChunks) {
  const std::string bytes =
      BinaryScene{kScene, chunk("HOST", "a") + metadata("scene", "cube") + chunk("HOST", "tail")}.bytes();
  std::unique_ptr<Accessor> accessor = readOk(file(bytes));
  ASSERT_EQ(accessor->structures().size(), 1u);
  EXPECT_TRUE(**accessor->structures().begin() == *fPoint);
  ASSERT_EQ(accessor->associations().size(), 2u);
  EXPECT_EQ(labelOf(accessor->associations().at("")), "scene");
  EXPECT_EQ(labelOf(accessor->associations().at("pCube1")), "cube");

  // Only what is named; the broken chunk after them is never reached.
  const std::string path =
      file(BinaryScene{kScene, metadata("scene", "cube") + chunk("DATS", "raw")}.bytes(), "two.tb");
  const std::set<std::string> structures{"point"}, associations{"pCube1"};
  accessor = Accessor::accessorByExtension(path);
  std::string errors;
  ASSERT_TRUE(accessor->read(path, &structures, &associations, errors)) << errors;
  EXPECT_EQ(accessor->structures().size(), 1u);
  ASSERT_EQ(accessor->associations().size(), 1u);
  EXPECT_EQ(labelOf(accessor->associations().at("pCube1")), "cube");
  EXPECT_FALSE(accessor->read(path, errors));
  EXPECT_EQ(errors, "Could not read data structure chunk.");
}

TEST_F(TarnBinary, ReadRefusesHostileChunksWithExactMessages) {
  const std::string text = rawText(*fPoint);
  const Damaged cases[] = {
      {"structure past trailer end", structureChunk(text).substr(0, 8) + bigEndian(200, 8),
       "Could not read data structure chunk."},
      {"structure size near 2^64", "DATS" + kZeros4 + bigEndian(~uint64_t(0) - 2, 8),
       "Could not read data structure chunk."},
      {"structure without NUL", chunk("DATS", "raw"), "Could not read data structure chunk."},
      {"structure text without NUL", chunk("DATS", std::string("raw\0", 4) + text),
       "Could not read data structure chunk."},
      {"apply text without NUL", chunk("MTDA", std::string("n\0raw\0", 6) + "endAssociations"),
       "Could not read apply metadata chunk."},
      {"scene past trailer end", "SMTD" + kZeros4 + bigEndian(1 << 30, 8),
       "Could not read apply metadata chunk."},
      {"host chunk past trailer end", "HOST" + kZeros4 + bigEndian(~uint64_t(0), 8),
       "Could not skip chunk in trailer."},
      {"stray bytes", chunk("HOST", "x") + "12345678", "Could not read chunk header in trailer."},
      {"unknown format", structureChunk("name=s:int8=a", "json"),
       "Could not find serializer for format json"},
      {"bad structure", structureChunk("name=S"), "Structures must have a name and at least one member"},
      {"not UTF-8", structureChunk("name=\xff:int8=a"),
       "Could not convert the text of a data structure chunk from UTF-8."},
      {"associations not UTF-8", applyChunk("MTDA", "n", "caf\xc3"),
       "Could not convert the text of the associations of node \"n\" from UTF-8."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string content = BinaryScene{kScene, c.content}.bytes();
    const std::string path = file(content);
    std::string errors;
    EXPECT_EQ(Accessor::readFile(path, errors), nullptr);
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }
}

TEST_F(TarnBinary, WriteWithoutMetadataLeavesTheHostChunksAndTheSizes) {
  const std::string host = chunk("HOST", "a") + chunk("FOR8", "GRUP" + chunk("HOST", "inner"));
  for (const std::string& kept : {std::string(), host}) {
    SCOPED_TRACE(kept.size());
    const std::string path = file(BinaryScene{kScene, kept + metadata("s", "c")}.bytes());
    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->clear();
    writeOk(*accessor);
    EXPECT_EQ(readBytes(path), BinaryScene({kScene, kept}).bytes());
  }
  // Spelled out: an empty trailer is 28 bytes of group, B = 20.
  const std::string empty = readBytes(fFolder.path("scene.tb"));
  EXPECT_EQ(empty.substr(empty.size() - host.size() - 44),
            "FOR8" + kZeros4 + bigEndian(host.size() + 28, 8) + "TRLR" + host + "BCSZ" + kZeros4 +
                bigEndian(4, 8) + bigEndian(host.size() + 20, 4) + kZeros4);
  EXPECT_EQ(empty.substr(8, 8), bigEndian(empty.size() - 16, 8));
}

TEST_F(TarnBinary, WriteOrdersStructuresThenSceneThenNodes) {
  const std::string path = file(BinaryScene{kScene, chunk("HOST", "a")}.bytes());
  std::unique_ptr<Accessor> accessor = readOk(path);
  kivo::Detail::Ref<Structure> early(Structure::create());
  early->setName("abc");
  early->addMember(Member::kInt8, 1, "v");
  accessor->setStructures({fPoint, early.get()});
  accessor->associations() = {{"zeta", Associations()}, {"A", pointsLabelled("a")}, {"", pointsLabelled("s")}};
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path),
            BinaryScene({kScene, chunk("HOST", "a") + structureChunk(rawText(*early)) +
                                     structureChunk(rawText(*fPoint)) +
                                     applyChunk("SMTD", "", rawText(pointsLabelled("s"))) +
                                     applyChunk("MTDA", "A", rawText(pointsLabelled("a"))) +
                                     applyChunk("MTDA", "zeta", rawText(Associations()))})
                .bytes());
}

TEST_F(TarnBinary, ReadModifyWriteKeepsEveryByteBeforeTheTrailer) {
  for (const std::string& host : {std::string(), chunk("HOST", "trailer chunk of the host")}) {
    SCOPED_TRACE(host.size());
    const BinaryScene original{kScene, host + metadata("scene", "cube")};
    const std::string path = file(original.bytes());
    writeOk(*readOk(path));
    EXPECT_EQ(readBytes(path), original.bytes());

    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->associations()["pCube1"] = pointsLabelled(std::string(300, 'x'));
    writeOk(*accessor);
    const std::string longer = readBytes(path);
    EXPECT_EQ(longer, BinaryScene({kScene, host + metadata("scene", std::string(300, 'x'))}).bytes());
    EXPECT_EQ(longer.substr(16, original.head().size() - 16), original.head().substr(16));
    // The same accessor writes again over its own result, and shrinks it.
    accessor->associations()["pCube1"] = pointsLabelled("cube");
    writeOk(*accessor);
    EXPECT_EQ(readBytes(path), original.bytes());
    EXPECT_EQ(labelOf(readOk(path)->associations().at("pCube1")), "cube");
  }
}

TEST_F(TarnBinary, WriteKeepsHostChunksAroundTheMetadataRunInOrder) {
  const std::string before = chunk("HOST", "1");
  const std::string after = chunk("HOST", "2") + chunk("HOST", "3");
  // Chunks after the run follow the new metadata; old metadata after them is dropped.
  std::string path = file(BinaryScene{kScene, before + metadata("s", "c") + after +
                                                  applyChunk("MTDA", "old", rawText(Associations()))}
                              .bytes());
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->associations().erase("old");
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), BinaryScene({kScene, before + metadata("s", "c") + after}).bytes());
  // Metadata before the first structure chunk is taken for the host's and stays.
  const std::string early = applyChunk("MTDA", "early", rawText(Associations()));
  path = file(BinaryScene{kScene, early + metadata("s", "c")}.bytes(), "early.tb");
  accessor = readOk(path);
  accessor->associations().erase("early");
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), BinaryScene({kScene, early + metadata("s", "c")}).bytes());
}

TEST_F(TarnBinary, WriteRefusesFilesItCannotRewriteSafely) {
  const std::string good = BinaryScene{kScene, metadata("s", "c")}.bytes();
  const size_t trailerSize = 20 + kScene.size() + 8;
  // A scene without trailer group whose backward offset points at its second
  // chunk: the write would land in the first.
  const std::string second = chunk("FOR8", "NODE" + chunk("NAME", "pCube1"));
  std::string noTrailer = "FOR8" + kZeros4 + bigEndian(4 + kScene.size() + 24, 8) + "Tarn" + kScene +
                          chunk("BCSZ", bigEndian(second.size() + 20, 4));
  const std::string changed = "The chunk sizes of " + fFolder.path("scene.tb") +
                              " do not describe its trailer as this accessor found it; the file is left unchanged.";
  const Damaged cases[] = {
      {"trailer size", patched(good, trailerSize, bigEndian(999, 8)), changed},
      {"offset into the scene", noTrailer, changed},
      {"bytes after the main group", good + good.substr(good.size() - 24), changed},
      {"trailer-size chunk inside the trailer",
       BinaryScene{kScene, chunk("HOST", "1") + chunk("BCSZ", bigEndian(0, 4)) + chunk("HOST", "2")}.bytes(),
       "Error reading chunk header before metadata."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(c.content);
    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->setStructures({fPoint});
    std::string errors;
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), c.content);
  }

  const std::string path = file(good);
  std::unique_ptr<Accessor> accessor = readOk(path);
  writeBytes(path, good + "x");
  std::string errors;
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "The file " + path +
                        " changed since this accessor last read or wrote it; read it again before writing.");
  EXPECT_EQ(readBytes(path), good + "x");
  writeBytes(path, "not a scene");
  EXPECT_FALSE(accessor->read(path, errors));
  errors.clear();
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "The file " + path + " was not read successfully by this accessor; read it before writing.");
  errors.clear();
  EXPECT_FALSE(Accessor::accessorByExtension("tb")->write(errors));
  EXPECT_EQ(errors, "Could not open  for writing.");
}

TEST_F(TarnBinary, WriteRefusesTextsThatDoNotConvertAndWritesThemInUtf8) {
  const std::string content = BinaryScene{kScene, metadata("s", "c")}.bytes();
  kivo::Detail::Ref<Structure> accented(Structure::create());
  accented->setName("caf\xc3\xa9");
  accented->addMember(Member::kInt8, 1, "v");
  struct Refused {
    const char* what;
    Accessor::StructureSet structures;
    Accessor::AssociationsMap associations;
    std::string errors;
  };
  const std::string label = "\xc3\xa9t\xc3\xa9";
  const Refused cases[] = {
      {"structure", {accented.get()}, {},
       "Could not convert the text of structure \"caf\xc3\xa9\" to UTF-8.\n"
       "Could not write structure chunk to in-memory trailer."},
      {"scene", {fPoint}, {{"", pointsLabelled(label)}},
       "Could not convert the text of the scene associations to UTF-8.\n"
       "Could not write scene associations chunk to in-memory trailer."},
      {"node", {fPoint}, {{"pCube1", pointsLabelled(label)}},
       "Could not convert the text of the associations of node \"pCube1\" to UTF-8.\n"
       "Could not write node associations chunk to in-memory trailer."},
  };
  CodeSet ascii("C");
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(content);
    std::unique_ptr<Accessor> accessor = readOk(path);
    accessor->setStructures(c.structures);
    accessor->associations() = c.associations;
    std::string errors;
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_EQ(readBytes(path), content);
  }
  CodeSet utf8("C.UTF-8");
  if (!utf8.set()) GTEST_SKIP() << "no C.UTF-8 locale";
  const std::string path = file(content);
  std::unique_ptr<Accessor> accessor = readOk(path);
  accessor->associations()["pCube1"] = pointsLabelled(label);
  writeOk(*accessor);
  EXPECT_EQ(readBytes(path), BinaryScene({kScene, metadata("s", label)}).bytes());
  EXPECT_EQ(labelOf(readOk(path)->associations().at("pCube1")), label);
}

}  // namespace
