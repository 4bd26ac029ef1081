// Stream raw reader, with structures of every type at lengths 1, 3 and 16
// registered ("all3", "floatx16", ...) so that element lines are reached.
// Checks: a refused text says why and leaves nothing behind; a stream that
// was made writes without errors, and its debug texts can be printed.
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <kivo/data/kivoDataStream.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>
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
  std::unique_ptr<Stream> stream(StreamSerializerRaw::theFormat()->read(input, errors));
  if (!stream) {
    if (errors.empty()) kivo::Fuzz::fail("a stream text was refused without a message");
    kivo::Fuzz::note("refused: " + errors);
    return 0;
  }
  kivo::Fuzz::note("read");
  kivo::Fuzz::streamText(*stream);
  std::ostringstream sink;
  kivo::Debug::Print print(sink);
  Stream::Debug(stream.get(), print);
  kivo::Debug::Footprint footprint;
  Stream::Debug(stream.get(), footprint);
  return 0;
}
