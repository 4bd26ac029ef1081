#include <kivo/serialize/kivoDataStructureSerializerDebug.h>

#include <ostream>
#include <string>

#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugPrint.h>

namespace kivo::Data {
namespace {

constexpr char kCannotRead[] = "Cannot read the debug format";

}  // namespace

const char* const StructureSerializerDebug::structureFormatType = "debug";

StructureSerializerDebug::StructureSerializerDebug() = default;

StructureSerializerDebug::~StructureSerializerDebug() = default;

const char* StructureSerializerDebug::formatType() const { return structureFormatType; }

Structure* StructureSerializerDebug::read(std::istream&, std::string& errors) const {
  errors = kCannotRead;
  return nullptr;
}

int StructureSerializerDebug::write(const Structure& structure, std::ostream& output) const {
  kivo::Debug::Print print(output);
  return Structure::Debug(&structure, print) ? 0 : 1;
}

void StructureSerializerDebug::getFormatDescription(std::ostream& output) const {
  output << "\nThe Debug format will be self-explanatory"
         << "\nas it dumps all of the  information about"
         << "\nthe structure in a verbose format.";
}

StructureSerializerDebug* StructureSerializerDebug::theFormat() {
  static StructureSerializerDebug* const instance = new StructureSerializerDebug();
  return instance;
}

}  // namespace kivo::Data
