// Round trip through the raw formats: input bytes -> objects -> raw text ->
// read -> objects equal to the first ones, and the text written from them is
// the same text. Byte 0 picks the level (stream, channel or associations);
// the rest is the text. Structures of every type at lengths 1, 3 and 16 are
// registered as for the reader harnesses. Equality is by content: names,
// index types, structures, indices and the text of every value (a value
// read back from its text prints as the same text).
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializerRaw.h>
#include <kivo/serialize/kivoDataChannelSerializerRaw.h>
#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include "kivoFuzzSupport.h"

namespace {

using namespace kivo::Data;
using kivo::Fuzz::fail;

// The first difference between a and b, or "" when they are equal.
std::string differ(const Stream& a, const Stream& b) {
  if (a.name() != b.name()) return "stream names '" + a.name() + "' and '" + b.name() + "'";
  const std::string where = "stream '" + a.name() + "': ";
  if (a.indexType() != b.indexType()) return where + "index types";
  if (&a.structure() != &b.structure()) return where + "structures";
  if (a.elementCount() != b.elementCount()) return where + "element counts";
  StreamIterator i = a.begin();
  StreamIterator j = b.begin();
  for (; i != a.end() && j != b.end(); ++i, ++j) {
    if (i.index() != j.index()) return where + "indices " + i.index().asString();
    Handle h = *i;
    Handle k = *j;
    for (unsigned int m = 0; m < a.structure().memberCount(); ++m) {
      h.setPositionByMemberIndex(m);
      k.setPositionByMemberIndex(m);
      for (unsigned int v = 0; v < h.dataLength(); ++v) {
        if (h.str(v) != k.str(v)) {
          return where + "at " + i.index().asString() + " '" + h.str(v) + "' and '" + k.str(v) +
                 "'";
        }
      }
    }
  }
  if (i != a.end() || j != b.end()) return where + "element walks";
  return "";
}

std::string differ(const Channel& a, const Channel& b) {
  if (a.name() != b.name()) return "channel names '" + a.name() + "' and '" + b.name() + "'";
  if (a.dataStreamCount() != b.dataStreamCount()) return "channel '" + a.name() + "': streams";
  for (unsigned int i = 0; i < a.dataStreamCount(); ++i) {
    const std::string d = differ(*a.dataStream(i), *b.dataStream(i));
    if (!d.empty()) return d;
  }
  return "";
}

// Channels without streams are not written, so they are not compared.
std::string differ(const Associations& a, const Associations& b) {
  unsigned int j = 0;
  for (unsigned int i = 0; i < a.channelCount(); ++i) {
    if (a[i]->empty()) continue;
    if (j >= b.channelCount()) return "channel '" + a[i]->name() + "' lost";
    const std::string d = differ(*a[i], *b[j++]);
    if (!d.empty()) return d;
  }
  if (j != b.channelCount()) return "channels added";
  return "";
}

template <class T, class Format, class Writer>
void roundTrip(const Format& format, const std::string& text, Writer write) {
  std::istringstream input(text);
  std::string errors;
  std::unique_ptr<T> first(format.read(input, errors));
  if (!first) {
    kivo::Fuzz::note("refused: " + errors);
    return;
  }
  kivo::Fuzz::note("read");
  const std::string written = write(*first);
  std::istringstream again(written);
  std::string againErrors;
  std::unique_ptr<T> second(format.read(again, againErrors));
  if (!second) fail("the text\n" + written + "does not read back:\n" + againErrors);
  const std::string d = differ(*first, *second);
  if (!d.empty()) fail("the text\n" + written + "reads back with other " + d);
  if (write(*second) != written) fail("the text\n" + written + "is written differently");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivo::Fuzz::registerTextStructures();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  kivo::Fuzz::registerTextStructures();
  kivo::Fuzz::LeakCheck check;
  const std::string text = kivo::Fuzz::asText(data + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      roundTrip<Stream>(*StreamSerializerRaw::theFormat(), text, kivo::Fuzz::streamText);
      break;
    case 1:
      roundTrip<Channel>(*ChannelSerializerRaw::theFormat(), text, kivo::Fuzz::channelText);
      break;
    default:
      roundTrip<Associations>(*AssociationsSerializerRaw::theFormat(), text,
                              kivo::Fuzz::associationsText);
      break;
  }
  return 0;
}
