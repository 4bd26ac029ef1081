// AccessorTarn: what the two scene-file formats ("ta" ASCII, "tb" binary)
// share: the name of the scene-level associations, the words of each format
// (one getter each, so reader and writer never disagree), deserializing a
// payload by format name, file truncation, and the external content table.
// Only static members; not instantiable. Every getter returns a constant
// string that lives for the whole process.
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace kivo::Data {

class Accessor;
class Associations;
class Handle;
class Stream;
class Structure;

class KIVO_EXPORT AccessorTarn {
 public:
  AccessorTarn() = delete;

  // "": the associations of the scene itself.
  static const std::string& getSceneAssociationsName();

  // Reads a structure from text with the structure serializer registered as
  // format. Returns the new structure, unregistered and with a reference
  // count of 0: the caller owns it, and either registers it or destroys it
  // (one ref() and one unref(): hold it in a kivo::Ref). Null when the text
  // gives no structure, or when no such format exists ("Could not find
  // serializer for format NAME"); the reader's messages are appended to
  // errors, also those that come with a structure.
  static const Structure* deserializeStructure(const std::string& format, const std::string& text,
                                               std::string& errors);
  // Reads associations from text with the associations serializer registered
  // as format and, on success only, assigns them to out. False, with the
  // messages appended to errors, otherwise.
  static bool deserializeAssociations(const std::string& format, const std::string& text,
                                      Associations& out, std::string& errors);
  // Truncates the named file to length bytes; true on success. The
  // accessors do not use it for their own files: they cut a file through
  // the descriptor they wrote it with (ftruncate), never by name.
  static bool truncateFile(const std::string& fileName, uint64_t length);

  // One thing a check found in a scene file.
  struct Finding {
    // A keyword: "journal", "foreign-text", "no-trailer",
    // "body-after-trailer", "bad-chunk", "stray-line", "duplicate",
    // "bad-statement", "not-utf8", "undeclared-structure", "chunk-order"
    // (problems); "unused-structure", "index-range" (notes).
    std::string kind;
    // One sentence that says what and where.
    std::string message;
    // "ta": the line it stands on (the first of several); 0 when none.
    uint64_t line = 0;
    // A problem a user should mend (kivo-meta repair does, where it can);
    // false for a note.
    bool problem = true;
  };
  // Looks at the metadata of a "ta" or "tb" file as it lies, statement by
  // statement or chunk by chunk, without changing the file (an unfinished
  // rewrite's journal is reported, not recovered), and appends what it
  // finds to findings: problems of the layout, text in the section that is
  // no metadata, several statements for one target or structure (and which
  // one the reader keeps), statements that do not read (with the reader's
  // messages), metadata that is not UTF-8, streams naming structures the
  // file does not declare, associations chunks before the first structure
  // chunk; and, as notes, structures no stream uses and numeric streams
  // whose dense copy would be far larger than their elements. False,
  // with messages, when the file cannot be read that far.
  static bool checkFile(const std::string& fileName, std::vector<Finding>& findings,
                        std::string& errors);

  // The words of ASCII scene files: header and trailer prefixes, the two
  // metadata commands and their flags, and the commands of the scene body
  // that end the backward search for metadata (connectAttr, createNode,
  // setAttr, relationship, select).
  class KIVO_EXPORT Ascii {
   public:
    Ascii() = delete;
    static const std::string& getHeaderPrefix();                      // "//Tarn ASCII"
    static const std::string& getTrailerPrefix();                     // "// End of"
    static const std::string& getDataStructureCommandName();          // "dataStructure"
    static const std::string& getDataStructureCommandFormatFlag();    // "-fmt"
    static const std::string& getDataStructureCommandAsStringFlag();  // "-as"
    static const std::string& getApplyMetadataCommandName();          // "applyMetadata"
    static const std::string& getApplyMetadataCommandFormatFlag();    // "-fmt"
    static const std::string& getApplyMetadataCommandValueFlag();     // "-v"
    static const std::string& getApplyMetadataCommandSceneFlag();     // "-scn"
    static const std::string& getConnectAttrCommandName();            // "connectAttr"
    static const std::string& getCreateNodeCommandName();             // "createNode"
    static const std::string& getSetAttrCommandName();                // "setAttr"
    static const std::string& getRelationshipCommandName();           // "relationship"
    static const std::string& getSelectCommandName();                 // "select"
  };

  // The chunk tags of binary scene files (four characters each).
  class KIVO_EXPORT Binary {
   public:
    Binary() = delete;
    static const std::string& getFormChunkName();                // "FOR8"
    static const std::string& getMainFormChunkType();            // "Tarn"
    static const std::string& getMetaDataStructureChunkName();   // "DATS"
    static const std::string& getApplyNodeMetaDataChunkName();   // "MTDA"
    static const std::string& getApplySceneMetaDataChunkName();  // "SMTD"
    static const std::string& getBackwardChunkSizeChunkName();   // "BCSZ"
  };

  // The external content table: the files a scene refers to, one element per
  // reference, in stream "v1.0" of channel "externalContentTable" of the
  // scene associations, on the structure "externalContentTable" with the
  // string members "node", "key", "upath", "rpath" and "roles". The set of
  // roles is kept as one text: each role with '-' doubled and then ';'
  // written as "-*", the roles joined by ";" in set order.
  class KIVO_EXPORT ExternalContent {
   public:
    ExternalContent() = delete;
    static const std::string& getStructureName();             // "externalContentTable"
    static const std::string& getChannelName();               // "externalContentTable"
    static const std::string& getStreamName();                // "v1.0"
    static const std::string& getNodeMemberName();            // "node"
    static const std::string& getKeyMemberName();             // "key"
    static const std::string& getUnresolvedPathMemberName();  // "upath"
    static const std::string& getResolvedPathMemberName();    // "rpath"
    static const std::string& getRolesMemberName();           // "roles"
    static const std::string& getRolesSeparator();            // ";"

    // The table's stream, or null when the channel or the stream is missing.
    // The pointer is into the associations and valid while they are unchanged.
    static const Stream* getStream(const Associations& associations);
    static Stream* getStream(Associations& associations);
    // The same in the accessor's scene associations; null when it has none.
    static const Stream* getStream(const Accessor& accessor);
    static Stream* getStream(Accessor& accessor);

    // On the element h stands on, sets "node", "key", "roles" (the roles
    // text), "upath" and "rpath", in this order, through the handle's text
    // conversion.
    static void setEntry(Handle& h, const std::string& node, const std::string& key,
                         const std::string& upath, const std::string& rpath,
                         const std::set<std::string>& roles);
    // Sets only "rpath".
    static void updateEntry(Handle& h, const std::string& rpath);
    // Reads the five members as text; the roles are added to roles.
    static void getEntry(Handle& h, std::string& node, std::string& key, std::string& upath,
                         std::string& rpath, std::set<std::string>& roles);

    // The roles text of a set: "a;b" and "c-d" give "a-*b;c--d"; none give "".
    static std::string rolesText(const std::set<std::string>& roles);
    // Splits a roles text at each ';' and adds every piece, un-escaped ("--"
    // gives '-', "-*" gives ';'; '-' before any other character, or at the
    // end, stays as it is), to roles.
    static void rolesFromText(const std::string& text, std::set<std::string>& roles);

    // Reads only the table's structure and the scene associations of
    // fileName and, when the file has scene associations, assigns them to
    // out. False, with the messages in errors, when no accessor knows the
    // extension ("No accessor found for type of file \"NAME\"") or the read
    // fails.
    static bool readTable(const std::string& fileName, Associations& out, std::string& errors);
  };
};

}  // namespace kivo::Data
