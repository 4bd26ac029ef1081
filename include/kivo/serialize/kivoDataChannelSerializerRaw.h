// ChannelSerializerRaw: the "raw" text form of a Channel, the family's
// default format, registered at library load. Line by line: "name NAME",
// then per stream a line "stream" followed by the stream's raw text, then the
// terminator "endChannel". Reading stops after the terminator's line, so
// other text may follow. One instance per process (theFormat()); it holds
// no data.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/serialize/kivoDataChannelSerializer.h>

namespace kivo::Data {

class KIVO_EXPORT ChannelSerializerRaw : public ChannelSerializer {
 public:
  // "raw".
  const char* formatType() const override;
  ~ChannelSerializerRaw() override;

  // Reads one channel up to and including its "endChannel" line (which must
  // end with a line end). Returns a new channel owned by the caller, or null.
  // Appends the messages found to errors, each ending in a newline, the last
  // a count ("1 error found, Channel not created"). The streams are read
  // with the raw stream format, which writes into errors itself: a failing
  // stream REPLACES what errors held before it. A channel without a name
  // line is named "Unnamed"; a later stream of the same name replaces an
  // earlier one.
  Channel* read(std::istream& input, std::string& errors) const override;
  // Writes the channel and its streams in name order. Returns the number of
  // errors (the streams' errors added); appends the messages and a count
  // line to errors.
  int write(const Channel& channel, std::ostream& output, std::string& errors) const override;
  void getFormatDescription(std::ostream& output) const override;

  // The one instance, created on first call and never deleted. Creating it
  // makes it the family's default format.
  static ChannelSerializerRaw* theFormat();

 private:
  ChannelSerializerRaw();
};

}  // namespace kivo::Data
