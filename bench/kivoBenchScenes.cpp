#include "kivoBenchScenes.h"

#include <benchmark/benchmark.h>

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "kivoBenchData.h"

namespace kivo::Bench {
namespace {

constexpr uint64_t kMiB = uint64_t(1) << 20;
constexpr uint64_t kGiB = uint64_t(1) << 30;
// Elements of the metadata stream: about 64 KiB of raw text.
constexpr size_t kMetadataElements = 900;

struct Scene {
  const char* label;
  const char* extension;
  uint64_t size;
};
constexpr Scene kScenes[] = {
    {"1MiB", "ta", kMiB}, {"1GiB", "ta", kGiB}, {"1MiB", "tb", kMiB}, {"1GiB", "tb", kGiB}};

std::string scenePath(const std::string& dir, const Scene& scene) {
  return dir + "/scene_" + scene.label + "." + scene.extension;
}

void putBigEndian(std::string& out, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// A scene without metadata: its start and its end written, the body between
// them left as a hole. "ta": the header line, then two scene statements (the
// backward search stops once the statement before the metadata is complete,
// which takes the line that ends the statement before it), the trailer. "tb": the main group header, then a
// trailer group holding only the trailer-size chunk.
bool writeSkeleton(const std::string& path, const Scene& scene) {
  std::string head, tail;
  if (std::string(scene.extension) == "ta") {
    head = "//Tarn ASCII 2014 scene\n";
    tail =
        "\ncreateNode transform -n \"pCube1\";\n"
        "select -ne :defaultRenderGlobals;\n"
        "// End of scene.ta\n";
  } else {
    head = "FOR8";
    head.append(4, '\0');
    putBigEndian(head, scene.size - 16, 8);
    head += "Tarn";
    tail = "FOR8";
    tail.append(4, '\0');
    putBigEndian(tail, 28, 8);
    tail += "TRLR";
    tail += "BCSZ";
    tail.append(4, '\0');
    putBigEndian(tail, 4, 8);
    putBigEndian(tail, 20, 4);
    tail.append(4, '\0');
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(head.data(), static_cast<std::streamsize>(head.size()));
  out.seekp(static_cast<std::streamoff>(scene.size - tail.size()));
  out.write(tail.data(), static_cast<std::streamsize>(tail.size()));
  return static_cast<bool>(out);
}

// About 64 KiB of metadata: the first records as one stream of the scene's
// associations.
Data::Associations metadata() {
  const std::vector<Record>& rows = records();
  Data::Stream stream(vertexStructure(), "points");
  Data::Handle handle(vertexStructure());
  for (size_t i = 0; i < rows.size() && i < kMetadataElements; ++i) {
    fillHandle(handle, rows[i]);
    stream.setElement(Data::Index(static_cast<unsigned int>(i)), handle);
  }
  Data::Channel channel("vertices");
  channel.setDataStream(stream);
  Data::Associations associations;
  associations.setChannel(channel);
  return associations;
}

std::unique_ptr<Data::Accessor> withMetadata(const std::string& path, std::string& errors) {
  std::unique_ptr<Data::Accessor> accessor = Data::Accessor::readFile(path, errors);
  if (!accessor) return nullptr;
  Data::Accessor::StructureSet structures;
  structures.insert(&vertexStructure());
  accessor->setStructures(structures);
  accessor->associations()[""] = metadata();
  return accessor;
}

// The folder the benchmarks made their scenes in, removed at exit.
std::string& benchDir() {
  static std::string dir;
  return dir;
}

const std::string& sceneDir() {
  static const std::string dir = [] {
    const char* base = std::getenv("KIVO_BENCH_DIR");
    if (!base || !*base) base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kivo-bench-XXXXXX";
    if (!mkdtemp(pattern.data())) return std::string();
    benchDir() = pattern;
    return makeScenes(pattern) ? pattern : std::string();
  }();
  return dir;
}

// Bytes and calls of read(2) and write(2) so far, from /proc/self/io.
struct IoCount {
  uint64_t bytes = 0;
  uint64_t calls = 0;
  uint64_t writtenBytes = 0;
  uint64_t writeCalls = 0;
};

IoCount ioCount() {
  IoCount count;
  std::ifstream in("/proc/self/io");
  std::string key;
  uint64_t value = 0;
  while (in >> key >> value) {
    if (key == "rchar:") count.bytes = value;
    if (key == "syscr:") count.calls = value;
    if (key == "wchar:") count.writtenBytes = value;
    if (key == "syscw:") count.writeCalls = value;
  }
  return count;
}

uint64_t fileSize(const std::string& path) {
  std::error_code error;
  const uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 0 : size;
}

void Scene_read(benchmark::State& state, const Scene& scene) {
  if (sceneDir().empty()) {
    state.SkipWithError("could not make the scenes");
    return;
  }
  const std::string path = scenePath(sceneDir(), scene);
  IoCount spent;
  for (auto _ : state) {
    std::string errors;
    const IoCount before = ioCount();
    std::unique_ptr<Data::Accessor> accessor = Data::Accessor::readFile(path, errors);
    const IoCount after = ioCount();
    spent.bytes += after.bytes - before.bytes;
    spent.calls += after.calls - before.calls;
    if (!accessor || accessor->associations().empty()) {
      state.SkipWithError(("the scene did not read back: " + errors).c_str());
      break;
    }
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["bytes_read"] = static_cast<double>(spent.bytes) / n;
  state.counters["read_calls"] = static_cast<double>(spent.calls) / n;
  state.counters["metadata"] = static_cast<double>(fileSize(path) - scene.size);
}

// Rewrites the scene's metadata; with sync, the journal, its folder and the
// file are flushed to disk at each step (the default), else not. The
// counters give what one write reads and writes, journal included.
void Scene_write(benchmark::State& state, const Scene& scene, bool sync) {
  if (sceneDir().empty()) {
    state.SkipWithError("could not make the scenes");
    return;
  }
  const std::string path = scenePath(sceneDir(), scene);
  std::string errors;
  std::unique_ptr<Data::Accessor> accessor = withMetadata(path, errors);
  if (!accessor) {
    state.SkipWithError(("the scene did not read: " + errors).c_str());
    return;
  }
  accessor->setSyncWrites(sync);
  IoCount spent;
  for (auto _ : state) {
    const IoCount before = ioCount();
    if (!accessor->write(errors)) {
      state.SkipWithError(("the scene was not written: " + errors).c_str());
      break;
    }
    const IoCount after = ioCount();
    spent.bytes += after.bytes - before.bytes;
    spent.writtenBytes += after.writtenBytes - before.writtenBytes;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["bytes_read"] = static_cast<double>(spent.bytes) / n;
  state.counters["bytes_written"] = static_cast<double>(spent.writtenBytes) / n;
  state.counters["metadata"] = static_cast<double>(fileSize(path) - scene.size);
}

const bool registered = [] {
  for (const Scene& scene : kScenes) {
    const std::string suffix = std::string(scene.extension) + "/" + scene.label;
    benchmark::RegisterBenchmark(("Scene/read/" + suffix).c_str(), Scene_read, scene)
        ->Unit(benchmark::kMicrosecond);
  }
  for (const Scene& scene : kScenes) {
    const std::string suffix = std::string(scene.extension) + "/" + scene.label;
    benchmark::RegisterBenchmark(("Scene/write/" + suffix).c_str(), Scene_write, scene, true)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("Scene/write_nosync/" + suffix).c_str(), Scene_write, scene,
                                 false)
        ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace

bool makeScenes(const std::string& dir) {
  for (const Scene& scene : kScenes) {
    const std::string path = scenePath(dir, scene);
    std::string errors;
    std::unique_ptr<Data::Accessor> accessor;
    if (writeSkeleton(path, scene)) accessor = withMetadata(path, errors);
    if (!accessor || !accessor->write(errors)) {
      std::cerr << "could not make " << path << ": " << errors << "\n";
      return false;
    }
  }
  return true;
}

bool readSceneOnce(const std::string& path) {
  std::string errors;
  std::unique_ptr<Data::Accessor> accessor = Data::Accessor::readFile(path, errors);
  if (accessor && errors.empty()) return true;
  std::cerr << "could not read " << path << ": " << errors << "\n";
  return false;
}

void removeBenchScenes() {
  if (benchDir().empty()) return;
  std::error_code error;
  std::filesystem::remove_all(benchDir(), error);
}

}  // namespace kivo::Bench
