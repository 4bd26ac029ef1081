#include "serialize/kivoRawValues.h"

#include <cstring>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <type_traits>

#include "serialize/kivoRawText.h"
#include "support/kivoFastText.h"
#include "support/kivoMessages.h"
#include "support/kivoOwnership.h"

namespace kivo::Detail {
namespace {

using Data::Member;

constexpr unsigned int kMatrixSide = 4;
constexpr unsigned int kMatrixEntries = kMatrixSide * kMatrixSide;

// The type words of the not-recognized messages, by type number.
constexpr const char* kTypeWords[] = {
    "boolean", "double", "double matrix", "float",  "float matrix", "Int8",   "Int16",
    "Int32",   "Int64",  "String",        "UInt8",  "UInt16",       "UInt32", "UInt64",
};

constexpr const char* kTrueWords[] = {"1", "t", "T", "true", "True"};
constexpr const char* kFalseWords[] = {"0", "f", "F", "false", "False"};

std::string invalidValue(const char* word, unsigned int record, std::istream& input) {
  return std::string(word) + " value in record " + std::to_string(record) +
         onOrAbout(inputPosition(input)) + " is invalid\n";
}
std::string invalidMatrixEntry(const char* word, std::istream& input, unsigned int entry) {
  return std::string(word) + onOrAbout(inputPosition(input)) +
         " has invalid value at row " + std::to_string(entry / kMatrixSide) + ", column " +
         std::to_string(entry % kMatrixSide) + "\n";
}
std::string invalidBoolean(std::istream& input, const std::string& token) {
  return "Boolean" + onOrAbout(inputPosition(input)) + " has invalid value '" +
         token + "'. Use 't', 'true', '1', 'f', 'false', '0' only.\n";
}
std::string notQuoted(std::istream& input, char c) {
  return "String element" + onOrAbout(inputPosition(input)) +
         " must be enclosed in double quotes instead of '" + c + "'\n";
}
std::string notTerminated(std::istream& input) {
  return "String element not terminated" + onOrAbout(inputPosition(input)) + "\n";
}

// Values are copied in and out of the block: dense elements need not be
// aligned for their members' types.
template <class T>
T load(const char* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}
template <class T>
void store(char* p, T value) {
  std::memcpy(p, &value, sizeof value);
}

// Whether a value read as Read is a value of T: integers within T's range,
// floating-point values finite in T.
template <class T, class Read>
bool fits(Read value) {
  if constexpr (std::is_floating_point_v<T>) {
    return value >= -std::numeric_limits<T>::max() && value <= std::numeric_limits<T>::max();
  } else if constexpr (std::is_same_v<T, Read>) {
    return true;
  } else {
    return value >= static_cast<Read>(std::numeric_limits<T>::min()) &&
           value <= static_cast<Read>(std::numeric_limits<T>::max());
  }
}

bool isBlank(int c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// After a bad value: clears the error state and drops what is left of the
// bad word, so that the next value starts afresh.
void recover(std::istream& input) {
  input.clear();
  std::streambuf* buffer = input.rdbuf();
  for (int c = buffer->sgetc(); c != std::char_traits<char>::eof() && !isBlank(c);
       c = buffer->snextc()) {
  }
}

// Integers in plain decimal whatever the stream's base and sign flags (a
// value written in hexadecimal or octal would read back as another one);
// floating-point values with the stream's own settings.
template <class T, class Shown>
void writeNumbers(std::ostream& output, const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) output << ' ';
    const Shown value = static_cast<Shown>(load<T>(values + i * sizeof(T)));
    if constexpr (std::is_integral_v<Shown>) {
      output << std::to_string(value);
    } else {
      output << value;
    }
  }
}

void writeBooleans(std::ostream& output, const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) output << ' ';
    output << (values[i] ? "true" : "false");
  }
}

// The text in double quotes; a double quote, a backslash and a newline are
// escaped with a backslash, every other byte is written as it is.
void writeQuoted(std::ostream& output, const char* text) {
  output << '"';
  if (text) {
    const char* run = text;
    const char* p = text;
    for (; *p; ++p) {
      const char* escape = *p == '"' ? "\\\"" : *p == '\\' ? "\\\\" : *p == '\n' ? "\\n" : nullptr;
      if (!escape) continue;
      output.write(run, p - run);
      output << escape;
      run = p + 1;
    }
    output.write(run, p - run);
  }
  output << '"';
}

void writeStrings(std::ostream& output, const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) output << ' ';
    writeQuoted(output, load<const char*>(values + i * sizeof(const char*)));
  }
}


template <class T, class Read = T>
int readNumbers(std::istream& input, char* values, unsigned int count, const char* word,
                unsigned int record, std::string& errors) {
  for (unsigned int i = 0; i < count; ++i) {
    Read value{};
    input >> value;
    if (input.fail() || !fits<T>(value)) {
      errors += invalidValue(word, record, input);
      recover(input);
      return 1;
    }
    store<T>(values + i * sizeof(T), static_cast<T>(value));
  }
  return 0;
}

// Every bad entry is reported and counted; the good ones are stored. Input
// that has ended stops the member after its message.
template <class T>
int readMatrices(std::istream& input, char* values, unsigned int count, const char* word,
                 std::string& errors) {
  int bad = 0;
  for (unsigned int m = 0; m < count; ++m) {
    for (unsigned int entry = 0; entry < kMatrixEntries; ++entry) {
      T value{};
      input >> value;
      if (!input.fail() && fits<T>(value)) {
        store<T>(values + (m * kMatrixEntries + entry) * sizeof(T), value);
        continue;
      }
      errors += invalidMatrixEntry(word, input, entry);
      ++bad;
      const bool ended = input.eof();
      recover(input);
      if (ended) return bad;
    }
  }
  return bad;
}

template <size_t N>
bool isOneOf(const std::string& token, const char* const (&words)[N]) {
  for (const char* word : words) {
    if (token == word) return true;
  }
  return false;
}

int readBooleans(std::istream& input, char* values, unsigned int count, std::string& errors) {
  std::string token;
  for (unsigned int i = 0; i < count; ++i) {
    token.clear();
    input >> token;
    if (isOneOf(token, kTrueWords)) {
      values[i] = 1;
    } else if (isOneOf(token, kFalseWords)) {
      values[i] = 0;
    } else {
      errors += invalidBoolean(input, token);
      recover(input);
      return 1;
    }
  }
  return 0;
}

// The characters after an opening double quote up to the closing one, with
// backslash escapes resolved ("\n" is a newline, any other escaped
// character stands for itself), as a new string value (newText, freed with
// freeText); null when the input ends first. Short texts are
// gathered on the stack; longer ones in a heap buffer that doubles.
char* readQuoted(std::istream& input) {
  using Traits = std::char_traits<char>;
  std::streambuf* buffer = input.rdbuf();
  char local[1024];
  std::unique_ptr<char[]> grown;
  char* text = local;
  size_t capacity = sizeof local;
  size_t length = 0;
  for (;;) {
    int c = buffer->sbumpc();
    if (c == '"') break;
    if (c == '\\') {
      c = buffer->sbumpc();
      if (c == 'n') c = '\n';
    }
    if (c == Traits::eof()) {
      input.setstate(std::ios::eofbit);
      return nullptr;
    }
    if (length == capacity) {
      std::unique_ptr<char[]> larger(new char[capacity * 2]);
      std::memcpy(larger.get(), text, length);
      grown = std::move(larger);
      text = grown.get();
      capacity *= 2;
    }
    text[length++] = static_cast<char>(c);
  }
  char* result = newText(length);
  std::memcpy(result, text, length);
  return result;
}

int readStrings(std::istream& input, char* values, unsigned int count, std::string& errors) {
  for (unsigned int i = 0; i < count; ++i) {
    char quote = '\0';
    if (!(input >> quote)) {
      errors += notTerminated(input);
      recover(input);
      return 1;
    }
    if (quote != '"') {
      errors += notQuoted(input, quote);
      return 1;
    }
    char* text = readQuoted(input);
    if (!text) {
      errors += notTerminated(input);
      return 1;
    }
    char* const slot = values + i * sizeof(char*);
    freeText(load<char*>(slot));
    store(slot, text);
  }
  return 0;
}

// ---- Fast forms ----

template <class T, class Shown>
void appendIntegers(std::string& out, const char* values, unsigned int count) {
  char buffer[24];
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) out += ' ';
    out.append(buffer, formatInteger(buffer, static_cast<Shown>(load<T>(values + i * sizeof(T)))));
  }
}

template <class T>
void appendFloating(std::string& out, const char* values, unsigned int count, int precision) {
  char buffer[kNumberBuffer];
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) out += ' ';
    const double value = load<T>(values + i * sizeof(T));
    out.append(buffer, formatGeneral(buffer, value, precision));
  }
}

void appendBooleans(std::string& out, const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) out += ' ';
    out += values[i] ? "true" : "false";
  }
}

void appendQuoted(std::string& out, const char* text) {
  out += '"';
  if (text) {
    const char* run = text;
    const char* p = text;
    for (; *p; ++p) {
      const char* escape = *p == '"' ? "\\\"" : *p == '\\' ? "\\\\" : *p == '\n' ? "\\n" : nullptr;
      if (!escape) continue;
      out.append(run, p);
      out += escape;
      run = p + 1;
    }
    out.append(run, p);
  }
  out += '"';
}

void appendStrings(std::string& out, const char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (i > 0) out += ' ';
    appendQuoted(out, load<const char*>(values + i * sizeof(const char*)));
  }
}

const char* skipSpace(const char* p, const char* end) {
  while (p < end && isClassicSpace(*p)) ++p;
  return p;
}

template <class T, class Read = T>
const char* readNumbersStrict(const char* p, const char* end, char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    Read value{};
    p = parseStrict(skipSpace(p, end), end, value);
    if (!p || !fits<T>(value)) return nullptr;
    store<T>(values + i * sizeof(T), static_cast<T>(value));
  }
  return p;
}

bool isWord(const char* word, size_t length, const char* const (&words)[5]) {
  for (const char* candidate : words) {
    if (std::strlen(candidate) == length && std::memcmp(word, candidate, length) == 0)
      return true;
  }
  return false;
}

const char* readBooleansStrict(const char* p, const char* end, char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    p = skipSpace(p, end);
    const char* last = p;
    while (last < end && !isClassicSpace(*last)) ++last;
    const size_t length = static_cast<size_t>(last - p);
    if (isWord(p, length, kTrueWords)) {
      values[i] = 1;
    } else if (isWord(p, length, kFalseWords)) {
      values[i] = 0;
    } else {
      return nullptr;
    }
    p = last;
  }
  return p;
}

// A string in double quotes that closes before end; the same escapes as
// readQuoted.
const char* readStringsStrict(const char* p, const char* end, char* values, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    p = skipSpace(p, end);
    if (p == end || *p != '"') return nullptr;
    const char* const first = ++p;
    size_t length = 0;
    while (p < end && *p != '"') {
      if (*p == '\\' && ++p == end) return nullptr;  // the escaped character is on a later line
      ++p;
      ++length;
    }
    if (p == end) return nullptr;
    char* text = newText(length);
    char* out = text;
    for (const char* q = first; q < p; ++q) {
      if (*q == '\\') {
        ++q;
        *out++ = *q == 'n' ? '\n' : *q;
      } else {
        *out++ = *q;
      }
    }
    ++p;  // the closing quote
    char* const slot = values + i * sizeof(char*);
    freeText(load<char*>(slot));
    store(slot, text);
  }
  return p;
}

}  // namespace

std::string memberNotRecognized(unsigned int record, Member::eDataType type) {
  return "Member at record " + std::to_string(record) + " not recognized as a " +
         kTypeWords[type] + "\n";
}

void writeRawValues(std::ostream& output, Member::eDataType type, const char* values,
                    unsigned int length) {
  switch (type) {
    case Member::kBoolean:
      return writeBooleans(output, values, length);
    case Member::kDouble:
      return writeNumbers<double, double>(output, values, length);
    case Member::kDoubleMatrix4x4:
      return writeNumbers<double, double>(output, values, length * kMatrixEntries);
    case Member::kFloat:
      return writeNumbers<float, double>(output, values, length);
    case Member::kFloatMatrix4x4:
      return writeNumbers<float, double>(output, values, length * kMatrixEntries);
    case Member::kInt8:
      return writeNumbers<int8_t, int>(output, values, length);
    case Member::kInt16:
      return writeNumbers<int16_t, int>(output, values, length);
    case Member::kInt32:
      return writeNumbers<int32_t, int32_t>(output, values, length);
    case Member::kInt64:
      return writeNumbers<int64_t, int64_t>(output, values, length);
    case Member::kString:
      return writeStrings(output, values, length);
    case Member::kUInt8:
      return writeNumbers<uint8_t, unsigned int>(output, values, length);
    case Member::kUInt16:
      return writeNumbers<uint16_t, unsigned int>(output, values, length);
    case Member::kUInt32:
      return writeNumbers<uint32_t, uint32_t>(output, values, length);
    case Member::kUInt64:
      return writeNumbers<uint64_t, uint64_t>(output, values, length);
    default:
      return;
  }
}

int readRawValues(std::istream& input, Member::eDataType type, char* values, unsigned int length,
                  unsigned int record, std::string& errors) {
  switch (type) {
    case Member::kBoolean:
      return readBooleans(input, values, length, errors);
    case Member::kDouble:
      return readNumbers<double>(input, values, length, "Double", record, errors);
    case Member::kDoubleMatrix4x4:
      return readMatrices<double>(input, values, length, "Double matrix", errors);
    case Member::kFloat:
      return readNumbers<float>(input, values, length, "Float", record, errors);
    case Member::kFloatMatrix4x4:
      return readMatrices<float>(input, values, length, "Float matrix", errors);
    case Member::kInt8:
      return readNumbers<int8_t, int>(input, values, length, "Int8", record, errors);
    case Member::kInt16:
      return readNumbers<int16_t, int>(input, values, length, "Int16", record, errors);
    case Member::kInt32:
      return readNumbers<int32_t>(input, values, length, "Int32", record, errors);
    case Member::kInt64:
      return readNumbers<int64_t>(input, values, length, "Int64", record, errors);
    case Member::kString:
      return readStrings(input, values, length, errors);
    case Member::kUInt8:
      return readNumbers<uint8_t, unsigned int>(input, values, length, "UInt8", record, errors);
    case Member::kUInt16:
      return readNumbers<uint16_t, unsigned int>(input, values, length, "UInt16", record, errors);
    case Member::kUInt32:
      return readNumbers<uint32_t>(input, values, length, "UInt32", record, errors);
    case Member::kUInt64:
      return readNumbers<uint64_t>(input, values, length, "UInt64", record, errors);
    default:
      return 0;
  }
}

void appendRawValues(std::string& out, Member::eDataType type, const char* values,
                     unsigned int length, int precision) {
  switch (type) {
    case Member::kBoolean:
      return appendBooleans(out, values, length);
    case Member::kDouble:
      return appendFloating<double>(out, values, length, precision);
    case Member::kDoubleMatrix4x4:
      return appendFloating<double>(out, values, length * kMatrixEntries, precision);
    case Member::kFloat:
      return appendFloating<float>(out, values, length, precision);
    case Member::kFloatMatrix4x4:
      return appendFloating<float>(out, values, length * kMatrixEntries, precision);
    case Member::kInt8:
      return appendIntegers<int8_t, int>(out, values, length);
    case Member::kInt16:
      return appendIntegers<int16_t, int>(out, values, length);
    case Member::kInt32:
      return appendIntegers<int32_t, int32_t>(out, values, length);
    case Member::kInt64:
      return appendIntegers<int64_t, int64_t>(out, values, length);
    case Member::kString:
      return appendStrings(out, values, length);
    case Member::kUInt8:
      return appendIntegers<uint8_t, unsigned int>(out, values, length);
    case Member::kUInt16:
      return appendIntegers<uint16_t, unsigned int>(out, values, length);
    case Member::kUInt32:
      return appendIntegers<uint32_t, uint32_t>(out, values, length);
    case Member::kUInt64:
      return appendIntegers<uint64_t, uint64_t>(out, values, length);
    default:
      return;
  }
}

const char* readRawValuesStrict(const char* p, const char* end, Member::eDataType type,
                                char* values, unsigned int length) {
  switch (type) {
    case Member::kBoolean:
      return readBooleansStrict(p, end, values, length);
    case Member::kDouble:
      return readNumbersStrict<double>(p, end, values, length);
    case Member::kDoubleMatrix4x4:
      return readNumbersStrict<double>(p, end, values, length * kMatrixEntries);
    case Member::kFloat:
      return readNumbersStrict<float>(p, end, values, length);
    case Member::kFloatMatrix4x4:
      return readNumbersStrict<float>(p, end, values, length * kMatrixEntries);
    case Member::kInt8:
      return readNumbersStrict<int8_t, int>(p, end, values, length);
    case Member::kInt16:
      return readNumbersStrict<int16_t, int>(p, end, values, length);
    case Member::kInt32:
      return readNumbersStrict<int32_t>(p, end, values, length);
    case Member::kInt64:
      return readNumbersStrict<int64_t>(p, end, values, length);
    case Member::kString:
      return readStringsStrict(p, end, values, length);
    case Member::kUInt8:
      return readNumbersStrict<uint8_t, unsigned int>(p, end, values, length);
    case Member::kUInt16:
      return readNumbersStrict<uint16_t, unsigned int>(p, end, values, length);
    case Member::kUInt32:
      return readNumbersStrict<uint32_t>(p, end, values, length);
    case Member::kUInt64:
      return readNumbersStrict<uint64_t>(p, end, values, length);
    default:
      return nullptr;
  }
}

}  // namespace kivo::Detail
