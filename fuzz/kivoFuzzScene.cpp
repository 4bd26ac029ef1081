#include "kivoFuzzScene.h"

#include <clocale>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataIndexPair.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include "kivoFuzzSupport.h"

namespace kivo::Fuzz {
namespace {

using namespace kivo::Data;

constexpr char kNodeName[] = "nodeA";
constexpr char kStructureName[] = "fz";

// The metadata every write harness puts into its file. Built once; the
// objects live for the whole process.
struct FixedMetadata {
  Structure* structure = nullptr;
  Associations scene;
  Associations node;
  std::string structureText;
  std::string sceneText;
  std::string nodeText;
  // "ta" only: the statements the writer makes of the above, found by
  // writing them into a file that had no metadata.
  std::string asciiStatements;
};

Stream makeStream(const Structure& structure, const char* name, const char* indexType,
                  const Index& index, const char* values) {
  Stream stream(structure, name);
  if (!stream.setIndexType(indexType)) fail("cannot set the index type of the fixed stream");
  Handle h(structure);
  std::string errors;
  std::istringstream in(values);
  for (unsigned int m = 0; m < structure.memberCount(); ++m) {
    h.setPositionByMemberIndex(m);
    for (unsigned int v = 0; v < h.dataLength(); ++v) {
      std::string word;
      std::getline(in, word, '|');
      if (h.fromStr(word, v, errors) != 0) fail("bad fixed value: " + errors);
    }
  }
  if (!stream.setElement(index, h)) fail("cannot fill the fixed stream");
  return stream;
}

std::string asciiStatements(const FixedMetadata& fixed);

const FixedMetadata& fixedMetadata() {
  static FixedMetadata* fixed = nullptr;
  if (fixed) return *fixed;
  fixed = new FixedMetadata;
  Structure* s = new Structure(kStructureName);
  s->ref();
  if (!s->addMember(Member::kInt32, 1, "id") || !s->addMember(Member::kFloat, 3, "p") ||
      !s->addMember(Member::kString, 1, "s")) {
    fail("cannot build the fixed structure");
  }
  fixed->structure = s;
  Channel vertex("vertex");
  vertex.setDataStream(makeStream(*s, "pos", "numeric", Index(5), "7|1|2.5|-3|tab\there \"q\" \\"));
  fixed->scene.setChannel(vertex);
  Channel face("face");
  face.setDataStream(makeStream(*s, "tag", "pair", Index(IndexPair(3, 4)), "-1|0|0|1e+20|x\ny"));
  fixed->node.setChannel(face);
  fixed->structureText = structureText(*s);
  fixed->sceneText = associationsText(fixed->scene);
  fixed->nodeText = associationsText(fixed->node);
  fixed->asciiStatements = asciiStatements(*fixed);
  return *fixed;
}

void putMetadata(Accessor& accessor, const FixedMetadata& fixed) {
  Accessor::StructureSet structures;
  structures.insert(fixed.structure);
  accessor.setStructures(structures);
  accessor.associations().clear();
  accessor.associations()[""] = fixed.scene;
  accessor.associations()[kNodeName] = fixed.node;
}

std::string asciiStatements(const FixedMetadata& fixed) {
  const std::string head = "//Tarn ASCII 2014 scene\ncreateNode transform -n \"x\";\n";
  const std::string tail = "// End of x.ta\n";
  ScratchFile file("ta");
  const std::string clean = head + tail;
  file.write(reinterpret_cast<const uint8_t*>(clean.data()), clean.size());
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension("ta");
  if (!accessor || !accessor->read(file.name(), errors)) {
    fail("cannot read a clean file: " + errors);
  }
  putMetadata(*accessor, fixed);
  if (!accessor->write(errors)) fail("cannot write a clean file: " + errors);
  const std::string written = file.read();
  if (written.size() < clean.size() || written.compare(0, head.size(), head) != 0 ||
      written.compare(written.size() - tail.size(), tail.size(), tail) != 0) {
    fail("a clean file loses its body or trailer when written");
  }
  return written.substr(head.size(), written.size() - head.size() - tail.size());
}

uint64_t bigEndian(const std::string& bytes, size_t at, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool startsWith(const std::string& text, size_t at, const char* prefix) {
  return text.compare(at, std::char_traits<char>::length(prefix), prefix) == 0;
}

// "ta": the new file is the old one with the fixed statements in place of
// a run of whole lines that holds no scene statement: every line removed is
// a metadata line or does not begin with a word.
void checkAsciiRewrite(const std::string& before, const std::string& after,
                       const std::string& statements) {
  size_t common = 0;
  while (common < before.size() && common < after.size() && before[common] == after[common]) {
    ++common;
  }
  const size_t header = before.find('\n');
  for (size_t p = after.rfind(statements, common); p != std::string::npos && p > 0;
       p = after.rfind(statements, p - 1)) {
    const size_t kept = after.size() - p - statements.size();
    if (kept > before.size() || before.size() - kept < p ||
        after.compare(p + statements.size(), kept, before, before.size() - kept, kept) != 0) {
      continue;
    }
    if (header == std::string::npos || p <= header || before[p - 1] != '\n') {
      fail("the metadata was not written at the start of a line after the header");
    }
    // A line that starts with a blank or a tab and continues a metadata
    // statement not yet ended by ';' (the node line of a node-level
    // statement) goes with that statement.
    bool open = false;
    for (size_t line = p; line < before.size() - kept;) {
      const size_t end = before.find('\n', line);
      const std::string text = before.substr(line, end - line);
      const size_t word = text.find_first_not_of(" \t");
      const size_t last = text.find_last_not_of(" \t\r");
      const bool metadata =
          startsWith(text, 0, "dataStructure") || startsWith(text, 0, "applyMetadata");
      const bool continuation = open && word > 0;
      if (word != std::string::npos && isLetter(text[word]) && !metadata && !continuation) {
        fail("the write removed the scene line '" + text + "'");
      }
      if (last != std::string::npos) open = (metadata || continuation) && text[last] != ';';
      line = end == std::string::npos ? before.size() : end + 1;
    }
    return;
  }
  fail("the written file is not the old one with the new statements in place");
}

// "tb": nothing before the trailer group's size field changes except the
// main size, which now describes the file.
void checkBinaryRewrite(const std::string& before, const std::string& after) {
  const uint64_t mainSize = bigEndian(before, 8, 8);
  const uint64_t backward = bigEndian(before, mainSize + 8, 4);
  const uint64_t trailerSizePosition = mainSize - backward;  // content start - 12
  if (trailerSizePosition < 20 || trailerSizePosition > before.size() ||
      trailerSizePosition > after.size()) {
    fail("a write went ahead with a trailer group outside the main group");
  }
  if (after.compare(0, 8, before, 0, 8) != 0 ||
      after.compare(16, trailerSizePosition - 16, before, 16, trailerSizePosition - 16) != 0) {
    fail("the write changed bytes before the trailer group");
  }
  if (bigEndian(after, 8, 8) != after.size() - 16) fail("the main size does not fit the file");
}

std::string describe(const std::string& extension, const std::string& errors) {
  return extension + ": " + errors;
}

}  // namespace

void prepareSceneHarness() {
  static bool done = false;
  if (done) return;
  done = true;
  // Payload texts of binary files convert through the locale's code set:
  // with UTF-8 both valid and invalid non-ASCII text reach the converters.
  std::setlocale(LC_ALL, "C.UTF-8");
  std::unique_ptr<Structure> process(new Structure(kStructureName));
  if (!process->addMember(Member::kInt8, 2, "processOnly") ||
      !Structure::registerStructure(*process)) {
    fail("cannot register the process structure");
  }
  process.release();
  fixedMetadata();
}

void readScene(const std::string& extension, const uint8_t* data, size_t size) {
  prepareSceneHarness();
  static const ScratchFile file(extension);
  LeakCheck check;
  file.write(data, size);
  const std::string before = file.read();
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::readFile(file.name(), errors);
  if (!accessor && errors.empty()) fail(describe(extension, "a read failed without a message"));
  note(accessor ? "read" : "refused: " + errors);
  if (accessor) {
    for (const Structure* s : accessor->structures()) structureText(*s);
    for (const auto& entry : accessor->associations()) associationsText(entry.second);
  }
  accessor = Accessor::accessorByExtension(extension);
  const std::set<std::string> structures = {kStructureName, "all1"};
  const std::set<std::string> associations = {""};
  errors.clear();
  if (!accessor->read(file.name(), &structures, &associations, errors)) {
    if (errors.empty()) fail(describe(extension, "a selective read failed without a message"));
    if (!accessor->structures().empty() || !accessor->associations().empty()) {
      fail(describe(extension, "a failed read left metadata in the accessor"));
    }
  } else {
    for (const Structure* s : accessor->structures()) {
      if (!structures.count(s->name())) fail(describe(extension, "an unwanted structure was read"));
    }
    for (const auto& entry : accessor->associations()) {
      if (!associations.count(entry.first)) {
        fail(describe(extension, "unwanted associations were read"));
      }
    }
  }
  accessor->isFileSupported(file.name());
  if (file.read() != before) fail(describe(extension, "reading changed the file"));
}

// True when the text after the new statements holds a metadata line.
bool keepsOldStatements(const std::string& after, const std::string& statements) {
  const size_t at = after.rfind(statements);
  if (at == std::string::npos) return false;
  const std::string kept = "\n" + after.substr(at + statements.size());
  return kept.find("\ndataStructure") != std::string::npos ||
         kept.find("\napplyMetadata") != std::string::npos;
}

void writeScene(const std::string& extension, const uint8_t* data, size_t size) {
  prepareSceneHarness();
  static const ScratchFile file(extension);
  const FixedMetadata& fixed = fixedMetadata();
  LeakCheck check;
  file.write(data, size);
  const std::string before = file.read();
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(extension);
  if (!accessor->read(file.name(), errors)) {
    note("refused: " + errors);
    return;
  }
  putMetadata(*accessor, fixed);
  if (!accessor->write(errors)) {
    note("write refused: " + errors);
    if (errors.empty()) fail(describe(extension, "a write failed without a message"));
    if (file.read() != before) fail(describe(extension, "a refused write changed the file"));
    return;
  }
  note("written");
  const std::string after = file.read();
  if (extension == "ta") {
    checkAsciiRewrite(before, after, fixed.asciiStatements);
  } else {
    checkBinaryRewrite(before, after);
  }
  accessor = Accessor::readFile(file.name(), errors);
  if (extension == "ta" && keepsOldStatements(after, fixed.asciiStatements)) {
    // The section ends at the first line after the old statements that
    // starts with a letter (a node line, say), and everything from there is
    // kept as it stands, old statements included: those are read again with
    // the new ones, so the read-back is not compared.
    note("old statements kept after the new ones");
    return;
  }
  if (!accessor) fail(describe(extension, "the written file does not read back: " + errors));
  const Structure* found = nullptr;
  for (const Structure* s : accessor->structures()) {
    if (std::string(s->name()) == kStructureName) found = s;
  }
  if (!found || *found != *fixed.structure) {
    fail(describe(extension, "the written structure does not read back"));
  }
  const Accessor::AssociationsMap& read = accessor->associations();
  if (!read.count("") || associationsText(read.at("")) != fixed.sceneText) {
    fail(describe(extension, "the written scene associations do not read back"));
  }
  if (!read.count(kNodeName) || associationsText(read.at(kNodeName)) != fixed.nodeText) {
    fail(describe(extension, "the written node associations do not read back"));
  }
}

}  // namespace kivo::Fuzz
