// The data every benchmark works on: per-vertex records {int32 id;
// float[3] origin; string name}, the same records as a kivo Stream, as raw
// stream text and as JSON rows, all built once per process and shared.
#pragma once

#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kivo::Bench {

struct Record {
  int32_t id;
  float origin[3];
  std::string name;
};

// The plain C struct the storage benchmarks compare with: it owns its name as
// a heap C string, as a kivo element does.
struct CRecord {
  int32_t id;
  float origin[3];
  char* name;
};

// Elements per bulk benchmark: 1,000,000, or KIVO_BENCH_ELEMENTS.
size_t elementCount();
// True when KIVO_BENCH_SMOKE is set: tiny data, small scenes, no timings
// worth reading.
bool smokeRun();

// Deterministic records: names of about 9 characters, some holding '"' and
// '\'; floats mostly within +-1000, some tiny, some near 1e20.
const std::vector<Record>& records();

// The registered structure "Vertex" {int32 id; float[3] origin; string name}.
Data::Structure& vertexStructure();

// The records as a dense stream named "points", indices 0..n-1.
const Data::Stream& vertexStream();

// The raw text of vertexStream() (classic stream settings).
const std::string& rawText();

// The records as JSON rows: [{"index":0,"id":..,"origin":[x,y,z],"name":".."},...]
const std::string& jsonText();

// Frees the names of a vector of C records.
void freeNames(std::vector<CRecord>& rows);

// Keeps the optimiser from dropping a computed value.
void consume(uint64_t value);

}  // namespace kivo::Bench
