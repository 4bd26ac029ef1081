#include <kivo/serialize/kivoDataSerializerRaw.h>

#include <string_view>

#include "serialize/kivoRawFields.h"

namespace kivo::Data {
namespace {

constexpr const char* kKeywords[] = {
    "=",      "endAssociations", "endChannel", "channel", "name", "indexType", ":",
    "raw",    "endStream",       "stream",     "name",    "structure", "name",
};
constexpr unsigned int kKeywordCount = sizeof(kKeywords) / sizeof(kKeywords[0]);

}  // namespace

const char* SerializerRaw::keyword(eKeyword which) {
  return which < kKeywordCount ? kKeywords[which] : "????";
}

std::string SerializerRaw::collapseWhitespace(std::string& text) {
  Detail::trimBlanks(text);
  return text;
}

std::string SerializerRaw::standardizeSeparators(std::string& text) {
  Detail::joinSeparators(text);
  return text;
}

// Each field is cut out of the text at its own length, so that a long text
// costs its length once more.
std::vector<std::string>& SerializerRaw::splitString(const std::string& text, char separator,
                                                     std::vector<std::string>& fields) {
  Detail::forEachField(text, separator,
                       [&fields](std::string_view field) { fields.emplace_back(field); });
  return fields;
}

}  // namespace kivo::Data
