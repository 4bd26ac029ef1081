// Group 4: a million elements stored, and every member of every element read
// back, timed apart: a dense stream (through Handles and setElement, and
// through a DenseStreamView), a mapped stream, and a plain std::vector of a
// C struct that owns its name the way an element does.
#include <benchmark/benchmark.h>

#include <kivo/data/kivoDataDenseStreamView.h>
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

using Data::Member;

uint64_t floatBits(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

uint64_t doubleBits(double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// A new empty stream in place of the last one, which is destroyed outside
// the timing.
void freshStream(benchmark::State& state, std::unique_ptr<Data::Stream>& stream, bool dense) {
  state.PauseTiming();
  stream.reset();
  state.ResumeTiming();
  stream = std::make_unique<Data::Stream>(vertexStructure(), "stored");
  if (dense) stream->useDenseStorage(true);
}

// Every element set through one handle.
void Fill_stream(benchmark::State& state, bool dense) {
  const std::vector<Record>& rows = records();
  std::unique_ptr<Data::Stream> stream;
  for (auto _ : state) {
    freshStream(state, stream, dense);
    Data::Handle handle(vertexStructure());
    for (size_t i = 0; i < rows.size(); ++i) {
      fillHandle(handle, rows[i]);
      stream->setElement(Data::Index(static_cast<unsigned int>(i)), handle);
    }
  }
  if (stream->elementCount() != elementCount()) state.SkipWithError("elements were lost");
  stream.reset();
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

// A dense stream sized once (setElementRange), then every member written
// through a DenseStreamView, names strdup()ed into their slots.
void Fill_view(benchmark::State& state) {
  const std::vector<Record>& rows = records();
  std::unique_ptr<Data::Stream> stream;
  for (auto _ : state) {
    freshStream(state, stream, true);
    stream->setElementRange(Data::Index(0u), Data::Index(static_cast<unsigned int>(rows.size() - 1)));
    const Data::DenseStreamView view(*stream);
    const Data::DenseStreamView::Column id = *view.column("id", Member::kInt32);
    const Data::DenseStreamView::Column position = *view.column("position", Member::kFloat);
    const Data::DenseStreamView::Column weight = *view.column("weight", Member::kDouble);
    const Data::DenseStreamView::Column name = *view.column("name", Member::kString);
    const Data::DenseStreamView::Column flag = *view.column("flag", Member::kBoolean);
    for (uint32_t i = 0; i < view.count(); ++i) {
      const Record& row = rows[i];
      view.set<int32_t>(i, id, row.id);
      for (unsigned int k = 0; k < 3; ++k) view.set<float>(i, position, row.position[k], k);
      view.set<double>(i, weight, row.weight);
      view.set<char*>(i, name, strdup(row.name.c_str()));
      view.set<uint8_t>(i, flag, row.flag);
    }
  }
  if (stream->elementCount() != elementCount()) state.SkipWithError("elements were lost");
  stream.reset();
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

void Fill_vector(benchmark::State& state) {
  const std::vector<Record>& rows = records();
  std::vector<CRecord> stored;
  for (auto _ : state) {
    state.PauseTiming();
    freeNames(stored);
    stored.shrink_to_fit();
    state.ResumeTiming();
    for (const Record& source : rows) {
      CRecord row;
      row.id = source.id;
      for (int k = 0; k < 3; ++k) row.position[k] = source.position[k];
      row.weight = source.weight;
      row.name = static_cast<char*>(std::malloc(source.name.size() + 1));
      std::memcpy(row.name, source.name.c_str(), source.name.size() + 1);
      row.flag = source.flag;
      stored.push_back(row);
    }
  }
  freeNames(stored);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

// Every member of every element of a built stream read through the
// iterator's handle; a mapped copy of vertexStream() for the mapped kind.
void Iterate_handle(benchmark::State& state, bool dense) {
  static const Data::Stream mapped = [] {
    Data::Stream copy = vertexStream();
    copy.makeUnique();
    copy.useDenseStorage(false);
    return copy;
  }();
  const Data::Stream& stream = dense ? vertexStream() : mapped;
  for (auto _ : state) {
    uint64_t sum = 0;
    for (Data::StreamIterator element = stream.begin(); element.valid(); ++element) {
      Data::Handle& e = *element;
      e.setPositionByMemberIndex(0);
      sum += static_cast<uint32_t>(*e.asInt32());
      e.setPositionByMemberIndex(1);
      const float* position = e.asFloat();
      sum += floatBits(position[0]) + floatBits(position[1]) + floatBits(position[2]);
      e.setPositionByMemberIndex(2);
      sum += doubleBits(*e.asDouble());
      e.setPositionByMemberIndex(3);
      sum += std::strlen(*e.asString());
      e.setPositionByMemberIndex(4);
      sum += *e.asBoolean();
    }
    consume(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

void Iterate_view(benchmark::State& state) {
  const Data::DenseStreamView view(vertexStream());
  const Data::DenseStreamView::Column id = *view.column("id", Member::kInt32);
  const Data::DenseStreamView::Column position = *view.column("position", Member::kFloat);
  const Data::DenseStreamView::Column weight = *view.column("weight", Member::kDouble);
  const Data::DenseStreamView::Column name = *view.column("name", Member::kString);
  const Data::DenseStreamView::Column flag = *view.column("flag", Member::kBoolean);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < view.count(); ++i) {
      sum += static_cast<uint32_t>(view.get<int32_t>(i, id));
      sum += floatBits(view.get<float>(i, position, 0)) + floatBits(view.get<float>(i, position, 1)) +
             floatBits(view.get<float>(i, position, 2));
      sum += doubleBits(view.get<double>(i, weight));
      sum += std::strlen(view.get<const char*>(i, name));
      sum += view.get<uint8_t>(i, flag);
    }
    consume(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

void Iterate_vector(benchmark::State& state) {
  static const std::vector<CRecord> stored = [] {
    std::vector<CRecord> made;
    for (const Record& source : records()) {
      CRecord row{source.id, {source.position[0], source.position[1], source.position[2]},
                  source.weight, strdup(source.name.c_str()), source.flag};
      made.push_back(row);
    }
    return made;
  }();
  for (auto _ : state) {
    uint64_t sum = 0;
    for (const CRecord& row : stored) {
      sum += static_cast<uint32_t>(row.id);
      sum += floatBits(row.position[0]) + floatBits(row.position[1]) + floatBits(row.position[2]);
      sum += doubleBits(row.weight);
      sum += std::strlen(row.name);
      sum += row.flag;
    }
    consume(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

const bool registered = [] {
  auto bulk = [](benchmark::internal::Benchmark* b) {
    b->Iterations(1)->Unit(benchmark::kMillisecond);
  };
  bulk(benchmark::RegisterBenchmark("Storage/fill/dense", Fill_stream, true));
  bulk(benchmark::RegisterBenchmark("Storage/fill/dense/view", Fill_view));
  bulk(benchmark::RegisterBenchmark("Storage/fill/mapped", Fill_stream, false));
  bulk(benchmark::RegisterBenchmark("Storage/fill/vector", Fill_vector));
  bulk(benchmark::RegisterBenchmark("Storage/iterate/dense/handle", Iterate_handle, true));
  bulk(benchmark::RegisterBenchmark("Storage/iterate/dense/view", Iterate_view));
  bulk(benchmark::RegisterBenchmark("Storage/iterate/mapped/handle", Iterate_handle, false));
  bulk(benchmark::RegisterBenchmark("Storage/iterate/vector", Iterate_vector));
  return true;
}();

}  // namespace
}  // namespace kivo::Bench
