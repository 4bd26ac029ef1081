#include "kivoBenchData.h"

#include <kivo/data/kivoDataIndex.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <malloc.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>
#include <stdexcept>

namespace kivo::Bench {
namespace {

std::vector<Record> makeRecords(size_t count) {
  std::mt19937_64 random(20260522);
  std::uniform_real_distribution<double> common(-1000.0, 1000.0);
  std::uniform_real_distribution<double> exponent(-30.0, -5.0);
  std::uniform_real_distribution<double> huge(0.5e20, 5e20);
  std::uniform_real_distribution<double> weight(0.0, 1e4);
  std::uniform_int_distribution<int> letter('a', 'z');
  std::uniform_int_distribution<int> percent(0, 99);
  std::vector<Record> rows(count);
  for (size_t i = 0; i < count; ++i) {
    Record& row = rows[i];
    row.id = static_cast<int32_t>(random() % 2000000) - 1000000;
    for (float& value : row.position) {
      const int kind = percent(random);
      if (kind < 90) {
        value = static_cast<float>(common(random));
      } else if (kind < 97) {
        value = static_cast<float>(std::pow(10.0, exponent(random)) * (kind % 2 ? 1 : -1));
      } else {
        value = static_cast<float>(huge(random) * (kind % 2 ? 1 : -1));
      }
    }
    row.weight = weight(random);
    const size_t length = 5 + random() % 16;
    for (size_t c = 0; c < length; ++c) row.name += static_cast<char>(letter(random));
    const int special = percent(random);
    if (special < 5) row.name[length / 2] = '"';
    if (special >= 95) row.name[length / 3] = '\\';
    row.flag = random() % 2 != 0;
  }
  return rows;
}

// The JSON rows; numbers through number(writer, value).
template <class Number>
std::string makeJson(Number number) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  const std::vector<Record>& rows = records();
  writer.StartArray();
  for (size_t i = 0; i < rows.size(); ++i) {
    writer.StartObject();
    writer.Key("index");
    writer.Uint(static_cast<unsigned>(i));
    writer.Key("id");
    writer.Int(rows[i].id);
    writer.Key("position");
    writer.StartArray();
    for (float value : rows[i].position) number(writer, value);
    writer.EndArray();
    writer.Key("weight");
    number(writer, rows[i].weight);
    writer.Key("name");
    writer.String(rows[i].name.data(), static_cast<rapidjson::SizeType>(rows[i].name.size()));
    writer.Key("flag");
    writer.Bool(rows[i].flag);
    writer.EndObject();
  }
  writer.EndArray();
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

size_t elementCount() {
  static const size_t count = [] {
    const char* text = std::getenv("KIVO_BENCH_ELEMENTS");
    if (text && *text) return static_cast<size_t>(std::strtoull(text, nullptr, 10));
    return smokeRun() ? size_t(1000) : size_t(1000000);
  }();
  return count;
}

bool smokeRun() {
  const char* text = std::getenv("KIVO_BENCH_SMOKE");
  return text && *text && std::string(text) != "0";
}

const std::vector<Record>& records() {
  static const std::vector<Record> rows = makeRecords(elementCount());
  return rows;
}

Data::Structure& vertexStructure() {
  static Data::Structure* const structure = [] {
    Data::Structure* s = new Data::Structure("Vertex");
    s->addMember(Data::Member::kInt32, 1, "id");
    s->addMember(Data::Member::kFloat, 3, "position");
    s->addMember(Data::Member::kDouble, 1, "weight");
    s->addMember(Data::Member::kString, 1, "name");
    s->addMember(Data::Member::kBoolean, 1, "flag");
    s->ref();
    Data::Structure::registerStructure(*s);
    return s;
  }();
  return *structure;
}

void fillHandle(Data::Handle& handle, const Record& row) {
  static std::string errors;
  handle.setPositionByMemberIndex(0);
  *handle.asInt32() = row.id;
  handle.setPositionByMemberIndex(1);
  float* position = handle.asFloat();
  for (int k = 0; k < 3; ++k) position[k] = row.position[k];
  handle.setPositionByMemberIndex(2);
  *handle.asDouble() = row.weight;
  handle.setPositionByMemberIndex(3);
  handle.fromStr(row.name, 0, errors);
  handle.setPositionByMemberIndex(4);
  *handle.asBoolean() = row.flag;
}

const Data::Stream& vertexStream() {
  static const Data::Stream stream = [] {
    Data::Stream s(vertexStructure(), "points");
    s.useDenseStorage(true);
    Data::Handle handle(vertexStructure());
    const std::vector<Record>& rows = records();
    for (size_t i = 0; i < rows.size(); ++i) {
      fillHandle(handle, rows[i]);
      if (!s.setElement(Data::Index(static_cast<unsigned int>(i)), handle))
        throw std::runtime_error("could not build the vertex stream");
    }
    return s;
  }();
  return stream;
}

const std::string& rawText(bool fullPrecision) {
  auto make = [](int precision) {
    std::ostringstream out;
    out.precision(precision);
    std::string errors;
    Data::StreamSerializerRaw::theFormat()->write(vertexStream(), out, errors);
    return out.str();
  };
  static const std::string six = make(6);
  if (!fullPrecision) return six;
  static const std::string full = make(17);
  return full;
}

void appendGeneral6(std::string& out, double value) {
  char buffer[32];
  const std::to_chars_result r =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
  out.append(buffer, r.ptr);
}

const std::string& jsonText(bool fullPrecision) {
  using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
  static const std::string six = makeJson([](Writer& writer, double value) {
    std::string text;
    appendGeneral6(text, value);
    writer.RawValue(text.data(), text.size(), rapidjson::kNumberType);
  });
  if (!fullPrecision) return six;
  static const std::string full =
      makeJson([](Writer& writer, double value) { writer.Double(value); });
  return full;
}

void freeNames(std::vector<CRecord>& rows) {
  for (CRecord& row : rows) std::free(row.name);
  rows.clear();
}

uint64_t heldBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

volatile uint64_t gSink;

void consume(uint64_t value) { gSink = gSink + value; }

}  // namespace kivo::Bench
