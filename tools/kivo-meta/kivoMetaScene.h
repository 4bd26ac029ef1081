// kivoMetaScene.h: what every kivo-meta command does with a scene file:
// read all of its metadata through the library, turn metadata into the raw
// text formats and back, and write a changed file with a read-back check.
// Failures throw Failure; the commands catch it per file.
#pragma once

#include <kivo/kivo.h>

#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace kivo::Meta {

// A failure that ends the work on one file. The text is one or more complete
// sentences, one per line, without the file name: the caller puts it first.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The library's messages without the blanks and line feeds around them,
// or fallback when there are none.
std::string messagesOr(const std::string& errors, const std::string& fallback);

// The associations a command works on: those of one node, or the scene's.
struct Target {
  bool scene = false;
  std::string node;
  // The name the file keeps them under: "" for the scene, else the node.
  std::string key() const;
  // "the scene" or "node NAME", for messages.
  std::string describe() const;
};

// A node name that both scene formats store and read back as the same name:
// not empty, not starting with '-' ("-scn" names the scene in "ta" files),
// without blanks, control characters, ';' or '"'. Throws Failure otherwise.
void checkNodeName(const std::string& node);

// Throws Failure with the cause when file cannot be a scene to read: it does
// not exist ("No such file or directory."), is a folder, has an extension
// no accessor knows, or is empty.
void checkReadable(const std::string& file);

// Reads every structure and every associations of file through the
// accessor its extension selects. Throws Failure with the library's
// messages ("No factory registered for type of file ..." and the format's
// own). Always a full read: a rewrite must carry everything over. With
// forWrite the accessor keeps the file's exclusive lock from this read on,
// so that no other writer changes it before writeScene. Its "ta" writes are
// clean: they replace the whole old metadata section.
std::unique_ptr<Data::Accessor> readScene(const std::string& file, bool forWrite = false);

// The raw text of a structure: one line, without line end.
std::string structureText(const Data::Structure& structure);
// The raw text of associations, ending in "endAssociations" and a line end.
// Throws Failure when the writer reports errors.
std::string associationsText(const Data::Associations& associations);

// Structures read from declarations, each held by one reference.
class StructureList {
 public:
  StructureList() = default;
  StructureList(const StructureList&) = delete;
  StructureList& operator=(const StructureList&) = delete;
  // Takes one reference on structure.
  void add(const Data::Structure& structure);
  const std::vector<const Data::Structure*>& items() const { return fItems; }
  // The structure named name, or null.
  const Data::Structure* find(const std::string& name) const;

 private:
  std::vector<const Data::Structure*> fItems;
  std::vector<Ref<const Data::Structure>> fHeld;
};

// Reads structure declarations in the raw format, one per line (the form
// show --structures prints); blank lines are skipped. Throws Failure on any
// message of the reader, on a line that declares no structure, and on two
// different declarations under one name.
void parseStructures(const std::string& text, StructureList& out);

// Reads associations in the raw format. Streams find their structures among
// known (the process registry holds them for the duration of the read
// only). Throws Failure with the reader's messages, and when text holds no
// stream at all (an empty or misdirected input).
Data::Associations parseAssociations(const std::string& text,
                                     const std::vector<const Data::Structure*>& known);

// The scene's external content table, or null when it has none. Throws
// Failure when the table's structure lacks one of the five string members,
// whose text every row is read and changed through.
Data::Stream* externalTable(Data::Accessor& scene);

// Writes the accessor's structures and associations into its file, then
// reads the file again through the same accessor (under the lock it holds
// when read for writing) and checks that it holds exactly the associations
// written and every structure written. Throws Failure when the write fails
// or the file reads back differently.
void writeScene(Data::Accessor& scene);

}  // namespace kivo::Meta
