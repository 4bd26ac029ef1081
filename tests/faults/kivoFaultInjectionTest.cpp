// FaultyWrite.*   a rewrite whose k-th file call fails (once, from then on,
//                 or as a short write), or whose process dies just before
//                 it, for every k a clean rewrite makes: the scene body never
//                 changes, and once the library has recovered the file it is
//                 the old one or, after a write that reported success, the
//                 new one; each refusal gives one message of its table
// FaultyRead.*    a read whose k-th read or seek fails (its exact message),
//                 or whose k-th allocation throws std::bad_alloc: no result
//                 but the right one, the registry restored, no object alive
// ReadMemory.*    what a read of a hostile file, or of any scene file of
//                 the fuzz corpora, allocates (the largest ratio is printed)
// AllocationFailure.*  a constructor that meets std::bad_alloc leaves the
//                 instance counters as they were and leaks nothing; a
//                 structure text is never read with a field missing
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStreamSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoBinaryTestFiles.h"
#include "faults/kivoFaultShim.h"
#include "support/kivoOwnership.h"

namespace {

namespace Faults = kivo::Test::Faults;
using kivo::Data::Accessor;
using kivo::Data::Associations;
using kivo::Data::Handle;
using kivo::Data::Index;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;
using kivo::Test::asciiBody;
using kivo::Test::binaryScene;
using kivo::Test::chunk;
using kivo::Test::kAsciiTrailer;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;

// Everything an accessor holds, as raw text.
std::string contentOf(const Accessor& accessor) {
  std::ostringstream out;
  for (const Structure* structure : accessor.structures()) {
    kivo::Data::StructureSerializer::formatByName("raw")->write(*structure, out);
    out << '\n';
  }
  std::string ignored;
  for (const auto& entry : accessor.associations()) {
    out << "[" << entry.first << "]\n";
    kivo::Data::AssociationsSerializer::formatByName("raw")->write(entry.second, out, ignored);
  }
  return out.str();
}

// The messages of a failed write or read, one per run, the file's name
// replaced by FILE. Every one must come up in some run, so a table follows
// the file calls the accessors make. A failure after the journal is written
// adds what became of the file.
#define KIVO_LEFT "\nThe file FILE was left as it was."
#define KIVO_DAMAGED                                                                        \
  "\nThe file FILE is damaged: putting its old bytes back failed (No space left on "         \
  "device). They are kept in FILE.kivo-journal; 'kivo-meta recover FILE' puts them back."
#define KIVO_JOURNAL(reason) \
  "Could not write the journal FILE.kivo-journal (" reason "); the file FILE is left unchanged."
#define KIVO_AFTER_JOURNAL(message) message KIVO_LEFT, message KIVO_DAMAGED
#define KIVO_REWRITE_MESSAGES                                                                \
  KIVO_JOURNAL("No space left on device"), KIVO_JOURNAL("Input/output error"),             \
      "Could not read the old metadata of FILE (Input/output error); the file is left "     \
      "unchanged.",                                                                         \
      "Could not reserve the space the new metadata of FILE needs (No space left on "       \
      "device); the file is left unchanged.",                                               \
      KIVO_AFTER_JOURNAL("Could not truncate the file."),                                   \
      KIVO_AFTER_JOURNAL("Could not flush FILE to disk (Input/output error)."),             \
      KIVO_AFTER_JOURNAL("Could not remove the journal FILE.kivo-journal (Input/output error).")
const char* const kAsciiWriteMessages[] = {
    "Could not read trailer.",
    "Could not seek to metadata start.",
    "Could not seek to the first metadata block.",
    "Could not seek to the last metadata block.",
    "Could not seek to trailer start.",
    "Failed reading line while searching metadata end.",
    "Failed reading line while searching metadata start.",
    "Failed to read the file trailer.",
    "Failed to seek to the trailer position.",
    KIVO_AFTER_JOURNAL("Could not seek to metadata start."),
    KIVO_AFTER_JOURNAL("Could not write node associations statement to file."),
    KIVO_AFTER_JOURNAL("Could not write scene associations statement to file."),
    KIVO_AFTER_JOURNAL("Could not write structure chunk to file."),
    KIVO_AFTER_JOURNAL("Failed to append the file trailer."),
    KIVO_REWRITE_MESSAGES,
};
const char* const kBinaryWriteMessages[] = {
    "Could not seek to trailer start.",
    "Error reading chunk before metadata.",
    "Error reading chunk header before metadata.",
    "Error skipping data structure chunk.",
    "Error skipping existing metadata chunks.",
    "The chunk sizes of FILE do not describe its trailer as this accessor found it; the file "
    "is left unchanged.",
    KIVO_AFTER_JOURNAL("Failed to seek to the trailer data start."),
    KIVO_AFTER_JOURNAL("Failed to seek to the trailer size position."),
    KIVO_AFTER_JOURNAL("Failed to the main chunk size position."),
    KIVO_AFTER_JOURNAL("Failed to write the backward chunk size."),
    KIVO_AFTER_JOURNAL("Failed to write the new main chunk size."),
    KIVO_AFTER_JOURNAL("Failed to write the new trailer."),
    KIVO_AFTER_JOURNAL("Failed to write the new trailer size."),
    KIVO_REWRITE_MESSAGES,
};
// The header line comes in one read: a failure there leaves no header.
const char* const kAsciiReadMessages[] = {
    "Could not read block.",
    "Could not seek previous block.",
    "Could not seek to end.",
    "Error reading header.",
};
// The trailer content is read whole, then parsed in memory.
const char* const kBinaryReadMessages[] = {
    "Could not read chunk header in trailer.",      "Could not read file identification.",
    "Could not read trailer backward offset.",      "Could not seek to start of trailer.",
    "Error reading the trailer-size chunk header.", "Error seeking to the end of main chunk.",
};

// Counts the messages of one table as the runs give them.
class MessageTable {
 public:
  template <size_t N>
  explicit MessageTable(const char* const (&messages)[N]) {
    for (const char* message : messages) fSeen[message] = 0;
  }
  // Checks that errors, with path replaced by FILE, is one of the table.
  void take(std::string errors, const std::string& path) {
    for (size_t at = errors.find(path); at != std::string::npos; at = errors.find(path, at))
      errors.replace(at, path.size(), "FILE");
    const auto found = fSeen.find(errors);
    if (found == fSeen.end()) {
      ADD_FAILURE() << "unexpected message: " << errors;
      return;
    }
    ++found->second;
  }
  void expectEverySeen() const {
    for (const auto& entry : fSeen) EXPECT_GT(entry.second, 0) << "never seen: " << entry.first;
  }

 private:
  std::map<std::string, int> fSeen;
};

// The objects of the data model alive now.
uint64_t objectsAlive() {
  return Structure::_objectsAlive + Stream::_objectsAlive + kivo::Data::Channel::_objectsAlive +
         Associations::_objectsAlive + Handle::_objectsAlive + Accessor::_objectsAlive;
}

// A scene file before a rewrite.
struct Scenario {
  const char* name;
  const char* extension;
  std::string original;
  // The bytes no rewrite may change: [0, bodyEnd) but for [skipFrom,
  // skipTo), the main group's size field of a binary file.
  size_t bodyEnd;
  size_t skipFrom;
  size_t skipTo;

  std::string body(const std::string& bytes) const {
    if (bytes.size() < bodyEnd) return bytes;
    return bytes.substr(0, skipFrom) + bytes.substr(skipTo, bodyEnd - skipTo);
  }
};

// How the runs of one scenario ended, once the library had recovered the
// file.
struct Tally {
  int runs = 0;
  int oldFile = 0;
  int newFile = 0;
  int neither = 0;
  int written = 0;     // write returned true, and the file is the new one
  int rolledBack = 0;  // the file had to be recovered from its journal
};

// How a run meets its fault at call k.
struct FaultMode {
  const char* name;
  Faults::eFault fault;
  bool sticky;
};
const FaultMode kFaultModes[] = {
    {"call k failing", Faults::eFault::kFail, false},
    {"failing from call k on", Faults::eFault::kFail, true},
    {"call k a short write", Faults::eFault::kShortWrite, false},
    {"a crash before call k", Faults::eFault::kCrash, false},
};

// The structure "point" {int32 id, string label} is registered in the
// process for each test; the registry must be as it was after every run.
class FaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fPoint = Structure::create();
    fPoint->setName("point");
    fPoint->addMember(Member::kInt32, 1, "id");
    fPoint->addMember(Member::kString, 1, "label");
    Structure::registerStructure(*fPoint);
    fBefore = Structure::allStructures();
  }
  void TearDown() override {
    EXPECT_EQ(Structure::allStructures(), fBefore);
    Structure::deregisterStructure(*fPoint);
  }

  // Associations with channel "vertex", stream "values", element 3 labelled.
  Associations labelled(const std::string& label) {
    Stream stream(*fPoint, "values");
    Handle h(*fPoint);
    std::string ignored;
    h.setPositionByMemberName("label");
    h.fromStr(label, 0, ignored);
    stream.setElement(Index(3), h);
    Associations associations;
    associations.channel("vertex").setDataStream(stream);
    return associations;
  }

  // The metadata every rewrite writes: the point structure, a structure and
  // a scene entry long enough for the streams to write each in a vectored
  // call of its own, and a node.
  void newMetadata(Accessor& accessor) {
    if (!fWide) {
      fWide = kivo::Detail::Ref<Structure>(Structure::create());
      fWide->setName("aWide");
      fWide->addMember(Member::kInt8, 1, std::string(9000, 'w').c_str());
    }
    accessor.setStructures({fPoint, fWide.get()});
    accessor.associations() = {{"", labelled(std::string(12000, 's'))},
                               {"pCube1", labelled("new node")}};
  }

  // A file of name holding content, its metadata written by the library.
  std::string withMetadata(const std::string& name, const std::string& content,
                           const Accessor::AssociationsMap& associations) {
    const std::string path = fFolder.path(name);
    writeBytes(path, content);
    std::string errors;
    std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
    EXPECT_NE(accessor, nullptr) << errors;
    if (!accessor) return content;
    accessor->setStructures({fPoint});
    accessor->associations() = associations;
    EXPECT_TRUE(accessor->write(errors)) << errors;
    return readBytes(path);
  }

  std::vector<Scenario> asciiScenarios() {
    const std::string body = asciiBody(3000);
    return {
        {"ta, no metadata yet", "ta", body + kAsciiTrailer, body.size(), 0, 0},
        // The old section spans blocks: its end is searched from a later one.
        {"ta, node-level metadata", "ta",
         withMetadata(
             "node.ta", body + kAsciiTrailer,
             {{"pCube1", labelled(std::string(3000, 'o'))}, {"pSphere1", labelled("old node")}}),
         body.size(), 0, 0},
        {"ta, scene-level metadata", "ta",
         withMetadata("scene.ta", body + kAsciiTrailer, {{"", labelled("old scene")}}), body.size(),
         0, 0},
    };
  }

  std::vector<Scenario> binaryScenarios() {
    const size_t trailerSize = kivo::Test::binaryTrailerSizePosition();
    // The first host chunk is longer than the streams' buffer.
    const std::string host = chunk("HOST", std::string(10000, 'h')) + chunk("HOST", "second");
    return {
        {"tb, no host chunks", "tb",
         withMetadata("plain.tb", binaryScene(""), {{"", labelled("old scene")}}), trailerSize, 8,
         16},
        {"tb, host chunks in the trailer", "tb",
         withMetadata("host.tb", binaryScene(host), {{"pCube1", labelled("old node")}}),
         trailerSize, 8, 16},
    };
  }

  // The files the read faults are tried on: a rewritten file of each format,
  // with structures, scene and node associations.
  std::vector<Scenario> readScenarios() {
    std::vector<Scenario> scenarios;
    for (std::vector<Scenario> some : {asciiScenarios(), binaryScenarios()}) {
      Scenario scenario = some.back();
      const std::string path = fFolder.path(std::string("source.") + scenario.extension);
      writeBytes(path, scenario.original);
      std::string errors;
      std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
      EXPECT_NE(accessor, nullptr) << errors;
      if (!accessor) continue;
      newMetadata(*accessor);
      EXPECT_TRUE(accessor->write(errors)) << errors;
      scenario.original = readBytes(path);
      scenario.name = scenario.extension;
      scenarios.push_back(scenario);
    }
    return scenarios;
  }

  // Runs the rewrite of scenario once per file call it makes (reads
  // included), meeting mode's fault at the k-th; checks every run and counts
  // how they ended. A crash runs in a child process; the file is then read
  // through the library, which recovers it.
  Tally rewriteWithFaults(const Scenario& scenario, const FaultMode& mode, MessageTable& messages) {
    const std::string path = fFolder.path(std::string("faulty.") + scenario.extension);
    const std::string journal = Accessor::journalName(path);
    const auto prepared = [&] {
      writeBytes(path, scenario.original);
      std::string errors;
      std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
      EXPECT_NE(accessor, nullptr) << errors;
      if (accessor) newMetadata(*accessor);
      return accessor;
    };
    std::unique_ptr<Accessor> clean = prepared();
    if (!clean) return Tally();
    std::string errors;
    uint64_t calls = 0;
    {
      Faults::ArmedCalls armed(kCalls, 0, false);
      EXPECT_TRUE(clean->write(errors)) << errors;
      calls = Faults::disarmCalls();
    }
    const std::string written = readBytes(path);
    EXPECT_GT(calls, 3u);
    Tally tally;
    for (uint64_t k = 1; k <= calls; ++k) {
      SCOPED_TRACE("call " + std::to_string(k) + " of " + std::to_string(calls));
      std::unique_ptr<Accessor> accessor = prepared();
      if (!accessor) break;
      errors.clear();
      bool ok = false;
      if (mode.fault == Faults::eFault::kCrash) {
        std::cout.flush();
        const pid_t child = ::fork();
        if (child == 0) {
          Faults::armCalls(kCalls, k, false, mode.fault);
          accessor->write(errors);
          ::_exit(0);
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == Faults::kCrashStatus) << status;
      } else {
        {
          Faults::ArmedCalls armed(kCalls, k, mode.sticky, mode.fault);
          ok = accessor->write(errors);
        }
        EXPECT_TRUE(Faults::callFailed());
        if (!ok) messages.take(errors, path);
      }
      const bool journalLeft = std::filesystem::exists(journal);
      if (!ok && mode.fault != Faults::eFault::kCrash && readBytes(path) != scenario.original) {
        // Only a rollback that failed too leaves another file, and says so.
        EXPECT_TRUE(journalLeft);
        EXPECT_NE(errors.find("damaged"), std::string::npos) << errors;
      }
      std::unique_ptr<Accessor> reader = Accessor::readFile(path, errors);
      EXPECT_NE(reader, nullptr) << errors;
      EXPECT_FALSE(std::filesystem::exists(journal));
      const std::string after = readBytes(path);
      EXPECT_EQ(scenario.body(after), scenario.body(scenario.original));
      ++tally.runs;
      if (journalLeft) ++tally.rolledBack;
      if (ok) {
        EXPECT_EQ(after, written) << "a write that reports success wrote something else";
        ++tally.written;
      } else if (after == scenario.original) {
        ++tally.oldFile;
      } else if (after == written) {
        ++tally.newFile;
        EXPECT_EQ(mode.fault, Faults::eFault::kCrash) << "a refused write changed the file: " << errors;
      } else {
        ++tally.neither;
        ADD_FAILURE() << "the file is neither the old nor the new one";
      }
    }
    return tally;
  }

  static constexpr unsigned kCalls = Faults::kWriteCalls | Faults::kRead;

 public:
  const Structure::StructureSet& registered() const { return fBefore; }
  void newMetadataOf(Accessor& accessor) { newMetadata(accessor); }

 protected:

  Structure* fPoint = nullptr;
  kivo::Detail::Ref<Structure> fWide;
  Structure::StructureSet fBefore;
  kivo::Test::TempFolder fFolder;
};

void report(const Scenario& scenario, const FaultMode& mode, const Tally& tally) {
  std::cout << "[ faults   ] " << scenario.name << ", " << mode.name << ": " << tally.runs
            << " runs, old file " << tally.oldFile << ", new file " << tally.newFile
            << ", neither " << tally.neither << ", written " << tally.written
            << ", rolled back from the journal " << tally.rolledBack << std::endl;
}

// Constructs a T with make at every allocation k it makes, the k-th
// throwing; the counters of T must not move.
template <class T, class Make>
void throwAtEveryAllocation(Make make) {
  uint64_t allocations = 0;
  {
    Faults::ArmedAllocations armed(0);
    make();
    allocations = Faults::disarmAllocations();
  }
  EXPECT_GT(allocations, 0u);
  for (uint64_t k = 1; k <= allocations; ++k) {
    SCOPED_TRACE("allocation " + std::to_string(k));
    const uint64_t created = T::_objectsCreated;
    const uint64_t alive = T::_objectsAlive;
    bool thrown = false;
    try {
      Faults::ArmedAllocations armed(k);
      make();
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(T::_objectsCreated, created);
    EXPECT_EQ(T::_objectsAlive, alive);
  }
}

TEST(AllocationFailure, ConstructorsLeaveTheCountersAsTheyWere) {
  kivo::Detail::Ref<Structure> structure(new Structure("S"));
  structure->addMember(Member::kInt32, 1, "a");
  structure->addMember(Member::kString, 2, "b");
  throwAtEveryAllocation<Structure>([] { kivo::Detail::Ref<Structure> s(new Structure("T")); });
  throwAtEveryAllocation<Structure>(
      [&] { kivo::Detail::Ref<Structure> s(new Structure(*structure)); });
  throwAtEveryAllocation<kivo::Data::Channel>([] { kivo::Data::Channel channel("vertex"); });
  throwAtEveryAllocation<kivo::Data::Channel>([] { kivo::Data::Channel channel; });
  throwAtEveryAllocation<Associations>([] { Associations associations; });
}

TEST(AllocationFailure, DenseCopyFreesTheStringsItCopied) {
  // Made unique, a dense stream copies every slot's strings; a copy cut
  // short at any allocation frees those (LeakSanitizer checks) and counts
  // no stream.
  kivo::Detail::Ref<Structure> structure(new Structure("S"));
  structure->addMember(Member::kString, 2, "labels");
  kivo::Data::Stream stream(*structure, "dense");
  ASSERT_TRUE(stream.useDenseStorage(true));
  kivo::Data::Handle element(*structure);
  std::string errors;
  element.setPositionByMemberIndex(0);
  for (unsigned int i = 0; i < 3; ++i) {
    element.fromStr("label " + std::to_string(i), 0, errors);
    element.fromStr("second", 1, errors);
    ASSERT_TRUE(stream.setElement(i, element));
  }
  throwAtEveryAllocation<kivo::Data::StreamImplDense>([&] {
    kivo::Data::Stream copy = stream;
    copy.makeUnique();
  });
}

// The members of the structure read from text, with the failAt-th
// allocation throwing (0: none); 0 when no structure came back.
unsigned int membersRead(const std::string& text, uint64_t failAt) {
  std::istringstream in(text);
  std::string errors;
  Faults::ArmedAllocations armed(failAt);
  kivo::Detail::Ref<Structure> structure(
      kivo::Data::StructureSerializer::formatByName("raw")->read(in, errors));
  Faults::disarmAllocations();
  return structure ? structure->memberCount() : 0u;
}

std::string membersText(unsigned int members) {
  std::string text = "name=S";
  for (unsigned int i = 0; i < members; ++i) text += ":int8=m" + std::to_string(i);
  return text;
}

TEST(AllocationFailure, StructureTextsLoseNoFieldAndCostAllocationsInProportion) {
  // A field longer than the small-string buffer allocates while it is split
  // off, and past the few members that are walked, repeated names are found
  // through an index that grows with the member array: a failure anywhere
  // gives no structure or the whole one, never a shorter one.
  const std::string texts[] = {"name=S:int8=" + std::string(9000, 'w') + ":int32=b",
                               membersText(40)};
  for (const std::string& text : texts) {
    const unsigned int whole = membersRead(text, 0);
    const uint64_t allocations = Faults::disarmAllocations();
    const uint64_t alive = Structure::_objectsAlive;
    for (uint64_t k = 1; k <= allocations; ++k) {
      SCOPED_TRACE("allocation " + std::to_string(k) + " of " + std::to_string(whole));
      try {
        const unsigned int members = membersRead(text, k);
        EXPECT_TRUE(members == 0 || members == whole) << members;
      } catch (const std::bad_alloc&) {
      }
      EXPECT_EQ(Structure::_objectsAlive, alive);
    }
  }
  // Each member costs a few allocations, not one per member before it.
  const unsigned int many = 20000;
  EXPECT_EQ(membersRead(membersText(many), 0), many);
  const uint64_t allocations = Faults::disarmAllocations();
  EXPECT_LE(allocations, 8u * many);
  EXPECT_GE(allocations, uint64_t(many));
}

using FaultyWrite = FaultTest;
using FaultyRead = FaultTest;
using ReadMemory = FaultTest;

TEST_F(FaultyWrite, RewritesFailCleanlyAtEveryCall) {
  MessageTable asciiMessages(kAsciiWriteMessages);
  MessageTable binaryMessages(kBinaryWriteMessages);
  for (const auto& group : {std::make_pair(asciiScenarios(), &asciiMessages),
                            std::make_pair(binaryScenarios(), &binaryMessages)}) {
    for (const Scenario& scenario : group.first) {
      for (const FaultMode& mode : kFaultModes) {
        SCOPED_TRACE(std::string(scenario.name) + ", " + mode.name);
        report(scenario, mode, rewriteWithFaults(scenario, mode, *group.second));
      }
    }
  }
  asciiMessages.expectEverySeen();
  binaryMessages.expectEverySeen();
}

// A scene file and its journal as a writer that died before one of its
// calls left them: complete (the file already changing) or incomplete (the
// journal cut short, the file untouched).
struct CrashState {
  std::string scene;
  std::string journal;
};

// Crashes the rewrite of scenario into path at call 1, 2, ... until the
// state left is complete or incomplete as asked. The scene's mode is 0640
// and the writer's umask 077: the journal must have the scene's mode.
bool crashState(FaultTest& test, const Scenario& scenario, const std::string& path,
                bool complete, CrashState& state) {
  const std::string journal = Accessor::journalName(path);
  for (uint64_t k = 1; k < 200; ++k) {
    writeBytes(path, scenario.original);
    ::chmod(path.c_str(), 0640);
    std::string errors;
    std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
    if (!accessor) return false;
    test.newMetadataOf(*accessor);
    const pid_t child = ::fork();
    if (child == 0) {
      ::umask(077);
      Faults::armCalls(Faults::kWriteCalls, k, false, Faults::eFault::kCrash);
      accessor->write(errors);
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!std::filesystem::exists(journal)) continue;
    state = {readBytes(path), readBytes(journal)};
    struct stat mode;
    EXPECT_EQ(::stat(journal.c_str(), &mode), 0);
    EXPECT_EQ(mode.st_mode & 07777, 0640u);
    if (complete ? state.scene != scenario.original : state.journal.empty()) return true;
  }
  return false;
}

// The output of a command line, and its exit code.
int run(const std::string& line, std::string& out) {
  out.clear();
  FILE* pipe = ::popen(line.c_str(), "r");
  if (!pipe) return -1;
  char buffer[4096];
  for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, got);
  const int status = ::pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(FaultyWrite, AJournalLeftByACrashIsFinishedByWhatComesNext) {
  // What each comer does with the file and journal a crashed writer left:
  // gives its messages (empty: success) and leaves the file as it expects.
  struct Comer {
    const char* what;
    std::function<std::string(const std::string& path, Accessor& readBefore)> act;
  };
  const auto unfinished = [](const std::string& path) {
    return "The file " + path + " has an unfinished rewrite whose old bytes are in " + path +
           ".kivo-journal; run 'kivo-meta recover " + path + "' with write access to put them back.";
  };
  const Comer comers[] = {
      {"a read",
       [](const std::string& path, Accessor&) {
         std::string errors;
         Accessor::readFile(path, errors);
         return errors;
       }},
      {"a write after a read made before the crash",
       [](const std::string&, Accessor& readBefore) {
         std::string errors;
         readBefore.write(errors);
         return errors;
       }},
      {"a reader that may not write",
       [](const std::string& path, Accessor&) {
         // Root writes any file: the reader runs as nobody then.
         ::chmod(path.c_str(), 0444);
         ::chmod(Accessor::journalName(path).c_str(), 0444);
         int channel[2];
         if (::pipe(channel) != 0) return std::string("no pipe");
         const pid_t child = ::fork();
         if (child == 0) {
           if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(2);
           std::string errors;
           Accessor::readFile(path, errors);
           (void)!::write(channel[1], errors.data(), errors.size());
           ::_exit(0);
         }
         ::close(channel[1]);
         std::string errors;
         char buffer[4096];
         for (ssize_t got; (got = ::read(channel[0], buffer, sizeof buffer)) > 0;)
           errors.append(buffer, static_cast<size_t>(got));
         ::close(channel[0]);
         ::waitpid(child, nullptr, 0);
         return errors;
       }},
#ifdef KIVO_META_PATH
      {"kivo-meta recover",
       [](const std::string& path, Accessor&) {
         std::string out;
         const int code = run(std::string(KIVO_META_PATH) + " recover '" + path + "' 2>&1", out);
         return std::to_string(code) + " " + out;
       }},
#endif
  };
  const std::string folder = std::filesystem::path(fFolder.path("x")).parent_path().string();
  ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
  for (const Scenario& scenario : {asciiScenarios()[2], binaryScenarios()[1]}) {
    const std::string path = fFolder.path(std::string("crashed.") + scenario.extension);
    const std::string journal = Accessor::journalName(path);
    for (const bool complete : {true, false}) {
      CrashState state;
      ASSERT_TRUE(crashState(*this, scenario, path, complete, state));
      for (const Comer& comer : comers) {
        SCOPED_TRACE(std::string(scenario.name) + (complete ? ", complete" : ", incomplete") +
                     ", " + comer.what);
        writeBytes(path, scenario.original);
        ::chmod(path.c_str(), 0644);
        std::string errors;
        std::unique_ptr<Accessor> readBefore = Accessor::readFile(path, errors);
        ASSERT_NE(readBefore, nullptr) << errors;
        newMetadata(*readBefore);
        // An incomplete journal comes with the file as it was read.
        if (complete) writeBytes(path, state.scene);
        writeBytes(journal, state.journal);
        ::chmod(journal.c_str(), 0644);
        const std::string said = comer.act(path, *readBefore);
        const std::string what = comer.what;
        if (what == "a reader that may not write") {
          // The file and the journal stay; a complete journal is named.
          EXPECT_EQ(said, complete ? unfinished(path) : "");
          EXPECT_EQ(readBytes(path), state.scene);
          EXPECT_EQ(readBytes(journal), state.journal);
          continue;
        }
        EXPECT_FALSE(std::filesystem::exists(journal));
        if (what == "kivo-meta recover") {
          EXPECT_EQ(said, complete ? "0 " + path + ": an unfinished rewrite was rolled back from " +
                                         journal + "\n"
                                   : "0 " + path + ": removed " + journal +
                                         ", which its writer left before changing the file\n");
        } else if (what == "a read" || !complete) {
          EXPECT_EQ(said, "");
        } else {
          // Rolled back, then refused: the file is not the one read.
          EXPECT_EQ(said, "The file " + path +
                              " changed since this accessor last read or wrote it; read it "
                              "again before writing.");
        }
        if (what != "a write after a read made before the crash" || complete) {
          EXPECT_EQ(readBytes(path), scenario.original);
        }
      }
    }
  }
}

// Reads scenario once per fault point of a clean read (file calls or
// allocations, as Faults counts them), the k-th failing: each read gives
// the clean result or none, never throws but std::bad_alloc, and leaves the
// registry and the live objects as they were. Prints how the runs ended.
struct ReadFaults {
  const char* what;
  std::function<void(uint64_t)> arm;  // 0: count only
  std::function<uint64_t()> disarm;
  std::function<bool()> failed;
  MessageTable* messages;  // the messages a refusal may give, if checked
};

void readWithFaults(FaultTest& test, const Scenario& scenario, const std::string& path,
                    const ReadFaults& faults) {
  writeBytes(path, scenario.original);
  uint64_t points = 0;  // what the last read counted
  const auto read = [&](uint64_t k, std::string& errors, bool& ok) {
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    errors.reserve(4096);  // a message appended needs no allocation of its own
    try {
      faults.arm(k);
      ok = accessor->read(path, errors);
    } catch (const std::bad_alloc&) {
      ok = false;
    }
    points = faults.disarm();
    return accessor;
  };
  std::string errors;
  bool ok = false;
  const std::string expected = contentOf(*read(0, errors, ok));
  ASSERT_TRUE(ok) << errors;
  const uint64_t runs = points;
  EXPECT_GT(runs, 2u);
  const uint64_t alive = objectsAlive();
  uint64_t refused = 0;
  for (uint64_t k = 1; k <= runs; ++k) {
    SCOPED_TRACE(std::to_string(k) + " of " + std::to_string(runs));
    errors.clear();
    std::unique_ptr<Accessor> accessor = read(k, errors, ok);
    EXPECT_TRUE(faults.failed());
    EXPECT_EQ(Structure::allStructures(), test.registered());
    EXPECT_EQ(contentOf(*accessor), ok ? expected : "");
    if (!ok) {
      ++refused;
      if (faults.messages) faults.messages->take(errors, path);
    }
    accessor.reset();
    EXPECT_EQ(objectsAlive(), alive);
  }
  EXPECT_EQ(readBytes(path), scenario.original);
  std::cout << "[ faults   ] read of " << scenario.name << ", " << faults.what << ": " << runs
            << " runs, refused " << refused << ", recovered " << runs - refused << std::endl;
}

TEST_F(FaultyRead, FailingReadsSeeksAndAllocationsGiveNoResultButTheRightOne) {
  MessageTable asciiMessages(kAsciiReadMessages);
  MessageTable binaryMessages(kBinaryReadMessages);
  for (const Scenario& scenario : readScenarios()) {
    const bool ascii = std::string(scenario.extension) == "ta";
    const std::string path = fFolder.path(std::string("read.") + scenario.extension);
    for (const bool sticky : {false, true}) {
      SCOPED_TRACE(std::string(scenario.name) + (sticky ? ", sticky" : ""));
      readWithFaults(*this, scenario, path,
                     {sticky ? "failing from call k on" : "call k failing",
                      [sticky](uint64_t k) { Faults::armCalls(Faults::kReadCalls, k, sticky); },
                      Faults::disarmCalls, Faults::callFailed,
                      ascii ? &asciiMessages : &binaryMessages});
    }
    SCOPED_TRACE(std::string(scenario.name) + ", allocations");
    readWithFaults(*this, scenario, path,
                   {"allocation k throwing", Faults::armAllocations, Faults::disarmAllocations,
                    Faults::allocationFailed, nullptr});
  }
  asciiMessages.expectEverySeen();
  binaryMessages.expectEverySeen();
}

TEST_F(ReadMemory, SizeFieldsDoNotDriveAllocations) {
  // Chunks claiming far more than the file holds, files of one long
  // statement or payload, of many short lines, and of streams on structures
  // of large elements: a read holds at most twice the file plus 1 MiB,
  // whatever the size fields say, and 64 MiB more where the file declares
  // large elements (streams share their structure's default element; past
  // twice the file and 63 MiB of such blocks the read is refused).
  struct Hostile {
    const char* what;
    const char* extension;
    std::string content;
    bool refused = true;
    // A read that succeeds also holds what it made: a structure named by
    // most of the file is held in the file, the text, the field and the name.
    unsigned int times = 2;
    // What may come on top: 64 MiB more where structures declare large
    // elements that no text stands behind.
    uint64_t slack = 1u << 20;
    // A line the refusal must give.
    const char* says = "";
  };
  // Streams without elements on structures of elementBytes-byte elements,
  // one associations statement in all.
  const auto wideStreams = [](int structures, int streams, unsigned int elementBytes) {
    std::string scene = asciiBody(100);
    for (int k = 0; k < structures; ++k) {
      scene += "dataStructure -fmt \"raw\" -as \"name=B" + std::to_string(k) + ":int8[" +
               std::to_string(elementBytes) + "]=b\";\n";
    }
    scene += "applyMetadata -fmt \"raw\" -v \"channel\\nname c\\n";
    for (int i = 0; i < streams; ++i) {
      scene += "stream\\nname s" + std::to_string(i) + "\\nstructure B" +
               std::to_string(i % structures) + "\\nendStream\\n";
    }
    return scene + "endChannel\\nendAssociations\\n\" \n\t\t-scn;\n" + kAsciiTrailer;
  };
  constexpr uint64_t kWide = (uint64_t(64) << 20) + (1u << 20);
  std::string shortLines;
  for (int i = 0; i < 400000; ++i) shortLines += "a\n";
  const std::string structure = chunk("DATS", std::string("raw\0name=S:int32=a\0", 20));
  const Hostile cases[] = {
      {"structure chunk claiming 2^62 bytes", "tb",
       binaryScene(kivo::Test::chunkHeader("DATS", uint64_t(1) << 62) + structure)},
      {"host chunk claiming 2^63 bytes", "tb",
       binaryScene(kivo::Test::chunkHeader("HOST", uint64_t(1) << 63))},
      {"associations chunk claiming its trailer and more", "tb",
       binaryScene(kivo::Test::chunkHeader("MTDA", 1u << 30) + std::string(4096, 'x'))},
      {"one long associations payload that is no associations text", "tb",
       binaryScene(chunk("MTDA", std::string("node\0raw\0", 9) + std::string(3000000, 'v') +
                                     std::string(1, '\0')))},
      {"one long structure payload that is no structure text", "tb",
       binaryScene(chunk("DATS", std::string("raw\0", 4) + std::string(3000000, 'v') +
                                     std::string(1, '\0')))},
      {"one unterminated statement", "ta",
       asciiBody(100) + "applyMetadata -fmt \"raw\" -v \"" + std::string(3000000, 'v') + "\n" +
           kAsciiTrailer},
      {"one long structure payload that is no structure text", "ta",
       asciiBody(100) + "dataStructure -fmt \"raw\" -as \"" + std::string(3000000, 'v') +
           "\";\n" + kAsciiTrailer},
      {"a structure named by 3,000,000 characters", "ta",
       asciiBody(100) + "dataStructure -fmt \"raw\" -as \"name=" + std::string(3000000, 'n') +
           ":int32=a\";\n" + kAsciiTrailer,
       false, 4},
      {"a structure named by 3,000,000 characters", "tb",
       binaryScene(chunk("DATS", std::string("raw\0name=", 9) + std::string(3000000, 'n') +
                                     ":int32=a" + std::string(1, '\0'))),
       false, 4},
      {"400,000 short lines of one statement", "ta",
       asciiBody(100) + shortLines + kAsciiTrailer, false},
      {"one long payload that is no associations text", "ta",
       asciiBody(100) + "applyMetadata -fmt \"raw\" -v \"" + std::string(3000000, 'v') +
           "\"\n\t\tnode;\n" + kAsciiTrailer},
      {"20 streams of one structure of 40,000,000-byte elements", "ta",
       wideStreams(1, 20, 40000000), false, 2, kWide},
      {"150 streams of one structure of 40,000,000-byte elements", "ta",
       wideStreams(1, 150, 40000000), false, 2, kWide},
      {"100 structures of 64 MiB elements, a stream on each", "ta",
       wideStreams(100, 100, 64u << 20), true, 2, 1u << 20,
       "Structure 'B99' has elements of 67108864 bytes: reading stream 's99' would take this "
       "read past the 66081294 bytes it may hold without text behind them (twice the file's "
       "size plus 63 MiB)\n"},
  };
  for (const Hostile& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = fFolder.path(std::string("hostile.") + c.extension);
    writeBytes(path, c.content);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    std::string errors;
    bool ok = true;
    uint64_t bytes = 0;
    {
      Faults::ArmedAllocations armed(0);
      ok = accessor->read(path, errors);
      bytes = Faults::peakBytes();
    }
    EXPECT_EQ(ok, !c.refused);
    EXPECT_EQ(errors.empty(), !c.refused);
    EXPECT_NE(errors.find(c.says), std::string::npos) << errors;
    EXPECT_LE(bytes, c.times * c.content.size() + c.slack)
        << "largest allocation " << Faults::largestAllocation();
    std::cout << "[ memory   ] " << c.extension << ", " << c.what << ": " << c.content.size() << "-byte file, " << bytes
              << " bytes held at the peak" << std::endl;
  }
}

TEST_F(ReadMemory, AStreamWithoutElementsReadsNoElement) {
  // A structure of 64 MiB elements declared in a few bytes: a stream on it
  // shares the structure's default block, and reading one without elements
  // makes no second block.
  kivo::Detail::Ref<Structure> big(new Structure("Big"));
  ASSERT_TRUE(big->addMember(kivo::Data::Member::kInt8, 64u << 20, "b"));
  ASSERT_TRUE(Structure::registerStructure(*big));
  std::istringstream in("name s\nstructure Big\nendStream\n");
  std::string errors;
  uint64_t bytes = 0;
  {
    Faults::ArmedAllocations armed(0);
    std::unique_ptr<Stream> stream(
        kivo::Data::StreamSerializer::formatByName("raw")->read(in, errors));
    EXPECT_NE(stream, nullptr) << errors;
    bytes = Faults::peakBytes();
  }
  EXPECT_LT(bytes, (65u << 20));
  Structure::deregisterStructure(*big);
}

TEST_F(ReadMemory, CorpusScenesAllocateAtMostTwiceTheirBytesAndOneMebibyte) {
  // Every scene file the fuzz harnesses start from, read or refused: what
  // the read holds at its peak stays within twice the file and 1 MiB. The
  // file bounds its metadata section or trailer from above.
  namespace fs = std::filesystem;
  size_t files = 0;
  uint64_t most = 0;
  uint64_t excess = 0;  // the most a read asked beyond twice its file
  for (const char* harness : {"ascii_read", "ascii_write", "binary_read", "binary_write"}) {
    for (const fs::directory_entry& entry :
         fs::directory_iterator(fs::path(KIVO_FUZZ_CORPUS) / harness)) {
      SCOPED_TRACE(entry.path().string());
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string content{std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>()};
      const std::string path =
          fFolder.path(std::string("corpus.") + (harness[0] == 'a' ? "ta" : "tb"));
      writeBytes(path, content);
      std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
      std::string errors;
      uint64_t bytes = 0;
      {
        Faults::ArmedAllocations armed(0);
        accessor->read(path, errors);
        bytes = Faults::peakBytes();
      }
      EXPECT_LE(bytes, 2 * content.size() + (1u << 20));
      ++files;
      most = std::max(most, bytes);
      if (bytes > 2 * content.size()) excess = std::max<uint64_t>(excess, bytes - 2 * content.size());
    }
  }
  EXPECT_GT(files, 40u);
  std::cout << "[ memory   ] " << files << " corpus scenes: at most " << most
            << " bytes held at the peak of one read, at most " << excess
            << " bytes beyond twice its file" << std::endl;
}

}  // namespace
