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
        {"raw write / RapidJSON Writer", "Write/kivo", "Write/rapidjson", 1.0},
        {"raw write / to_chars floor", "Write/kivo", "Write/to_chars", 1.5},
        {"raw read / RapidJSON parse + copy", "Read/kivo", "Read/rapidjson", 0.8},
        {"raw read / from_chars floor", "Read/kivo", "Read/from_chars", 2.0},
        {"Handle::str / to_chars", "Value/str/kivo", "Value/str/to_chars", 3.0},
        {"Handle::fromStr / from_chars", "Value/fromStr/kivo", "Value/fromStr/from_chars", 3.0},
        {"dense set + iterate / vector", "Storage/dense", "Storage/vector", 2.0},
        {"mapped set + iterate / vector", "Storage/mapped", "Storage/vector", 0},
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
    std::fprintf(out, "\n%-36s %12s %8s  %s\n", "ratio of median CPU times", "", "goal", "");
    for (const Ratio& r : ratios) {
      const auto a = fMedians.find(r.numerator);
      const auto b = fMedians.find(r.denominator);
      if (a == fMedians.end() || b == fMedians.end() || b->second.seconds <= 0) continue;
      const double ratio = a->second.seconds / b->second.seconds;
      if (r.goal > 0) {
        std::fprintf(out, "%-36s %11.2fx %7.1fx  %s\n", r.what, ratio, r.goal,
                     ratio <= r.goal ? "met" : "NOT met");
      } else {
        std::fprintf(out, "%-36s %11.2fx %8s\n", r.what, ratio, "-");
      }
    }
    std::fprintf(out, "\n%-36s %12s %12s %12s\n", "scene metadata read", "metadata B",
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
      std::fprintf(out, "%-36s %12.0f %12.0f %12.0f\n", name, value("metadata"),
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
