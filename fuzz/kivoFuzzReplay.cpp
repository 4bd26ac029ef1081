// Runs one fuzz harness over files, without libFuzzer: every argument is a
// file or a folder whose files (not recursively) are each one input, in name
// order. This is how the seed corpora run as ordinary tests under any
// compiler and sanitizer. Exit status 0 when every input ran; a finding
// aborts the process as it would under the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool collect(const std::filesystem::path& path, std::vector<std::filesystem::path>& files) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
      if (entry.is_regular_file()) found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
    return !error;
  }
  if (std::filesystem::is_regular_file(path, error)) {
    files.push_back(path);
    return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
    return 2;
  }
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!collect(argv[i], files)) {
      std::fprintf(stderr, "%s: not a file or folder\n", argv[i]);
      return 2;
    }
  }
  if (files.empty()) {
    std::fprintf(stderr, "no inputs\n");
    return 2;
  }
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
      std::fprintf(stderr, "%s: cannot read\n", file.c_str());
      return 2;
    }
    std::fprintf(stderr, "%s\n", file.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  std::fprintf(stderr, "%zu inputs ran\n", files.size());
  return 0;
}
