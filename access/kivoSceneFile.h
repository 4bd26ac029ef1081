// Internal: how the accessors open, lock and rewrite a scene file.
//
// A SceneFile is one open descriptor on a scene file with an advisory lock
// (flock) on it: shared for a read, exclusive for a write. Opening it first
// finishes what a crashed writer left: a complete rollback journal beside the
// file puts the file's old bytes back, an incomplete one is removed.
//
// A rewrite goes through the journal: the bytes it will overwrite or cut
// off, the old size and the file's identity are written to
// "<file>.kivo-journal" and flushed (file and folder) before the first byte of
// the scene changes; then the new bytes are written through the descriptor,
// the file is cut to its new length with ftruncate, flushed, and the journal
// removed. A failure on the way puts the old bytes back at once.
//
// Journal layout, all numbers 8 bytes big-endian: the magic "KIVOJRN1", the
// scene's device and inode, its old size, the number of saved regions, then
// per region its offset, its length and its old bytes, and last an FNV-1a
// 64-bit checksum of everything before it. A journal that does not parse to
// its last byte with that checksum is incomplete: its writer died before the
// scene was touched.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

namespace kivo::Detail {

// What fstat says of an open file: identity, size, and the times that any
// change of content or metadata moves.
struct FileStamp {
  bool valid = false;
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t mtimeSeconds = 0;
  int64_t mtimeNanoseconds = 0;
  int64_t ctimeSeconds = 0;
  int64_t ctimeNanoseconds = 0;

  bool operator==(const FileStamp& other) const;
  bool operator!=(const FileStamp& other) const { return !(*this == other); }
};

// The journal of fileName: "<fileName>.kivo-journal", in the same folder.
std::string journalPath(const std::string& fileName);

// What recovering a file found.
enum class eRecovery { kNothing, kRolledBack, kIncompleteRemoved, kFailed };

// One piece of a rewrite: bytes written at offset (after a seek, unless
// continuing where the previous piece ended), with the messages its failed
// seek and its failed write give.
struct Patch {
  uint64_t offset = 0;
  std::string bytes;
  bool seek = true;
  const char* seekFailure = "";
  const char* writeFailure = "";
};

class SceneFile {
 public:
  enum class eLock { kShared, kExclusive };

  // Opens fileName for reading (kShared) or for reading and writing
  // (kExclusive), takes the lock, waiting up to waitMilliseconds for another
  // process to release it, and recovers an unfinished rewrite. Null, with a
  // message appended to errors, on failure: openFailure when the file cannot
  // be opened, otherwise one that names the file and the cause. A shared
  // opener that finds a journal recovers the file when it may write it;
  // when it may not, it reads the file as it is if the journal is
  // incomplete, and refuses, naming the journal, if it is complete. openError, when given,
  // is set to the errno of an open that failed (0 otherwise); an empty
  // openFailure appends nothing then.
  // With recover false a journal is left alone.
  static std::unique_ptr<SceneFile> open(const std::string& fileName, eLock lock,
                                         unsigned waitMilliseconds, const std::string& openFailure,
                                         std::string& errors, int* openError = nullptr,
                                         bool recover = true);
  // Takes the exclusive lock and recovers fileName; the caller's errors say
  // why when the result is kFailed.
  static eRecovery recover(const std::string& fileName, unsigned waitMilliseconds,
                           std::string& errors);

  ~SceneFile();
  SceneFile(const SceneFile&) = delete;
  SceneFile& operator=(const SceneFile&) = delete;

  int descriptor() const { return fDescriptor; }
  const std::string& fileName() const { return fFileName; }
  bool exclusive() const { return fExclusive; }
  // The stamp of the open file now.
  FileStamp stamp() const;

  // Before a write: the file is what seen says (identity, size, modification
  // and change times), and its name still leads to it. False, with a
  // message, otherwise.
  bool unchangedSince(const FileStamp& seen, std::string& errors) const;

  // Writes patches in order and makes newSize the file's length, through
  // the journal (see above). sync flushes the journal, the file and the
  // folder at each step. Needs the exclusive lock. On failure the file is
  // put back as it was and the messages say so; when even that fails, they
  // say the file is damaged and name the journal that holds its old bytes.
  // truncateFailure is the message of a failed ftruncate.
  bool rewrite(const std::vector<Patch>& patches, uint64_t newSize, const char* truncateFailure,
               bool sync, std::string& errors);

 private:
  SceneFile(std::string fileName, int descriptor, bool exclusive);

  std::string fFileName;
  int fDescriptor;
  bool fExclusive;
};

// The buffer a writer reads the old file through, as large as a standard
// file stream's.
constexpr size_t kWriteBuffer = 8192;

// A read-only stream buffer over a descriptor it does not own, reading from
// the start of the file: seeks move the descriptor's offset (lseek), reads
// call read(). When the first seek fails nothing can be read. With a buffer size of
// 0 every read goes straight to the descriptor, so a reader that seeks from
// block to block reads only the blocks it asks for.
class DescriptorBuffer : public std::streambuf {
 public:
  DescriptorBuffer(int descriptor, size_t bufferSize);

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* out, std::streamsize count) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  // Reads up to count bytes at the descriptor's offset; 0 at the end or on
  // an error.
  size_t readSome(char* out, size_t count);

  int fDescriptor;
  std::vector<char> fBuffer;
  // The descriptor's offset: the file position just after the get area;
  // -1 when the first seek failed.
  off_t fOffset = 0;
};

}  // namespace kivo::Detail
