// StreamSerializerRaw: the "raw" text form of a Stream, the family's default
// format, registered at library load. Line by line: "name NAME",
// "indexType TYPE" (optional on reading: numeric), "structure STRUCTURE"
// (a registered structure), then two lines per element, its index text and
// its member values separated by blanks, and the terminator "endStream".
// Reading stops after the terminator, so other text may follow. Numbers are
// read and written in the classic locale; floating-point values are written
// with the output stream's precision. One instance per process
// (theFormat()); it holds no data.
//
// Added refusal, while a scene file is read (Accessor::read): a stream whose
// structure's default element, or whose first element's working block,
// would take the read past what it may hold without text behind it (twice
// the file's size plus 63 MiB) fails to read with the message "Structure
// 'S' has elements of N bytes: reading stream 'T' would take this read past
// the L bytes it may hold without text behind them (twice the file's size
// plus 63 MiB)". Outside such a read nothing is counted.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/serialize/kivoDataStreamSerializer.h>

namespace kivo::Data {

class Handle;
class Structure;

class KIVO_EXPORT StreamSerializerRaw : public StreamSerializer {
 public:
  // "raw".
  const char* formatType() const override;
  ~StreamSerializerRaw() override;

  // Reads one stream up to and including its "endStream" line. Returns a new
  // stream owned by the caller, leaving errors as it was, or null; on
  // failure errors is REPLACED by the messages found, each ending in a
  // newline, the last a count ("2 errors found, Stream not created"). An
  // element that the stream refuses to store is left out without failing
  // the read. Input ending before "endStream" and lines longer than 1023
  // characters fail the read. Each element is handed to the stream on its
  // first member, not on the last member the values were read into, so the
  // handles a mapped stream keeps start there however a line was read.
  Stream* read(std::istream& input, std::string& errors) const override;
  // Writes the whole stream. Returns the number of members that could not be
  // written; appends their messages and a count line to errors (and "Error in
  // stream while writing." when output failed).
  int write(const Stream& stream, std::ostream& output, std::string& errors) const override;
  void getFormatDescription(std::ostream& output) const override;

  // Writes the values of the member the handle is on, separated by blanks.
  // Returns 0, or 1 (appending two lines to errors) when the handle has no
  // data for it. record numbers the element in messages.
  virtual int writeMember(Handle& handle, unsigned int recordNumber, std::ostream& output,
                          std::string& errors) const;

  // Reads the values of every member of structure into handle (which must be
  // on that structure, with data), one member after the other. Returns the
  // number of errors and appends one message line per error to errors.
  static int readStructure(const Structure& structure, std::istream& input,
                           unsigned int recordNumber, Handle& handle, std::string& errors);
  // Reads the values of the member the handle is on. Values may be separated
  // by any whitespace. Returns the number of errors (a member stops at its
  // first bad value; a matrix reports each bad entry) and appends one message
  // line per error to errors. After a bad value the input's error state is
  // cleared so that reading can go on.
  static int readMember(std::istream& input, unsigned int recordNumber, Handle& handle,
                        std::string& errors);

  // The one instance, created on first call and never deleted. Creating it
  // makes it the family's default format.
  static StreamSerializerRaw* theFormat();

 private:
  StreamSerializerRaw();
};

}  // namespace kivo::Data
