// The data every benchmark works on: records {int32 id; float[3] position;
// double weight; string name; bool flag}, the same records as a kivo Stream,
// as raw stream text and as JSON rows, all built once per process and
// shared.
#pragma once

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kivo::Bench {

struct Record {
  int32_t id;
  float position[3];
  double weight;
  std::string name;
  bool flag;
};

// The plain C struct the other side of every comparison fills: it owns its
// name as a heap C string, as a kivo element does.
struct CRecord {
  int32_t id;
  float position[3];
  double weight;
  char* name;
  bool flag;
};

// Elements per bulk benchmark: 1,000,000, or KIVO_BENCH_ELEMENTS.
size_t elementCount();
// True when KIVO_BENCH_SMOKE is set: tiny data, small scenes, no timings
// worth reading.
bool smokeRun();

// Deterministic records: names of 5 to 20 letters, 5 % holding '"' and 5 %
// '\'; positions mostly within +-1000, some tiny, some near 1e20; weights
// within 0 to 1e4; flags half set.
const std::vector<Record>& records();

// The registered structure "Vertex" {int32 id; float[3] position; double
// weight; string name; bool flag}.
Data::Structure& vertexStructure();

// Stores row in the element handle is on (an element of vertexStructure()),
// through member positions and typed pointers, the name through fromStr().
void fillHandle(Data::Handle& handle, const Record& row);

// The records as a dense stream named "points", indices 0..n-1.
const Data::Stream& vertexStream();

// The raw text of vertexStream(), numbers with 6 significant digits (the
// default) or with 17.
const std::string& rawText(bool fullPrecision = false);

// The records as JSON rows [{"index":0,"id":..,"position":[x,y,z],
// "weight":..,"name":"..","flag":true},...]: numbers with the 6 significant
// digits of the raw text, or as RapidJSON writes them (the shortest text that
// reads back exactly).
const std::string& jsonText(bool fullPrecision = false);

// Appends value with 6 significant digits, as the raw text has it.
void appendGeneral6(std::string& out, double value);

// Frees the names of a vector of C records and empties it.
void freeNames(std::vector<CRecord>& rows);

// Bytes held through malloc by the process now (glibc's count).
uint64_t heldBytes();

// Keeps the optimiser from dropping a computed value.
void consume(uint64_t value);

}  // namespace kivo::Bench
