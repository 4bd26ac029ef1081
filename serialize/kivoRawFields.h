// Internal: the field helpers behind SerializerRaw's string utilities, in
// forms that neither copy the text nor store its fields, so that a reader
// of one long text holds it once.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kivo::Detail {

// Whitespace of the C locale, whatever locale the process has set.
inline bool isBlankC(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The newline and ':' separate the fields of a structure text.
inline bool isFieldSeparator(char c) { return c == '\n' || c == ':'; }

// text without its leading and trailing whitespace.
inline std::string_view trimmedView(std::string_view text) {
  size_t first = 0;
  while (first < text.size() && isBlankC(text[first])) ++first;
  size_t last = text.size();
  while (last > first && isBlankC(text[last - 1])) --last;
  return text.substr(first, last - first);
}

// Trims text in place.
inline void trimBlanks(std::string& text) {
  const std::string_view kept = trimmedView(text);
  const size_t first = static_cast<size_t>(kept.data() - text.data());
  text.erase(first + kept.size());
  text.erase(0, first);
}

// Replaces each run of separators by its last character, a newline by ':'.
// A character is dropped exactly when it and its successor are both
// separators; one pass, so a long run costs no more than its length.
inline void joinSeparators(std::string& text) {
  size_t kept = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i + 1 < text.size() && isFieldSeparator(text[i]) && isFieldSeparator(text[i + 1]))
      continue;
    text[kept++] = text[i] == '\n' ? ':' : text[i];
  }
  text.resize(kept);
}

// Calls visit with each field of text as getline with the separator would
// give it: an empty field between two separators, none after a final one,
// none at all for an empty text.
template <class Visit>
void forEachField(std::string_view text, char separator, Visit&& visit) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(separator, start);
    if (end == std::string_view::npos) end = text.size();
    visit(text.substr(start, end - start));
    start = end + 1;
  }
}

// The number of fields forEachField visits.
inline size_t fieldCount(std::string_view text, char separator) {
  size_t count = 0;
  for (char c : text) count += c == separator;
  return count + (!text.empty() && text.back() != separator);
}

}  // namespace kivo::Detail
