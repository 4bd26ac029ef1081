// Value text of every type: Handle::fromStr on one value of a member of each
// of the fourteen types at lengths 1, 3 and 16, followed by str().
// Input: byte 0 picks the type, byte 1 the length and the value index (one
// past the end included, to reach the dimension message); the rest is the
// text. Checks: the error count and the message lines agree, and the text of
// the stored value reads back to the same text (nothing is lost between
// str() and fromStr()).
#include <cstdint>
#include <memory>
#include <string>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStructure.h>

#include "kivoFuzzSupport.h"

namespace {

using namespace kivo::Data;
using kivo::Fuzz::fail;

constexpr unsigned int kLengths[] = {1, 3, 16};
constexpr int kTypes = Member::kInvalidType;

// One single-member structure per type and length, referenced for the
// lifetime of the process.
const Structure& structureFor(int type, int lengthChoice) {
  static Structure* table[kTypes][3] = {};
  Structure*& s = table[type][lengthChoice];
  if (!s) {
    auto t = static_cast<Member::eDataType>(type);
    s = new Structure(Member::typeName(t));
    s->ref();
    if (!s->addMember(t, kLengths[lengthChoice], "v")) fail("cannot build a value structure");
  }
  return *s;
}

size_t countLines(const std::string& text) {
  size_t lines = 0;
  for (char c : text) lines += c == '\n';
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (int type = 0; type < kTypes; ++type) {
    for (int length = 0; length < 3; ++length) structureFor(type, length);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  kivo::Fuzz::LeakCheck check;
  const int type = data[0] % kTypes;
  const int lengthChoice = (data[1] & 0x0f) % 3;
  const unsigned int length = kLengths[lengthChoice];
  const unsigned int index = (data[1] >> 4) % (length + 1);
  const std::string text = kivo::Fuzz::asText(data + 2, size - 2);
  const Structure& structure = structureFor(type, lengthChoice);

  Handle handle(structure);
  std::string errors = "kept\n";
  const unsigned int count = handle.fromStr(text, index, errors);
  if (errors.compare(0, 5, "kept\n") != 0) fail("fromStr did not keep earlier errors");
  errors.erase(0, 5);
  if (count != countLines(errors) || (!errors.empty() && errors.back() != '\n')) {
    fail("fromStr returned " + std::to_string(count) + " for the lines '" + errors + "'");
  }
  if (index >= length) {
    if (count != 1) fail("an index past the member was accepted");
    return 0;
  }
  const std::string stored = handle.str(index);
  if (type == Member::kString && index == 0 && count == 0 &&
      stored != text.substr(0, text.find('\0'))) {
    fail("a string value was not stored verbatim");
  }
  Handle again(structure);
  std::string againErrors;
  if (again.fromStr(stored, index, againErrors) != 0) {
    fail("the text '" + stored + "' of a stored value does not read back: " + againErrors);
  }
  if (again.str(index) != stored) {
    fail("the text '" + stored + "' reads back as '" + again.str(index) + "'");
  }
  return 0;
}
