// StreamSerializer: the family of text formats for Stream objects, chosen at run time
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

class Stream;

class KIVO_EXPORT StreamSerializer {
 public:
  using Formats = std::set<const StreamSerializer*>;

  StreamSerializer();
  // A format is one object with an identity in the registry: not copyable.
  StreamSerializer(const StreamSerializer&) = delete;
  StreamSerializer& operator=(const StreamSerializer&) = delete;

  // The format's name ("raw" for the raw format), compared exactly by
  // formatByName().
  virtual const char* formatType() const = 0;
  virtual ~StreamSerializer();
  // Parses one Stream from input. Returns a new object owned by the caller,
  // or null on failure; errors receives the problems found.
  // Reading stops after the format's end marker, so objects may follow.
  virtual Stream* read(std::istream& input, std::string& errors) const = 0;
  // Writes the stream. Returns the number of errors (0 on success) and
  // appends their description to errors.
  virtual int write(const Stream& stream, std::ostream& output, std::string& errors) const = 0;
  // Prints the format's help text.
  virtual void getFormatDescription(std::ostream& output) const = 0;

  // The registry, created on first use and destroyed at process exit.
  static Formats& allFormatsToEdit();
  static const Formats& allFormats();
  // Adds the format; registering it again changes nothing.
  static void registerFormat(const StreamSerializer& format);
  // Removes the format; a format not registered changes nothing.
  static void deregisterFormat(const StreamSerializer& format);
  // The first registered format, in registry order, whose formatType()
  // equals name exactly (case-sensitive); null when none does.
  static const StreamSerializer* formatByName(const std::string& name);
  // The default format (null allowed); each raw format sets itself as its
  // family's default when its instance is created.
  static void setDefaultFormat(const StreamSerializer* format);
  static const StreamSerializer* defaultFormat();

  // One line naming the format; for null, the registered formats and the
  // default. Returns true.
  static bool Debug(const StreamSerializer* format, kivo::Debug::Print& print);
  // The format's own size; nothing for null. Returns true.
  static bool Debug(const StreamSerializer* format, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  static const StreamSerializer* _defaultFormat;
};

}  // namespace Data
}  // namespace kivo
