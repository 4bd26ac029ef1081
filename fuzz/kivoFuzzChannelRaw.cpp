// Channel raw reader (the streams inside it included), with structures of
// every type at lengths 1, 3 and 16 registered ("all3", "floatx16", ...) so
// that element lines are reached. Checks: a refused text says why and leaves
// nothing behind; a channel that was made writes without errors, and its
// debug texts can be printed.
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <kivo/data/kivoDataChannel.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>
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
  std::unique_ptr<Channel> channel(ChannelSerializerRaw::theFormat()->read(input, errors));
  if (!channel) {
    if (errors.empty()) kivo::Fuzz::fail("a channel text was refused without a message");
    kivo::Fuzz::note("refused: " + errors);
    return 0;
  }
  kivo::Fuzz::note("read");
  kivo::Fuzz::channelText(*channel);
  std::ostringstream sink;
  kivo::Debug::Print print(sink);
  Channel::Debug(channel.get(), print);
  kivo::Debug::Footprint footprint;
  Channel::Debug(channel.get(), footprint);
  return 0;
}
