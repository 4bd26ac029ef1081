// Group 6: structure count. "ta" scenes declaring 20,000, 100,000 and
// 200,000 structures of two members (about 77 bytes of statement each),
// read whole: every declaration is parsed and registered, then handed to
// the accessor, as `kivo-meta list` does. Linear reading keeps the time per
// structure flat across the three.
#include <benchmark/benchmark.h>

#include <kivo/access/kivoDataAccessor.h>

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "kivoBenchData.h"

namespace kivo::Bench {
namespace {

constexpr size_t kCounts[] = {20000, 100000, 200000};

// The scenes, made in a folder of their own on first use and removed at exit.
class StructureScenes {
 public:
  ~StructureScenes() {
    std::error_code ignored;
    if (!fDir.empty()) std::filesystem::remove_all(fDir, ignored);
  }

  // The scene of count structures; empty when it could not be made.
  std::string path(size_t count) {
    if (fDir.empty()) {
      const char* base = std::getenv("KIVO_BENCH_DIR");
      if (!base || !*base) base = std::getenv("TMPDIR");
      std::string pattern = std::string(base && *base ? base : "/tmp") + "/kivo-structures-XXXXXX";
      if (!mkdtemp(pattern.data())) return std::string();
      fDir = pattern;
    }
    const std::string file = fDir + "/structures_" + std::to_string(count) + ".ta";
    if (!std::filesystem::exists(file) && !write(file, count)) return std::string();
    return file;
  }

 private:
  static bool write(const std::string& file, size_t count) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << "//Tarn ASCII 2014 scene\n"
        << "createNode transform -n \"pCube1\";\n"
        << "select -ne :time1;\n";
    for (size_t i = 0; i < count; ++i) {
      out << "dataStructure -fmt \"raw\" -as \"name=structure" << i
          << ":int32=id:float[3]=origin\";\n";
    }
    out << "// End of scene.ta\n";
    return static_cast<bool>(out);
  }

  std::string fDir;
};

StructureScenes& scenes() {
  static StructureScenes made;
  return made;
}

void Structures_read(benchmark::State& state, size_t count) {
  if (smokeRun()) count /= 100;
  const std::string path = scenes().path(count);
  if (path.empty()) {
    state.SkipWithError("could not make the scene");
    return;
  }
  for (auto _ : state) {
    std::string errors;
    std::unique_ptr<Data::Accessor> accessor = Data::Accessor::readFile(path, errors);
    if (!accessor || accessor->structures().size() != count) {
      state.SkipWithError(("the structures did not read back: " + errors).c_str());
      break;
    }
  }
  state.counters["structures"] = static_cast<double>(count);
  state.counters["per_structure"] = benchmark::Counter(
      static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate |
                                      benchmark::Counter::kInvert);
}

const bool registered = [] {
  for (const size_t count : kCounts) {
    benchmark::RegisterBenchmark(("Structures/ta/" + std::to_string(count)).c_str(),
                                 Structures_read, count)
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
}  // namespace kivo::Bench
