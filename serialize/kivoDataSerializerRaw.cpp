#include <kivo/serialize/kivoDataSerializerRaw.h>

namespace kivo::Data {
namespace {

constexpr const char* kKeywords[] = {
    "=",      "endAssociations", "endChannel", "channel", "name", "indexType", ":",
    "raw",    "endStream",       "stream",     "name",    "structure", "name",
};
constexpr unsigned int kKeywordCount = sizeof(kKeywords) / sizeof(kKeywords[0]);

// Whitespace of the C locale, whatever locale the process has set.
bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isSeparator(char c) { return c == '\n' || c == ':'; }

}  // namespace

const char* SerializerRaw::keyword(eKeyword which) {
  return which < kKeywordCount ? kKeywords[which] : "????";
}

std::string SerializerRaw::collapseWhitespace(std::string& text) {
  size_t first = 0;
  while (first < text.size() && isBlank(text[first])) ++first;
  size_t last = text.size();
  while (last > first && isBlank(text[last - 1])) --last;
  text.erase(last);
  text.erase(0, first);
  return text;
}

std::string SerializerRaw::standardizeSeparators(std::string& text) {
  // A character is dropped exactly when it and its successor are both
  // separators, so each run keeps its last character. One pass, so a long
  // run costs no more than its length.
  size_t kept = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i + 1 < text.size() && isSeparator(text[i]) && isSeparator(text[i + 1])) continue;
    text[kept++] = text[i] == '\n' ? ':' : text[i];
  }
  text.resize(kept);
  return text;
}

// Splits as getline with the separator would: no field after a final
// separator, an empty one between two. Each field is cut out of the text at
// its own length, so that a long text costs its length once more.
std::vector<std::string>& SerializerRaw::splitString(const std::string& text, char separator,
                                                     std::vector<std::string>& fields) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(separator, start);
    if (end == std::string::npos) end = text.size();
    fields.emplace_back(text, start, end - start);
    start = end + 1;
  }
  return fields;
}

}  // namespace kivo::Data
