// kivoMetaOutput.h: what kivo-meta prints: the listing of a scene's
// metadata and its external content table, as text for people and as JSON
// for scripts, and the per-file reporting of a run over many files
// (failures on stderr, a progress line on a terminal).
#pragma once

#include "kivoMetaScene.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace kivo::Meta {

using Json = nlohmann::ordered_json;

// Names as the text output shows them: control characters and DEL become
// \xNN, so that names from hostile files cannot drive the terminal.
std::string printable(const std::string& text);

// The structures (name, members with types and lengths) and associations
// (scene first, then nodes by name, with channels, streams, structures,
// index types and element counts) of a scene: one line for the file, the
// rest indented.
std::string listingText(const std::string& file, const Data::Accessor& scene);
// The same as {"file", "ok": true, "structures": [...], "associations": [...]}.
Json listingJson(const std::string& file, const Data::Accessor& scene);

// One row of the external content table.
struct ExternalEntry {
  std::string node;
  std::string key;
  std::string upath;
  std::string rpath;
  std::set<std::string> roles;
};

// The rows of the scene's external content table, in stream order; none when
// the scene has no table. Throws Failure when the table's structure lacks
// one of the five string members.
std::vector<ExternalEntry> externalEntries(Data::Accessor& scene);
std::string externalsText(const std::string& file, const std::vector<ExternalEntry>& entries);
Json externalsJson(const std::string& file, const std::vector<ExternalEntry>& entries);

// Reports a run over files: output on stdout, each failure on stderr as
// "kivo-meta: FILE: sentence" (one line per sentence), and, when stderr is a
// terminal and there are many files, a progress line "[done/total] FILE"
// that is cleared before anything else is printed and at the end.
class Reporter {
 public:
  explicit Reporter(size_t total);
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;
  ~Reporter();

  // Shows the file being worked on.
  void starting(const std::string& file);
  void output(const std::string& text);
  void failure(const std::string& file, const std::string& text);
  // Makes the exit code 1 without a message (a check that found problems).
  void markFailed() { fFailed = true; }
  // 1 when any failure was reported, else 0: the process exit code.
  int exitCode() const { return fFailed ? 1 : 0; }

  // With --quiet: output() prints nothing; failures are still reported.
  static bool sQuiet;

  // From this many files on, a terminal gets the progress line.
  static constexpr size_t kManyFiles = 4;

 private:
  void clearProgress();

  size_t fTotal;
  size_t fDone = 0;
  bool fProgress;
  bool fProgressShown = false;
  bool fFailed = false;
};

}  // namespace kivo::Meta
