// Binary scene files ("tb") for tests, chunk by chunk: big-endian numbers,
// chunks with their padding, metadata chunks, and a main group holding two
// scene chunks and the trailer group.
#pragma once

#include <cstdint>
#include <string>

namespace kivo::Test {

inline std::string bigEndian(uint64_t value, size_t width) {
  std::string bytes(width, '\0');
  for (size_t i = width; i-- > 0; value >>= 8) bytes[i] = static_cast<char>(value & 0xFF);
  return bytes;
}

// A chunk: tag, four zero bytes, the data size, the data, zero padding up
// to a multiple of 8.
inline std::string chunk(const std::string& tag, const std::string& data) {
  return tag + std::string(4, '\0') + bigEndian(data.size(), 8) + data +
         std::string((8 - data.size() % 8) % 8, '\0');
}

// A chunk header claiming size bytes, followed by no data at all.
inline std::string chunkHeader(const std::string& tag, uint64_t size) {
  return tag + std::string(4, '\0') + bigEndian(size, 8);
}

// A structure chunk: format, NUL, text, NUL.
inline std::string structureChunk(const std::string& text, const std::string& format = "raw") {
  return chunk("DATS", format + '\0' + text + '\0');
}

// An associations chunk ("SMTD" or "MTDA") of raw text for the node name.
inline std::string applyChunk(const std::string& tag, const std::string& name,
                              const std::string& text) {
  return chunk(tag, name + '\0' + "raw" + '\0' + text + '\0');
}

// bytes with the bytes from at on replaced by with.
inline std::string patched(std::string bytes, size_t at, const std::string& with) {
  return bytes.replace(at, with.size(), with);
}

// The scene chunks of a test file: a header chunk, then a node group that
// starts at file offset 44.
inline std::string binarySceneChunks() {
  return chunk("HEAD", "v2025") + chunk("FOR8", "NODE" + chunk("NAME", "pCube1"));
}

// A whole file: the main group ("FOR8" ... "Tarn"), the scene chunks, then
// the trailer group holding trailer and the trailer-size chunk. The trailer
// group's size field stands right after the scene chunks and its tag.
inline std::string binaryScene(const std::string& trailer) {
  const std::string body = "Tarn" + binarySceneChunks() + "FOR8" + std::string(4, '\0') +
                           bigEndian(trailer.size() + 28, 8) + "TRLR" + trailer +
                           chunk("BCSZ", bigEndian(trailer.size() + 20, 4));
  return "FOR8" + std::string(4, '\0') + bigEndian(body.size(), 8) + body;
}

// The position of the trailer group's size field in binaryScene(...).
inline size_t binaryTrailerSizePosition() { return 20 + binarySceneChunks().size() + 8; }

}  // namespace kivo::Test
