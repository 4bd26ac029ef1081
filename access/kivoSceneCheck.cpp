// AccessorTarn::checkFile: what a scene file's metadata holds that a user
// should know of, found by listing every statement or chunk as it lies and
// reading each one alone.
#include <kivo/access/kivoDataAccessorTarn.h>

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>
#include <kivo/support/kivoRef.h>

#include "access/kivoDataAccessorTarnInternal.h"
#include "access/kivoSceneFile.h"

namespace kivo::Data {
namespace {

using Entry = Detail::MetadataEntry;
using Finding = AccessorTarn::Finding;

// A dense copy of a numeric stream needs one slot per index up to its
// highest: past this many slots, and this many per element, it is noted.
constexpr uint64_t kDenseSlotsNoted = uint64_t(1) << 20;
constexpr uint64_t kSlotsPerElementNoted = 16;

std::string lowerExtension(const std::string& fileName) {
  const size_t dot = fileName.rfind('.');
  std::string extension = dot == std::string::npos ? fileName : fileName.substr(dot + 1);
  for (char& c : extension) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return extension;
}

std::string targetName(const std::string& name) {
  return name.empty() ? std::string("the scene") : "node " + name;
}

std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

// The line number of each position of a "ta" file, in one pass.
std::map<int64_t, uint64_t> lineNumbers(const std::string& fileName,
                                        const std::set<int64_t>& positions) {
  std::map<int64_t, uint64_t> lines;
  if (positions.empty()) return lines;
  std::ifstream in(fileName, std::ios::binary);
  uint64_t line = 1;
  int64_t at = 0;
  char buffer[64 * 1024];
  auto next = positions.begin();
  while (next != positions.end() && in) {
    in.read(buffer, sizeof buffer);
    const std::streamsize got = in.gcount();
    for (std::streamsize i = 0; i <= got && next != positions.end(); ++i) {
      while (next != positions.end() && *next == at + i) lines[*next++] = line;
      if (i < got && buffer[i] == '\n') ++line;
    }
    at += got;
    if (got == 0) break;
  }
  return lines;
}

std::string structureText(const Structure& structure) {
  std::ostringstream out;
  if (const StructureSerializer* raw = StructureSerializer::formatByName("raw"))
    raw->write(structure, out);
  return out.str();
}

std::string associationsText(const Associations& associations) {
  std::ostringstream out;
  std::string ignored;
  if (const AssociationsSerializer* raw = AssociationsSerializer::formatByName("raw"))
    raw->write(associations, out, ignored);
  return out.str();
}

// The structure names the streams of an associations text give.
std::set<std::string> namedStructures(const std::string& text) {
  std::set<std::string> names;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, 10, "structure ") == 0) names.insert(line.substr(10));
  }
  return names;
}

// Numeric streams whose highest index would make a dense copy far larger
// than their elements.
void noteSparseStreams(const Associations& associations, const std::string& target,
                       uint64_t line, std::vector<Finding>& findings) {
  for (unsigned int c = 0; c < associations.channelCount(); ++c) {
    const Channel channel = associations.channelAt(c);
    for (unsigned int s = 0; s < channel.dataStreamCount(); ++s) {
      const Stream* stream = channel.dataStream(s);
      if (!stream || stream->indexType() != Index::theTypeName() || stream->elementCount() == 0)
        continue;
      uint64_t highest = 0;
      for (StreamIterator it = stream->begin(); it != stream->end(); ++it)
        highest = std::max<uint64_t>(highest, it.index().index());
      const uint64_t slots = highest + 1;
      if (slots > kDenseSlotsNoted && slots > kSlotsPerElementNoted * stream->elementCount()) {
        findings.push_back(
            {"index-range",
             "Stream " + stream->name() + " of channel " + channel.name() + " of " +
                 targetName(target) + " holds " + std::to_string(stream->elementCount()) +
                 " elements with indices up to " + std::to_string(highest) +
                 ": as a dense stream it would hold " + std::to_string(slots) + " elements.",
             line, false});
      }
    }
  }
}

// Text of an entry in the locale's code set; false when it does not convert.
bool localText(const Entry& entry, bool binary, std::string& text) {
  text = entry.text;
  if (!binary || std::all_of(text.begin(), text.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
    return true;
  bool converted = false;
  text = Detail::convertString(entry.text, Detail::eConversionType::FromUtf8, &converted);
  return converted;
}

}  // namespace

bool AccessorTarn::checkFile(const std::string& fileName, std::vector<Finding>& findings,
                             std::string& errors) {
  const std::string extension = lowerExtension(fileName);
  const bool binary = extension == "tb";
  if (!binary && extension != "ta") {
    Detail::appendMessage(errors, "No accessor found for type of file \"" + fileName + "\"");
    return false;
  }
  struct stat status;
  const bool journal = ::lstat(Detail::journalPath(fileName).c_str(), &status) == 0;
  if (journal) {
    findings.push_back({"journal",
                        "An unfinished rewrite left the file's old bytes in " +
                            Detail::journalPath(fileName) + "; 'kivo-meta recover " + fileName +
                            "' puts them back.",
                        0, true});
  }
  Detail::MetadataListing listing;
  if (!(binary ? Detail::listBinaryMetadata(fileName, listing, errors)
               : Detail::listAsciiMetadata(fileName, listing, errors)))
    return false;

  std::set<int64_t> positions;
  if (!binary) {
    for (const Entry& entry : listing.entries) positions.insert(entry.position);
    for (const Detail::LayoutProblem& problem : listing.problems) {
      if (problem.position >= 0) positions.insert(problem.position);
    }
  }
  const std::map<int64_t, uint64_t> lines = lineNumbers(fileName, positions);
  const auto lineOf = [&](int64_t position) -> uint64_t {
    const auto found = lines.find(position);
    return found == lines.end() ? 0 : found->second;
  };
  for (const Detail::LayoutProblem& problem : listing.problems)
    findings.push_back({problem.kind, problem.message, lineOf(problem.position), true});

  // What the reader itself keeps, to tell which of several statements wins.
  std::map<std::string, std::string> keptStructures, keptAssociations;
  if (!journal) {
    std::string ignored;
    if (std::unique_ptr<Accessor> read = Accessor::readFile(fileName, ignored)) {
      for (const Structure* structure : read->structures())
        keptStructures[structure->name()] = structureText(*structure);
      for (const auto& [name, associations] : read->associations())
        keptAssociations[name] = associationsText(associations);
    }
  }

  // Entries are read alone in an emptied registry, as a read reads them.
  Detail::IsolatedRegistry isolated;
  std::map<std::string, std::vector<std::pair<uint64_t, std::string>>> structures, targets;
  std::set<std::string> referenced;
  const bool anyStructure =
      std::any_of(listing.entries.begin(), listing.entries.end(),
                  [](const Entry& entry) { return entry.kind == Entry::eKind::kStructure; });
  for (const Entry& entry : listing.entries) {
    const uint64_t line = lineOf(entry.position);
    const std::string what = entry.kind == Entry::eKind::kStructure ? "A structure declaration"
                                                                    : "The metadata of " +
                                                                          targetName(entry.name);
    if (entry.kind == Entry::eKind::kStrayLine) {
      findings.push_back({"stray-line",
                          "A target line left by an earlier rewrite stands in the metadata "
                          "section.",
                          line, true});
      continue;
    }
    if (!entry.split) {
      findings.push_back({"bad-statement", what + " has no format and payload.", line, true});
      continue;
    }
    if (entry.kind == Entry::eKind::kAssociations) {
      const std::set<std::string> names = namedStructures(entry.text);
      referenced.insert(names.begin(), names.end());
    }
    if (!entry.utf8) {
      findings.push_back({"not-utf8", what + " is not UTF-8.", line, true});
      continue;
    }
    std::string text;
    if (!localText(entry, binary, text)) {
      findings.push_back({"bad-statement",
                          what + " does not convert to the code set of the locale.", line, true});
      continue;
    }
    std::string messages;
    if (entry.kind == Entry::eKind::kStructure) {
      std::unique_ptr<Structure> structure =
          Detail::readStructurePayload(entry.format, text, messages);
      if (!structure || !messages.empty()) {
        findings.push_back({"bad-statement", what + " does not read: " + trimmed(messages), line,
                            true});
        continue;
      }
      // Writing it takes and drops a reference: the structure is held
      // first, and then left to the registry, or deleted when refused.
      const Ref<Structure> held(structure.release());
      structures[held->name()].emplace_back(line, structureText(*held));
      Structure::registerStructure(*held);
      continue;
    }
    if (binary && entry.beforeFirstStructure && anyStructure) {
      findings.push_back({"chunk-order",
                          what + " stands before the first structure chunk: its streams "
                                 "cannot name the structures, and a rewrite puts it after them.",
                          line, true});
    }
    Associations associations;
    if (!AccessorTarn::deserializeAssociations(entry.format, text, associations, messages)) {
      findings.push_back({"bad-statement", what + " does not read: " + trimmed(messages), line,
                          true});
      continue;
    }
    targets[entry.name].emplace_back(line, associationsText(associations));
    noteSparseStreams(associations, entry.name, line, findings);
  }

  const auto duplicates = [&](const auto& groups, const std::map<std::string, std::string>& kept,
                              const std::string& kind, const auto& describe) {
    for (const auto& [name, found] : groups) {
      if (found.size() < 2) continue;
      std::string where;
      for (const auto& [line, text] : found)
        where += (where.empty() ? "" : ", ") + std::to_string(line);
      std::string keeps;
      const auto keptText = kept.find(name);
      for (size_t i = 0; keptText != kept.end() && i < found.size(); ++i) {
        if (found[i].second != keptText->second) continue;
        keeps = binary ? "; the reader keeps number " + std::to_string(i + 1)
                       : "; the reader keeps the one on line " + std::to_string(found[i].first);
        break;
      }
      findings.push_back({"duplicate",
                          std::to_string(found.size()) + " " + kind + " for " + describe(name) +
                              (binary ? "" : " (lines " + where + ")") + keeps + ".",
                          found.front().first, true});
    }
  };
  duplicates(targets, keptAssociations, binary ? "associations chunks" : "applyMetadata statements",
             targetName);
  duplicates(structures, keptStructures, binary ? "structure chunks" : "dataStructure statements",
             [](const std::string& name) { return "structure " + name; });
  for (const std::string& name : referenced) {
    if (structures.count(name) == 0) {
      findings.push_back({"undeclared-structure",
                          "A stream names the structure " + name +
                              ", which the file does not declare.",
                          0, true});
    }
  }
  for (const auto& [name, found] : structures) {
    if (referenced.count(name) == 0) {
      findings.push_back({"unused-structure",
                          "The structure " + name + " is declared but no stream uses it.",
                          found.front().first, false});
    }
  }
  return true;
}

}  // namespace kivo::Data
