// Scene files for the accessor tests: a private folder per test, whole-file
// reads and writes, a generated ASCII scene body, a fixture that registers the
// structure "point" for scene tests, and a scoped LC_CTYPE setting.
#pragma once

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

namespace kivo::Test {

// A fresh folder under $KIVO_TEST_TMP (set by ctest) or /tmp, removed with
// everything in it when the object goes.
class TempFolder {
 public:
  TempFolder() {
    const char* root = std::getenv("KIVO_TEST_TMP");
    std::filesystem::path base = root && *root ? root : "/tmp";
    std::filesystem::create_directories(base);
    std::string pattern = (base / "kivo-access-XXXXXX").string();
    if (!::mkdtemp(&pattern[0])) ADD_FAILURE() << "mkdtemp failed under " << base;
    fPath = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string path(const std::string& name) const { return (fPath / name).string(); }

 private:
  std::filesystem::path fPath;
};

inline std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

constexpr char kAsciiHeader[] = "//Tarn ASCII 2014 scene\n";
constexpr char kAsciiTrailer[] = "// End of scene.ta\n";

// A scene body of at least minSize bytes: the header, comment lines and node
// statements, every one ending in ';' like the host writes them.
inline std::string asciiBody(size_t minSize) {
  std::ostringstream body;
  body << kAsciiHeader << "//Name: scene.ta\n"
       << "requires tarn \"2014\";\n";
  for (int node = 0; static_cast<size_t>(body.tellp()) < minSize; ++node) {
    body << "createNode transform -n \"node" << node << "\";\n"
         << "\tsetAttr \".t\" -type \"double3\" " << node << " 0 1 ;\n"
         << "\tsetAttr -s 2 \".pt[0:1]\"\n\t\t0 0 0\n\t\t1 1 1;\n";
  }
  body << "select -ne :time1;\n"
       << "connectAttr \"node0.t\" \"node1.t\";\n";
  return body.str();
}

// Scene files in a private folder; the structure "point" {int32 id, string
// label} is registered in the process for each test, and the registry must be
// as it was when the test ends.
class SceneFileTest : public ::testing::Test {
 protected:
  explicit SceneFileTest(std::string defaultName) : fDefaultName(std::move(defaultName)) {}

  void SetUp() override {
    fPoint = Data::Structure::create();
    fPoint->setName("point");
    fPoint->addMember(Data::Member::kInt32, 1, "id");
    fPoint->addMember(Data::Member::kString, 1, "label");
    Data::Structure::registerStructure(*fPoint);
    fBefore = Data::Structure::allStructures();
  }
  void TearDown() override {
    EXPECT_EQ(Data::Structure::allStructures(), fBefore);
    Data::Structure::deregisterStructure(*fPoint);
  }

  // Associations with channel "vertex", stream "values", element 3 = {7, label}.
  Data::Associations labelled(const std::string& label) const {
    Data::Stream stream(*fPoint, "values");
    Data::Handle h(*fPoint);
    std::string errors;
    *h.asInt32() = 7;
    h.setPositionByMemberName("label");
    h.fromStr(label, 0, errors);
    stream.setElement(Data::Index(3), h);
    Data::Associations associations;
    associations.channel("vertex").setDataStream(stream);
    return associations;
  }

  // The label of element 3 as labelled() placed it.
  static std::string labelOf(const Data::Associations& associations) {
    const Data::Channel* channel = associations.findChannel("vertex");
    const Data::Stream* stream = channel ? channel->findDataStream("values") : nullptr;
    if (!stream) return "<no stream>";
    Data::Handle h = stream->element(Data::Index(3));
    h.setPositionByMemberName("label");
    return h.str(0);
  }

  // Writes content into the folder under name (the default scene name when empty).
  std::string file(const std::string& content, const std::string& name = "") {
    const std::string path = fFolder.path(name.empty() ? fDefaultName : name);
    writeBytes(path, content);
    return path;
  }

  static std::unique_ptr<Data::Accessor> readOk(const std::string& path) {
    std::string errors;
    std::unique_ptr<Data::Accessor> accessor = Data::Accessor::readFile(path, errors);
    EXPECT_NE(accessor, nullptr) << errors;
    EXPECT_EQ(errors, "");
    return accessor;
  }

  static void writeOk(Data::Accessor& accessor) {
    std::string errors;
    EXPECT_TRUE(accessor.write(errors)) << errors;
    EXPECT_EQ(errors, "");
  }

  // Reads content from the default file, lets prepare set what to write, and
  // expects the write to refuse with the message and leave the file alone.
  template <class Prepare>
  void expectWriteRefused(const std::string& content, Prepare prepare,
                          const std::string& expected) {
    const std::string path = file(content);
    std::unique_ptr<Data::Accessor> accessor = readOk(path);
    if (!accessor) return;
    prepare(*accessor);
    std::string errors;
    EXPECT_FALSE(accessor->write(errors));
    EXPECT_EQ(errors, expected);
    EXPECT_EQ(readBytes(path), content);
  }

  // Writes the point structure and the given associations.
  void writeOk(Data::Accessor& accessor, const Data::Accessor::AssociationsMap& associations) {
    accessor.setStructures({fPoint});
    accessor.associations() = associations;
    writeOk(accessor);
  }

  Data::Structure* fPoint = nullptr;
  Data::Structure::StructureSet fBefore;
  TempFolder fFolder;
  std::string fDefaultName;
};

// Sets LC_CTYPE for its lifetime; set() tells whether the locale exists.
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

}  // namespace kivo::Test
