// Accessor: reads and rewrites the metadata section of one scene file without
// loading the scene: the Structures the file declares and the Associations
// it applies, by name ("" for the scene itself, a node name otherwise). One
// concrete accessor exists per file format; each format registers an
// AccessorFactory under its file extension at library load, and callers get
// an accessor for a file name through accessorByExtension() or readFile().
// An accessor is owned by whoever obtained it (std::unique_ptr) and holds
// one reference on every structure in its set. Not copyable.
//
// Reading empties the process-wide structure registry for its duration (the
// file's declarations are deserialized into it) and restores it on every
// path, exceptions included: reads must not run concurrently with each other
// or with other use of that registry.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataAssociations.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Structure;

class KIVO_EXPORT Accessor {
 public:
  // Orders structures by name (byte-wise C-string comparison; a structure
  // always has a name). Throws std::invalid_argument("Null Structure found in
  // StructureSet.") when either pointer is null.
  struct KIVO_EXPORT StructureNameLessThan {
    bool operator()(const Structure* a, const Structure* b) const;
  };
  using StructureSet = std::set<const Structure*, StructureNameLessThan>;
  // Associations by the name the file applies them under ("" for the scene).
  using AssociationsMap = std::map<std::string, Associations>;

  Accessor(const Accessor&) = delete;
  Accessor& operator=(const Accessor&) = delete;
  // Releases the references on the structures of the set and on those an
  // earlier read() set aside.
  virtual ~Accessor();

  // Writes structures() and associations() into the file named by
  // fileName(), appending messages to errors; false on failure. This base
  // version only appends "<class name> does not implement write".
  virtual bool write(std::string& errors) const;
  // True when fileName looks like a file of this accessor's format. This
  // base version says true.
  virtual bool isFileSupported(const std::string& fileName) const;

  // A new accessor for the file name's extension (the text after the last
  // '.', or the whole argument when there is none), looked up lower-cased:
  // "scene.TA", "ta" and "dir.x/scene.ta" find the "ta" accessor. Empty for
  // an unknown extension or a name ending in '.'.
  static std::unique_ptr<Accessor> accessorByExtension(const std::string& fileNameOrExtension);
  // Every registered extension, lower-cased and sorted.
  static std::set<std::string> supportedExtensions();
  // accessorByExtension(fileName), then read(fileName, errors). Empty, with
  // the messages in errors, when no factory knows the extension
  // ("No factory registered for type of file \"NAME\"") or the read fails.
  static std::unique_ptr<Accessor> readFile(const std::string& fileName, std::string& errors);

  // Reads the metadata of fileName, keeping only the named structures and
  // associations when a set is given (null means all). The structures come
  // into structures(), each with a reference held by this accessor, and the
  // associations into associations(). Structures that an earlier read() put
  // in the set are set aside, not released: pointers to them stay valid
  // until this accessor is destroyed. On failure the accessor holds no
  // structures and no associations, fileName() is set, the messages are
  // appended to errors (some formats replace them, see their messages), and
  // the process registry is as it was. Exceptions from the format are
  // passed on after the registry is restored.
  bool read(const std::string& fileName, const std::set<std::string>* structureNames,
            const std::set<std::string>* associationsNames, std::string& errors);
  bool read(const std::string& fileName, std::string& errors);

  // The file last given to read().
  const std::string& fileName() const;
  const StructureSet& structures() const;
  const AssociationsMap& associations() const;
  // Modifiable, so that metadata can be edited before write().
  AssociationsMap& associations();
  // References every structure of s, releases those of the current set and
  // copies s in (nothing changes when s is this accessor's own set).
  void setStructures(const StructureSet& s);
  // No structures, no associations.
  void clear();

  // Object: the file name, the structure names and the associations names.
  // Null: the class statistics and the registered extensions. Return true.
  static bool Debug(const Accessor* accessor, kivo::Debug::Print& print);
  static bool Debug(const Accessor* accessor, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  Accessor();

  // The format's reading, called by read() with the registry emptied and the
  // accessor's set and map empty: deserializes the file's declarations and
  // registers the wanted ones (Structure::registerStructure), and fills
  // associations(). A null set means all names. Returns false on failure,
  // with messages in errors.
  virtual bool performRead(const std::set<std::string>* structureNames,
                           const std::set<std::string>* associationsNames, std::string& errors) = 0;

 private:
  struct State;
  std::unique_ptr<State> fState;
};

// AccessorFactoryBase: makes the accessors of one file format. Constructing
// a factory registers it under its extension (lower-cased, without the dot)
// unless a factory is already registered there: the first registration wins.
// Destroying it removes the registry entries that point at it, and only
// those. The registry does not own factories; formats keep theirs as static
// objects. Not copyable.
class KIVO_EXPORT AccessorFactoryBase {
 public:
  explicit AccessorFactoryBase(const std::string& extension);
  AccessorFactoryBase(const AccessorFactoryBase&) = delete;
  AccessorFactoryBase& operator=(const AccessorFactoryBase&) = delete;
  virtual ~AccessorFactoryBase();

  // A new accessor of the factory's format, owned by the caller.
  virtual std::unique_ptr<Accessor> create() const = 0;

  // Object: the extensions it is registered under. Null: the class
  // statistics. Return true.
  static bool Debug(const AccessorFactoryBase* factory, kivo::Debug::Print& print);
  static bool Debug(const AccessorFactoryBase* factory, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;
};

// AccessorFactory<T>: the factory of accessor class T (default-constructible,
// derived from Accessor).
template <class T>
class AccessorFactory : public AccessorFactoryBase {
 public:
  explicit AccessorFactory(const std::string& extension) : AccessorFactoryBase(extension) {}
  std::unique_ptr<Accessor> create() const override { return std::make_unique<T>(); }
};

}  // namespace Data
}  // namespace kivo
