#include <kivo/support/kivoDebugPrint.h>

#include <cstdio>
#include <map>
#include <ostream>

namespace kivo::Debug {

struct Print::State {
  explicit State(std::ostream& out) : fOut(out) {}
  std::ostream& fOut;
  int fLevel = 0;
  std::string fIndentString = "    ";
  eStyle fStyle = kBraces;
  bool fSkipNextIndent = false;
  std::map<std::string, int> fFilters;
};

Print::Print(std::ostream& out) : fState(std::make_unique<State>(out)) {}

Print::~Print() = default;

int Print::indent(int delta) {
  const int previous = fState->fLevel;
  fState->fLevel += delta;
  return previous;
}

int Print::setIndent(int level) {
  const int previous = fState->fLevel;
  fState->fLevel = level;
  return previous;
}

std::string Print::setIndentString(const std::string& text) {
  std::string previous = fState->fIndentString;
  fState->fIndentString = text;
  return previous;
}

Print::eStyle Print::setSectionStyle(eStyle style) {
  const eStyle previous = fState->fStyle;
  fState->fStyle = style;
  return previous;
}

bool Print::skipNextIndent(bool skip) {
  const bool previous = fState->fSkipNextIndent;
  fState->fSkipNextIndent = skip;
  return previous;
}

std::ostream& Print::doIndent() {
  if (fState->fSkipNextIndent) {
    fState->fSkipNextIndent = false;
    return fState->fOut;
  }
  for (int i = 0; i < fState->fLevel; ++i) fState->fOut << fState->fIndentString;
  return fState->fOut;
}

Print& Print::operator<<(const char* text) {
  doIndent() << text;
  return *this;
}

Print& Print::operator<<(char* text) {
  doIndent() << text;
  return *this;
}

Print& Print::operator<<(char c) {
  doIndent() << c;
  return *this;
}

Print& Print::operator<<(unsigned char c) {
  doIndent() << c;
  return *this;
}

Print& Print::operator<<(int value) {
  doIndent() << value;
  return *this;
}

Print& Print::operator<<(unsigned int value) {
  doIndent() << value;
  return *this;
}

Print& Print::operator<<(long value) {
  doIndent() << value;
  return *this;
}

Print& Print::operator<<(unsigned long value) {
  doIndent() << value;
  return *this;
}

Print& Print::operator<<(float value) {
  doIndent() << static_cast<double>(value);
  return *this;
}

Print& Print::operator<<(double value) {
  doIndent() << value;
  return *this;
}

Print& Print::operator<<(const void* pointer) {
  char text[64];
  std::snprintf(text, sizeof text, "0x%p", pointer);
  doIndent() << text;
  return *this;
}

Print& Print::outputHexChars(unsigned int n, unsigned char* bytes) {
  std::ostream& out = doIndent();
  char text[4];
  for (unsigned int i = 0; i < n; ++i) {
    std::snprintf(text, sizeof text, "%02x ", bytes[i]);
    out << text;
  }
  return *this;
}

void Print::beginSection(const char* title) {
  doIndent() << title << '\n' << std::flush;
  if (fState->fStyle == kBraces) doIndent() << "{\n";
  indent(1);
}

void Print::endSection() {
  indent(-1);
  if (fState->fStyle == kBraces) doIndent() << "}\n";
}

int Print::addFilter(const std::string& name, int level) {
  fState->fFilters[name] = level;
  return level;
}

bool Print::findFilter(const std::string& name, int& level) const {
  auto found = fState->fFilters.find(name);
  if (found == fState->fFilters.end()) return false;
  level = found->second;
  return true;
}

void Print::removeFilter(const std::string& name) { fState->fFilters.erase(name); }

}  // namespace kivo::Debug
