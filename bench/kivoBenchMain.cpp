// kivo_bench: every benchmark group in one process. Repetitions of all
// benchmarks are interleaved in random order; each benchmark is reported as
// its median, then a table of ratios between median CPU times closes the
// run.
//
// Extra modes (used by bench/kivoIoTrace.sh):
//   kivo_bench --kivo_make_scenes=DIR   writes the four scenes into DIR
//   kivo_bench --kivo_read_scene=FILE   reads one scene's metadata once
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kivoBenchData.h"
#include "kivoBenchScenes.h"

namespace kivo::Bench {
namespace {

struct Median {
  double seconds = 0;
  std::map<std::string, double> counters;
};

// Console output as usual, and the medians kept for the ratio table.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        ++fErrors;
        continue;
      }
      // Medians of repeated runs; a run that is not repeated is its own.
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
      if (run.run_type == Run::RT_Iteration && run.repetitions > 1) continue;
      Median& median = fMedians[run.run_name.function_name];
      // CPU time: the machines these run on are shared, and every benchmark
      // here is one thread working from memory or the page cache.
      median.seconds = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
      for (const auto& counter : run.counters) median.counters[counter.first] = counter.second;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void printRatios() const {
    struct Ratio {
      const char* what;
      const char* numerator;
      const char* denominator;
      double goal;  // 0: reported only
    };
    const Ratio ratios[] = {
        {"raw write / RapidJSON Writer (6 digits)", "Write/kivo", "Write/rapidjson", 0.6},
        {"raw write / RapidJSON Writer (full)", "Write/kivo/full", "Write/rapidjson/full", 0},
        {"raw write / to_chars appended", "Write/kivo", "Write/to_chars", 0},
        {"raw write / to_chars into a buffer", "Write/kivo", "Write/to_chars_direct", 0},
        {"raw write / copying the text", "Write/kivo", "Write/copy", 0},
        {"raw read / RapidJSON parse + copy (6)", "Read/kivo", "Read/rapidjson", 0.7},
        {"raw read / RapidJSON parse + copy (full)", "Read/kivo/full", "Read/rapidjson/full", 0},
        {"raw read / from_chars floor", "Read/kivo", "Read/from_chars", 1.5},
        {"dense fill, Handle / vector fill", "Storage/fill/dense", "Storage/fill/vector", 2.0},
        {"dense fill, view / vector fill", "Storage/fill/dense/view", "Storage/fill/vector", 2.0},
        {"mapped fill / vector fill", "Storage/fill/mapped", "Storage/fill/vector", 0},
        {"dense iterate, Handle / vector", "Storage/iterate/dense/handle", "Storage/iterate/vector",
         6.0},
        {"dense iterate, view / vector", "Storage/iterate/dense/view", "Storage/iterate/vector",
         1.5},
        {"mapped iterate, Handle / vector", "Storage/iterate/mapped/handle",
         "Storage/iterate/vector", 0},
        {"ta metadata read, 1 GiB / 1 MiB", "Scene/read/ta/1GiB", "Scene/read/ta/1MiB", 1.2},
        {"tb metadata read, 1 GiB / 1 MiB", "Scene/read/tb/1GiB", "Scene/read/tb/1MiB", 1.2},
        {"ta structures, 100k / 20k (linear: 5)", "Structures/ta/100000", "Structures/ta/20000",
         6.0},
        {"ta structures, 200k / 20k (linear: 10)", "Structures/ta/200000", "Structures/ta/20000",
         12.0},
        {"ta metadata write, 1 GiB / 1 MiB", "Scene/write/ta/1GiB", "Scene/write/ta/1MiB", 0},
        {"tb metadata write, 1 GiB / 1 MiB", "Scene/write/tb/1GiB", "Scene/write/tb/1MiB", 0},
    };
    std::FILE* out = stdout;
    std::fprintf(out, "\n%-42s %12s %8s  %s\n", "ratio of median CPU times", "", "goal", "");
    auto print = [&](const std::string& what, const std::string& numerator,
                     const std::string& denominator, double goal) {
      const auto a = fMedians.find(numerator);
      const auto b = fMedians.find(denominator);
      if (a == fMedians.end() || b == fMedians.end() || b->second.seconds <= 0) return;
      const double ratio = a->second.seconds / b->second.seconds;
      if (goal > 0) {
        std::fprintf(out, "%-42s %11.2fx %7.1fx  %s\n", what.c_str(), ratio, goal,
                     ratio <= goal ? "met" : "NOT met");
      } else {
        std::fprintf(out, "%-42s %11.2fx %8s\n", what.c_str(), ratio, "-");
      }
    };
    for (const Ratio& r : ratios) print(r.what, r.numerator, r.denominator, r.goal);
    for (const char* type : {"bool", "double", "dbl4x4", "float", "flt4x4", "int8", "int16",
                             "int32", "int64", "string", "uint8", "uint16", "uint32", "uint64"}) {
      const std::string t = type;
      print("str / to_chars, " + t, "Value/str/kivo/" + t, "Value/str/to_chars/" + t, 2.5);
      print("fromStr / from_chars, " + t, "Value/fromStr/kivo/" + t,
            "Value/fromStr/from_chars/" + t, 2.5);
    }
    // What a stream read from text holds, against the vector read from the
    // same text.
    const auto kivo = fMedians.find("Read/kivo");
    const auto vector = fMedians.find("Read/from_chars");
    if (kivo != fMedians.end() && vector != fMedians.end()) {
      const double a = kivo->second.counters.count("held_bytes")
                           ? kivo->second.counters.at("held_bytes") : 0;
      const double b = vector->second.counters.count("held_bytes")
                           ? vector->second.counters.at("held_bytes") : 0;
      if (b > 0) {
        std::fprintf(out, "%-42s %11.2fx %7.1fx  %s  (%.1f MB / %.1f MB)\n",
                     "memory, stream read / vector read", a / b, 1.3,
                     a / b <= 1.3 ? "met" : "NOT met", a / 1e6, b / 1e6);
      }
    }
    std::fprintf(out, "\n%-42s %12s %12s %12s\n", "scene metadata read", "metadata B",
                 "bytes read", "read calls");
    for (const char* name : {"Scene/read/ta/1MiB", "Scene/read/ta/1GiB", "Scene/read/tb/1MiB",
                             "Scene/read/tb/1GiB"}) {
      const auto found = fMedians.find(name);
      if (found == fMedians.end()) continue;
      const std::map<std::string, double>& c = found->second.counters;
      auto value = [&c](const char* key) {
        const auto it = c.find(key);
        return it == c.end() ? 0.0 : it->second;
      };
      std::fprintf(out, "%-42s %12.0f %12.0f %12.0f\n", name, value("metadata"),
                   value("bytes_read"), value("read_calls"));
    }
  }

  int errors() const { return fErrors; }

 private:
  std::map<std::string, Median> fMedians;
  int fErrors = 0;
};

bool hasFlag(int argc, char** argv, const char* prefix) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0) return true;
  }
  return false;
}

const char* flagValue(int argc, char** argv, const char* prefix) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0)
      return argv[i] + std::strlen(prefix);
  }
  return nullptr;
}

}  // namespace
}  // namespace kivo::Bench

int main(int argc, char** argv) {
  using namespace kivo::Bench;
  if (const char* dir = flagValue(argc, argv, "--kivo_make_scenes=")) {
    return makeScenes(dir) ? 0 : 1;
  }
  if (const char* file = flagValue(argc, argv, "--kivo_read_scene=")) {
    return readSceneOnce(file) ? 0 : 1;
  }

  // Defaults of a full run, each overridden by the same flag on the command
  // line: ten interleaved repetitions, medians only.
  std::vector<char*> args(argv, argv + argc);
  std::vector<std::string> defaults;
  if (!hasFlag(argc, argv, "--benchmark_repetitions"))
    defaults.push_back(smokeRun() ? "--benchmark_repetitions=1" : "--benchmark_repetitions=10");
  if (!hasFlag(argc, argv, "--benchmark_enable_random_interleaving"))
    defaults.push_back("--benchmark_enable_random_interleaving=true");
  if (!hasFlag(argc, argv, "--benchmark_report_aggregates_only"))
    defaults.push_back("--benchmark_report_aggregates_only=true");
  if (smokeRun() && !hasFlag(argc, argv, "--benchmark_min_time"))
    defaults.push_back("--benchmark_min_time=0.001");
  for (std::string& flag : defaults) args.insert(args.begin() + 1, flag.data());
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  removeBenchScenes();
  return reporter.errors() == 0 ? 0 : 1;
}
