// Internal: input and output helpers shared by the line-oriented raw formats
// (stream, channel, associations).
#pragma once

#include <iomanip>
#include <istream>
#include <locale>
#include <string>

namespace kivo::Detail {

// The number, counted from 1, of the next character the input would give,
// as its buffer reports it whatever the stream's state; 0 when the buffer
// cannot tell (a stream that cannot seek).
inline long long inputPosition(std::istream& input) {
  std::streambuf* buffer = input.rdbuf();
  if (!buffer) return 0;
  return static_cast<long long>(buffer->pubseekoff(0, std::ios::cur, std::ios::in)) + 1;
}

// Numbers in the classic locale whatever the stream was given: imbues it for
// the guard's lifetime and restores the stream's own locale afterwards.
class ClassicNumbers {
 public:
  explicit ClassicNumbers(std::ios& stream) : fStream(stream) {
    if (stream.getloc() != std::locale::classic()) {
      fSaved = stream.imbue(std::locale::classic());
      fChanged = true;
    }
  }
  ~ClassicNumbers() {
    if (fChanged) fStream.imbue(fSaved);
  }
  ClassicNumbers(const ClassicNumbers&) = delete;
  ClassicNumbers& operator=(const ClassicNumbers&) = delete;

 private:
  std::ios& fStream;
  std::locale fSaved;
  bool fChanged = false;
};

// Lines of at most kLineBuffer - 1 characters, read through a fixed buffer.
constexpr std::streamsize kLineBuffer = 1024;

enum class LineRead { kLine, kTooLong, kEnd };

// Reads one line into line, trimmed of leading and trailing whitespace.
// kTooLong when the line does not fit the buffer, kEnd when the input has no
// more line; both leave the input failed.
inline LineRead readLine(std::istream& input, std::string& line) {
  char buffer[kLineBuffer];
  input.getline(buffer, kLineBuffer);
  if (input.fail()) {
    line.clear();
    return input.gcount() == kLineBuffer - 1 ? LineRead::kTooLong : LineRead::kEnd;
  }
  // The line end was taken out of the input but not stored.
  const char* first = buffer;
  const char* last = buffer + input.gcount() - (input.eof() ? 0 : 1);
  auto blank = [](char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
  };
  while (first < last && blank(*first)) ++first;
  while (last > first && blank(last[-1])) --last;
  line.assign(first, last);
  return LineRead::kLine;
}

// Reads the next word as `input >> word` does, but at most kLineBuffer - 1
// characters of it. No keyword is that long, so a longer word is refused
// either way; reading it whole would hold a hostile word of any length (and
// quote it whole in the message), where this holds no more than a line.
inline void readWord(std::istream& input, std::string& word) {
  input >> std::setw(static_cast<int>(kLineBuffer - 1)) >> word;
}

// Reads the rest of the current line (at most kLineBuffer - 1 characters,
// line end taken out and dropped) into rest, untrimmed. False, leaving the
// input failed, when nothing is left or the rest does not fit.
inline bool readRestOfLine(std::istream& input, std::string& rest) {
  char buffer[kLineBuffer];
  input.getline(buffer, kLineBuffer);
  if (input.fail()) {
    rest.clear();
    return false;
  }
  rest.assign(buffer, input.gcount() - (input.eof() ? 0 : 1));
  return true;
}

}  // namespace kivo::Detail
