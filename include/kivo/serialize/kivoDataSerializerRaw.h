// SerializerRaw: the keyword table and the text helpers shared by the raw
// formats of all four serializer families. Everything is static.
#pragma once

#include <kivo/kivoExport.h>

#include <string>
#include <vector>

namespace kivo::Data {

class KIVO_EXPORT SerializerRaw {
 public:
  // Keyword numbers. The three name keywords are separate entries on purpose,
  // one per family, although their texts are equal.
  enum eKeyword : unsigned int {
    kKeyValueSeparator = 0,   // "="  key and value of a structure field
    kEndAssociations = 1,     // "endAssociations"
    kEndChannel = 2,          // "endChannel"
    kChannel = 3,             // "channel"
    kAssociationsName = 4,    // "name"
    kIndexType = 5,           // "indexType"
    kFieldSeparator = 6,      // ":"  between structure fields
    kRaw = 7,                 // "raw"  the raw formats' formatType()
    kEndStream = 8,           // "endStream"
    kStream = 9,              // "stream"
    kStreamName = 10,         // "name"
    kStructure = 11,          // "structure"
    kStructureName = 12       // "name"
  };

  SerializerRaw() = delete;

  // The keyword's text; "????" for any number above 12.
  static const char* keyword(eKeyword which);

  // Trims leading and trailing whitespace (C locale) in place; whitespace
  // inside the text is kept as it is. Returns a copy of the result.
  static std::string collapseWhitespace(std::string& text);

  // Newline and ":" both separate fields. Shrinks every run of separators to
  // its last character, then turns the remaining newlines into ":", in
  // place; a leading or trailing separator stays, whitespace between
  // separators is kept. Returns a copy of the result.
  static std::string standardizeSeparators(std::string& text);

  // Appends the fields of text, split at separator, to fields and returns
  // it. Empty fields inside the text count ("a::b" gives a, "", b); a
  // trailing separator adds no empty field; an empty text adds none.
  static std::vector<std::string>& splitString(const std::string& text, char separator,
                                               std::vector<std::string>& fields);
};

}  // namespace kivo::Data
