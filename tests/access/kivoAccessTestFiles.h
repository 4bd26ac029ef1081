// Scene files for the accessor tests: a private folder per test, whole-file
// reads and writes, and a generated ASCII scene body.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

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

}  // namespace kivo::Test
