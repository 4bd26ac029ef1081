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
//
// Safe rewrites, added to the formats' in-place writing (valid files read and
// write exactly as they always have; only failures and concurrency behave
// differently):
// - Locking. A read holds an advisory lock (flock) on the file while it
//   reads: shared, so that it never sees a rewrite half done. A write holds
//   an exclusive one while it writes. With setHoldForWrite(true) the read
//   takes the exclusive lock and keeps it until write() is done with it,
//   unlock(), another read of another file or the accessor's destruction, so
//   that no other locking writer can change the file between the read and
//   the write. A lock another process holds is waited for lockWait()
//   milliseconds, then reported ("The file NAME is locked by another
//   process ...").
// - Rollback journal. Before the first byte of the file changes, the bytes
//   the write will overwrite or cut off are saved in "<file>.kivo-journal"
//   beside it (the file's mode, flushed to disk with its folder); the file
//   is then rewritten through the descriptor the write locked, cut to its
//   length with ftruncate, flushed, and the journal removed. A write that
//   fails after the file began to change puts the old bytes back at once
//   and says "The file NAME was left as it was."; if even that fails, the
//   message says the file is damaged and names the journal.
// - Recovery. Every read and write first looks for a journal: a complete
//   one (its writer died while changing the file) puts the old bytes back,
//   an incomplete one (it died before) is removed. A reader that may not
//   write the file refuses instead, naming the journal (or, when the journal
//   is incomplete, reads the untouched file). recoverFile() does it
//   explicitly.
// - A write refuses a file whose device, inode, size, modification or
//   change time differ from what this accessor last saw, or whose name no
//   longer leads to the file it read.
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
namespace Detail {
class SceneFile;
}  // namespace Detail

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
  // Added limit, so that what a file declares cannot cost more than the
  // file: the element blocks a read makes without text behind them (each
  // structure's default element, and the element each stream's data lines
  // are read into) are held to twice the file's size plus 63 MiB, which
  // keeps a small file's read within twice the file plus 64 MiB. A stream
  // that would pass that fails to read, with the message "Structure 'S' has
  // elements of N bytes: reading stream 'T' would take this read past the L
  // bytes it may hold without text behind them (twice the file's size plus
  // 63 MiB)", and so does the read. Elements read from the file are not
  // counted: their values are in its text.
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

  // Whether a write of an ASCII ("ta") file replaces the whole old metadata
  // section (false by default). By default the section ends, as the format
  // has always had it, at the first line after a metadata line that starts
  // with a letter, which is the target line of the first node-level
  // statement: everything from there on is kept, old statements included.
  // A clean rewrite reads the old section forward statement by statement (a
  // statement ends at its ';' outside double quotes) and replaces all of it,
  // stray target lines that earlier rewrites left included, keeping only the
  // trailer line and what follows it; text that is none of these makes it
  // refuse ("Line N of NAME is neither metadata nor the trailer; a clean
  // rewrite leaves the file unchanged."). Binary ("tb") writes are always
  // clean. A deliberate addition to the format's writing.
  void setCleanRewrite(bool clean);
  bool cleanRewrite() const;

  // Whether read() takes the exclusive lock and holds it for a later
  // write() (false by default: a shared lock for the read only). A read that
  // holds it opens the file for writing, so it fails on a file this process
  // may not write ("Could not open NAME for writing.").
  void setHoldForWrite(bool hold);
  bool holdsForWrite() const;
  // Releases the lock a read holds for writing; nothing when there is none.
  void unlock();
  // How long a read or a write waits for a lock another process holds, in
  // milliseconds (10000 by default; 0 tries once).
  void setLockWait(unsigned milliseconds);
  unsigned lockWait() const;
  // Whether a write flushes the journal, its folder and the file to disk
  // at each step (true by default). Off, a crash of the process still
  // leaves the old file or the new one; a crash of the machine may not.
  void setSyncWrites(bool sync);
  bool syncWrites() const;

  // The journal a write of fileName keeps while it changes the file:
  // fileName followed by ".kivo-journal".
  static std::string journalName(const std::string& fileName);
  // What recoverFile() did.
  enum eRecovery {
    kNothingToRecover,        // no journal
    kRolledBack,              // a complete journal put the old bytes back
    kIncompleteJournalRemoved,  // its writer died before the file changed
    kRecoveryFailed           // the messages say why; nothing was removed
  };
  // Takes the exclusive lock on fileName (waiting up to waitMilliseconds)
  // and finishes what an unfinished rewrite left, as every read and write
  // does first.
  static eRecovery recoverFile(const std::string& fileName, std::string& errors,
                               unsigned waitMilliseconds = 10000);

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

  // The open, locked, recovered file the formats read and write through: the
  // one this accessor holds for writing when it is fileName()'s, else a new
  // one, for reading with a shared lock (or, when it holds for write, kept
  // with the exclusive lock) or, with forWrite, for writing with an
  // exclusive lock for this call only. Null, with the messages appended, on
  // failure; openFailure is the format's message for a file that does not
  // open (none when empty), and openError, when given, the errno of that
  // open (0 when the file opened).
  std::shared_ptr<Detail::SceneFile> sceneFile(bool forWrite, const std::string& openFailure,
                                               std::string& errors,
                                               int* openError = nullptr) const;

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
