// StructureSerializer: the family of text formats for Structure objects, chosen at run time
// by format name. Each format is one instance of a class derived from this
// base; formats hold no data and all their operations are const. The family
// keeps a process-wide registry of formats (ordered by object address) and a
// default format. The library registers its "raw" format at load, which is
// also the default. The registry and the default are unsynchronised: change
// them from one thread (the library does so at load and unload).
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>
#include <iosfwd>
#include <set>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Structure;

class KIVO_EXPORT StructureSerializer {
 public:
  using Formats = std::set<const StructureSerializer*>;

  StructureSerializer();
  // A format is one object with an identity in the registry: not copyable.
  StructureSerializer(const StructureSerializer&) = delete;
  StructureSerializer& operator=(const StructureSerializer&) = delete;

  // The format's name ("raw" for the raw format), compared exactly by
  // formatByName().
  virtual const char* formatType() const = 0;
  virtual ~StructureSerializer();
  // Parses one Structure from input. Returns a new, unregistered structure
  // with reference count 0 (the caller takes the first reference: hold it in
  // a kivo::Ref at once), or null on failure; errors receives the problems
  // found. The text is read to the end of input: a structure text stands
  // alone in its stream.
  virtual Structure* read(std::istream& input, std::string& errors) const = 0;
  // Writes the structure. Returns 0 on success, non-zero on failure.
  virtual int write(const Structure& structure, std::ostream& output) const = 0;
  // Prints the format's help text.
  virtual void getFormatDescription(std::ostream& output) const = 0;

  // The registry, created on first use and destroyed at process exit.
  static Formats& allFormatsToEdit();
  static const Formats& allFormats();
  // Adds the format; registering it again changes nothing.
  static void registerFormat(const StructureSerializer& format);
  // Removes the format; a format not registered changes nothing.
  static void deregisterFormat(const StructureSerializer& format);
  // The first registered format, in registry order, whose formatType()
  // equals name exactly (case-sensitive); null when none does.
  static const StructureSerializer* formatByName(const std::string& name);
  // The default format (null allowed); each raw format sets itself as its
  // family's default when its instance is created.
  static void setDefaultFormat(const StructureSerializer* format);
  static const StructureSerializer* defaultFormat();

  // One line naming the format; for null, the registered formats and the
  // default. Returns true.
  static bool Debug(const StructureSerializer* format, kivo::Debug::Print& print);
  // The format's own size; nothing for null. Returns true.
  static bool Debug(const StructureSerializer* format, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  static const StructureSerializer* _defaultFormat;
};

}  // namespace Data
}  // namespace kivo
