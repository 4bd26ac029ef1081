// MalformedBinaryScene.*  hostile "tb" files the scene-file tests leave
//                         open: main and trailer-size chunks with sizes and
//                         offsets at and past every bound, metadata chunks of
//                         size 0, 2^63 or wrapping, strings without their
//                         NUL; each one a message, a false result, the file
//                         and the process registry as they were
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoBinaryTestFiles.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::Member;
using kivo::Data::Structure;
using kivo::Test::bigEndian;
using kivo::Test::binaryScene;
using kivo::Test::chunk;
using kivo::Test::chunkHeader;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;

std::string patched(std::string bytes, size_t at, const std::string& with) {
  return bytes.replace(at, with.size(), with);
}

const std::string kStructure = chunk("DATS", std::string("raw\0name=S:int32=a\0", 20));

struct Damaged {
  const char* what;
  std::string content;
  const char* errors;
};

class MalformedBinaryScene : public ::testing::Test {
 protected:
  void SetUp() override { fBefore = Structure::allStructures(); }
  void TearDown() override { EXPECT_EQ(Structure::allStructures(), fBefore); }

  std::string file(const std::string& content) {
    const std::string path = fFolder.path("scene.tb");
    writeBytes(path, content);
    return path;
  }

  Structure::StructureSet fBefore;
  kivo::Test::TempFolder fFolder;
};

TEST_F(MalformedBinaryScene, SizesAndOffsetsPastTheirBoundsAreRefused) {
  const std::string good = binaryScene(kStructure);
  const size_t bcsz = good.size() - 24;
  const uint64_t offsetEnd = good.size() - 4;
  const Damaged cases[] = {
      {"main size 0", patched(good, 8, bigEndian(0, 8)), "Error seeking to the end of main chunk."},
      {"main size 7", patched(good, 8, bigEndian(7, 8)), "Error seeking to the end of main chunk."},
      {"main size 2^63", patched(good, 8, bigEndian(uint64_t(1) << 63, 8)),
       "Error seeking to the end of main chunk."},
      {"main size 2^64 - 1", patched(good, 8, bigEndian(~uint64_t(0), 8)),
       "Error seeking to the end of main chunk."},
      {"main size one below", patched(good, 8, bigEndian(good.size() - 17, 8)),
       "File does not end with trailer-size chunk."},
      {"shorter than a trailer-size chunk", good.substr(0, 20),
       "Error seeking to the end of main chunk."},
      {"trailer-size chunk of size 0", patched(good, bcsz + 8, bigEndian(0, 8)),
       "Invalid trailer-size chunk."},
      {"trailer-size chunk of size 2^64 - 1", patched(good, bcsz + 8, bigEndian(~uint64_t(0), 8)),
       "Invalid trailer-size chunk."},
      {"backward offset 0", patched(good, bcsz + 16, bigEndian(0, 4)),
       "Could not seek to start of trailer."},
      {"backward offset to the main group's form type",
       patched(good, bcsz + 16, bigEndian(offsetEnd - 16, 4)),
       "Could not seek to start of trailer."},
      // The node group and the trailer group read as trailer chunks; the
      // trailer group runs past the trailer-size chunk.
      {"backward offset into the scene body",
       patched(good, bcsz + 16, bigEndian(offsetEnd - 44, 4)), "Could not skip chunk in trailer."},
  };
  for (const Damaged& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = file(c.content);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors;
    EXPECT_FALSE(accessor->read(path, errors));
    EXPECT_EQ(errors, c.errors);
    EXPECT_TRUE(accessor->structures().empty());
    EXPECT_EQ(readBytes(path), c.content);
  }
}

TEST_F(MalformedBinaryScene, MetadataChunksOfImpossibleSizesOrWithoutNulsAreRefused) {
  const Damaged cases[] = {
      {"structure of size 0", chunk("DATS", ""), "Could not read data structure chunk."},
      {"node associations of size 0", chunk("MTDA", ""), "Could not read apply metadata chunk."},
      {"structure of size 2^63", chunkHeader("DATS", uint64_t(1) << 63),
       "Could not read data structure chunk."},
      {"structure of size 2^62", chunkHeader("DATS", uint64_t(1) << 62) + kStructure,
       "Could not read data structure chunk."},
      {"scene associations whose padding wraps", chunkHeader("SMTD", ~uint64_t(0) - 6),
       "Could not read apply metadata chunk."},
      {"host chunk of size 2^63", chunkHeader("HOST", uint64_t(1) << 63),
       "Could not skip chunk in trailer."},
      {"host chunk one byte past the end", chunkHeader("HOST", 25) + std::string(24, 'x'),
       "Could not skip chunk in trailer."},
      {"host chunk without its padding", chunkHeader("HOST", 5) + "abcde",
       "Could not skip chunk in trailer."},
      {"node name without NUL", chunk("MTDA", "pCube1"), "Could not read apply metadata chunk."},
      {"format without NUL", chunk("MTDA", std::string("pCube1\0raw", 10)),
       "Could not read apply metadata chunk."},
      {"structure cut at a NUL", chunk("DATS", std::string("raw\0name=S\0:int32=a\0", 21)),
       "Structures must have a name and at least one member"},
      {"a good structure, then a broken chunk", kStructure + chunk("DATS", "raw"),
       "Could not read data structure chunk."},
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

TEST_F(MalformedBinaryScene, WriteRefusesAnOffsetThatHidesTheMetadata) {
  // An offset of 20 says the trailer holds nothing: the read finds no
  // metadata, and the trailer group's size field is not where the offset
  // puts it, so the write leaves the file alone.
  const std::string good = binaryScene(kStructure + chunk("HOST", "kept"));
  const std::string content = patched(good, good.size() - 8, bigEndian(20, 4));
  const std::string path = file(content);
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
  ASSERT_NE(accessor, nullptr) << errors;
  EXPECT_TRUE(accessor->structures().empty());
  kivo::Detail::Ref<Structure> structure(Structure::create());
  structure->setName("T");
  structure->addMember(Member::kInt8, 1, "b");
  accessor->setStructures({structure.get()});
  EXPECT_FALSE(accessor->write(errors));
  EXPECT_EQ(errors, "The chunk sizes of " + path +
                        " do not describe its trailer as this accessor found it; the file is "
                        "left unchanged.");
  EXPECT_EQ(readBytes(path), content);

  // A host chunk of size 0 and an empty trailer are fine.
  for (const std::string& trailer : {std::string(), chunkHeader("HOST", 0) + kStructure}) {
    SCOPED_TRACE(trailer.size());
    const std::string accepted = binaryScene(trailer);
    accessor = Accessor::readFile(file(accepted), errors);
    ASSERT_NE(accessor, nullptr) << errors;
    EXPECT_EQ(accessor->structures().size(), trailer.empty() ? 0u : 1u);
  }
}

}  // namespace
