// kivoMetaCommands.cpp: the subcommands of kivo-meta. Any exception while
// working on a file (a Failure, or anything thrown beneath it, such as an
// allocation failure on a hostile file) ends the work on that file only.
#include "kivoMetaCommands.h"

#include "kivoMetaOutput.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <optional>
#include <set>
#include <map>
#include <utility>

namespace kivo::Meta {

namespace {

using Data::Accessor;
using Data::Associations;
using Data::Structure;
using ExternalContent = Data::AccessorTarn::ExternalContent;

// The version of the JSON documents kivo-meta prints.
constexpr int kJsonFormat = 1;

// With --jsonl each file's document is printed on a line of its own as soon
// as it is made, instead of all of them in one document at the end.
bool gJsonLines = false;

std::string jsonText(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void addDocument(Reporter& reporter, Json& documents, Json document) {
  if (gJsonLines) {
    Json line = {{"kivoFormat", kJsonFormat}};
    line.update(document);
    reporter.output(line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
  } else {
    documents.push_back(std::move(document));
  }
}

void finishDocuments(Reporter& reporter, const Json& documents) {
  if (!gJsonLines) reporter.output(jsonText({{"kivoFormat", kJsonFormat}, {"files", documents}}));
}

Json failureJson(const std::string& file, const std::string& text) {
  return {{"file", file}, {"ok", false}, {"error", text}};
}

// The whole content of path, or of stdin for "-".
std::string readInput(const std::string& path, const std::string& what) {
  if (path == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  std::error_code error;
  if (std::filesystem::is_directory(path, error))
    throw Failure("The " + what + " " + path + ": Is a directory.");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure("The " + what + " " + path + ": " + std::strerror(errno) + ".");
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (in.bad()) throw Failure("The " + what + " " + path + " could not be read.");
  return text;
}

const Associations& findTarget(const Accessor& scene, const Target& target) {
  auto it = scene.associations().find(target.key());
  if (it == scene.associations().end()) {
    throw Failure("The file holds no metadata for " + target.describe() + ".");
  }
  return it->second;
}

std::string structuresText(const Accessor& scene) {
  std::string text;
  for (const Structure* structure : scene.structures()) text += structureText(*structure) + "\n";
  return text;
}

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(a, b, error);
}

void writeOutput(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out || !out.write(text.data(), static_cast<std::streamsize>(text.size())) ||
      !out.flush()) {
    throw Failure("Could not write " + path + ".");
  }
}

std::string streamSummary(const Associations& associations) {
  unsigned int streams = 0;
  for (unsigned int i = 0; i < associations.channelCount(); ++i) {
    streams += associations.channelAt(i).dataStreamCount();
  }
  const unsigned int channels = associations.channelCount();
  return std::to_string(channels) + (channels == 1 ? " channel, " : " channels, ") +
         std::to_string(streams) + (streams == 1 ? " stream" : " streams");
}

// The file's structures and the given ones it lacks; a given structure
// whose name the file declares with another layout is refused.
std::vector<const Structure*> knownStructures(const Accessor& scene, const StructureList& given) {
  std::vector<const Structure*> known(scene.structures().begin(), scene.structures().end());
  for (const Structure* structure : given.items()) {
    const std::string name = structure->name() ? structure->name() : "";
    const Structure* declared = nullptr;
    for (const Structure* own : scene.structures()) {
      if (own->name() && name == own->name()) declared = own;
    }
    if (!declared) {
      known.push_back(structure);
    } else if (!(*declared == *structure)) {
      throw Failure("Structure " + name +
                    " is given with another layout than the file declares; the file's "
                    "other streams depend on its layout.");
    }
  }
  return known;
}

// The file's structures plus those of the new streams that it lacks.
Accessor::StructureSet structuresWith(const Accessor& scene, const Associations& associations) {
  Accessor::StructureSet structures = scene.structures();
  for (unsigned int i = 0; i < associations.channelCount(); ++i) {
    const Data::Channel channel = associations.channelAt(i);
    for (unsigned int j = 0; j < channel.dataStreamCount(); ++j) {
      if (const Data::Stream* stream = channel.dataStream(j)) {
        structures.insert(&stream->structure());  // kept out when the name is there
      }
    }
  }
  return structures;
}

std::string remapLine(const std::string& node, const std::string& key, const std::string& from,
                      const std::string& to) {
  return "  " + printable(node) + " " + printable(key) + ": " + printable(from) + " -> " +
         printable(to) + "\n";
}

// The path with from replaced by to, when path starts with from on a path
// boundary: from ends with '/', or the path ends or goes on with '/' right
// after it ("/projects/dem" does not match "/projects/demo/x").
bool remapped(const std::string& path, const std::string& from, const std::string& to,
              std::string& out) {
  if (path.compare(0, from.size(), from) != 0) return false;
  if (from.back() != '/' && path.size() > from.size() && path[from.size()] != '/') return false;
  out = to + path.substr(from.size());
  return out != path;
}

// Remaps one file's table (the resolved paths, and with upath the unresolved
// ones too); returns the report text.
std::string remapFile(const std::string& file, const std::string& from, const std::string& to,
                      bool upath, bool dryRun) {
  std::unique_ptr<Accessor> scene = readScene(file, !dryRun);
  std::string lines;
  unsigned int total = 0;
  unsigned int changed = 0;
  if (Data::Stream* table = externalTable(*scene)) {
    for (Data::StreamIterator it = table->begin(); it != table->end(); ++it) {
      ExternalEntry entry;
      ExternalContent::getEntry(*it, entry.node, entry.key, entry.upath, entry.rpath,
                                entry.roles);
      ++total;
      std::string path;
      if (remapped(entry.rpath, from, to, path)) {
        ExternalContent::updateEntry(*it, path);
        lines += remapLine(entry.node, entry.key, entry.rpath, path);
        ++changed;
      }
      if (upath && remapped(entry.upath, from, to, path)) {
        (*it).setPositionByMemberName(ExternalContent::getUnresolvedPathMemberName().c_str());
        std::string ignored;
        (*it).fromStr(path, 0, ignored);
        lines += remapLine(entry.node, entry.key, entry.upath, path);
        ++changed;
      }
    }
  }
  if (changed > 0 && !dryRun) writeScene(*scene);
  const char* paths = upath ? " paths " : (total == 1 ? " resolved path " : " resolved paths ");
  return printable(file) + ": " + std::to_string(changed) + " of " +
         std::to_string(upath ? 2 * total : total) + paths +
         (dryRun ? "would be remapped (dry run)" : "remapped") + "\n" + lines;
}

}  // namespace

int listFiles(const std::vector<std::string>& files, bool json) {
  Reporter reporter(files.size());
  Json documents = Json::array();
  for (const std::string& file : files) {
    reporter.starting(file);
    try {
      std::unique_ptr<Accessor> scene = readScene(file);
      if (json) {
        addDocument(reporter, documents, listingJson(file, *scene));
      } else {
        reporter.output(listingText(file, *scene));
      }
    } catch (const std::exception& failure) {
      reporter.failure(file, failure.what());
      if (json) addDocument(reporter, documents, failureJson(file, failure.what()));
    }
  }
  if (json) finishDocuments(reporter, documents);
  return reporter.exitCode();
}

int showFile(const std::string& file, const std::optional<Target>& target, bool structures) {
  Reporter reporter(1);
  try {
    std::unique_ptr<Accessor> scene = readScene(file);
    const bool everything = !target && !structures;
    std::vector<std::pair<std::string, std::string>> parts;  // heading, raw text
    if (structures || everything) parts.emplace_back("# structures", structuresText(*scene));
    if (target) {
      parts.emplace_back("# " + target->describe(),
                         associationsText(findTarget(*scene, *target)));
    } else if (everything) {
      for (const auto& [key, associations] : scene->associations()) {
        Target each{key.empty(), key};
        parts.emplace_back("# " + each.describe(), associationsText(associations));
      }
    }
    std::string text;
    for (const auto& [heading, raw] : parts) {
      text += (parts.size() == 1 && !everything ? "" : heading + "\n") + raw;
    }
    reporter.output(text);
  } catch (const std::exception& failure) {
    reporter.failure(file, failure.what());
  }
  return reporter.exitCode();
}

int exportAssociations(const std::string& file, const Target& target, const std::string& out) {
  Reporter reporter(1);
  try {
    std::unique_ptr<Accessor> scene = readScene(file);
    const std::string text = associationsText(findTarget(*scene, target));
    if (out.empty() || out == "-") {
      reporter.output(text);
    } else {
      if (sameFile(out, file)) throw Failure("Refusing to write the export over the scene file.");
      writeOutput(out, text);
    }
  } catch (const std::exception& failure) {
    reporter.failure(file, failure.what());
  }
  return reporter.exitCode();
}

int importAssociations(const std::string& file, const Target& target, const std::string& input,
                       const std::string& structuresFile, bool dryRun) {
  Reporter reporter(1);
  try {
    // The import text is read first: a wrong path holds no lock.
    const std::string text = readInput(input, "import text");
    std::unique_ptr<Accessor> scene = readScene(file, !dryRun);
    StructureList given;
    if (!structuresFile.empty()) parseStructures(readInput(structuresFile, "structures file"), given);
    Associations associations = parseAssociations(text, knownStructures(*scene, given));
    scene->setStructures(structuresWith(*scene, associations));
    scene->associations()[target.key()] = associations;
    const std::string summary = streamSummary(associations);
    if (dryRun) {
      reporter.output(printable(file) + ": would import " + summary + " into " +
                      printable(target.describe()) + " (dry run)\n");
    } else {
      writeScene(*scene);
      reporter.output(printable(file) + ": imported " + summary + " into " +
                      printable(target.describe()) + "\n");
    }
  } catch (const std::exception& failure) {
    reporter.failure(file, failure.what());
  }
  return reporter.exitCode();
}

int removeAssociations(const std::string& file, const Target& target, bool dryRun) {
  Reporter reporter(1);
  try {
    std::unique_ptr<Accessor> scene = readScene(file, !dryRun);
    findTarget(*scene, target);
    if (dryRun) {
      reporter.output(printable(file) + ": would remove the metadata of " +
                      printable(target.describe()) + " (dry run)\n");
    } else {
      scene->associations().erase(target.key());
      writeScene(*scene);
      reporter.output(printable(file) + ": removed the metadata of " +
                      printable(target.describe()) + "\n");
    }
  } catch (const std::exception& failure) {
    reporter.failure(file, failure.what());
  }
  return reporter.exitCode();
}

int listExternals(const std::vector<std::string>& files, bool json) {
  Reporter reporter(files.size());
  Json documents = Json::array();
  for (const std::string& file : files) {
    reporter.starting(file);
    try {
      std::unique_ptr<Accessor> scene = readScene(file);
      const std::vector<ExternalEntry> entries = externalEntries(*scene);
      if (json) {
        addDocument(reporter, documents, externalsJson(file, entries));
      } else {
        reporter.output(externalsText(file, entries));
      }
    } catch (const std::exception& failure) {
      reporter.failure(file, failure.what());
      if (json) addDocument(reporter, documents, failureJson(file, failure.what()));
    }
  }
  if (json) finishDocuments(reporter, documents);
  return reporter.exitCode();
}

namespace {

using Finding = Data::AccessorTarn::Finding;

bool anyProblem(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.problem; });
}

std::string findingsText(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += "  " + std::string(finding.problem ? "problem" : "note") +
            (finding.line > 0 ? ", line " + std::to_string(finding.line) : std::string()) + ": " +
            printable(finding.message) + " [" + finding.kind + "]\n";
  }
  return text;
}

// The findings of one file; throws Failure when the check cannot run.
std::vector<Finding> findingsOf(const std::string& file) {
  checkReadable(file);
  std::vector<Finding> findings;
  std::string errors;
  if (!Data::AccessorTarn::checkFile(file, findings, errors))
    throw Failure(messagesOr(errors, "The file could not be checked."));
  return findings;
}

std::string countText(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

int checkFiles(const std::vector<std::string>& files, bool json) {
  Reporter reporter(files.size());
  Json documents = Json::array();
  for (const std::string& file : files) {
    reporter.starting(file);
    try {
      const std::vector<Finding> findings = findingsOf(file);
      const bool problems = anyProblem(findings);
      if (problems) reporter.markFailed();
      if (json) {
        Json list = Json::array();
        for (const Finding& finding : findings) {
          list.push_back({{"kind", finding.kind},
                          {"problem", finding.problem},
                          {"line", finding.line},
                          {"message", finding.message}});
        }
        addDocument(reporter, documents, {{"file", file}, {"ok", !problems}, {"findings", list}});
      } else {
        const size_t problemCount = static_cast<size_t>(std::count_if(
            findings.begin(), findings.end(), [](const Finding& f) { return f.problem; }));
        reporter.output(printable(file) + ": " +
                        (problemCount > 0 ? countText(problemCount, "problem") : "ok") +
                        (findings.size() > problemCount
                             ? ", " + countText(findings.size() - problemCount, "note")
                             : std::string()) +
                        "\n" + findingsText(findings));
      }
    } catch (const std::exception& failure) {
      reporter.failure(file, failure.what());
      if (json) addDocument(reporter, documents, failureJson(file, failure.what()));
    }
  }
  if (json) finishDocuments(reporter, documents);
  return reporter.exitCode();
}

int repairFiles(const std::vector<std::string>& files, bool dryRun) {
  Reporter reporter(files.size());
  for (const std::string& file : files) {
    reporter.starting(file);
    try {
      const std::vector<Finding> before = findingsOf(file);
      if (!anyProblem(before)) {
        reporter.output(printable(file) + ": nothing to repair\n");
        continue;
      }
      // The read recovers an unfinished rewrite; the clean write then keeps
      // exactly what the reader sees, once per target.
      if (!dryRun) writeScene(*readScene(file, true));  // the lock goes with the accessor
      const std::vector<Finding> after = dryRun ? before : findingsOf(file);
      if (!dryRun && anyProblem(after)) {
        throw Failure("The file was rewritten, but problems remain:\n" + findingsText(after));
      }
      const size_t mended = static_cast<size_t>(std::count_if(
          before.begin(), before.end(), [](const Finding& f) { return f.problem; }));
      reporter.output(printable(file) + (dryRun ? ": would mend " : ": mended ") +
                      countText(mended, "problem") + (dryRun ? " (dry run)\n" : "\n") +
                      findingsText(before));
    } catch (const std::exception& failure) {
      reporter.failure(file, failure.what());
    }
  }
  return reporter.exitCode();
}

namespace {

// The raw text of every stream of a scene, by "target / channel / stream",
// and of every structure, by name.
struct Contents {
  std::map<std::string, std::string> structures;
  std::map<std::string, std::set<std::string>> channels;  // target -> channel names
  std::map<std::string, std::pair<std::string, unsigned int>> streams;  // text, elements
};

Contents contentsOf(const Accessor& scene) {
  Contents contents;
  for (const Structure* structure : scene.structures())
    contents.structures[structure->name()] = structureText(*structure);
  const Data::StreamSerializer* raw = Data::StreamSerializer::formatByName("raw");
  for (const auto& [key, associations] : scene.associations()) {
    const std::string target = Target{key.empty(), key}.describe();
    contents.channels[target];
    for (unsigned int c = 0; c < associations.channelCount(); ++c) {
      const Data::Channel channel = associations.channelAt(c);
      contents.channels[target].insert(channel.name());
      for (unsigned int i = 0; i < channel.dataStreamCount(); ++i) {
        const Data::Stream* stream = channel.dataStream(i);
        if (!stream) continue;
        std::ostringstream text;
        std::string ignored;
        if (raw) raw->write(*stream, text, ignored);
        contents.streams[target + " / channel " + channel.name() + " / stream " +
                         stream->name()] = {text.str(), stream->elementCount()};
      }
    }
  }
  return contents;
}

// One line per difference of a and b, keyed like Contents.
template <class Map, class Same>
void compare(const Map& a, const Map& b, const std::string& kind, Same same,
             std::vector<Json>& out) {
  for (const auto& [key, value] : a) {
    const auto other = b.find(key);
    if (other == b.end()) {
      out.push_back({{"what", kind + key}, {"difference", "only in the first file"}});
    } else if (!same(value, other->second)) {
      out.push_back({{"what", kind + key}, {"difference", "differs"}});
    }
  }
  for (const auto& [key, value] : b) {
    if (a.count(key) == 0)
      out.push_back({{"what", kind + key}, {"difference", "only in the second file"}});
  }
}

}  // namespace

int diffFiles(const std::string& first, const std::string& second, bool json) {
  Reporter reporter(2);
  try {
    const Contents a = contentsOf(*readScene(first));
    const Contents b = contentsOf(*readScene(second));
    std::vector<Json> differences;
    const auto equal = [](const auto& x, const auto& y) { return x == y; };
    compare(a.structures, b.structures, "structure ", equal, differences);
    compare(a.channels, b.channels, "", [](const auto&, const auto&) { return true; },
            differences);
    for (const auto& [target, names] : a.channels) {
      const auto other = b.channels.find(target);
      if (other == b.channels.end()) continue;
      std::map<std::string, int> first, second;
      for (const std::string& name : names) first[name];
      for (const std::string& name : other->second) second[name];
      compare(first, second, target + " / channel ", equal, differences);
    }
    for (const auto& [key, value] : a.streams) {
      const auto other = b.streams.find(key);
      if (other == b.streams.end() || other->second.first == value.first) continue;
      differences.push_back({{"what", key},
                             {"difference", "differs (" + std::to_string(value.second) + " and " +
                                                std::to_string(other->second.second) +
                                                " elements)"}});
    }
    for (const auto& [key, value] : b.streams) {
      const size_t cut = key.rfind(" / stream ");
      if (a.streams.count(key) == 0 && a.channels.count(key.substr(0, key.find(" / "))) &&
          cut != std::string::npos)
        differences.push_back({{"what", key}, {"difference", "only in the second file"}});
    }
    for (const auto& [key, value] : a.streams) {
      if (b.streams.count(key) == 0 && b.channels.count(key.substr(0, key.find(" / "))))
        differences.push_back({{"what", key}, {"difference", "only in the first file"}});
    }
    if (json) {
      reporter.output(jsonText({{"kivoFormat", kJsonFormat},
                                {"first", first},
                                {"second", second},
                                {"same", differences.empty()},
                                {"differences", differences}}));
    } else {
      std::string text;
      for (const Json& d : differences)
        text += printable(d["what"].get<std::string>()) + ": " +
                d["difference"].get<std::string>() + "\n";
      reporter.output(text.empty() ? "The metadata of the two files is the same.\n" : text);
    }
    if (!differences.empty()) reporter.markFailed();
  } catch (const std::exception& failure) {
    reporter.failure(first + ", " + second, failure.what());
  }
  return reporter.exitCode();
}

int copyAssociations(const std::string& source, const std::string& destination,
                     const Target& target, const std::optional<std::string>& as, bool dryRun) {
  Reporter reporter(1);
  try {
    std::unique_ptr<Accessor> from = readScene(source);
    const Associations& associations = findTarget(*from, target);
    const Target to = as ? Target{false, *as} : target;
    std::unique_ptr<Accessor> scene = readScene(destination, !dryRun);
    // The copy's streams keep their structures: those the destination
    // lacks come along; one it declares differently is refused.
    Accessor::StructureSet structures = scene->structures();
    std::vector<const Structure*> used;
    for (unsigned int c = 0; c < associations.channelCount(); ++c) {
      const Data::Channel channel = associations.channelAt(c);
      for (unsigned int i = 0; i < channel.dataStreamCount(); ++i) {
        if (const Data::Stream* stream = channel.dataStream(i)) used.push_back(&stream->structure());
      }
    }
    for (const Structure* needed : used) {
      const auto same = structures.find(needed);
      if (same == structures.end()) {
        structures.insert(needed);
      } else if (!(**same == *needed)) {
        throw Failure("Structure " + std::string(needed->name()) +
                      " is declared differently in " + destination + ".");
      }
    }
    scene->setStructures(structures);
    scene->associations()[to.key()] = associations;
    const std::string summary = streamSummary(associations);
    if (!dryRun) writeScene(*scene);
    reporter.output(printable(destination) + (dryRun ? ": would copy " : ": copied ") + summary +
                    " of " + printable(target.describe()) + " of " + printable(source) +
                    " into " + printable(to.describe()) + (dryRun ? " (dry run)\n" : "\n"));
  } catch (const std::exception& failure) {
    reporter.failure(destination, failure.what());
  }
  return reporter.exitCode();
}

int recoverFiles(const std::vector<std::string>& files) {
  Reporter reporter(files.size());
  for (const std::string& file : files) {
    reporter.starting(file);
    std::string errors;
    const std::string journal = printable(Accessor::journalName(file));
    switch (Accessor::recoverFile(file, errors)) {
      case Accessor::kNothingToRecover:
        reporter.output(printable(file) + ": nothing to recover\n");
        break;
      case Accessor::kRolledBack:
        reporter.output(printable(file) + ": an unfinished rewrite was rolled back from " +
                        journal + "\n");
        break;
      case Accessor::kIncompleteJournalRemoved:
        reporter.output(printable(file) + ": removed " + journal +
                        ", which its writer left before changing the file\n");
        break;
      case Accessor::kRecoveryFailed:
        reporter.failure(file, messagesOr(errors, "The file could not be recovered."));
        break;
    }
  }
  return reporter.exitCode();
}

int remapExternals(const std::vector<std::string>& files, const std::string& from,
                   const std::string& to, bool upath, bool dryRun) {
  Reporter reporter(files.size());
  if ((from.back() == '/') != (!to.empty() && to.back() == '/')) {
    std::cerr << "kivo-meta: warning: --from " << (from.back() == '/' ? "ends" : "does not end")
              << " with '/' and --to " << (from.back() == '/' ? "does not" : "does")
              << "; paths will be joined as given (\"" << from << "x\" becomes \"" << to
              << "x\")." << std::endl;
  }
  for (const std::string& file : files) {
    reporter.starting(file);
    try {
      reporter.output(remapFile(file, from, to, upath, dryRun));
    } catch (const std::exception& failure) {
      reporter.failure(file, failure.what());
    }
  }
  return reporter.exitCode();
}

void setJsonLines(bool lines) { gJsonLines = lines; }

}  // namespace kivo::Meta
