// Internal helpers of the scene-file accessors. Shared by the ASCII and the
// binary format: how messages are joined, the names a selective read still
// wants, keeping or dropping a declared structure. Of the ASCII format: how payloads are escaped in its statements.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <set>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include <kivo/data/kivoDataStructure.h>

namespace kivo::Data {
class Associations;
class Structure;
}  // namespace kivo::Data

namespace kivo::Detail {

// Appends message to errors, on a line of its own: a newline is put in
// between when errors holds text that does not end with one.
void appendMessage(std::string& errors, const std::string& message);

// A read-only stream buffer over bytes it does not own, seekable like a
// string buffer (the raw readers report positions through it): payloads are
// read where they lie instead of being copied into a string stream first.
// The bytes must outlive the buffer.
class ViewBuffer : public std::streambuf {
 public:
  explicit ViewBuffer(std::string_view bytes) {
    // The get area is only read: nothing writes through these pointers.
    char* begin = const_cast<char*>(bytes.data());
    setg(begin, begin, begin + bytes.size());
  }

 protected:
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override {
    const off_type size = egptr() - eback();
    const off_type base = direction == std::ios_base::beg   ? 0
                          : direction == std::ios_base::cur ? gptr() - eback()
                                                            : size;
    if (!(which & std::ios_base::in) || offset < -base || offset > size - base)
      return pos_type(off_type(-1));
    setg(eback(), eback() + base + offset, egptr());
    return pos_type(base + offset);
  }
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override {
    return seekoff(off_type(position), std::ios_base::beg, which);
  }
};

// An input stream over a ViewBuffer.
class ViewInput : private ViewBuffer, public std::istream {
 public:
  explicit ViewInput(std::string_view bytes) : ViewBuffer(bytes), std::istream(this) {}
};

// What AccessorTarn::deserializeStructure does, the new structure owned by
// the result until the caller registers it and releases it.
std::unique_ptr<Data::Structure> readStructurePayload(const std::string& format,
                                                      std::string_view text, std::string& errors);

// What AccessorTarn::deserializeAssociations does, the text read where it
// lies.
bool readAssociationsPayload(const std::string& format, std::string_view text,
                             Data::Associations& out, std::string& errors);

// Empties the process registry for the duration of a read and, however the
// read ends, deletes what the read registered (structures the accessor kept
// survive through its references) and puts the saved content back.
class IsolatedRegistry {
 public:
  IsolatedRegistry() { fSaved.swap(Data::Structure::allStructures()); }
  ~IsolatedRegistry() {
    Data::Structure::deleteAllStructures();
    Data::Structure::allStructures().swap(fSaved);
  }
  IsolatedRegistry(const IsolatedRegistry&) = delete;
  IsolatedRegistry& operator=(const IsolatedRegistry&) = delete;

 private:
  Data::Structure::StructureSet fSaved;
};

// The names a read still wants: all of them when no set was given, else a
// copy of the given set from which every name found is erased.
class WantedNames {
 public:
  explicit WantedNames(const std::set<std::string>* names);
  // True when every name is wanted, or when name was still wanted (it is
  // erased, so a second occurrence is not).
  bool take(const std::string& name);
  // True when a set was given.
  bool selective() const { return fSelective; }
  // True when a set was given and every name of it has been found.
  bool exhausted() const { return fSelective && fNames.empty(); }

 private:
  bool fSelective;
  std::set<std::string> fNames;
};

// A structure a file declares (never null): registered in the (isolated)
// process registry when wanted and not equal to one registered already,
// destroyed otherwise.
void keepStructureIfWanted(std::unique_ptr<Data::Structure> structure, WantedNames& wanted);

// What a check of a scene file sees of its metadata, statement by statement
// ("ta") or chunk by chunk ("tb"), in file order.
struct MetadataEntry {
  enum class eKind { kStructure, kAssociations, kStrayLine };
  eKind kind = eKind::kStructure;
  std::string name;    // the associations' target, "" for the scene
  std::string format;
  std::string text;    // the payload: unescaped ("ta"), as stored ("tb")
  int64_t position = 0;
  bool split = true;   // false when no format and payload could be cut out
  bool utf8 = true;    // "tb": the payload is valid UTF-8
  bool beforeFirstStructure = false;  // "tb": associations before any structure
};
// A problem of the file's layout, where it starts.
struct LayoutProblem {
  std::string kind;
  std::string message;
  int64_t position = -1;  // -1: none to give
};
struct MetadataListing {
  std::vector<MetadataEntry> entries;
  std::vector<LayoutProblem> problems;
};
// The metadata of an ASCII or binary scene file as it lies, read without
// recovering an unfinished rewrite. False, with the format's messages, when
// the file cannot be read that far.
bool listAsciiMetadata(const std::string& fileName, MetadataListing& out, std::string& errors);
bool listBinaryMetadata(const std::string& fileName, MetadataListing& out, std::string& errors);
// True when text is well-formed UTF-8.
bool isUtf8(std::string_view text);

// ASCII statements. A structure text keeps every character but the line
// feed, written as backslash and 'n'.
std::string escapeAsciiStructureText(const std::string& text);
// An associations text, decoded character by character in the current C
// locale (mbrtowc): control characters (below 32, and 127) as a backslash
// and 'n' 'b' 't' 'a' 'f' 'v' 'r' or three octal digits, '"' and '\' behind
// a backslash, every other character copied. A byte that starts no valid
// character is copied alone, so the walk always moves on.
std::string escapeAsciiValue(const std::string& text);
// The one unescaping rule of both payloads: a backslash and 'n' 'b' 't' 'a'
// 'f' 'v' 'r' give their control characters; a backslash and up to three
// octal digits the character of that value (its low eight bits when above
// 255); a backslash and any other character that character; a backslash at
// the very end stands for itself.
std::string unescapeAsciiPayload(const std::string& text);

// Binary scene files ("tb"): chunk headers, the search for the trailer and
// the payload conversion, defined with the binary accessor. All sizes are
// unsigned and big-endian; a chunk is a 16-byte header (tag, four zero
// bytes, 8-byte size), its data and zero padding up to a multiple of 8.

// The direction of a payload conversion: from the locale's code set to UTF-8
// for writing, back for reading.
enum class eConversionType { ToUtf8, FromUtf8 };

// text converted with iconv, up to the first NUL of the result; "" when the
// converter cannot be opened or a character does not convert. converted,
// when given, is set to whether the whole text converted (a failure, or a
// result cut at a NUL, sets it false).
// The conversion runs through a bounded buffer, so it holds little more
// than its result.
std::string convertString(std::string_view text, eConversionType type, bool* converted = nullptr);

// The tag and the data size (padding excluded) of one chunk.
struct ChunkHeader {
  std::string tag;
  uint64_t size = 0;
};

class BinaryReader {
 public:
  // Reads 16 bytes into buffer (resized to 16): bytes 0-3 are the tag, 8-15
  // the size. After a short read the stream has failed and the header is
  // empty.
  static ChunkHeader readChunkHeader(std::istream& in, std::vector<char>& buffer);
  // Checks the main group ("FOR8" ... "Tarn" in the first 20 bytes), finds
  // the trailer-size chunk ("BCSZ", size 4) at the end of the main group and
  // leaves the stream at the start of the trailer content, its backward
  // offset before that chunk. Sets the three positions (main size field,
  // trailer group size field, trailer-size chunk) and returns true; on
  // failure the message replaces errors. Sizes the file's length does not
  // back, and a trailer start inside the first 40 bytes, are refused.
  static bool seekToTrailerStart(std::istream& in, uint64_t& mainChunkSizePosition,
                                 uint64_t& trailerSizePosition, uint64_t& trailerSizeChunkPosition,
                                 std::string& errors);
};

class BinaryWriter {
 public:
  // The size as 8 big-endian bytes.
  static void writeChunkSize(std::ostream& out, uint64_t size);
  // One chunk: tag (four characters), four zero bytes, data size, data,
  // padding. True when the stream is still good.
  static bool writeChunk(std::ostream& out, const std::string& tag, const std::string& data);
  // A "DATS" chunk: format and text, each with its NUL (size: text length
  // plus format length plus 2). text is written as given (already UTF-8).
  static bool writeStructureChunk(std::ostream& out, const std::string& format,
                                  const std::string& text);
  // Serializes associations with the "raw" format, converts the text to
  // UTF-8 and writes a chunk chunkName: target name, format and text, each
  // with its NUL. False, writing nothing, when there is no such format, the
  // serializer fails, the text does not convert or the name holds a NUL;
  // the reasons are appended to errors.
  static bool writeAssociationsChunk(std::ostream& out, const std::string& chunkName,
                                     const std::string& targetName,
                                     const Data::Associations& associations, std::string& errors);
};

}  // namespace kivo::Detail
