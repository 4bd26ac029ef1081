// Group 4: storing a million elements one by one and reading every member of
// every element back, in a dense stream, in a mapped stream and in a plain
// std::vector of a C struct that owns its name the way an element does.
#include <benchmark/benchmark.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamIterator.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kivoBenchData.h"

namespace kivo::Bench {
namespace {

uint64_t floatBits(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// Fills a stream element by element through one handle, then walks the
// stream reading every member; returns a checksum.
uint64_t fillAndWalk(Data::Stream& stream) {
  const std::vector<Record>& rows = records();
  Data::Handle handle(vertexStructure());
  std::string errors;
  for (size_t i = 0; i < rows.size(); ++i) {
    handle.setPositionByMemberIndex(0);
    *handle.asInt32() = rows[i].id;
    handle.setPositionByMemberIndex(1);
    float* origin = handle.asFloat();
    for (int k = 0; k < 3; ++k) origin[k] = rows[i].origin[k];
    handle.setPositionByMemberIndex(2);
    handle.fromStr(rows[i].name, 0, errors);
    stream.setElement(Data::Index(static_cast<unsigned int>(i)), handle);
  }
  uint64_t sum = 0;
  for (Data::StreamIterator element = stream.begin(); element.valid(); ++element) {
    Data::Handle& e = *element;
    e.setPositionByMemberIndex(0);
    sum += static_cast<uint32_t>(*e.asInt32());
    e.setPositionByMemberIndex(1);
    const float* origin = e.asFloat();
    sum += floatBits(origin[0]) + floatBits(origin[1]) + floatBits(origin[2]);
    e.setPositionByMemberIndex(2);
    sum += std::strlen(*e.asString());
  }
  return sum;
}

void storeAndWalk(benchmark::State& state, bool dense) {
  std::unique_ptr<Data::Stream> stream;
  for (auto _ : state) {
    state.PauseTiming();
    stream.reset();
    state.ResumeTiming();
    stream = std::make_unique<Data::Stream>(vertexStructure(), "stored");
    if (dense) stream->useDenseStorage(true);
    consume(fillAndWalk(*stream));
  }
  // After the loop the clock has stopped: cleaning up costs nothing.
  if (stream->elementCount() != elementCount()) state.SkipWithError("elements were lost");
  stream.reset();
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

void Storage_dense(benchmark::State& state) { storeAndWalk(state, true); }
void Storage_mapped(benchmark::State& state) { storeAndWalk(state, false); }

void Storage_vector(benchmark::State& state) {
  const std::vector<Record>& rows = records();
  std::vector<CRecord> stored;
  for (auto _ : state) {
    state.PauseTiming();
    freeNames(stored);
    stored.shrink_to_fit();
    state.ResumeTiming();
    for (size_t i = 0; i < rows.size(); ++i) {
      CRecord row;
      row.id = rows[i].id;
      for (int k = 0; k < 3; ++k) row.origin[k] = rows[i].origin[k];
      row.name = static_cast<char*>(std::malloc(rows[i].name.size() + 1));
      std::memcpy(row.name, rows[i].name.c_str(), rows[i].name.size() + 1);
      stored.push_back(row);
    }
    uint64_t sum = 0;
    for (const CRecord& row : stored) {
      sum += static_cast<uint32_t>(row.id);
      sum += floatBits(row.origin[0]) + floatBits(row.origin[1]) + floatBits(row.origin[2]);
      sum += std::strlen(row.name);
    }
    consume(sum);
  }
  freeNames(stored);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

BENCHMARK(Storage_dense)->Name("Storage/dense")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Storage_mapped)->Name("Storage/mapped")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Storage_vector)->Name("Storage/vector")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kivo::Bench
