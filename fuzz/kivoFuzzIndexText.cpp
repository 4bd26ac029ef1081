// Index text: the numeric, pair and string creators of the index-type
// registry, and a lookup of any other type name. Input: byte 0 picks the
// type ("numeric", "pair", "string", or the text up to the first newline as
// a type name); the rest is the index text. Checks: only the three
// documented codes are thrown; an index that was made has its creator's type
// name, compares equal to itself, and its text makes an equal index with the
// same text again.
#include <cstdint>
#include <string>

#include <kivo/data/kivoDataIndex.h>

#include "kivoFuzzSupport.h"

namespace {

using namespace kivo::Data;
using kivo::Fuzz::fail;

const char* const kTypeNames[] = {"numeric", "pair", "string"};

bool make(const std::string& type, const std::string& text, Index& out, int& code) {
  try {
    out = Index::doCreate(type, text);
    return true;
  } catch (Index::eCreationErrors error) {
    code = error;
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  kivo::Fuzz::LeakCheck check;
  std::string type;
  std::string text = kivo::Fuzz::asText(data + 1, size - 1);
  if (data[0] % 4 < 3) {
    type = kTypeNames[data[0] % 4];
  } else {
    const size_t end = text.find('\n');
    type = text.substr(0, end);
    text = end == std::string::npos ? "" : text.substr(end + 1);
  }
  Index index;
  int code = -1;
  if (!make(type, text, index, code)) {
    const bool known = Index::creators().count(type) != 0;
    if (code < 0 || code > 2 || (code == Index::kUnknownIndexType) == known) {
      fail("index creation threw code " + std::to_string(code) + " for type '" + type + "'");
    }
    return 0;
  }
  if (index.typeName() != type) fail("a '" + type + "' index says " + index.typeName());
  if (!(index == index) || index != index || index < index || !(index <= index)) {
    fail("an index does not compare equal to itself");
  }
  const std::string written = index.asString();
  Index again;
  if (!make(type, written, again, code)) {
    fail("the index text '" + written + "' does not read back");
  }
  if (again != index || again.asString() != written) {
    fail("the index text '" + written + "' reads back as '" + again.asString() + "'");
  }
  if (index.supportsDenseMode() && index.denseSpaceBetween(again) != 1) {
    fail("an index is not one slot away from itself");
  }
  return 0;
}
