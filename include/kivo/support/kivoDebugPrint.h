// Print: indented, human-readable debug text on a caller's output stream.
// Every write starts with the current indentation (the indent string once
// per level) unless skipNextIndent(true) asked to leave the next one out.
// Sections are titled blocks one level deeper; with section style 0 they are
// wrapped in "{" and "}" lines. Filters are named levels that switch on
// optional detail in the printers ("hex", "type").
#pragma once

#include <kivo/kivoExport.h>

#include <iosfwd>
#include <memory>
#include <string>

namespace kivo::Debug {

class KIVO_EXPORT Print {
 public:
  enum eStyle { kBraces = 0, kIndentOnly = 1 };

  // Writes to `out`, which must outlive the printer. Level 0, four-blank
  // indent string, section style 0, no filters.
  explicit Print(std::ostream& out);
  ~Print();
  Print(const Print&) = delete;
  Print& operator=(const Print&) = delete;

  // Adds delta to the level; returns the previous level.
  int indent(int delta);
  // Each setter returns the previous value.
  int setIndent(int level);
  std::string setIndentString(const std::string& text);
  eStyle setSectionStyle(eStyle style);
  bool skipNextIndent(bool skip);

  // Writes the indentation (or clears a pending skip and writes nothing).
  std::ostream& doIndent();

  // Indentation, then the value with the stream's own formatting.
  Print& operator<<(const char* text);
  Print& operator<<(char* text);
  Print& operator<<(char c);
  Print& operator<<(unsigned char c);
  Print& operator<<(int value);
  Print& operator<<(unsigned int value);
  Print& operator<<(long value);
  Print& operator<<(unsigned long value);
  Print& operator<<(float value);  // written as a double
  Print& operator<<(double value);
  // Indentation, then the pointer as "0x%p".
  Print& operator<<(const void* pointer);
  // Indentation, then each of the n bytes as "%02x ".
  Print& outputHexChars(unsigned int n, unsigned char* bytes);

  // Title (indented), newline and flush; with style 0 a "{" line; then one
  // level deeper.
  void beginSection(const char* title);
  // One level up; with style 0 a "}" line.
  void endSection();

  // Sets or replaces a filter's level; returns level.
  int addFilter(const std::string& name, int level);
  // True, with its level, when the filter exists.
  bool findFilter(const std::string& name, int& level) const;
  void removeFilter(const std::string& name);

 private:
  struct State;
  std::unique_ptr<State> fState;
};

}  // namespace kivo::Debug
