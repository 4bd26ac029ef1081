// StructureSerializerDebug: the write-only "debug" format of Structure, the
// structure's verbose debug dump. It is not registered at load and never
// becomes the default: a caller that wants it found by name registers
// *theFormat() itself. One instance per process; it holds no data.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

namespace kivo::Data {

class KIVO_EXPORT StructureSerializerDebug : public StructureSerializer {
 public:
  // The format name, "debug".
  static const char* const structureFormatType;

  // structureFormatType.
  const char* formatType() const override;
  ~StructureSerializerDebug() override;

  // Consumes nothing, sets errors to "Cannot read the debug format" and
  // returns null.
  Structure* read(std::istream& input, std::string& errors) const override;
  // Writes the structure's debug print (Structure::Debug) to output. Returns
  // 0, or 1 when the print reports failure. The structure must be held by a
  // reference while it is written.
  int write(const Structure& structure, std::ostream& output) const override;
  // Three lines, each starting with a newline.
  void getFormatDescription(std::ostream& output) const override;

  // The one instance, created on first call and never deleted.
  static StructureSerializerDebug* theFormat();

 private:
  StructureSerializerDebug();
};

}  // namespace kivo::Data
