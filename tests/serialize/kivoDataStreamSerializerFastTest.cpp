// StreamRawFastWrite.*  the buffered record writer gives the stream code's
//                       bytes, errors and stream state, for random streams
//                       and for outputs in every state it must leave alone
// StreamRawFastRead.*   the line reader gives the stream code's streams,
//                       messages, input position and state, over a random
//                       corpus of damaged texts, inputs that cannot seek or
//                       are not plain, long lines and values spread over
//                       several lines
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iterator>
#include <locale>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/kivoFastText.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::StreamSerializerRaw;
using kivo::Data::Structure;

const StreamSerializerRaw& raw() { return *StreamSerializerRaw::theFormat(); }

// Forces the stream code while it lives (or not, for the fast side).
class Paths {
 public:
  explicit Paths(bool streamOnly) { kivo::Detail::streamTextOnly() = streamOnly; }
  ~Paths() { kivo::Detail::streamTextOnly() = false; }
};

// "Every": one member of each type, some of them longer than one value.
class StreamRawFast : public ::testing::Test {
 protected:
  void SetUp() override {
    fStructure = Structure::create();
    fStructure->setName("Every");
    const Member::eDataType types[] = {
        Member::kBoolean, Member::kDouble, Member::kDoubleMatrix4x4, Member::kFloat,
        Member::kFloatMatrix4x4, Member::kInt8, Member::kInt16, Member::kInt32, Member::kInt64,
        Member::kString, Member::kUInt8, Member::kUInt16, Member::kUInt32, Member::kUInt64};
    unsigned int n = 0;
    for (Member::eDataType type : types) {
      const unsigned int length = n % 3 == 0 ? 2 : 1;
      ASSERT_TRUE(fStructure->addMember(type, length, ("m" + std::to_string(n++)).c_str()));
    }
    ASSERT_TRUE(Structure::registerStructure(*fStructure));
  }
  void TearDown() override { Structure::deregisterStructure(*fStructure); }

  // Random values of every kind, including infinities, NaNs, subnormals,
  // the integer limits and strings with quotes, backslashes and newlines.
  std::unique_ptr<Stream> randomStream(unsigned int seed, unsigned int count, bool dense) {
    std::mt19937_64 random(seed);
    auto stream = std::make_unique<Stream>(*fStructure, "random");
    if (dense) stream->useDenseStorage(true);
    Handle h(*fStructure);
    for (unsigned int e = 0; e < count; ++e) {
      for (unsigned int m = 0; m < fStructure->memberCount(); ++m) {
        h.setPositionByMemberIndex(m);
        const bool matrix = h.dataType() == Member::kDoubleMatrix4x4 ||
                            h.dataType() == Member::kFloatMatrix4x4;
        const unsigned int values = h.dataLength() * (matrix ? 16 : 1);
        char* data = static_cast<char*>(h.asType(h.dataType()));
        const size_t size = Member::typeSize(h.dataType()) / (matrix ? 16 : 1);
        for (unsigned int v = 0; v < values; ++v) {
          if (h.dataType() == Member::kString) {
            std::string text;
            for (int c = static_cast<int>(random() % 12); c > 0; --c)
              text += "ab\"\\\n \tz"[random() % 8];
            std::string errors;
            h.fromStr(text, v, errors);
          } else if (h.dataType() == Member::kBoolean) {
            data[v] = static_cast<char>(random() % 3);
          } else {
            const uint64_t bits = random() % 4 == 0 ? ~uint64_t(0) >> (random() % 64) : random();
            std::memcpy(data + v * size, &bits, size);
          }
        }
      }
      EXPECT_TRUE(stream->setElement(Index(e * 3 + seed % 2), h));
    }
    return stream;
  }

  Structure* fStructure = nullptr;
};

using StreamRawFastWrite = StreamRawFast;
using StreamRawFastRead = StreamRawFast;

// Accepts the first limit bytes, then refuses every further byte.
class ShortBuffer : public std::streambuf {
 public:
  explicit ShortBuffer(size_t limit) : fLimit(limit) {}
  std::string text;

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof()) || text.size() >= fLimit)
      return traits_type::eof();
    text += traits_type::to_char_type(c);
    return c;
  }

 private:
  size_t fLimit;
};

struct WriteOutcome {
  int result;
  std::string text;
  std::string errors;
  std::ios::iostate state;
};

using Prepare = std::function<void(std::ostream&)>;
void plain(std::ostream&) {}

// Calls write(output, errors) on an output prepared by prepare that takes
// limit bytes, with the stream code forced or not.
template <class Write>
WriteOutcome writeWith(bool streamOnly, Prepare prepare, Write write, size_t limit = SIZE_MAX) {
  Paths paths(streamOnly);
  ShortBuffer buffer(limit);
  std::ostream out(&buffer);
  prepare(out);
  WriteOutcome outcome{0, "", "earlier\n", {}};
  outcome.result = write(out, outcome.errors);
  outcome.text = buffer.text;
  outcome.state = out.rdstate();
  return outcome;
}

WriteOutcome writeWith(bool streamOnly, const Stream& stream, Prepare prepare = plain,
                       size_t limit = SIZE_MAX) {
  return writeWith(
      streamOnly, prepare,
      [&](std::ostream& out, std::string& errors) { return raw().write(stream, out, errors); },
      limit);
}

void expectSame(const WriteOutcome& fast, const WriteOutcome& slow) {
  EXPECT_EQ(fast.result, slow.result);
  EXPECT_EQ(fast.text, slow.text);
  EXPECT_EQ(fast.errors, slow.errors);
  EXPECT_EQ(fast.state, slow.state);
}

// A numeric punctuation that groups thousands, and one with a decimal comma.
struct Grouping : std::numpunct<char> {
  std::string do_grouping() const override { return "\3"; }
  char do_thousands_sep() const override { return '\''; }
};
struct Comma : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
};

TEST_F(StreamRawFastWrite, RandomStreamsGiveTheStreamCodesBytes) {
  for (unsigned int seed = 0; seed < 12; ++seed) {
    SCOPED_TRACE(seed);
    std::unique_ptr<Stream> stream = randomStream(seed, 40, seed % 2 == 0);
    expectSame(writeWith(false, *stream), writeWith(true, *stream));
  }
}

TEST_F(StreamRawFastWrite, EveryOutputStateIsHonoured) {
  std::unique_ptr<Stream> stream = randomStream(5, 12, true);
  std::ostringstream other;
  std::vector<std::pair<std::string, Prepare>> states = {
      {"fixed", [](std::ostream& o) { o << std::fixed; }},
      {"scientific", [](std::ostream& o) { o << std::scientific; }},
      {"hexfloat", [](std::ostream& o) { o << std::hexfloat; }},
      {"showpos", [](std::ostream& o) { o << std::showpos; }},
      {"showpoint", [](std::ostream& o) { o << std::showpoint; }},
      {"uppercase", [](std::ostream& o) { o << std::uppercase; }},
      {"hex", [](std::ostream& o) { o << std::hex << std::showbase; }},
      {"oct", [](std::ostream& o) { o << std::oct; }},
      {"boolalpha", [](std::ostream& o) { o << std::boolalpha; }},
      {"width", [](std::ostream& o) { o.width(30); }},
      {"unitbuf", [](std::ostream& o) { o << std::unitbuf; }},
      {"grouping", [](std::ostream& o) { o.imbue(std::locale(o.getloc(), new Grouping)); }},
      {"comma", [](std::ostream& o) { o.imbue(std::locale(o.getloc(), new Comma)); }},
      {"failed", [](std::ostream& o) { o.setstate(std::ios::failbit); }},
      {"bad", [](std::ostream& o) { o.setstate(std::ios::badbit); }},
      {"exceptions", [](std::ostream& o) { o.exceptions(std::ios::badbit); }},
      {"tied", [&other](std::ostream& o) { o.tie(&other); }},
  };
  for (int precision : {0, 1, 9, 17, 40, 64, 65, -1}) {
    states.emplace_back("precision " + std::to_string(precision),
                        [precision](std::ostream& o) { o.precision(precision); });
  }
  for (const auto& [name, prepare] : states) {
    SCOPED_TRACE(name);
    expectSame(writeWith(false, *stream, prepare), writeWith(true, *stream, prepare));
  }
}

TEST_F(StreamRawFastWrite, IndicesAndIntegersStayDecimalWhateverTheFlags) {
  // Written in another base they would read back as other values; the
  // floating-point values keep the stream's settings and read back alike.
  kivo::Detail::Ref<Structure> s(new Structure("Ints"));
  s->addMember(Member::kInt8, 2, "small");
  s->addMember(Member::kUInt64, 1, "big");
  s->addMember(Member::kInt32, 1, "negative");
  s->addMember(Member::kFloat, 1, "x");
  ASSERT_TRUE(Structure::registerStructure(*s));
  const std::string text =
      "name ints\nindexType numeric\nstructure Ints\n10\n-100 -100 18446744073709551615 -123456 "
      "1.5\n255\n-100 -100 18446744073709551615 -123456 1.5\nendStream\n";
  std::istringstream in(text);
  std::string errors;
  std::unique_ptr<Stream> stream(raw().read(in, errors));
  ASSERT_NE(stream, nullptr) << errors;
  for (const Prepare prepare : {plain, +[](std::ostream& o) { o << std::hex << std::showbase; },
                                +[](std::ostream& o) { o << std::oct; },
                                +[](std::ostream& o) { o << std::showpos; }}) {
    std::istringstream written(writeWith(true, *stream, prepare).text);
    std::unique_ptr<Stream> back(raw().read(written, errors));
    ASSERT_NE(back, nullptr) << errors;
    EXPECT_EQ(writeWith(true, *back).text, text);
  }
  stream.reset();
  Structure::deregisterStructure(*s);
}

TEST_F(StreamRawFastWrite, AnOutputThatFailsHalfwayGetsTheSameBytes) {
  std::unique_ptr<Stream> stream = randomStream(9, 30, true);
  for (size_t limit : {size_t(0), size_t(10), size_t(100), size_t(2000), size_t(100000)}) {
    SCOPED_TRACE(limit);
    expectSame(writeWith(false, *stream, plain, limit), writeWith(true, *stream, plain, limit));
  }
}

TEST_F(StreamRawFastWrite, WriteMemberAloneHonoursTheLocaleAndFlags) {
  std::unique_ptr<Stream> stream = randomStream(3, 1, true);
  Handle element = stream->element(Index(1));
  ASSERT_TRUE(element.hasData());
  const Prepare states[] = {
      plain,
      [](std::ostream& o) { o.imbue(std::locale(std::locale::classic(), new Grouping)); },
      [](std::ostream& o) { o.imbue(std::locale(std::locale::classic(), new Comma)); },
      [](std::ostream& o) { o << std::showpos << std::setprecision(3); },
      [](std::ostream& o) { o << std::setw(12) << std::setfill('*'); },
  };
  auto write = [&](std::ostream& out, std::string& errors) {
    return raw().writeMember(element, 1, out, errors);
  };
  for (const Prepare& prepare : states) {
    for (unsigned int m = 0; element.setPositionByMemberIndex(m); ++m) {
      SCOPED_TRACE(m);
      const WriteOutcome slow = writeWith(true, prepare, write);
      EXPECT_EQ(slow.result, 0);
      expectSame(writeWith(false, prepare, write), slow);
    }
  }
}

// ---- reading ----

struct ReadOutcome {
  bool made;
  std::string errors;
  std::string contents;  // the stream read, written by the stream code at full precision
  std::string rest;      // what the read left in the input
  std::ios::iostate state;
};

std::string contentsOf(const Stream& stream) {
  Paths slow(true);
  std::ostringstream out;
  out.precision(17);
  std::string errors;
  raw().write(stream, out, errors);
  return out.str() + errors + (stream.isDense() ? "dense" : "mapped");
}

ReadOutcome readFrom(bool streamOnly, std::istream& in) {
  ReadOutcome outcome;
  outcome.errors = "earlier\n";
  std::unique_ptr<Stream> stream;
  {
    Paths paths(streamOnly);
    stream.reset(raw().read(in, outcome.errors));
  }
  outcome.made = stream != nullptr;
  if (stream) outcome.contents = contentsOf(*stream);
  outcome.state = in.rdstate();
  in.clear();
  outcome.rest.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return outcome;
}

ReadOutcome readWith(bool streamOnly, const std::string& text) {
  std::istringstream in(text);
  return readFrom(streamOnly, in);
}

void expectSame(const ReadOutcome& fast, const ReadOutcome& slow) {
  EXPECT_EQ(fast.made, slow.made);
  EXPECT_EQ(fast.errors, slow.errors);
  EXPECT_EQ(fast.contents, slow.contents);
  EXPECT_EQ(fast.rest, slow.rest);
  EXPECT_EQ(fast.state, slow.state);
}

// Tokens that a strict parser must leave to the stream code.
const char* const kTrickyTokens[] = {
    "+1",     "-0",     "1e",       "1e+",      "inf",      "-nan",  "0x10",     "1.5e400",
    "1e-400", "-1",     "256",      "-129",     "65536",    "4294967296", "99999999999999999999",
    "1.",     ".5",     "1,5",      "12abc",    "\"",       "\"a\\", "\"open",   "True",
    "yes",    "t",      "",         "  ",       "\r",       "\t\t",  "\n",       "1e5",
    "\"\\n\"", "\"\\\"\"", "-",     "3.5e38",   "endStream"};

// A valid text damaged at random: characters replaced, inserted or
// removed, tokens replaced by tricky ones, lines split or joined.
std::string damage(const std::string& text, std::mt19937& random) {
  std::string out = text;
  const size_t header = out.find("structure");
  const size_t from = header == std::string::npos ? 0 : out.find('\n', header) + 1;
  const std::string alphabet = "0123456789+-.eEtf\" \\\n\tnx";
  for (int edits = 1 + static_cast<int>(random() % 3); edits > 0 && out.size() > from; --edits) {
    const size_t at = from + random() % (out.size() - from);
    switch (random() % 5) {
      case 0:
        out[at] = alphabet[random() % alphabet.size()];
        break;
      case 1:
        out.insert(at, 1, alphabet[random() % alphabet.size()]);
        break;
      case 2:
        out.erase(at, 1 + random() % 3);
        break;
      case 3: {
        const size_t end = out.find_first_of(" \n", at);
        out.replace(at, (end == std::string::npos ? out.size() : end) - at,
                    kTrickyTokens[random() % std::size(kTrickyTokens)]);
        break;
      }
      default:
        out[at] = out[at] == '\n' ? ' ' : out[at] == ' ' ? '\n' : out[at];
        break;
    }
  }
  return out;
}

TEST_F(StreamRawFastRead, DamagedTextsGiveTheStreamCodesResults) {
  std::mt19937 random(17);
  for (unsigned int seed = 0; seed < 6; ++seed) {
    std::unique_ptr<Stream> stream = randomStream(seed, 8, seed % 2 == 0);
    std::ostringstream out;
    out.precision(seed % 2 == 0 ? 6 : 17);
    std::string errors;
    raw().write(*stream, out, errors);
    const std::string text = out.str() + "after the end\n";
    expectSame(readWith(false, text), readWith(true, text));
    for (int variant = 0; variant < 150; ++variant) {
      const std::string damaged = damage(text, random);
      SCOPED_TRACE(damaged);
      expectSame(readWith(false, damaged), readWith(true, damaged));
      if (HasFailure()) return;
    }
  }
}

// Gives its text but cannot seek, so reading ahead is impossible.
class NoSeekBuffer : public std::stringbuf {
 public:
  explicit NoSeekBuffer(const std::string& text) : std::stringbuf(text, std::ios::in) {}

 protected:
  pos_type seekoff(off_type, std::ios::seekdir, std::ios::openmode) override {
    return pos_type(off_type(-1));
  }
  pos_type seekpos(pos_type, std::ios::openmode) override { return pos_type(off_type(-1)); }
};

TEST_F(StreamRawFastRead, InputsThatCannotSeekLongLinesAndSpreadValues) {
  // Elements of defaults: every value reads back.
  auto stream = std::make_unique<Stream>(*fStructure, "defaults");
  Handle defaults(*fStructure);
  for (unsigned int i = 0; i < 3; ++i) ASSERT_TRUE(stream->setElement(Index(i), defaults));
  std::ostringstream out;
  std::string errors;
  raw().write(*stream, out, errors);
  const std::string text = out.str();
  // Values spread over several lines, and a data line far longer than the
  // line buffer (a 70000-character string).
  std::string spread = text;
  for (size_t at = spread.find(" \"", spread.find("structure")); at != std::string::npos;
       at = spread.find(" \"", at + 3))
    spread[at] = '\n';
  std::string longLine = text;
  longLine.insert(longLine.find('"', longLine.find("structure")) + 1, std::string(70000, 'q'));
  for (const std::string& input : {text, spread, longLine, text + "\r\n", text.substr(0, 300)}) {
    expectSame(readWith(false, input), readWith(true, input));
    NoSeekBuffer fastBuffer(input), slowBuffer(input);
    std::istream fastIn(&fastBuffer), slowIn(&slowBuffer);
    expectSame(readFrom(false, fastIn), readFrom(true, slowIn));
  }
  EXPECT_TRUE(readWith(false, longLine).made);
  // Inputs in hexadecimal or with an exception mask are left to the stream code.
  for (auto prepare : {+[](std::istream& in) { in >> std::hex; },
                       +[](std::istream& in) { in.exceptions(std::ios::badbit); }}) {
    std::istringstream fastIn(text), slowIn(text);
    prepare(fastIn);
    prepare(slowIn);
    expectSame(readFrom(false, fastIn), readFrom(true, slowIn));
  }
}

}  // namespace
