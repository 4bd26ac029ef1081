// AssociationsSerializerRaw: the "raw" text form of an Associations, the
// family's default format, registered at library load. Per channel a line
// beginning with "channel" followed by the channel's raw text, then the
// terminator "endAssociations". Reading stops after the terminator, so other
// text may follow. One instance per process (theFormat()); it holds no data.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>

namespace kivo::Data {

class KIVO_EXPORT AssociationsSerializerRaw : public AssociationsSerializer {
 public:
  // "raw".
  const char* formatType() const override;
  ~AssociationsSerializerRaw() override;

  // Reads channels up to the "endAssociations" word. Returns a new object
  // owned by the caller, or null. Appends the messages found to errors, each
  // ending in a newline, the last a count ("1 error found, Associations not
  // created"); the channels and streams read write into errors themselves
  // (a failing stream replaces what errors held). Text after "channel" on its
  // line is ignored: each channel is named by its own name line. Input that
  // has already reached its end ends reading without a message.
  Associations* read(std::istream& input, std::string& errors) const override;
  // Writes every channel that holds streams, in name order, then the
  // terminator. Returns the number of errors (the channels' errors added);
  // appends a count line to errors when there were any.
  int write(const Associations& associations, std::ostream& output,
            std::string& errors) const override;
  void getFormatDescription(std::ostream& output) const override;

  // The one instance, created on first call and never deleted. Creating it
  // makes it the family's default format.
  static AssociationsSerializerRaw* theFormat();

 private:
  AssociationsSerializerRaw();
};

}  // namespace kivo::Data
