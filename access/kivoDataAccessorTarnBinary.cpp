// The accessor of binary scene files ("tb"): trees of tagged chunks with
// 64-bit big-endian sizes. The metadata lives in the trailer group, the last
// child of the main group, and a trailer-size chunk ("BCSZ") at the very end
// of the file gives the way back to the trailer's start, so that neither
// reading nor writing walks the scene. Reading parses only the trailer;
// writing rebuilds the trailer content in memory, writes it from the trailer
// group's size field on, patches the main size and truncates the file.
#include <kivo/access/kivoDataAccessor.h>

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kivo/access/kivoDataAccessorTarn.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include "access/kivoDataAccessorTarnInternal.h"
#include "access/kivoSceneFile.h"

namespace kivo::Data {
namespace {

using Tags = AccessorTarn::Binary;

constexpr uint64_t kHeaderSize = 16;
// The main group's header and its form type "Tarn".
constexpr uint64_t kIdentificationSize = 20;
constexpr uint64_t kFormTypeSize = 4;
// The trailer-size chunk: header, 4-byte backward offset, 4 bytes padding.
constexpr uint64_t kTrailerSizeChunkSize = 24;
constexpr uint64_t kBackwardOffsetSize = 4;
// The backward offset counts from its own end back to the trailer content:
// the content before the trailer-size chunk plus this.
constexpr uint64_t kBackwardOffsetExtra = 20;
// The trailer group's size: its content plus its form type and the
// trailer-size chunk.
constexpr uint64_t kTrailerSizeExtra = kFormTypeSize + kTrailerSizeChunkSize;
// The trailer content starts after the trailer group's size field and form
// type; that group's header cannot begin before the end of the main group's
// header and form type.
constexpr uint64_t kContentAfterSizeField = 8 + kFormTypeSize;
constexpr uint64_t kFirstTrailerSizePosition = kIdentificationSize + 8;
constexpr uint64_t kFirstContentPosition = kFirstTrailerSizePosition + kContentAfterSizeField;
constexpr char kRawFormat[] = "raw";
// The bytes a text conversion produces at a time.
constexpr size_t kConversionPiece = 64 * 1024;

constexpr char kFileNotValid[] = "File not valid.";
constexpr char kNoIdentification[] = "Could not read file identification.";
constexpr char kNotSupported[] = "Not a supported file type.";
constexpr char kNoMainChunkEnd[] = "Error seeking to the end of main chunk.";
constexpr char kNoTrailerSizeHeader[] = "Error reading the trailer-size chunk header.";
constexpr char kNoTrailerSizeChunk[] = "File does not end with trailer-size chunk.";
constexpr char kBadTrailerSizeChunk[] = "Invalid trailer-size chunk.";
constexpr char kNoBackwardOffset[] = "Could not read trailer backward offset.";
constexpr char kNoTrailerStart[] = "Could not seek to start of trailer.";
constexpr char kEmptyFileName[] = "Empty file name.";
constexpr char kCouldNotOpen[] = "Could not open ";
constexpr char kForWriting[] = " for writing.";
constexpr char kStructureChunkUnread[] = "Could not read data structure chunk.";
constexpr char kApplyChunkUnread[] = "Could not read apply metadata chunk.";
constexpr char kChunkHeaderUnread[] = "Could not read chunk header in trailer.";
constexpr char kChunkUnskipped[] = "Could not skip chunk in trailer.";
constexpr char kStructureUnconverted[] =
    "Could not convert the text of a data structure chunk from UTF-8.";
constexpr char kNoSeekContent[] = "Could not seek to trailer start.";
constexpr char kHeaderBeforeMetadata[] = "Error reading chunk header before metadata.";
constexpr char kChunkBeforeMetadata[] = "Error reading chunk before metadata.";
constexpr char kStructureChunkUnskipped[] = "Error skipping data structure chunk.";
constexpr char kBackwardChunkUnskipped[] = "Error skipping backward size chunk.";
constexpr char kMetadataUnskipped[] = "Error skipping existing metadata chunks.";
constexpr char kStructureNotWritten[] = "Could not write structure chunk to in-memory trailer.";
constexpr char kSceneNotWritten[] =
    "Could not write scene associations chunk to in-memory trailer.";
constexpr char kNodeNotWritten[] = "Could not write node associations chunk to in-memory trailer.";
constexpr char kTrailerTooLarge[] =
    "The new trailer is too large for the backward offset of the trailer-size chunk.";
constexpr char kNoSeekTrailerSize[] = "Failed to seek to the trailer size position.";
constexpr char kTrailerSizeUnwritten[] = "Failed to write the new trailer size.";
constexpr char kNoSeekTrailerData[] = "Failed to seek to the trailer data start.";
constexpr char kTrailerUnwritten[] = "Failed to write the new trailer.";
constexpr char kBackwardSizeUnwritten[] = "Failed to write the backward chunk size.";
// Kept as the format's writers have always said it.
constexpr char kNoSeekMainSize[] = "Failed to the main chunk size position.";
constexpr char kMainSizeUnwritten[] = "Failed to write the new main chunk size.";
constexpr char kNotTruncated[] = "Could not truncate the file.";

std::string associationsLabel(const std::string& name) {
  return name == AccessorTarn::getSceneAssociationsName()
             ? "the scene associations"
             : "the associations of node \"" + name + "\"";
}

std::string associationsUnconverted(const std::string& name) {
  return "Could not convert the text of " + associationsLabel(name) + " from UTF-8.";
}

std::string associationsNotConvertible(const std::string& name) {
  return "Could not convert the text of " + associationsLabel(name) + " to UTF-8.";
}

std::string structureNotConvertible(const char* name) {
  return std::string("Could not convert the text of structure \"") + name + "\" to UTF-8.";
}

std::string nameWithNul(const std::string& name) {
  return "The node name \"" + name + "\" holds a NUL character and cannot be written.";
}

std::string positionsChanged(const std::string& fileName) {
  return "The chunk sizes of " + fileName +
         " do not describe its trailer as this accessor found it; the file is left unchanged.";
}

// Big-endian numbers ----------------------------------------------------------

uint64_t bigEndian(const char* bytes, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(bytes[i]);
  return value;
}

std::string bigEndianBytes(uint64_t value, size_t width) {
  std::string bytes(width, '\0');
  for (size_t i = width; i-- > 0; value >>= 8) bytes[i] = static_cast<char>(value & 0xFF);
  return bytes;
}

// The zero bytes that follow size bytes of chunk data.
uint64_t paddingOf(uint64_t size) { return size % 8 == 0 ? 0 : 8 - size % 8; }

// The bytes a chunk of this data size takes after its header, padding
// included, when they fit in room; false otherwise (also when the padded
// size would not fit in 64 bits).
bool paddedSizeWithin(uint64_t size, uint64_t room, uint64_t& padded) {
  if (size > room || paddingOf(size) > room - size) return false;
  padded = size + paddingOf(size);
  return true;
}

// The length of a file open in in, from its end; false when seeking fails.
bool streamLength(std::istream& in, uint64_t& length) {
  in.clear();
  if (!in.seekg(0, std::ios::end)) return false;
  const std::streamoff end = in.tellg();
  if (end < 0) return false;
  length = static_cast<uint64_t>(end);
  return true;
}

bool seekTo(std::istream& in, uint64_t position) {
  if (position > static_cast<uint64_t>(std::numeric_limits<std::streamoff>::max())) return false;
  in.clear();
  return static_cast<bool>(in.seekg(static_cast<std::streamoff>(position)));
}

// Reads count bytes at the current position into out; out is sized only
// after the caller checked that the file holds them.
bool readBytes(std::istream& in, uint64_t count, std::string& out) {
  out.assign(static_cast<size_t>(count), '\0');
  return count == 0 || static_cast<bool>(in.read(&out[0], static_cast<std::streamsize>(count)));
}

bool skipBytes(std::istream& in, uint64_t count) {
  return count == 0 ||
         static_cast<bool>(in.seekg(static_cast<std::streamoff>(count), std::ios::cur));
}

// The NUL-terminated strings at the start of data; false when data ends
// before the last of them is terminated.
bool splitStrings(std::string_view data, std::string_view* const* strings, size_t count) {
  size_t at = 0;
  for (size_t i = 0; i < count; ++i) {
    const size_t nul = data.find('\0', at);
    if (nul == std::string_view::npos) return false;
    *strings[i] = data.substr(at, nul - at);
    at = nul + 1;
  }
  return true;
}

// Conversion --------------------------------------------------------------------

// The one owner of an iconv conversion descriptor; move-only.
class Converter {
 public:
  Converter(const char* to, const char* from) : fHandle(::iconv_open(to, from)) {}
  ~Converter() {
    if (valid()) ::iconv_close(fHandle);
  }
  Converter(Converter&& other) noexcept : fHandle(std::exchange(other.fHandle, invalid())) {}
  Converter& operator=(Converter&& other) noexcept {
    std::swap(fHandle, other.fHandle);
    return *this;
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool valid() const { return fHandle != invalid(); }
  iconv_t get() const { return fHandle; }

 private:
  static iconv_t invalid() { return reinterpret_cast<iconv_t>(static_cast<intptr_t>(-1)); }
  iconv_t fHandle;
};

}  // namespace
}  // namespace kivo::Data

namespace kivo::Detail {

std::string convertString(std::string_view text, eConversionType type, bool* converted) {
  if (converted) *converted = false;
  if (text.empty()) {
    if (converted) *converted = true;
    return std::string();
  }
  const bool toUtf8 = type == eConversionType::ToUtf8;
  Data::Converter converter(toUtf8 ? "UTF-8" : "", toUtf8 ? "" : "UTF-8");
  if (!converter.valid()) return std::string();
  // A result may take up to four bytes for each byte of text; more fails the
  // conversion. It is made a piece at a time, so that a long text is not
  // held again in a buffer four times its size.
  const size_t limit = text.size() > std::numeric_limits<size_t>::max() / 4
                           ? std::numeric_limits<size_t>::max()
                           : text.size() * 4;
  std::string result;
  result.reserve(text.size());
  char piece[Data::kConversionPiece];
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  const size_t failed = static_cast<size_t>(-1);
  for (bool flushing = false;;) {
    char* out = piece;
    const size_t room = std::min(sizeof piece, limit - result.size());
    size_t outLeft = room;
    const size_t status = flushing ? ::iconv(converter.get(), nullptr, nullptr, &out, &outLeft)
                                   : ::iconv(converter.get(), &in, &inLeft, &out, &outLeft);
    const bool full = status == failed && errno == E2BIG;
    if (status == failed && (!full || outLeft == room)) return std::string();
    result.append(piece, room - outLeft);
    if (full) continue;
    if (flushing) break;
    flushing = true;
  }
  const size_t produced = result.size();
  result.resize(::strnlen(result.data(), produced));
  if (converted) *converted = result.size() == produced;
  return result;
}

ChunkHeader BinaryReader::readChunkHeader(std::istream& in, std::vector<char>& buffer) {
  buffer.assign(Data::kHeaderSize, '\0');
  ChunkHeader header;
  if (!in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()))) return header;
  header.tag.assign(buffer.data(), 4);
  header.size = Data::bigEndian(buffer.data() + 8, 8);
  return header;
}

bool BinaryReader::seekToTrailerStart(std::istream& in, uint64_t& mainChunkSizePosition,
                                      uint64_t& trailerSizePosition,
                                      uint64_t& trailerSizeChunkPosition, std::string& errors) {
  using namespace Data;
  if (!in.good()) {
    errors = kFileNotValid;
    return false;
  }
  char identification[kIdentificationSize];
  if (!in.read(identification, sizeof identification)) {
    errors = kNoIdentification;
    return false;
  }
  if (std::string(identification, 4) != Tags::getFormChunkName() ||
      std::string(identification + 16, 4) != Tags::getMainFormChunkType()) {
    errors = kNotSupported;
    return false;
  }
  // The last 24 bytes of the main group must be in the file.
  const uint64_t mainSize = bigEndian(identification + 8, 8);
  uint64_t length = 0;
  if (!streamLength(in, length) || mainSize < 8 || length < kTrailerSizeChunkSize ||
      mainSize - 8 > length - kTrailerSizeChunkSize || !seekTo(in, mainSize - 8)) {
    errors = kNoMainChunkEnd;
    return false;
  }
  std::vector<char> buffer;
  const ChunkHeader header = readChunkHeader(in, buffer);
  if (!in) {
    errors = kNoTrailerSizeHeader;
    return false;
  }
  if (header.tag != Tags::getBackwardChunkSizeChunkName()) {
    errors = kNoTrailerSizeChunk;
    return false;
  }
  if (header.size != kBackwardOffsetSize) {
    errors = kBadTrailerSizeChunk;
    return false;
  }
  char offset[kBackwardOffsetSize];
  if (!in.read(offset, sizeof offset)) {
    errors = kNoBackwardOffset;
    return false;
  }
  // The trailer content lies between the end of the main group's header and
  // form type, the trailer group's header and form type, and this chunk.
  const uint64_t backward = bigEndian(offset, kBackwardOffsetSize);
  const uint64_t offsetEnd = mainSize - 8 + kHeaderSize + kBackwardOffsetSize;
  if (backward < kBackwardOffsetExtra || backward > offsetEnd ||
      offsetEnd - backward < kFirstContentPosition || !seekTo(in, offsetEnd - backward)) {
    errors = kNoTrailerStart;
    return false;
  }
  mainChunkSizePosition = 8;
  trailerSizePosition = offsetEnd - backward - kContentAfterSizeField;
  trailerSizeChunkPosition = mainSize - 8;
  return true;
}

void BinaryWriter::writeChunkSize(std::ostream& out, uint64_t size) {
  const std::string bytes = Data::bigEndianBytes(size, 8);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool BinaryWriter::writeChunk(std::ostream& out, const std::string& tag, const std::string& data) {
  std::string header = tag;
  header.resize(4, ' ');
  header.append(4, '\0');
  out.write(header.data(), static_cast<std::streamsize>(header.size()));
  writeChunkSize(out, data.size());
  out.write(data.data(), static_cast<std::streamsize>(data.size()));
  const std::string padding(static_cast<size_t>(Data::paddingOf(data.size())), '\0');
  out.write(padding.data(), static_cast<std::streamsize>(padding.size()));
  return out.good();
}

bool BinaryWriter::writeStructureChunk(std::ostream& out, const std::string& format,
                                       const std::string& text) {
  std::string data;
  data.reserve(format.size() + text.size() + 2);
  data.append(format).append(1, '\0').append(text).append(1, '\0');
  return writeChunk(out, Data::Tags::getMetaDataStructureChunkName(), data);
}

bool BinaryWriter::writeAssociationsChunk(std::ostream& out, const std::string& chunkName,
                                          const std::string& targetName,
                                          const Data::Associations& associations,
                                          std::string& errors) {
  const Data::AssociationsSerializer* serializer =
      Data::AssociationsSerializer::formatByName(Data::kRawFormat);
  if (!serializer) return false;
  if (targetName.find('\0') != std::string::npos) {
    appendMessage(errors, Data::nameWithNul(targetName));
    return false;
  }
  std::ostringstream text;
  std::string messages;
  if (serializer->write(associations, text, messages) != 0 || !text) {
    if (!messages.empty()) appendMessage(errors, messages);
    return false;
  }
  bool converted = false;
  const std::string utf8 = convertString(text.str(), eConversionType::ToUtf8, &converted);
  if (!converted) {
    appendMessage(errors, Data::associationsNotConvertible(targetName));
    return false;
  }
  const std::string format = serializer->formatType();
  std::string data;
  data.reserve(targetName.size() + format.size() + utf8.size() + 3);
  for (const std::string* part : {&targetName, &format, &utf8}) data.append(*part).append(1, '\0');
  return writeChunk(out, chunkName, data);
}

}  // namespace kivo::Detail

namespace kivo::Data {
namespace {

// A payload's text in the locale's code set, in local: the bytes where they
// lie when they are all ASCII, which every code set a locale can have keeps
// as it is; else converted from UTF-8 into storage. False when the
// conversion fails.
bool localeText(std::string_view text, std::string& storage, std::string_view& local) {
  if (std::all_of(text.begin(), text.end(),
                  [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    local = text;
    return true;
  }
  bool converted = false;
  storage = Detail::convertString(text, Detail::eConversionType::FromUtf8, &converted);
  local = storage;
  return converted;
}

// The accessor ------------------------------------------------------------------

class TarnBinaryFileAccessor : public Accessor {
 public:
  TarnBinaryFileAccessor() = default;
  ~TarnBinaryFileAccessor() override = default;

  bool write(std::string& errors) const override;
  bool isFileSupported(const std::string& fileName) const override;

 protected:
  bool performRead(const std::set<std::string>* structureNames,
                   const std::set<std::string>* associationsNames, std::string& errors) override;

 private:
  bool readTrailer(std::string_view content, const std::set<std::string>* structureNames,
                   const std::set<std::string>* associationsNames, std::string& errors);
  bool readAssociationsChunk(const std::string& name, std::string_view format,
                             std::string_view text, std::string& errors);
  bool composeMetadata(std::string& metadata, std::string& errors) const;
  bool positionsHold(std::istream& file, uint64_t length, std::string& errors) const;
  bool rebuildTrailer(std::istream& file, std::string& content, std::string& errors) const;
  std::vector<Detail::Patch> trailerPatches(const std::string& content,
                                            uint64_t& fileLength) const;

  // Set by a successful read: the main group's size field (always 8) and
  // the trailer group's size field.
  uint64_t fMainChunkSizePosition = 0;
  uint64_t fTrailerSizePosition = 0;
  // The trailer-size chunk and the file's size and modification time, as
  // this accessor last saw them (at its read or its own last write).
  mutable uint64_t fTrailerSizeChunkPosition = 0;
  mutable Detail::FileStamp fStamp;
};

bool TarnBinaryFileAccessor::isFileSupported(const std::string& fileName) const {
  if (fileName.empty()) return false;
  std::ifstream in(fileName, std::ios::binary);
  if (!in.is_open()) return false;
  uint64_t mainPosition = 0, trailerPosition = 0, chunkPosition = 0;
  std::string ignored;
  return Detail::BinaryReader::seekToTrailerStart(in, mainPosition, trailerPosition,
                                                  chunkPosition, ignored);
}

bool TarnBinaryFileAccessor::performRead(const std::set<std::string>* structureNames,
                                         const std::set<std::string>* associationsNames,
                                         std::string& errors) {
  fMainChunkSizePosition = 0;
  fTrailerSizePosition = 0;
  fTrailerSizeChunkPosition = 0;
  fStamp = Detail::FileStamp();
  const std::string& name = fileName();
  if (name.empty()) {
    Detail::appendMessage(errors, kEmptyFileName);
    return false;
  }
  // A file that does not open is one the trailer search finds not valid.
  int openError = 0;
  const std::shared_ptr<Detail::SceneFile> file =
      sceneFile(false, holdsForWrite() ? kCouldNotOpen + name + kForWriting : std::string(),
                errors, &openError);
  if (!file) {
    if (openError != 0 && !holdsForWrite()) errors = kFileNotValid;
    return false;
  }
  // Unbuffered, and the trailer content taken in one read: a buffered
  // stream would read a whole buffer at the header and at each seek.
  Detail::DescriptorBuffer buffer(file->descriptor(), 0);
  std::istream in(&buffer);
  const Detail::FileStamp stamp = file->stamp();
  uint64_t mainPosition = 0, trailerPosition = 0, chunkPosition = 0;
  if (!Detail::BinaryReader::seekToTrailerStart(in, mainPosition, trailerPosition, chunkPosition,
                                                errors))
    return false;
  fMainChunkSizePosition = mainPosition;
  fTrailerSizePosition = trailerPosition;
  fTrailerSizeChunkPosition = chunkPosition;
  // The trailer search checked that the file holds every byte up to the
  // trailer-size chunk, so the content is read whole.
  const uint64_t start = fTrailerSizePosition + kContentAfterSizeField;
  std::string content;
  if (start > fTrailerSizeChunkPosition ||
      !readBytes(in, fTrailerSizeChunkPosition - start, content)) {
    Detail::appendMessage(errors, kChunkHeaderUnread);
    return false;
  }
  if (!readTrailer(content, structureNames, associationsNames, errors)) return false;
  fStamp = stamp;
  return true;
}

// Walks the trailer content, the bytes between the trailer group's form
// type and the trailer-size chunk: registers each wanted structure and reads
// each wanted associations as its chunk comes, so a stream can name only a
// structure declared before it. Payloads are converted and read where they
// lie in content. Never reads a chunk that does not end within content.
bool TarnBinaryFileAccessor::readTrailer(std::string_view content,
                                         const std::set<std::string>* structureNames,
                                         const std::set<std::string>* associationsNames,
                                         std::string& errors) {
  Detail::WantedNames wantedStructures(structureNames);
  Detail::WantedNames wantedAssociations(associationsNames);
  bool ok = true;
  for (size_t at = 0; at < content.size();) {
    const size_t room = content.size() - at;
    if (room < kHeaderSize) {
      Detail::appendMessage(errors, kChunkHeaderUnread);
      return false;
    }
    const std::string_view tag = content.substr(at, 4);
    const uint64_t size = bigEndian(content.data() + at + 8, 8);
    const bool isStructure = tag == Tags::getMetaDataStructureChunkName();
    const bool isApply = tag == Tags::getApplyNodeMetaDataChunkName() ||
                         tag == Tags::getApplySceneMetaDataChunkName();
    const char* failure =
        isStructure ? kStructureChunkUnread : isApply ? kApplyChunkUnread : kChunkUnskipped;
    uint64_t padded = 0;
    if (!paddedSizeWithin(size, room - kHeaderSize, padded)) {
      Detail::appendMessage(errors, failure);
      return false;
    }
    const std::string_view data = content.substr(at + kHeaderSize, static_cast<size_t>(size));
    at += static_cast<size_t>(kHeaderSize + padded);
    if (!isStructure && !isApply) continue;
    std::string_view name, format, text;
    std::string_view* const structureParts[] = {&format, &text};
    std::string_view* const applyParts[] = {&name, &format, &text};
    if (!(isStructure ? splitStrings(data, structureParts, 2)
                      : splitStrings(data, applyParts, 3))) {
      Detail::appendMessage(errors, failure);
      return false;
    }
    if (isStructure) {
      std::string storage;
      std::string_view local;
      if (!localeText(text, storage, local)) {
        Detail::appendMessage(errors, kStructureUnconverted);
        ok = false;
      } else {
        // Messages that come with a structure fail the read as well.
        const size_t before = errors.size();
        std::unique_ptr<Structure> structure =
            Detail::readStructurePayload(std::string(format), local, errors);
        if (!structure || errors.size() != before) ok = false;
        if (structure) Detail::keepStructureIfWanted(std::move(structure), wantedStructures);
      }
    } else {
      // Every chunk of a wanted node is read, so the last one holds.
      const std::string target(name);
      const bool wanted = !associationsNames || associationsNames->count(target) > 0;
      wantedAssociations.take(target);
      if (wanted && !readAssociationsChunk(target, format, text, errors)) ok = false;
    }
    if (wantedStructures.exhausted() && wantedAssociations.exhausted()) break;
  }
  return ok;
}

bool TarnBinaryFileAccessor::readAssociationsChunk(const std::string& name,
                                                   std::string_view format,
                                                   std::string_view text, std::string& errors) {
  std::string storage;
  std::string_view local;
  if (!localeText(text, storage, local)) {
    Detail::appendMessage(errors, associationsUnconverted(name));
    return false;
  }
  Associations read;
  if (!Detail::readAssociationsPayload(std::string(format), local, read, errors)) return false;
  associations()[name] = read;
  return true;
}

bool TarnBinaryFileAccessor::write(std::string& errors) const {
  const std::string& name = fileName();
  const std::shared_ptr<Detail::SceneFile> sceneFile =
      this->sceneFile(true, kCouldNotOpen + name + kForWriting, errors);
  if (!sceneFile) return false;
  if (!sceneFile->unchangedSince(fStamp, errors)) return false;
  Detail::DescriptorBuffer buffer(sceneFile->descriptor(), Detail::kWriteBuffer);
  std::istream file(&buffer);
  if (!positionsHold(file, fStamp.size, errors)) return false;
  if (!seekTo(file, fTrailerSizePosition + kContentAfterSizeField)) {
    Detail::appendMessage(errors, kNoSeekContent);
    return false;
  }
  // Every payload is serialized and converted before the file changes.
  std::string content;
  if (!rebuildTrailer(file, content, errors)) return false;
  if (content.size() > std::numeric_limits<uint32_t>::max() - kBackwardOffsetExtra) {
    Detail::appendMessage(errors, kTrailerTooLarge);
    return false;
  }
  uint64_t length = 0;
  const std::vector<Detail::Patch> patches = trailerPatches(content, length);
  if (!sceneFile->rewrite(patches, length, kNotTruncated, syncWrites(), errors)) {
    fStamp = Detail::FileStamp();
    return false;
  }
  fStamp = sceneFile->stamp();
  fTrailerSizeChunkPosition = length - kTrailerSizeChunkSize;
  return true;
}

// The new metadata chunks: one "DATS" per structure in set order, the scene
// associations as "SMTD", then one "MTDA" per node in map order.
bool TarnBinaryFileAccessor::composeMetadata(std::string& metadata, std::string& errors) const {
  std::ostringstream out;
  const StructureSerializer* serializer = StructureSerializer::formatByName(kRawFormat);
  for (const Structure* structure : structures()) {
    std::ostringstream text;
    if (!serializer || serializer->write(*structure, text) != 0 || !text) {
      Detail::appendMessage(errors, kStructureNotWritten);
      return false;
    }
    bool converted = false;
    const std::string utf8 =
        Detail::convertString(text.str(), Detail::eConversionType::ToUtf8, &converted);
    if (!converted) {
      Detail::appendMessage(errors, structureNotConvertible(structure->name()));
      Detail::appendMessage(errors, kStructureNotWritten);
      return false;
    }
    if (!Detail::BinaryWriter::writeStructureChunk(out, serializer->formatType(), utf8)) {
      Detail::appendMessage(errors, kStructureNotWritten);
      return false;
    }
  }
  const std::string& scene = AccessorTarn::getSceneAssociationsName();
  const auto sceneEntry = associations().find(scene);
  if (sceneEntry != associations().end() &&
      !Detail::BinaryWriter::writeAssociationsChunk(out, Tags::getApplySceneMetaDataChunkName(),
                                                    scene, sceneEntry->second, errors)) {
    Detail::appendMessage(errors, kSceneNotWritten);
    return false;
  }
  for (const auto& entry : associations()) {
    if (entry.first == scene) continue;
    if (!Detail::BinaryWriter::writeAssociationsChunk(out, Tags::getApplyNodeMetaDataChunkName(),
                                                      entry.first, entry.second, errors)) {
      Detail::appendMessage(errors, kNodeNotWritten);
      return false;
    }
  }
  metadata = out.str();
  return true;
}

// Before the first byte is written: the file must still be laid out as the
// read found it, so that a hostile backward offset can never direct the
// write into the scene body. The trailer-size chunk ends the file and the
// main group, the trailer group's size field says the group ends there too,
// and that field lies after the main group's header and the group's tag.
bool TarnBinaryFileAccessor::positionsHold(std::istream& file, uint64_t length,
                                           std::string& errors) const {
  uint64_t mainPosition = 0, trailerPosition = 0, chunkPosition = 0;
  std::string ignored;
  std::string mainSize, trailerSize;
  const bool hold =
      Detail::BinaryReader::seekToTrailerStart(file, mainPosition, trailerPosition,
                                               chunkPosition, ignored) &&
      mainPosition == fMainChunkSizePosition && trailerPosition == fTrailerSizePosition &&
      chunkPosition == fTrailerSizeChunkPosition && trailerPosition >= kFirstTrailerSizePosition &&
      chunkPosition + kTrailerSizeChunkSize == length && seekTo(file, mainPosition) &&
      readBytes(file, 8, mainSize) && bigEndian(mainSize.data(), 8) == length - 16 &&
      seekTo(file, trailerPosition) && readBytes(file, 8, trailerSize) &&
      bigEndian(trailerSize.data(), 8) == length - trailerPosition - 8;
  if (!hold) Detail::appendMessage(errors, positionsChanged(fileName()));
  return hold;
}

// The new trailer content: the host's chunks before the first metadata
// chunk, the new metadata, then the host's chunks that follow the old
// metadata run, whole and in order. Every old "DATS", "SMTD" and "MTDA" chunk
// is dropped, also one that stands before the first "DATS" (as a file with
// associations but no structures has them): keeping those would add one more
// copy of the same associations with every write. The new metadata is
// composed once the old run is passed, before the chunks after it are read.
// Reads from the trailer content up to the trailer-size chunk and refuses
// any chunk that does not end before it.
bool TarnBinaryFileAccessor::rebuildTrailer(std::istream& file, std::string& content,
                                            std::string& errors) const {
  enum class Phase { Copy, Skip, Rest };
  Phase phase = Phase::Copy;
  std::string before, metadata, after, chunk;
  std::vector<char> buffer;
  uint64_t position = fTrailerSizePosition + kContentAfterSizeField;
  const uint64_t end = fTrailerSizeChunkPosition;
  for (;;) {
    const char* headerFailure = phase == Phase::Skip ? kMetadataUnskipped : kHeaderBeforeMetadata;
    const Detail::ChunkHeader header =
        (position == end || end - position >= kHeaderSize)
            ? Detail::BinaryReader::readChunkHeader(file, buffer)
            : Detail::ChunkHeader();
    const bool isBackward = header.tag == Tags::getBackwardChunkSizeChunkName();
    if (!file || header.tag.empty() || isBackward != (position == end)) {
      Detail::appendMessage(errors, headerFailure);
      return false;
    }
    if (isBackward) {
      if (header.size != kBackwardOffsetSize) {
        Detail::appendMessage(errors, kBackwardChunkUnskipped);
        return false;
      }
      break;
    }
    const bool isStructure = header.tag == Tags::getMetaDataStructureChunkName();
    const bool isMetadata = isStructure || header.tag == Tags::getApplyNodeMetaDataChunkName() ||
                            header.tag == Tags::getApplySceneMetaDataChunkName();
    const bool keep = !isMetadata;
    if (phase == Phase::Skip && keep) {
      phase = Phase::Rest;
      if (!composeMetadata(metadata, errors)) return false;
    }
    const char* failure = keep                                   ? kChunkBeforeMetadata
                          : (phase == Phase::Copy && isStructure) ? kStructureChunkUnskipped
                                                                  : kMetadataUnskipped;
    uint64_t padded = 0;
    if (!paddedSizeWithin(header.size, end - position - kHeaderSize, padded) ||
        !(keep ? readBytes(file, padded, chunk) : skipBytes(file, padded))) {
      Detail::appendMessage(errors, failure);
      return false;
    }
    position += kHeaderSize + padded;
    if (keep) {
      std::string& target = phase == Phase::Copy ? before : after;
      target.append(buffer.data(), buffer.size());
      target += chunk;
    }
    if (phase == Phase::Copy && isMetadata) phase = Phase::Skip;
  }
  if (phase != Phase::Rest && !composeMetadata(metadata, errors)) return false;
  content.reserve(before.size() + metadata.size() + after.size());
  content = before + metadata + after;
  return true;
}

// The writes of the trailer group from its size field on, the trailer-size
// chunk and the main size, each with its messages; fileLength is the new
// length of the file.
std::vector<Detail::Patch> TarnBinaryFileAccessor::trailerPatches(const std::string& content,
                                                                  uint64_t& fileLength) const {
  const uint64_t length = content.size();
  const uint64_t contentStart = fTrailerSizePosition + kContentAfterSizeField;
  std::ostringstream backward;
  Detail::BinaryWriter::writeChunk(
      backward, Tags::getBackwardChunkSizeChunkName(),
      bigEndianBytes(length + kBackwardOffsetExtra, kBackwardOffsetSize));
  fileLength = contentStart + length + backward.str().size();
  std::vector<Detail::Patch> patches(4);
  patches[0].offset = fTrailerSizePosition;
  patches[0].bytes = bigEndianBytes(length + kTrailerSizeExtra, 8);
  patches[0].seekFailure = kNoSeekTrailerSize;
  patches[0].writeFailure = kTrailerSizeUnwritten;
  // The group's form type, between its size field and its content, stays.
  patches[1].offset = contentStart;
  patches[1].bytes = content;
  patches[1].seekFailure = kNoSeekTrailerData;
  patches[1].writeFailure = kTrailerUnwritten;
  patches[2].offset = contentStart + length;
  patches[2].bytes = backward.str();
  patches[2].seek = false;
  patches[2].writeFailure = kBackwardSizeUnwritten;
  patches[3].offset = fMainChunkSizePosition;
  patches[3].bytes = bigEndianBytes(fileLength - kHeaderSize, 8);
  patches[3].seekFailure = kNoSeekMainSize;
  patches[3].writeFailure = kMainSizeUnwritten;
  return patches;
}

AccessorFactory<TarnBinaryFileAccessor> binaryFactory("tb");

}  // namespace
}  // namespace kivo::Data

namespace kivo::Detail {

bool isUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t length = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (length == 0 || length > text.size() - i) return false;
    uint32_t code = length == 1 ? c : c & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(text[i + k]);
      if ((next >> 6) != 2) return false;
      code = (code << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
    static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
      return false;
    i += length;
  }
  return true;
}

bool listBinaryMetadata(const std::string& fileName, MetadataListing& out, std::string& errors) {
  using namespace Data;
  int openError = 0;
  const std::unique_ptr<SceneFile> file = SceneFile::open(
      fileName, SceneFile::eLock::kShared, 10000, std::string(), errors, &openError, false);
  if (!file) {
    if (openError != 0) errors = kFileNotValid;
    return false;
  }
  DescriptorBuffer buffer(file->descriptor(), 0);
  std::istream in(&buffer);
  uint64_t mainPosition = 0, trailerPosition = 0, chunkPosition = 0;
  if (!BinaryReader::seekToTrailerStart(in, mainPosition, trailerPosition, chunkPosition, errors))
    return false;
  const uint64_t start = trailerPosition + kContentAfterSizeField;
  std::string content;
  if (start > chunkPosition || !readBytes(in, chunkPosition - start, content)) {
    appendMessage(errors, kChunkHeaderUnread);
    return false;
  }
  bool structureSeen = false;
  for (size_t at = 0; at < content.size();) {
    const size_t room = content.size() - at;
    uint64_t padded = 0;
    const uint64_t size = room < kHeaderSize ? 0 : bigEndian(content.data() + at + 8, 8);
    if (room < kHeaderSize || !paddedSizeWithin(size, room - kHeaderSize, padded)) {
      out.problems.push_back({"bad-chunk", "A chunk of the trailer does not end within it.",
                              static_cast<int64_t>(start + at)});
      return true;
    }
    const std::string_view tag(content.data() + at, 4);
    const std::string_view data(content.data() + at + kHeaderSize, static_cast<size_t>(size));
    MetadataEntry entry;
    entry.position = static_cast<int64_t>(start + at);
    at += static_cast<size_t>(kHeaderSize + padded);
    const bool isStructure = tag == Tags::getMetaDataStructureChunkName();
    if (!isStructure && tag != Tags::getApplyNodeMetaDataChunkName() &&
        tag != Tags::getApplySceneMetaDataChunkName())
      continue;
    std::string_view name, format, text;
    std::string_view* const structureParts[] = {&format, &text};
    std::string_view* const applyParts[] = {&name, &format, &text};
    entry.split = isStructure ? splitStrings(data, structureParts, 2)
                              : splitStrings(data, applyParts, 3);
    entry.kind = isStructure ? MetadataEntry::eKind::kStructure
                             : MetadataEntry::eKind::kAssociations;
    entry.name = std::string(name);
    entry.format = std::string(format);
    entry.text = std::string(text);
    entry.utf8 = isUtf8(text) && isUtf8(name);
    entry.beforeFirstStructure = !isStructure && !structureSeen;
    structureSeen = structureSeen || isStructure;
    out.entries.push_back(std::move(entry));
  }
  return true;
}

}  // namespace kivo::Detail

