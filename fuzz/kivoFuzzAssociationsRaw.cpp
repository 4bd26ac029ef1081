// Associations raw reader (channels and streams inside), with structures of
// every type at lengths 1, 3 and 16 registered ("all3", "floatx16", ...) so
// that element lines are reached. Checks: a refused text says why and leaves
// nothing behind; associations that were made write without errors, and
// their debug texts can be printed.
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <kivo/data/kivoDataAssociations.h>
#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "kivoFuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivo::Fuzz::registerTextStructures();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kivo::Data;
  kivo::Fuzz::registerTextStructures();
  kivo::Fuzz::LeakCheck check;
  std::istringstream input(kivo::Fuzz::asText(data, size));
  std::string errors;
  std::unique_ptr<Associations> associations(
      AssociationsSerializerRaw::theFormat()->read(input, errors));
  if (!associations) {
    if (errors.empty()) kivo::Fuzz::fail("an associations text was refused without a message");
    kivo::Fuzz::note("refused: " + errors);
    return 0;
  }
  kivo::Fuzz::note("read");
  kivo::Fuzz::associationsText(*associations);
  std::ostringstream sink;
  kivo::Debug::Print print(sink);
  Associations::Debug(associations.get(), print);
  kivo::Debug::Footprint footprint;
  Associations::Debug(associations.get(), footprint);
  return 0;
}
