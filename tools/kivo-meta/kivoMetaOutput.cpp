// kivoMetaOutput.cpp: listings, external content rows and run reporting.
#include "kivoMetaOutput.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <sstream>

namespace kivo::Meta {

namespace {

using Data::Accessor;
using Data::Associations;
using Data::Channel;
using Data::Member;
using Data::Stream;
using Data::Structure;
using ExternalContent = Data::AccessorTarn::ExternalContent;

std::string nameOf(const Structure& structure) {
  return structure.name() ? structure.name() : "";
}

std::string plural(unsigned int count, const char* word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

// "float[3] rgb": the type as the raw structure format spells it.
std::string memberText(const Member& member) {
  std::string text = Member::typeName(Member::type(&member));
  if (Member::length(&member) != 1) text += "[" + std::to_string(Member::length(&member)) + "]";
  const char* name = Member::name(&member);
  return text + " " + printable(name ? name : "");
}

std::string structureLine(const Structure& structure) {
  std::string line = "  structure " + printable(nameOf(structure)) + ":";
  const char* separator = " ";
  for (const Member& member : structure) {
    line += separator + memberText(member);
    separator = ", ";
  }
  return line + "\n";
}

std::string streamLine(const Stream& stream) {
  return "      stream " + printable(stream.name()) + ": structure " +
         printable(nameOf(stream.structure())) + ", " + printable(stream.indexType()) +
         " index, " + plural(stream.elementCount(), "element") + "\n";
}

std::string associationsBlock(const std::string& key, const Associations& associations) {
  std::string text = key.empty() ? "  scene" : "  node " + printable(key);
  if (associations.channelCount() == 0) return text + ": no metadata\n";
  text += "\n";
  for (unsigned int i = 0; i < associations.channelCount(); ++i) {
    const Channel channel = associations.channelAt(i);
    text += "    channel " + printable(channel.name()) + "\n";
    for (unsigned int j = 0; j < channel.dataStreamCount(); ++j) {
      if (const Stream* stream = channel.dataStream(j)) text += streamLine(*stream);
    }
  }
  return text;
}

Json structureJson(const Structure& structure) {
  Json members = Json::array();
  for (const Member& member : structure) {
    const char* name = Member::name(&member);
    members.push_back({{"name", name ? name : ""},
                       {"type", Member::typeName(Member::type(&member))},
                       {"length", Member::length(&member)}});
  }
  return {{"name", nameOf(structure)}, {"members", members}};
}

Json associationsJson(const std::string& key, const Associations& associations) {
  Json channels = Json::array();
  for (unsigned int i = 0; i < associations.channelCount(); ++i) {
    const Channel channel = associations.channelAt(i);
    Json streams = Json::array();
    for (unsigned int j = 0; j < channel.dataStreamCount(); ++j) {
      const Stream* stream = channel.dataStream(j);
      if (!stream) continue;
      streams.push_back({{"name", stream->name()},
                         {"structure", nameOf(stream->structure())},
                         {"indexType", stream->indexType()},
                         {"elements", stream->elementCount()}});
    }
    channels.push_back({{"name", channel.name()}, {"streams", streams}});
  }
  return {{"name", key}, {"scene", key.empty()}, {"channels", channels}};
}

std::string rolesList(const std::set<std::string>& roles) {
  std::string text;
  for (const std::string& role : roles) text += (text.empty() ? "" : ", ") + printable(role);
  return text;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string listingText(const std::string& file, const Accessor& scene) {
  std::string text = printable(file) + "\n";
  if (scene.structures().empty() && scene.associations().empty()) {
    return text + "  no metadata\n";
  }
  for (const Structure* structure : scene.structures()) text += structureLine(*structure);
  for (const auto& [key, associations] : scene.associations()) {
    text += associationsBlock(key, associations);
  }
  return text;
}

Json listingJson(const std::string& file, const Accessor& scene) {
  Json structures = Json::array();
  for (const Structure* structure : scene.structures()) {
    structures.push_back(structureJson(*structure));
  }
  Json associations = Json::array();
  for (const auto& [key, value] : scene.associations()) {
    associations.push_back(associationsJson(key, value));
  }
  return {{"file", file}, {"ok", true}, {"structures", structures},
          {"associations", associations}};
}

std::vector<ExternalEntry> externalEntries(Accessor& scene) {
  std::vector<ExternalEntry> entries;
  Stream* table = externalTable(scene);
  if (!table) return entries;
  for (Data::StreamIterator it = table->begin(); it != table->end(); ++it) {
    ExternalEntry entry;
    ExternalContent::getEntry(*it, entry.node, entry.key, entry.upath, entry.rpath,
                              entry.roles);
    entries.push_back(std::move(entry));
  }
  return entries;
}

std::string externalsText(const std::string& file, const std::vector<ExternalEntry>& entries) {
  std::string text = printable(file) + "\n";
  if (entries.empty()) return text + "  no external content\n";
  for (const ExternalEntry& entry : entries) {
    text += "  " + printable(entry.node) + " " + printable(entry.key) + "\n";
    text += "    upath: " + printable(entry.upath) + "\n";
    text += "    rpath: " + printable(entry.rpath) + "\n";
    text += "    roles: " + rolesList(entry.roles) + "\n";
  }
  return text;
}

Json externalsJson(const std::string& file, const std::vector<ExternalEntry>& entries) {
  Json rows = Json::array();
  for (const ExternalEntry& entry : entries) {
    rows.push_back({{"node", entry.node},
                    {"key", entry.key},
                    {"upath", entry.upath},
                    {"rpath", entry.rpath},
                    {"roles", entry.roles}});
  }
  return {{"file", file}, {"ok", true}, {"entries", rows}};
}

Reporter::Reporter(size_t total)
    : fTotal(total), fProgress(total >= kManyFiles && isatty(STDERR_FILENO) == 1) {}

Reporter::~Reporter() { clearProgress(); }

void Reporter::starting(const std::string& file) {
  if (!fProgress) return;
  std::string line = "[" + std::to_string(fDone) + "/" + std::to_string(fTotal) + "] " +
                     printable(file);
  if (line.size() > 78) line = line.substr(0, 75) + "...";
  std::cerr << "\r\033[K" << line << std::flush;
  fProgressShown = true;
  ++fDone;
}

bool Reporter::sQuiet = false;

void Reporter::output(const std::string& text) {
  if (sQuiet) return;
  clearProgress();
  std::cout << text << std::flush;
}

void Reporter::failure(const std::string& file, const std::string& text) {
  clearProgress();
  fFailed = true;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::cerr << "kivo-meta: " << printable(file) << ": " << printable(line) << "\n";
  }
  std::cerr << std::flush;
}

void Reporter::clearProgress() {
  if (!fProgressShown) return;
  std::cerr << "\r\033[K" << std::flush;
  fProgressShown = false;
}

}  // namespace kivo::Meta
