// StructureSerializerRaw: the "raw" text form of a Structure, the family's
// default format, registered at library load. The text is a list of
// KEY=VALUE fields separated by ":" or newlines (any mix):
//   name=My Structure:int32=ID:float[3]=Origin
// One instance per process (theFormat()); it holds no data.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

namespace kivo::Data {

class KIVO_EXPORT StructureSerializerRaw : public StructureSerializer {
 public:
  // "raw".
  const char* formatType() const override;
  ~StructureSerializerRaw() override;

  // Sets errors to empty, then reads the whole rest of input as one
  // structure. Returns a new, unregistered structure with count 0 (the caller
  // takes the first reference: hold it in a kivo::Ref at once), or null. Every problem found is listed in
  // errors, one per line, without a newline after the last. A field without
  // exactly one "=" is reported but does not fail the read; every other
  // message does (bad brackets, unknown types, a member refused for its size,
  // length 0 or missing name, a missing name field). A member whose name is
  // already present is left out silently.
  Structure* read(std::istream& input, std::string& errors) const override;
  // Writes "name=NAME" and ":TYPE[LEN]=NAME" per member (no "[LEN]" for
  // length 1), with no line end. Returns 0. The structure must be held by a
  // reference while it is written: its member iterators take and drop one.
  int write(const Structure& structure, std::ostream& output) const override;
  // The help text: each line starts with a newline, none follows the last.
  void getFormatDescription(std::ostream& output) const override;

  // The one instance, created on first call and never deleted. Creating it
  // makes it the family's default format.
  static StructureSerializerRaw* theFormat();

 private:
  StructureSerializerRaw();
};

}  // namespace kivo::Data
