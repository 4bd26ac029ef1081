// kivoMetaScene.cpp: reading, converting and writing scene metadata for the
// kivo-meta commands.
#include "kivoMetaScene.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

namespace kivo::Meta {

namespace {

// The library's messages end in line feeds; the tool prints them as lines.
std::string trimmed(const std::string& text) {
  size_t end = text.find_last_not_of(" \t\r\n");
  if (end == std::string::npos) return std::string();
  size_t start = text.find_first_not_of(" \t\r\n");
  return text.substr(start, end - start + 1);
}

}  // namespace

std::string messagesOr(const std::string& errors, const std::string& fallback) {
  std::string text = trimmed(errors);
  return text.empty() ? fallback : text;
}

namespace {

using Data::Accessor;

// Says a file read failed for being cut short: a "ta" file with its header
// but without its trailer line in its last block, a "tb" file with its
// main group header that does not end with the trailer-size chunk. Empty
// otherwise.
std::string truncation(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  char head[20] = {};
  in.read(head, sizeof head);
  const std::string start(head, static_cast<size_t>(in.gcount()));
  in.clear();
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  const std::streamoff tail = std::min<std::streamoff>(size, 1024);
  std::string last(static_cast<size_t>(tail < 0 ? 0 : tail), '\0');
  if (size < 0 || !in.seekg(size - tail) || !in.read(&last[0], tail)) return "";
  std::string extension = file.substr(file.rfind('.') + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "ta") {
    const bool cut = start.rfind("//Tarn ASCII", 0) == 0 && last.find("// End of") == std::string::npos;
    return cut ? "Truncated: no trailer line." : "";
  }
  const bool scene = start.size() == 20 && start.compare(0, 4, "FOR8") == 0 &&
                     start.compare(16, 4, "Tarn") == 0;
  const bool chunk = last.size() >= 24 && last.compare(last.size() - 24, 4, "BCSZ") == 0;
  return scene && !chunk ? "Truncated: no trailer-size chunk." : "";
}
using Data::Associations;
using Data::Structure;

constexpr char kRawFormat[] = "raw";

// Registers private copies of structures in the process registry, so that
// the raw stream reader finds them by name, and deregisters them again when
// it goes. Streams read meanwhile keep their own references on the copies.
class RegisteredCopies {
 public:
  explicit RegisteredCopies(const std::vector<const Structure*>& structures) {
    for (const Structure* structure : structures) {
      auto copy = std::make_unique<Structure>(*structure);
      if (Structure::registerStructure(*copy)) fCopies.push_back(copy.release());
    }
  }
  RegisteredCopies(const RegisteredCopies&) = delete;
  RegisteredCopies& operator=(const RegisteredCopies&) = delete;
  ~RegisteredCopies() {
    for (Structure* copy : fCopies) Structure::deregisterStructure(*copy);
  }

 private:
  std::vector<Structure*> fCopies;
};

unsigned int streamCount(const Associations& associations) {
  unsigned int count = 0;
  for (unsigned int i = 0; i < associations.channelCount(); ++i) {
    count += associations.channelAt(i).dataStreamCount();
  }
  return count;
}

// What a file should hold after a write: the raw text of every associations
// by name and of every structure by name.
struct Snapshot {
  std::map<std::string, std::string> associations;
  std::map<std::string, std::string> structures;
};

Snapshot takeSnapshot(const Accessor& scene) {
  Snapshot snapshot;
  for (const auto& [name, associations] : scene.associations()) {
    snapshot.associations[name] = associationsText(associations);
  }
  for (const Structure* structure : scene.structures()) {
    snapshot.structures[structure->name() ? structure->name() : ""] = structureText(*structure);
  }
  return snapshot;
}

std::string describeKey(const std::string& key) {
  return key.empty() ? "the scene" : "node " + key;
}

// Throws when the file read back lacks, adds or changes anything written.
void checkReadBack(const Snapshot& written, const Accessor& back) {
  const Snapshot found = takeSnapshot(back);
  std::string problems;
  for (const auto& [key, text] : written.associations) {
    auto it = found.associations.find(key);
    if (it == found.associations.end()) {
      problems += "The metadata of " + describeKey(key) + " is missing.\n";
    } else if (it->second != text) {
      problems += "The metadata of " + describeKey(key) + " differs.\n";
    }
  }
  for (const auto& entry : found.associations) {
    if (written.associations.count(entry.first) == 0) {
      problems += "The file still holds metadata for " + describeKey(entry.first) + ".\n";
    }
  }
  for (const auto& [name, text] : written.structures) {
    auto it = found.structures.find(name);
    if (it == found.structures.end() || it->second != text) {
      problems += "Structure " + name + " does not read back as written.\n";
    }
  }
  if (!problems.empty()) {
    throw Failure("The file was written, but reading it back gives different metadata:\n" +
                  trimmed(problems));
  }
}

bool hasStringMember(const Structure& structure, const std::string& name) {
  for (const Data::Member& member : structure) {
    const char* memberName = Data::Member::name(&member);
    if (memberName && name == memberName &&
        Data::Member::type(&member) == Data::Member::kString) {
      return true;
    }
  }
  return false;
}

// Reads the file the accessor just wrote again, through the same accessor.
void readBack(Accessor& scene) {
  std::string errors;
  if (!scene.read(scene.fileName(), errors)) {
    throw Failure("The file was written, but reading it back failed:\n" +
                  messagesOr(errors, "The file could not be read."));
  }
}

void writeOnly(Accessor& scene) {
  std::string errors;
  if (!scene.write(errors)) {
    throw Failure(messagesOr(errors, "The metadata could not be written."));
  }
}

}  // namespace

std::string Target::key() const {
  return scene ? Data::AccessorTarn::getSceneAssociationsName() : node;
}

std::string Target::describe() const { return scene ? "the scene" : "node " + node; }

void checkNodeName(const std::string& node) {
  if (node.empty()) throw Failure("A node name must not be empty; use --scene for the scene.");
  if (node[0] == '-') throw Failure("Node name '" + node + "' must not start with '-'.");
  for (unsigned char c : node) {
    if (c <= ' ' || c == 127 || c == ';' || c == '"') {
      throw Failure("Node name '" + node +
                    "' must not hold blanks, control characters, ';' or '\"'.");
    }
  }
}

void checkReadable(const std::string& file) {
  struct stat status;
  if (::stat(file.c_str(), &status) != 0) throw Failure(std::string(std::strerror(errno)) + ".");
  if (S_ISDIR(status.st_mode)) throw Failure("Is a directory.");
  if (!Accessor::accessorByExtension(file)) {
    throw Failure("No factory registered for type of file \"" + file + "\"");
  }
  if (status.st_size == 0) throw Failure("The file is empty.");
}

std::unique_ptr<Accessor> readScene(const std::string& file, bool forWrite) {
  checkReadable(file);
  std::string errors;
  std::unique_ptr<Accessor> scene = Accessor::accessorByExtension(file);
  scene->setHoldForWrite(forWrite);
  scene->setCleanRewrite(true);
  if (!scene->read(file, errors)) {
    const std::string cut = truncation(file);
    throw Failure((cut.empty() ? "" : cut + "\n") +
                  messagesOr(errors, "The file could not be read."));
  }
  return scene;
}

std::string structureText(const Structure& structure) {
  const Data::StructureSerializer* format = Data::StructureSerializer::formatByName(kRawFormat);
  if (!format) throw Failure("No raw structure format is registered.");
  std::ostringstream out;
  format->write(structure, out);
  return out.str();
}

std::string associationsText(const Associations& associations) {
  const Data::AssociationsSerializer* format =
      Data::AssociationsSerializer::formatByName(kRawFormat);
  if (!format) throw Failure("No raw associations format is registered.");
  std::ostringstream out;
  std::string errors;
  if (format->write(associations, out, errors) != 0) {
    throw Failure(messagesOr(errors, "The associations could not be written as text."));
  }
  return out.str();
}

void StructureList::add(const Structure& structure) {
  fHeld.emplace_back(&structure);
  fItems.push_back(&structure);
}

const Structure* StructureList::find(const std::string& name) const {
  for (const Structure* structure : fItems) {
    if (structure->name() && name == structure->name()) return structure;
  }
  return nullptr;
}

void parseStructures(const std::string& text, StructureList& out) {
  const Data::StructureSerializer* format = Data::StructureSerializer::formatByName(kRawFormat);
  if (!format) throw Failure("No raw structure format is registered.");
  std::istringstream lines(text);
  std::string line;
  for (unsigned int number = 1; std::getline(lines, line); ++number) {
    if (trimmed(line).empty()) continue;
    const std::string where = "Line " + std::to_string(number) + ": ";
    std::istringstream in(line);
    std::string errors;
    Ref<Structure> structure(format->read(in, errors));
    if (!structure || !trimmed(errors).empty()) {
      throw Failure(where + messagesOr(errors, "no structure could be read."));
    }
    const std::string name = structure->name() ? structure->name() : "";
    if (const Structure* earlier = out.find(name)) {
      if (*earlier == *structure) continue;
      throw Failure(where + "structure " + name + " is declared twice, differently.");
    }
    out.add(*structure);
  }
}

Associations parseAssociations(const std::string& text,
                               const std::vector<const Structure*>& known) {
  const Data::AssociationsSerializer* format =
      Data::AssociationsSerializer::formatByName(kRawFormat);
  if (!format) throw Failure("No raw associations format is registered.");
  RegisteredCopies registered(known);
  std::istringstream in(text);
  std::string errors;
  std::unique_ptr<Associations> read(format->read(in, errors));
  if (!read) throw Failure(messagesOr(errors, "The associations text could not be read."));
  Associations associations(*read);
  if (streamCount(associations) == 0) {
    throw Failure("The associations text holds no stream: nothing to import.");
  }
  return associations;
}

Data::Stream* externalTable(Accessor& scene) {
  using ExternalContent = Data::AccessorTarn::ExternalContent;
  Data::Stream* table = ExternalContent::getStream(scene);
  if (!table) return nullptr;
  for (const std::string* name :
       {&ExternalContent::getNodeMemberName(), &ExternalContent::getKeyMemberName(),
        &ExternalContent::getUnresolvedPathMemberName(),
        &ExternalContent::getResolvedPathMemberName(), &ExternalContent::getRolesMemberName()}) {
    if (!hasStringMember(table->structure(), *name)) {
      throw Failure("The external content table has no string member '" + *name + "'.");
    }
  }
  return table;
}

void writeScene(Accessor& scene) {
  const Snapshot written = takeSnapshot(scene);
  writeOnly(scene);
  readBack(scene);
  checkReadBack(written, scene);
}

}  // namespace kivo::Meta
