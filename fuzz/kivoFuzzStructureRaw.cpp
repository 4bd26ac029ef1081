// Structure raw reader. The whole input is one structure text. Checks: a
// refused text says why; a structure with members that was made writes a
// text that reads back, without messages, to an equal structure whose text
// is the same.
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataStructureSerializerRaw.h>

#include "kivoFuzzSupport.h"

namespace {

using namespace kivo::Data;
using kivo::Fuzz::fail;

// A structure the reader made, released through its reference count.
struct Owned {
  explicit Owned(Structure* s) : structure(s) {
    if (structure) structure->ref();
  }
  ~Owned() {
    if (structure) structure->unref();
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Structure* structure;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kivo::Fuzz::LeakCheck check;
  const StructureSerializerRaw& format = *StructureSerializerRaw::theFormat();
  std::istringstream input(kivo::Fuzz::asText(data, size));
  std::string errors;
  Owned first(format.read(input, errors));
  if (!first.structure) {
    if (errors.empty()) fail("a structure text was refused without a message");
    kivo::Fuzz::note("refused: " + errors);
    return 0;
  }
  kivo::Fuzz::note("read: " + errors);
  const std::string written = kivo::Fuzz::structureText(*first.structure);
  // Fields refused only for a missing '=' still give a structure, which may
  // then have no members; its text ("name=S") is refused as it should be.
  if (first.structure->empty()) return 0;
  std::istringstream again(written);
  std::string againErrors;
  Owned second(format.read(again, againErrors));
  if (!second.structure || !againErrors.empty()) {
    fail("the structure text '" + written + "' does not read back: " + againErrors);
  }
  if (*second.structure != *first.structure) {
    fail("the structure text '" + written + "' reads back as a different structure");
  }
  if (kivo::Fuzz::structureText(*second.structure) != written) {
    fail("the structure text '" + written + "' is written differently after reading it");
  }
  return 0;
}
