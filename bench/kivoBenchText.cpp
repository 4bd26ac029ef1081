// Groups 1 to 3: raw stream write and read, and one value's text of every
// member type, each next to RapidJSON and to the to_chars / from_chars floor
// of the same work.
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
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kivoBenchData.h"

namespace kivo::Bench {
namespace {

using Data::Member;
using Data::StreamSerializerRaw;

// ---- floor: the raw text written and read with to_chars / from_chars ----

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

constexpr char kHeader[] = "name points\nindexType numeric\nstructure Vertex\n";

// The raw text appended piece by piece to a std::string.
std::string floorWrite(const std::vector<Record>& rows) {
  std::string out = kHeader;
  for (size_t i = 0; i < rows.size(); ++i) {
    appendInteger(out, static_cast<unsigned>(i));
    out += '\n';
    appendInteger(out, rows[i].id);
    for (float value : rows[i].position) {
      out += ' ';
      appendGeneral6(out, value);
    }
    out += ' ';
    appendGeneral6(out, rows[i].weight);
    out += ' ';
    appendQuoted(out, rows[i].name);
    out += rows[i].flag ? " true\n" : " false\n";
  }
  out += "endStream\n";
  return out;
}

// The raw text written straight into one buffer: to_chars into place, names
// copied run by run, the buffer doubled when a record might not fit.
std::string floorWriteDirect(const std::vector<Record>& rows) {
  std::string out;
  out.resize(size_t(1) << 16);
  char* p = out.data();
  auto reserve = [&](size_t bytes) {
    const size_t used = static_cast<size_t>(p - out.data());
    if (out.size() - used >= bytes) return;
    out.resize(2 * (used + bytes));
    p = out.data() + used;
  };
  auto put = [&](const char* text, size_t length) {
    std::memcpy(p, text, length);
    p += length;
  };
  put(kHeader, sizeof kHeader - 1);
  for (size_t i = 0; i < rows.size(); ++i) {
    const Record& row = rows[i];
    reserve(160 + 2 * row.name.size());
    char* const end = p + 160;
    p = std::to_chars(p, end, static_cast<unsigned>(i)).ptr;
    *p++ = '\n';
    p = std::to_chars(p, end, row.id).ptr;
    for (float value : row.position) {
      *p++ = ' ';
      p = std::to_chars(p, end, double(value), std::chars_format::general, 6).ptr;
    }
    *p++ = ' ';
    p = std::to_chars(p, end, row.weight, std::chars_format::general, 6).ptr;
    *p++ = ' ';
    *p++ = '"';
    const char* run = row.name.data();
    const char* const last = run + row.name.size();
    for (const char* q = run; q < last; ++q) {
      if (*q != '"' && *q != '\\' && *q != '\n') continue;
      put(run, static_cast<size_t>(q - run));
      *p++ = '\\';
      *p++ = *q == '\n' ? 'n' : *q;
      run = q + 1;
    }
    put(run, static_cast<size_t>(last - run));
    *p++ = '"';
    if (row.flag) {
      put(" true\n", 6);
    } else {
      put(" false\n", 7);
    }
  }
  reserve(16);
  put("endStream\n", 10);
  out.resize(static_cast<size_t>(p - out.data()));
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

// A quoted name with its escapes resolved, as a new malloc()ed string; null
// when it does not close.
char* readName(const char*& p, const char* end) {
  p = skipBlanks(p, end);
  if (p == end || *p != '"') return nullptr;
  const char* start = ++p;
  while (p < end && *p != '"') p += *p == '\\' ? 2 : 1;
  if (p >= end) return nullptr;
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
  ++p;
  return name;
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
    for (float& value : row.position) {
      r = std::from_chars(skipBlanks(p, end), end, value);
      if (r.ec != std::errc()) return false;
      p = r.ptr;
    }
    r = std::from_chars(skipBlanks(p, end), end, row.weight);
    if (r.ec != std::errc()) return false;
    p = r.ptr;
    row.name = readName(p, end);
    if (!row.name) return false;
    p = skipBlanks(p, end);
    row.flag = p < end && *p == 't';
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
    const rapidjson::Value& position = row["position"];
    for (unsigned k = 0; k < 3; ++k)
      record.position[k] = static_cast<float>(position[k].GetDouble());
    record.weight = row["weight"].GetDouble();
    const rapidjson::Value& name = row["name"];
    record.name = static_cast<char*>(std::malloc(name.GetStringLength() + 1));
    std::memcpy(record.name, name.GetString(), name.GetStringLength() + 1);
    record.flag = row["flag"].GetBool();
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

void Write_kivo(benchmark::State& state, bool full) {
  const Data::Stream& stream = vertexStream();
  size_t bytes = 0;
  for (auto _ : state) {
    std::ostringstream out;
    out.precision(full ? 17 : 6);
    std::string errors;
    StreamSerializerRaw::theFormat()->write(stream, out, errors);
    bytes = static_cast<size_t>(out.tellp());
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

// Six digits: each number formatted as the raw text has it and handed to the
// writer as a raw number. Full: the writer's own shortest exact text.
void Write_rapidjson(benchmark::State& state, bool full) {
  const std::vector<Record>& rows = records();
  size_t bytes = 0;
  std::string number;
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    auto write = [&](double value) {
      if (full) {
        writer.Double(value);
        return;
      }
      number.clear();
      appendGeneral6(number, value);
      writer.RawValue(number.data(), number.size(), rapidjson::kNumberType);
    };
    writer.StartArray();
    for (size_t i = 0; i < rows.size(); ++i) {
      writer.StartObject();
      writer.Key("index");
      writer.Uint(static_cast<unsigned>(i));
      writer.Key("id");
      writer.Int(rows[i].id);
      writer.Key("position");
      writer.StartArray();
      for (float value : rows[i].position) write(value);
      writer.EndArray();
      writer.Key("weight");
      write(rows[i].weight);
      writer.Key("name");
      writer.String(rows[i].name.data(), static_cast<rapidjson::SizeType>(rows[i].name.size()));
      writer.Key("flag");
      writer.Bool(rows[i].flag);
      writer.EndObject();
    }
    writer.EndArray();
    bytes = buffer.GetSize();
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

void Write_floor(benchmark::State& state, std::string (*write)(const std::vector<Record>&)) {
  if (write(records()) != rawText()) {
    state.SkipWithError("the to_chars floor does not write the raw text");
    return;
  }
  size_t bytes = 0;
  for (auto _ : state) {
    const std::string out = write(records());
    bytes = out.size();
    benchmark::DoNotOptimize(bytes);
  }
  setBytes(state, bytes);
}

// The finished text copied into fresh memory: no writer can do less.
void Write_copy(benchmark::State& state) {
  const std::string& text = rawText();
  for (auto _ : state) {
    std::unique_ptr<char[]> copy(new char[text.size()]);
    std::memcpy(copy.get(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.get());
    benchmark::ClobberMemory();
  }
  setBytes(state, text.size());
}

// ---- 2. read ----
//
// Every read is timed up to and including the destruction of what it built
// (the kivo stream, or the vector and its names); the input stream kivo
// reads from is built outside the timing. held_bytes is what the result
// holds through malloc before it is destroyed.

void Read_kivo(benchmark::State& state, bool full) {
  const std::string& text = rawText(full);
  std::string errors;
  bool ok = true;
  uint64_t held = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto in = std::make_unique<std::istringstream>(text);
    const uint64_t before = heldBytes();
    state.ResumeTiming();
    std::unique_ptr<Data::Stream> stream(StreamSerializerRaw::theFormat()->read(*in, errors));
    held = heldBytes() - before;
    ok = ok && stream && stream->elementCount() == elementCount();
    stream.reset();
    state.PauseTiming();
    in.reset();
    state.ResumeTiming();
  }
  if (!ok) state.SkipWithError(("the raw text did not read back: " + errors).c_str());
  state.counters["held_bytes"] = static_cast<double>(held);
  setBytes(state, text.size());
}

void Read_records(benchmark::State& state, const std::string& text,
                  bool (*read)(const std::string&, std::vector<CRecord>&)) {
  bool ok = true;
  uint64_t held = 0;
  for (auto _ : state) {
    const uint64_t before = heldBytes();
    std::vector<CRecord> rows;
    ok = read(text, rows) && ok && rows.size() == elementCount();
    held = heldBytes() - before;
    freeNames(rows);
  }
  if (!ok) state.SkipWithError("the text did not read back");
  state.counters["held_bytes"] = static_cast<double>(held);
  setBytes(state, text.size());
}

void Read_rapidjson(benchmark::State& state, bool full) {
  Read_records(state, jsonText(full), jsonRead);
}

void Read_floor(benchmark::State& state) { Read_records(state, rawText(), floorRead); }

// ---- 3. one value of every member type ----

constexpr size_t kValues = 1024;

struct ValueType {
  Member::eDataType type;
  const char* label;
};
constexpr ValueType kValueTypes[] = {
    {Member::kBoolean, "bool"},   {Member::kDouble, "double"}, {Member::kDoubleMatrix4x4, "dbl4x4"},
    {Member::kFloat, "float"},    {Member::kFloatMatrix4x4, "flt4x4"},
    {Member::kInt8, "int8"},      {Member::kInt16, "int16"},   {Member::kInt32, "int32"},
    {Member::kInt64, "int64"},    {Member::kString, "string"}, {Member::kUInt8, "uint8"},
    {Member::kUInt16, "uint16"},  {Member::kUInt32, "uint32"}, {Member::kUInt64, "uint64"},
};

// A random value text of type, as a user would hand it to fromStr.
std::string randomText(Member::eDataType type, std::mt19937_64& random, size_t i) {
  std::uniform_real_distribution<double> real(-1000.0, 1000.0);
  std::string text;
  switch (type) {
    case Member::kBoolean:
      return random() % 2 ? "true" : "false";
    case Member::kDouble:
    case Member::kFloat:
      appendGeneral6(text, real(random));
      return text;
    case Member::kDoubleMatrix4x4:
    case Member::kFloatMatrix4x4:
      for (int k = 0; k < 16; ++k) {
        if (k > 0) text += ' ';
        appendGeneral6(text, real(random));
      }
      return text;
    case Member::kString:
      return records()[i % records().size()].name;
    case Member::kInt8:
      return std::to_string(static_cast<int8_t>(random()));
    case Member::kInt16:
      return std::to_string(static_cast<int16_t>(random()));
    case Member::kInt32:
      return std::to_string(static_cast<int32_t>(random()));
    case Member::kInt64:
      return std::to_string(static_cast<int64_t>(random()));
    case Member::kUInt8:
      return std::to_string(static_cast<uint8_t>(random()));
    case Member::kUInt16:
      return std::to_string(static_cast<uint16_t>(random()));
    case Member::kUInt32:
      return std::to_string(static_cast<uint32_t>(random()));
    default:
      return std::to_string(static_cast<uint64_t>(random()));
  }
}

// kValues owning handles on a one-member structure of type, filled with
// random values, and the text of each (what str() gives and fromStr() reads).
struct Values {
  Data::Structure* structure = nullptr;
  std::vector<Data::Handle> handles;
  std::vector<std::string> texts;
};

const Values& values(Member::eDataType type) {
  static std::vector<std::unique_ptr<Values>> made(Member::kInvalidType);
  std::unique_ptr<Values>& slot = made[type];
  if (slot) return *slot;
  slot = std::make_unique<Values>();
  slot->structure = new Data::Structure("Value");
  slot->structure->addMember(type, 1, "v");
  slot->structure->ref();  // kept to the end of the process
  std::mt19937_64 random(type + 1);
  std::string errors;
  slot->handles.reserve(kValues);
  for (size_t i = 0; i < kValues; ++i) {
    slot->handles.emplace_back(*slot->structure);
    slot->handles.back().fromStr(randomText(type, random, i), 0, errors);
    slot->texts.push_back(slot->handles.back().str(0));
  }
  return *slot;
}

void Value_str_kivo(benchmark::State& state, Member::eDataType type) {
  const Values& v = values(type);
  size_t i = 0;
  for (auto _ : state) {
    const std::string text = v.handles[i % kValues].str(0);
    benchmark::DoNotOptimize(text.data());
    ++i;
  }
}

void Value_fromStr_kivo(benchmark::State& state, Member::eDataType type) {
  Values& v = const_cast<Values&>(values(type));
  std::string errors;
  size_t i = 0;
  for (auto _ : state) {
    const unsigned count = v.handles[i % kValues].fromStr(v.texts[i % kValues], 0, errors);
    benchmark::DoNotOptimize(count);
    ++i;
  }
  if (!errors.empty()) state.SkipWithError(errors.c_str());
}

// The floors: the values of the handles copied out as T, written with
// to_chars (six significant digits for floating types) into a buffer and
// read with from_chars; booleans as their word, strings as a copy.
template <class T>
std::vector<T> typedValues(const Values& v, unsigned int numbers) {
  std::vector<T> out(kValues * numbers);
  for (size_t i = 0; i < kValues; ++i)
    std::memcpy(&out[i * numbers], v.handles[i].data(), sizeof(T) * numbers);
  return out;
}

template <class T>
char* formatNumber(char* p, char* end, T value) {
  if constexpr (std::is_floating_point_v<T>) {
    return std::to_chars(p, end, double(value), std::chars_format::general, 6).ptr;
  } else if constexpr (sizeof(T) == 1) {
    return std::to_chars(p, end, int(value)).ptr;
  } else {
    return std::to_chars(p, end, value).ptr;
  }
}

template <class T>
const char* parseNumber(const char* p, const char* end, T& value) {
  if constexpr (sizeof(T) == 1) {
    int wide = 0;
    const std::from_chars_result r = std::from_chars(p, end, wide);
    value = static_cast<T>(wide);
    return r.ptr;
  } else {
    return std::from_chars(p, end, value).ptr;
  }
}

template <class T>
void Value_str_floor(benchmark::State& state, Member::eDataType type, unsigned int numbers) {
  const std::vector<T> typed = typedValues<T>(values(type), numbers);
  size_t i = 0;
  char buffer[512];
  for (auto _ : state) {
    char* p = buffer;
    const T* value = &typed[(i % kValues) * numbers];
    for (unsigned int n = 0; n < numbers; ++n) {
      if (n > 0) *p++ = ' ';
      p = formatNumber(p, buffer + sizeof buffer, value[n]);
    }
    benchmark::DoNotOptimize(buffer);
    benchmark::DoNotOptimize(p);
    ++i;
  }
}

template <class T>
void Value_fromStr_floor(benchmark::State& state, Member::eDataType type, unsigned int numbers) {
  const std::vector<std::string>& texts = values(type).texts;
  std::vector<T> typed(kValues * numbers);
  size_t i = 0;
  for (auto _ : state) {
    const std::string& text = texts[i % kValues];
    const char* p = text.data();
    const char* const end = p + text.size();
    T* value = &typed[(i % kValues) * numbers];
    for (unsigned int n = 0; n < numbers; ++n) {
      while (p < end && *p == ' ') ++p;
      p = parseNumber(p, end, value[n]);
    }
    benchmark::DoNotOptimize(p);
    ++i;
  }
  benchmark::DoNotOptimize(typed.data());
}

void Value_str_bool_floor(benchmark::State& state) {
  const std::vector<uint8_t> typed = typedValues<uint8_t>(values(Member::kBoolean), 1);
  size_t i = 0;
  char buffer[8];
  for (auto _ : state) {
    if (typed[i % kValues]) {
      std::memcpy(buffer, "true", 4);
    } else {
      std::memcpy(buffer, "false", 5);
    }
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

void Value_fromStr_bool_floor(benchmark::State& state) {
  const std::vector<std::string>& texts = values(Member::kBoolean).texts;
  std::vector<uint8_t> typed(kValues);
  size_t i = 0;
  for (auto _ : state) {
    const std::string& text = texts[i % kValues];
    typed[i % kValues] = text.size() == 4 && std::memcmp(text.data(), "true", 4) == 0;
    benchmark::DoNotOptimize(typed.data());
    ++i;
  }
}

void Value_str_string_floor(benchmark::State& state) {
  const std::vector<std::string>& texts = values(Member::kString).texts;
  size_t i = 0;
  char buffer[64];
  for (auto _ : state) {
    const std::string& text = texts[i % kValues];
    std::memcpy(buffer, text.data(), text.size());
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

void Value_fromStr_string_floor(benchmark::State& state) {
  const std::vector<std::string>& texts = values(Member::kString).texts;
  std::vector<char*> stored(kValues, nullptr);
  size_t i = 0;
  for (auto _ : state) {
    const std::string& text = texts[i % kValues];
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(copy, text.c_str(), text.size() + 1);
    std::free(stored[i % kValues]);
    stored[i % kValues] = copy;
    ++i;
  }
  for (char* text : stored) std::free(text);
}

template <class T>
void registerFloors(const ValueType& t, unsigned int numbers) {
  const std::string label = t.label;
  benchmark::RegisterBenchmark(("Value/str/to_chars/" + label).c_str(), Value_str_floor<T>, t.type,
                               numbers);
  benchmark::RegisterBenchmark(("Value/fromStr/from_chars/" + label).c_str(),
                               Value_fromStr_floor<T>, t.type, numbers);
}

const bool registered = [] {
  // Bulk benchmarks run once per repetition: one pass over a million
  // elements is long enough to time, and repetitions give the median.
  auto bulk = [](benchmark::internal::Benchmark* b) {
    b->Iterations(1)->Unit(benchmark::kMillisecond);
  };
  bulk(benchmark::RegisterBenchmark("Write/kivo", Write_kivo, false));
  bulk(benchmark::RegisterBenchmark("Write/rapidjson", Write_rapidjson, false));
  bulk(benchmark::RegisterBenchmark("Write/to_chars", Write_floor, floorWrite));
  bulk(benchmark::RegisterBenchmark("Write/to_chars_direct", Write_floor, floorWriteDirect));
  bulk(benchmark::RegisterBenchmark("Write/copy", Write_copy));
  bulk(benchmark::RegisterBenchmark("Write/kivo/full", Write_kivo, true));
  bulk(benchmark::RegisterBenchmark("Write/rapidjson/full", Write_rapidjson, true));
  bulk(benchmark::RegisterBenchmark("Read/kivo", Read_kivo, false));
  bulk(benchmark::RegisterBenchmark("Read/rapidjson", Read_rapidjson, false));
  bulk(benchmark::RegisterBenchmark("Read/from_chars", Read_floor));
  bulk(benchmark::RegisterBenchmark("Read/kivo/full", Read_kivo, true));
  bulk(benchmark::RegisterBenchmark("Read/rapidjson/full", Read_rapidjson, true));
  for (const ValueType& t : kValueTypes) {
    const std::string label = t.label;
    benchmark::RegisterBenchmark(("Value/str/kivo/" + label).c_str(), Value_str_kivo, t.type);
    benchmark::RegisterBenchmark(("Value/fromStr/kivo/" + label).c_str(), Value_fromStr_kivo,
                                 t.type);
    switch (t.type) {
      case Member::kBoolean:
        benchmark::RegisterBenchmark("Value/str/to_chars/bool", Value_str_bool_floor);
        benchmark::RegisterBenchmark("Value/fromStr/from_chars/bool", Value_fromStr_bool_floor);
        break;
      case Member::kString:
        benchmark::RegisterBenchmark("Value/str/to_chars/string", Value_str_string_floor);
        benchmark::RegisterBenchmark("Value/fromStr/from_chars/string",
                                     Value_fromStr_string_floor);
        break;
      case Member::kDouble: registerFloors<double>(t, 1); break;
      case Member::kDoubleMatrix4x4: registerFloors<double>(t, 16); break;
      case Member::kFloat: registerFloors<float>(t, 1); break;
      case Member::kFloatMatrix4x4: registerFloors<float>(t, 16); break;
      case Member::kInt8: registerFloors<int8_t>(t, 1); break;
      case Member::kInt16: registerFloors<int16_t>(t, 1); break;
      case Member::kInt32: registerFloors<int32_t>(t, 1); break;
      case Member::kInt64: registerFloors<int64_t>(t, 1); break;
      case Member::kUInt8: registerFloors<uint8_t>(t, 1); break;
      case Member::kUInt16: registerFloors<uint16_t>(t, 1); break;
      case Member::kUInt32: registerFloors<uint32_t>(t, 1); break;
      default: registerFloors<uint64_t>(t, 1); break;
    }
  }
  return true;
}();

}  // namespace
}  // namespace kivo::Bench
