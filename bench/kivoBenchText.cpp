// Groups 1 to 3: raw stream write and read, and one value's text, each next
// to RapidJSON and to the to_chars / from_chars floor of the same work.
#include <benchmark/benchmark.h>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kivoBenchData.h"

namespace kivo::Bench {
namespace {

using Data::StreamSerializerRaw;

// ---- floor: the raw text written and read with to_chars / from_chars ----

void appendNumber(std::string& out, double value) {
  char buffer[64];
  const std::to_chars_result r =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
  out.append(buffer, r.ptr);
}

template <class T>
void appendInteger(std::string& out, T value) {
  char buffer[24];
  const std::to_chars_result r = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, r.ptr);
}

void appendQuoted(std::string& out, const std::string& text) {
  out += '"';
  for (char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  out += '"';
}

std::string floorWrite(const std::vector<Record>& rows) {
  std::string out = "name points\nindexType numeric\nstructure Vertex\n";
  for (size_t i = 0; i < rows.size(); ++i) {
    appendInteger(out, static_cast<unsigned>(i));
    out += '\n';
    appendInteger(out, rows[i].id);
    for (float value : rows[i].origin) {
      out += ' ';
      appendNumber(out, value);
    }
    out += ' ';
    appendQuoted(out, rows[i].name);
    out += '\n';
  }
  out += "endStream\n";
  return out;
}

const char* skipBlanks(const char* p, const char* end) {
  while (p < end && (*p == ' ' || *p == '\t')) ++p;
  return p;
}

const char* nextLine(const char* p, const char* end) {
  const void* found = std::memchr(p, '\n', end - p);
  return found ? static_cast<const char*>(found) + 1 : end;
}

// Reads the raw text back into C records; false on anything unexpected.
bool floorRead(const std::string& text, std::vector<CRecord>& rows) {
  const char* p = text.data();
  const char* const end = p + text.size();
  for (int header = 0; header < 3; ++header) p = nextLine(p, end);
  while (p < end) {
    if (std::strncmp(p, "endStream", 9) == 0) return true;
    unsigned index = 0;
    std::from_chars_result r = std::from_chars(p, end, index);
    if (r.ec != std::errc()) return false;
    p = nextLine(r.ptr, end);
    CRecord row{};
    r = std::from_chars(p, end, row.id);
    if (r.ec != std::errc()) return false;
    p = r.ptr;
    for (float& value : row.origin) {
      r = std::from_chars(skipBlanks(p, end), end, value);
      if (r.ec != std::errc()) return false;
      p = r.ptr;
    }
    p = skipBlanks(p, end);
    if (p == end || *p != '"') return false;
    const char* start = ++p;
    while (p < end && *p != '"') p += *p == '\\' ? 2 : 1;
    if (p >= end) return false;
    char* name = static_cast<char*>(std::malloc(p - start + 1));
    size_t length = 0;
    for (const char* q = start; q < p; ++q) {
      if (*q == '\\') {
        ++q;
        name[length++] = *q == 'n' ? '\n' : *q;
      } else {
        name[length++] = *q;
      }
    }
    name[length] = '\0';
    row.name = name;
    rows.push_back(row);
    if (index != rows.size() - 1) return false;
    p = nextLine(p, end);
  }
  return false;
}

// ---- RapidJSON: the same rows as JSON ----

bool jsonRead(const std::string& text, std::vector<CRecord>& rows) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  if (document.HasParseError() || !document.IsArray()) return false;
  for (const rapidjson::Value& row : document.GetArray()) {
    CRecord record{};
    record.id = row["id"].GetInt();
    const rapidjson::Value& origin = row["origin"];
    for (unsigned k = 0; k < 3; ++k) record.origin[k] = static_cast<float>(origin[k].GetDouble());
    const rapidjson::Value& name = row["name"];
    record.name = static_cast<char*>(std::malloc(name.GetStringLength() + 1));
    std::memcpy(record.name, name.GetString(), name.GetStringLength() + 1);
    const unsigned index = row["index"].GetUint();
    if (index != rows.size()) return false;
    rows.push_back(record);
  }
  return true;
}

void setBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * elementCount()));
}

// ---- 1. write ----

void Write_kivo(benchmark::State& state) {
  const Data::Stream& stream = vertexStream();
  size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream out;
    std::string errors;
    StreamSerializerRaw::theFormat()->write(stream, out, errors);
    bytes = static_cast<size_t>(out.tellp());
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

void Write_rapidjson(benchmark::State& state) {
  const std::vector<Record>& rows = records();
  size_t bytes = 0;
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartArray();
    for (size_t i = 0; i < rows.size(); ++i) {
      writer.StartObject();
      writer.Key("index");
      writer.Uint(static_cast<unsigned>(i));
      writer.Key("id");
      writer.Int(rows[i].id);
      writer.Key("origin");
      writer.StartArray();
      for (float value : rows[i].origin) writer.Double(value);
      writer.EndArray();
      writer.Key("name");
      writer.String(rows[i].name.data(), static_cast<rapidjson::SizeType>(rows[i].name.size()));
      writer.EndObject();
    }
    writer.EndArray();
    bytes = buffer.GetSize();
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

void Write_floor(benchmark::State& state) {
  if (floorWrite(records()) != rawText()) {
    state.SkipWithError("the to_chars floor does not write the raw text");
    return;
  }
  size_t bytes = 0;
  for (auto _ : state) {
    const std::string out = floorWrite(records());
    bytes = out.size();
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

// ---- 2. read ----

void Read_kivo(benchmark::State& state) {
  const std::string& text = rawText();
  std::string errors;
  bool ok = true;
  for (auto _ : state) {
    state.PauseTiming();
    auto in = std::make_unique<std::istringstream>(text);
    state.ResumeTiming();
    std::unique_ptr<Data::Stream> stream(StreamSerializerRaw::theFormat()->read(*in, errors));
    state.PauseTiming();
    ok = ok && stream && stream->elementCount() == elementCount();
    stream.reset();
    in.reset();
    state.ResumeTiming();
  }
  if (!ok) state.SkipWithError(("the raw text did not read back: " + errors).c_str());
  setBytes(state, text.size());
}

void Read_rapidjson(benchmark::State& state) {
  const std::string& text = jsonText();
  std::vector<CRecord> rows;
  bool ok = true;
  for (auto _ : state) {
    ok = jsonRead(text, rows) && ok;
    state.PauseTiming();
    ok = ok && rows.size() == elementCount();
    freeNames(rows);
    rows.shrink_to_fit();
    state.ResumeTiming();
  }
  if (!ok) state.SkipWithError("the JSON did not read back");
  setBytes(state, text.size());
}

void Read_floor(benchmark::State& state) {
  const std::string& text = rawText();
  std::vector<CRecord> rows;
  bool ok = true;
  for (auto _ : state) {
    ok = floorRead(text, rows) && ok;
    state.PauseTiming();
    ok = ok && rows.size() == elementCount();
    freeNames(rows);
    rows.shrink_to_fit();
    state.ResumeTiming();
  }
  if (!ok) state.SkipWithError("the floor did not read back");
  setBytes(state, text.size());
}

// ---- 3. one value ----

constexpr size_t kValues = 1024;

// Owning handles on the origin member of the first records.
std::vector<Data::Handle>& valueHandles() {
  static std::vector<Data::Handle> handles = [] {
    std::vector<Data::Handle> made;
    made.reserve(kValues);
    const std::vector<Record>& rows = records();
    for (size_t i = 0; i < kValues; ++i) {
      made.emplace_back(vertexStructure());
      made.back().setPositionByMemberIndex(1);
      float* origin = made.back().asFloat();
      for (int k = 0; k < 3; ++k) origin[k] = rows[i % rows.size()].origin[k];
    }
    return made;
  }();
  return handles;
}

const std::vector<std::string>& valueTexts() {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> made;
    for (size_t i = 0; i < kValues; ++i) made.push_back(valueHandles()[i].str(i % 3));
    return made;
  }();
  return texts;
}

void Value_str_kivo(benchmark::State& state) {
  std::vector<Data::Handle>& handles = valueHandles();
  size_t i = 0;
  for (auto _ : state) {
    const std::string text = handles[i % kValues].str(static_cast<unsigned>(i % 3));
    benchmark::DoNotOptimize(text.data());
    ++i;
  }
}

void Value_str_floor(benchmark::State& state) {
  const std::vector<Record>& rows = records();
  size_t i = 0;
  for (auto _ : state) {
    char buffer[32];
    const double value = rows[(i % kValues) % rows.size()].origin[i % 3];
    const std::to_chars_result r =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    benchmark::DoNotOptimize(buffer);
    benchmark::DoNotOptimize(r.ptr);
    ++i;
  }
}

void Value_fromStr_kivo(benchmark::State& state) {
  std::vector<Data::Handle>& handles = valueHandles();
  const std::vector<std::string>& texts = valueTexts();
  std::string errors;
  size_t i = 0;
  for (auto _ : state) {
    const unsigned count = handles[i % kValues].fromStr(texts[i % kValues], i % 3, errors);
    benchmark::DoNotOptimize(count);
    ++i;
  }
  if (!errors.empty()) state.SkipWithError(errors.c_str());
}

void Value_fromStr_floor(benchmark::State& state) {
  const std::vector<std::string>& texts = valueTexts();
  float values[kValues];
  size_t i = 0;
  for (auto _ : state) {
    const std::string& text = texts[i % kValues];
    const std::from_chars_result r =
        std::from_chars(text.data(), text.data() + text.size(), values[i % kValues]);
    benchmark::DoNotOptimize(r.ptr);
    ++i;
  }
  benchmark::DoNotOptimize(values);
}

// Bulk benchmarks run once per repetition: one pass over a million elements
// is long enough to time, and repetitions give the median.
BENCHMARK(Write_kivo)->Name("Write/kivo")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_rapidjson)->Name("Write/rapidjson")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_floor)->Name("Write/to_chars")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Read_kivo)->Name("Read/kivo")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Read_rapidjson)->Name("Read/rapidjson")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Read_floor)->Name("Read/from_chars")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Value_str_kivo)->Name("Value/str/kivo");
BENCHMARK(Value_str_floor)->Name("Value/str/to_chars");
BENCHMARK(Value_fromStr_kivo)->Name("Value/fromStr/kivo");
BENCHMARK(Value_fromStr_floor)->Name("Value/fromStr/from_chars");

}  // namespace
}  // namespace kivo::Bench
