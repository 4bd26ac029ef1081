#include "access/kivoSceneFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "access/kivoDataAccessorTarnInternal.h"

namespace kivo::Detail {
namespace {

constexpr char kJournalSuffix[] = ".kivo-journal";
constexpr char kJournalMagic[] = "KIVOJRN1";
constexpr size_t kNumberSize = 8;

std::string reason(int error) { return std::strerror(error); }

std::string busyMessage(const std::string& fileName, unsigned waitMilliseconds) {
  return "The file " + fileName + " is locked by another process (waited " +
         std::to_string(waitMilliseconds) + " ms); try again later.";
}

std::string lockFailed(const std::string& fileName, int error) {
  return "Could not lock " + fileName + " (" + reason(error) + ").";
}

std::string unfinishedMessage(const std::string& fileName) {
  return "The file " + fileName + " has an unfinished rewrite whose old bytes are in " +
         journalPath(fileName) + "; run 'kivo-meta recover " + fileName +
         "' with write access to put them back.";
}

std::string foreignJournal(const std::string& fileName) {
  return "The journal " + journalPath(fileName) + " was not written for the file now named " +
         fileName + "; it is left alone: remove it by hand once the file is known to be good.";
}

std::string journalUnreadable(const std::string& fileName, int error) {
  return "Could not read the journal " + journalPath(fileName) + " (" + reason(error) + ").";
}

std::string restoreFailed(const std::string& fileName, int error) {
  return "The file " + fileName + " is damaged: putting its old bytes back failed (" +
         reason(error) + "). They are kept in " + journalPath(fileName) + "; 'kivo-meta recover " +
         fileName + "' puts them back.";
}

std::string leftAsItWas(const std::string& fileName) {
  return "The file " + fileName + " was left as it was.";
}

std::string journalUnwritten(const std::string& fileName, int error) {
  return "Could not write the journal " + journalPath(fileName) + " (" + reason(error) +
         "); the file " + fileName + " is left unchanged.";
}

std::string notReserved(const std::string& fileName, int error) {
  return "Could not reserve the space the new metadata of " + fileName + " needs (" +
         reason(error) + "); the file is left unchanged.";
}

std::string notFlushed(const std::string& fileName, int error) {
  return "Could not flush " + fileName + " to disk (" + reason(error) + ").";
}

std::string journalNotRemoved(const std::string& fileName, int error) {
  return "Could not remove the journal " + journalPath(fileName) + " (" + reason(error) + ").";
}

std::string oldBytesUnread(const std::string& fileName, int error) {
  return "Could not read the old metadata of " + fileName + " (" + reason(error) +
         "); the file is left unchanged.";
}

std::string changedMessage(const std::string& fileName) {
  return "The file " + fileName +
         " changed since this accessor last read or wrote it; read it again before writing.";
}

std::string notReadMessage(const std::string& fileName) {
  return "The file " + fileName +
         " was not read successfully by this accessor; read it before writing.";
}

FileStamp stampOf(const struct stat& status) {
  FileStamp stamp;
  stamp.valid = true;
  stamp.device = static_cast<uint64_t>(status.st_dev);
  stamp.inode = static_cast<uint64_t>(status.st_ino);
  stamp.size = static_cast<uint64_t>(status.st_size);
  stamp.mtimeSeconds = static_cast<int64_t>(status.st_mtim.tv_sec);
  stamp.mtimeNanoseconds = static_cast<int64_t>(status.st_mtim.tv_nsec);
  stamp.ctimeSeconds = static_cast<int64_t>(status.st_ctim.tv_sec);
  stamp.ctimeNanoseconds = static_cast<int64_t>(status.st_ctim.tv_nsec);
  return stamp;
}

// A descriptor closed when it goes; -1 holds none.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : fDescriptor(descriptor) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fDescriptor; }
  int release() { return std::exchange(fDescriptor, -1); }
  void reset(int descriptor = -1) {
    if (fDescriptor >= 0) ::close(fDescriptor);
    fDescriptor = descriptor;
  }

 private:
  int fDescriptor;
};

int openRetrying(const char* path, int flags, mode_t mode = 0) {
  int descriptor;
  do {
    descriptor = ::open(path, flags | O_CLOEXEC, mode);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

// Takes the lock, trying again for up to waitMilliseconds while another
// open file holds a conflicting one. 0, or the errno of the failure
// (EWOULDBLOCK when the wait ran out).
int lockWithin(int descriptor, int operation, unsigned waitMilliseconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(waitMilliseconds);
  std::chrono::milliseconds pause(1);
  for (;;) {
    if (::flock(descriptor, operation | LOCK_NB) == 0) return 0;
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return errno;
    const Clock::time_point now = Clock::now();
    if (now >= deadline) return EWOULDBLOCK;
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
}

// Writes all of bytes at offset, or at the descriptor's offset when offset
// is negative; 0, or the errno of the failure (a write that makes no
// progress counts as a full disk).
int writeAll(int descriptor, const char* bytes, size_t count, int64_t offset = -1) {
  while (count > 0) {
    const ssize_t written = offset < 0 ? ::write(descriptor, bytes, count)
                                       : ::pwrite(descriptor, bytes, count, offset);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return ENOSPC;
    bytes += written;
    count -= static_cast<size_t>(written);
    if (offset >= 0) offset += written;
  }
  return 0;
}

// Reads exactly count bytes at offset; 0, or the errno (EIO for a file that
// ends first).
int preadAll(int descriptor, char* bytes, size_t count, uint64_t offset) {
  while (count > 0) {
    const ssize_t got = ::pread(descriptor, bytes, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return EIO;
    bytes += got;
    count -= static_cast<size_t>(got);
    offset += static_cast<uint64_t>(got);
  }
  return 0;
}

int syncDescriptor(int descriptor) {
  while (::fsync(descriptor) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// Flushes the folder that holds fileName, so that a journal created or
// removed there stays so after a crash of the machine.
int syncFolderOf(const std::string& fileName) {
  const size_t slash = fileName.rfind('/');
  const std::string folder =
      slash == std::string::npos ? std::string(".") : fileName.substr(0, slash == 0 ? 1 : slash);
  Descriptor descriptor(openRetrying(folder.c_str(), O_RDONLY | O_DIRECTORY));
  if (descriptor.get() < 0) return errno;
  return syncDescriptor(descriptor.get());
}

uint64_t fnv1a(const std::string& bytes) {
  uint64_t hash = 14695981039346656037ull;
  for (const char c : bytes) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 1099511628211ull;
  }
  return hash;
}

void putNumber(std::string& out, uint64_t value) {
  for (size_t i = kNumberSize; i-- > 0;) out += static_cast<char>((value >> (8 * i)) & 0xFF);
}

// The old bytes of one range of the file.
struct Region {
  uint64_t offset = 0;
  std::string bytes;
};

// What the journal holds.
struct Journal {
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  std::vector<Region> regions;
};

std::string encodeJournal(const Journal& journal) {
  std::string out(kJournalMagic);
  putNumber(out, journal.device);
  putNumber(out, journal.inode);
  putNumber(out, journal.size);
  putNumber(out, journal.regions.size());
  for (const Region& region : journal.regions) {
    putNumber(out, region.offset);
    putNumber(out, region.bytes.size());
    out += region.bytes;
  }
  putNumber(out, fnv1a(out));
  return out;
}

// Reads numbers and byte runs from a journal's text, never past its end.
class JournalReader {
 public:
  explicit JournalReader(const std::string& text) : fText(text) {}
  bool number(uint64_t& value) {
    if (fText.size() - fAt < kNumberSize) return false;
    value = 0;
    for (size_t i = 0; i < kNumberSize; ++i)
      value = (value << 8) | static_cast<unsigned char>(fText[fAt + i]);
    fAt += kNumberSize;
    return true;
  }
  bool bytes(uint64_t count, std::string& out) {
    if (count > fText.size() - fAt) return false;
    out.assign(fText, fAt, static_cast<size_t>(count));
    fAt += static_cast<size_t>(count);
    return true;
  }
  size_t at() const { return fAt; }

 private:
  const std::string& fText;
  size_t fAt = 0;
};

// False for a journal that is cut short, holds anything after its checksum,
// fails the checksum or names a region beyond the old size.
bool decodeJournal(const std::string& text, Journal& journal) {
  const size_t magicSize = sizeof kJournalMagic - 1;
  if (text.compare(0, magicSize, kJournalMagic) != 0) return false;
  JournalReader in(text);
  std::string magic;
  uint64_t count = 0;
  if (!in.bytes(magicSize, magic) || !in.number(journal.device) || !in.number(journal.inode) ||
      !in.number(journal.size) || !in.number(count))
    return false;
  for (uint64_t i = 0; i < count; ++i) {
    Region region;
    uint64_t length = 0;
    if (!in.number(region.offset) || !in.number(length) || !in.bytes(length, region.bytes) ||
        region.offset > journal.size || length > journal.size - region.offset)
      return false;
    journal.regions.push_back(std::move(region));
  }
  const size_t checked = in.at();
  uint64_t checksum = 0;
  return in.number(checksum) && in.at() == text.size() &&
         checksum == fnv1a(text.substr(0, checked));
}

// Puts the journal's old bytes back and cuts the file to its old size.
// 0, or the errno of the failure.
int restore(int descriptor, const Journal& journal, bool sync) {
  for (const Region& region : journal.regions) {
    if (const int error =
            writeAll(descriptor, region.bytes.data(), region.bytes.size(),
                     static_cast<int64_t>(region.offset)))
      return error;
  }
  int result;
  do {
    result = ::ftruncate(descriptor, static_cast<off_t>(journal.size));
  } while (result != 0 && errno == EINTR);
  if (result != 0) return errno;
  return sync ? syncDescriptor(descriptor) : 0;
}

// Removes the journal of fileName; 0, or the errno of the failed unlink.
// Once the name is gone the file is as the caller wants it: a folder that
// then fails to flush only lets a crash of the machine bring the journal
// back, and that is not reported.
int removeJournal(const std::string& fileName, bool sync) {
  if (::unlink(journalPath(fileName).c_str()) != 0 && errno != ENOENT) return errno;
  if (sync) syncFolderOf(fileName);
  return 0;
}

// With the exclusive lock held on descriptor (open for writing): rolls the
// file back from a complete journal, removes an incomplete one.
eRecovery recoverLocked(const std::string& fileName, int descriptor, std::string& errors) {
  Descriptor journalFile(openRetrying(journalPath(fileName).c_str(), O_RDONLY));
  if (journalFile.get() < 0) {
    if (errno == ENOENT) return eRecovery::kNothing;
    appendMessage(errors, journalUnreadable(fileName, errno));
    return eRecovery::kFailed;
  }
  struct stat status;
  if (::fstat(journalFile.get(), &status) != 0) {
    appendMessage(errors, journalUnreadable(fileName, errno));
    return eRecovery::kFailed;
  }
  std::string text(static_cast<size_t>(status.st_size), '\0');
  if (const int error = preadAll(journalFile.get(), &text[0], text.size(), 0)) {
    appendMessage(errors, journalUnreadable(fileName, error));
    return eRecovery::kFailed;
  }
  journalFile.reset();
  Journal journal;
  if (!decodeJournal(text, journal)) {
    if (const int error = removeJournal(fileName, true)) {
      appendMessage(errors, journalNotRemoved(fileName, error));
      return eRecovery::kFailed;
    }
    return eRecovery::kIncompleteRemoved;
  }
  struct stat scene;
  if (::fstat(descriptor, &scene) != 0 || static_cast<uint64_t>(scene.st_dev) != journal.device ||
      static_cast<uint64_t>(scene.st_ino) != journal.inode) {
    appendMessage(errors, foreignJournal(fileName));
    return eRecovery::kFailed;
  }
  if (const int error = restore(descriptor, journal, true)) {
    appendMessage(errors, restoreFailed(fileName, error));
    return eRecovery::kFailed;
  }
  if (const int error = removeJournal(fileName, true)) {
    appendMessage(errors, journalNotRemoved(fileName, error));
    return eRecovery::kFailed;
  }
  return eRecovery::kRolledBack;
}

// True when the journal of fileName is whole: its writer finished it, and
// may have begun changing the file.
bool journalComplete(const std::string& fileName) {
  Descriptor journalFile(openRetrying(journalPath(fileName).c_str(), O_RDONLY));
  struct stat status;
  if (journalFile.get() < 0 || ::fstat(journalFile.get(), &status) != 0) return true;
  std::string text(static_cast<size_t>(status.st_size), '\0');
  Journal journal;
  return preadAll(journalFile.get(), &text[0], text.size(), 0) != 0 ||
         decodeJournal(text, journal);
}

bool journalExists(const std::string& fileName) {
  struct stat status;
  return ::lstat(journalPath(fileName).c_str(), &status) == 0;
}

// Opens and locks fileName; -1 with errors set on failure. openError gets
// the errno of a failed open.
int openLocked(const std::string& fileName, bool exclusive, unsigned waitMilliseconds,
               int& openError, std::string& errors) {
  openError = 0;
  Descriptor descriptor(openRetrying(fileName.c_str(), exclusive ? O_RDWR : O_RDONLY));
  if (descriptor.get() < 0) {
    openError = errno;
    return -1;
  }
  const int error = lockWithin(descriptor.get(), exclusive ? LOCK_EX : LOCK_SH, waitMilliseconds);
  if (error == EWOULDBLOCK) {
    appendMessage(errors, busyMessage(fileName, waitMilliseconds));
    return -1;
  }
  if (error != 0) {
    appendMessage(errors, lockFailed(fileName, error));
    return -1;
  }
  return descriptor.release();
}

// The old bytes a rewrite needs to keep: every range a patch overwrites
// and, when the file gets shorter, the part cut off, each within the old
// size, overlapping ranges merged.
std::vector<std::pair<uint64_t, uint64_t>> savedRanges(const std::vector<Patch>& patches,
                                                       uint64_t oldSize, uint64_t newSize) {
  std::vector<std::pair<uint64_t, uint64_t>> ranges;
  uint64_t position = 0;
  for (const Patch& patch : patches) {
    if (patch.seek) position = patch.offset;
    const uint64_t end = std::min(oldSize, position + patch.bytes.size());
    if (position < end) ranges.emplace_back(position, end);
    position += patch.bytes.size();
  }
  if (newSize < oldSize) ranges.emplace_back(newSize, oldSize);
  std::sort(ranges.begin(), ranges.end());
  std::vector<std::pair<uint64_t, uint64_t>> merged;
  for (const auto& range : ranges) {
    if (!merged.empty() && range.first <= merged.back().second) {
      merged.back().second = std::max(merged.back().second, range.second);
    } else {
      merged.push_back(range);
    }
  }
  return merged;
}

}  // namespace

bool FileStamp::operator==(const FileStamp& other) const {
  return valid == other.valid && device == other.device && inode == other.inode &&
         size == other.size && mtimeSeconds == other.mtimeSeconds &&
         mtimeNanoseconds == other.mtimeNanoseconds && ctimeSeconds == other.ctimeSeconds &&
         ctimeNanoseconds == other.ctimeNanoseconds;
}

std::string journalPath(const std::string& fileName) { return fileName + kJournalSuffix; }

SceneFile::SceneFile(std::string fileName, int descriptor, bool exclusive)
    : fFileName(std::move(fileName)), fDescriptor(descriptor), fExclusive(exclusive) {}

SceneFile::~SceneFile() { ::close(fDescriptor); }

std::unique_ptr<SceneFile> SceneFile::open(const std::string& fileName, eLock lock,
                                           unsigned waitMilliseconds,
                                           const std::string& openFailure, std::string& errors,
                                           int* openFailed, bool recover) {
  const bool exclusive = lock == eLock::kExclusive;
  int openError = 0;
  Descriptor descriptor(openLocked(fileName, exclusive, waitMilliseconds, openError, errors));
  if (openFailed) *openFailed = openError;
  if (descriptor.get() < 0) {
    if (openError != 0 && !openFailure.empty()) appendMessage(errors, openFailure);
    return nullptr;
  }
  if (recover && journalExists(fileName)) {
    if (!exclusive) {
      // Recovering needs the file open for writing and locked alone: the
      // shared lock is given up, the file opened again and, once recovered,
      // the lock turned back into a shared one.
      descriptor.reset();
      descriptor.reset(openLocked(fileName, true, waitMilliseconds, openError, errors));
      if (descriptor.get() < 0 && openError != 0) {
        // A reader that may not write the file reads it as it is when the
        // journal's writer died before changing it; otherwise it refuses.
        descriptor.reset(openLocked(fileName, false, waitMilliseconds, openError, errors));
        if (descriptor.get() < 0) {
          if (openError != 0 && !openFailure.empty()) appendMessage(errors, openFailure);
          return nullptr;
        }
        if (!journalComplete(fileName)) {
          return std::unique_ptr<SceneFile>(new SceneFile(fileName, descriptor.release(), false));
        }
        appendMessage(errors, unfinishedMessage(fileName));
        return nullptr;
      }
      if (descriptor.get() < 0) return nullptr;
    }
    if (recoverLocked(fileName, descriptor.get(), errors) == eRecovery::kFailed) return nullptr;
    if (!exclusive && ::flock(descriptor.get(), LOCK_SH) != 0) {
      appendMessage(errors, lockFailed(fileName, errno));
      return nullptr;
    }
  }
  return std::unique_ptr<SceneFile>(new SceneFile(fileName, descriptor.release(), exclusive));
}

eRecovery SceneFile::recover(const std::string& fileName, unsigned waitMilliseconds,
                             std::string& errors) {
  int openError = 0;
  Descriptor descriptor(openLocked(fileName, true, waitMilliseconds, openError, errors));
  if (descriptor.get() < 0) {
    if (openError != 0)
      appendMessage(errors, "Could not open " + fileName + " for writing (" +
                                reason(openError) + ").");
    return eRecovery::kFailed;
  }
  return recoverLocked(fileName, descriptor.get(), errors);
}

FileStamp SceneFile::stamp() const {
  struct stat status;
  if (::fstat(fDescriptor, &status) != 0) return FileStamp();
  return stampOf(status);
}

bool SceneFile::unchangedSince(const FileStamp& seen, std::string& errors) const {
  if (!seen.valid) {
    appendMessage(errors, notReadMessage(fFileName));
    return false;
  }
  // The name must still lead to the file: a write into a file that lost
  // its name would change nothing a later reader of the name sees.
  struct stat byName;
  if (stamp() != seen || ::stat(fFileName.c_str(), &byName) != 0 ||
      static_cast<uint64_t>(byName.st_dev) != seen.device ||
      static_cast<uint64_t>(byName.st_ino) != seen.inode) {
    appendMessage(errors, changedMessage(fFileName));
    return false;
  }
  return true;
}

bool SceneFile::rewrite(const std::vector<Patch>& patches, uint64_t newSize,
                        const char* truncateFailure, bool sync, std::string& errors) {
  struct stat status;
  if (::fstat(fDescriptor, &status) != 0) {
    appendMessage(errors, oldBytesUnread(fFileName, errno));
    return false;
  }
  const uint64_t oldSize = static_cast<uint64_t>(status.st_size);
  Journal journal;
  journal.device = static_cast<uint64_t>(status.st_dev);
  journal.inode = static_cast<uint64_t>(status.st_ino);
  journal.size = oldSize;
  for (const auto& range : savedRanges(patches, oldSize, newSize)) {
    Region region;
    region.offset = range.first;
    region.bytes.resize(static_cast<size_t>(range.second - range.first));
    if (const int error =
            preadAll(fDescriptor, &region.bytes[0], region.bytes.size(), region.offset)) {
      appendMessage(errors, oldBytesUnread(fFileName, error));
      return false;
    }
    journal.regions.push_back(std::move(region));
  }

  // The journal, flushed with its folder entry before the scene changes.
  {
    const std::string text = encodeJournal(journal);
    Descriptor out(openRetrying(journalPath(fFileName).c_str(),
                                O_WRONLY | O_CREAT | O_EXCL, status.st_mode & 07777));
    int error = out.get() < 0 ? errno : 0;
    if (error == 0) {
      // The journal gets the scene's mode whatever the umask, and its owner
      // where this process may give it.
      if (::fchmod(out.get(), status.st_mode & 07777) != 0) error = errno;
      if (::fchown(out.get(), status.st_uid, status.st_gid) != 0) {
      }
    }
    if (error == 0) error = writeAll(out.get(), text.data(), text.size());
    if (error == 0 && sync) error = syncDescriptor(out.get());
    if (error == 0 && ::close(out.release()) != 0) error = errno;
    if (error == 0 && sync) error = syncFolderOf(fFileName);
    if (error != 0) {
      if (error != EEXIST) removeJournal(fFileName, false);
      appendMessage(errors, journalUnwritten(fFileName, error));
      return false;
    }
  }

  // A full disk is found now, before the first byte changes, where the file
  // system can reserve space (without changing the file's size).
  if (newSize > oldSize &&
      ::fallocate(fDescriptor, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(oldSize),
                  static_cast<off_t>(newSize - oldSize)) != 0 &&
      errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL && errno != EINTR) {
    const int error = errno;
    removeJournal(fFileName, sync);
    appendMessage(errors, notReserved(fFileName, error));
    return false;
  }

  int error = 0;
  for (const Patch& patch : patches) {
    if (patch.seek &&
        ::lseek(fDescriptor, static_cast<off_t>(patch.offset), SEEK_SET) == static_cast<off_t>(-1)) {
      error = errno;
      appendMessage(errors, patch.seekFailure);
      break;
    }
    if ((error = writeAll(fDescriptor, patch.bytes.data(), patch.bytes.size())) != 0) {
      appendMessage(errors, patch.writeFailure);
      break;
    }
  }
  if (error == 0) {
    int result;
    do {
      result = ::ftruncate(fDescriptor, static_cast<off_t>(newSize));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
      error = errno;
      appendMessage(errors, truncateFailure);
    }
  }
  if (error == 0 && sync && (error = syncDescriptor(fDescriptor)) != 0)
    appendMessage(errors, notFlushed(fFileName, error));
  if (error == 0) {
    if ((error = removeJournal(fFileName, sync)) == 0) return true;
    appendMessage(errors, journalNotRemoved(fFileName, error));
  }

  // Something failed after the journal was written: the old bytes go back.
  if (const int restoreError = restore(fDescriptor, journal, sync)) {
    appendMessage(errors, restoreFailed(fFileName, restoreError));
    return false;
  }
  if (const int removeError = removeJournal(fFileName, sync)) {
    // The journal holds the bytes the file now has again: a later recovery
    // changes nothing.
    appendMessage(errors, journalNotRemoved(fFileName, removeError));
  }
  appendMessage(errors, leftAsItWas(fFileName));
  return false;
}

// DescriptorBuffer ----------------------------------------------------------

DescriptorBuffer::DescriptorBuffer(int descriptor, size_t bufferSize)
    : fDescriptor(descriptor), fBuffer(std::max<size_t>(bufferSize, 1)) {
  fOffset = ::lseek(fDescriptor, 0, SEEK_SET);
}

size_t DescriptorBuffer::readSome(char* out, size_t count) {
  if (fOffset < 0) return 0;  // the first seek failed: nothing can be read
  for (;;) {
    const ssize_t got = ::read(fDescriptor, out, count);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return 0;
    fOffset += got;
    return static_cast<size_t>(got);
  }
}

DescriptorBuffer::int_type DescriptorBuffer::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  const size_t got = readSome(fBuffer.data(), fBuffer.size());
  if (got == 0) return traits_type::eof();
  setg(fBuffer.data(), fBuffer.data(), fBuffer.data() + got);
  return traits_type::to_int_type(*gptr());
}

std::streamsize DescriptorBuffer::xsgetn(char* out, std::streamsize count) {
  std::streamsize done = 0;
  while (done < count) {
    if (gptr() < egptr()) {
      const std::streamsize take = std::min<std::streamsize>(egptr() - gptr(), count - done);
      std::memcpy(out + done, gptr(), static_cast<size_t>(take));
      gbump(static_cast<int>(take));
      done += take;
      continue;
    }
    const size_t wanted = static_cast<size_t>(count - done);
    if (wanted >= fBuffer.size()) {
      const size_t got = readSome(out + done, wanted);
      if (got == 0) break;
      done += static_cast<std::streamsize>(got);
    } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
      break;
    }
  }
  return done;
}

DescriptorBuffer::pos_type DescriptorBuffer::seekoff(off_type offset,
                                                     std::ios_base::seekdir direction,
                                                     std::ios_base::openmode which) {
  if (!(which & std::ios_base::in) || fOffset < 0) return pos_type(off_type(-1));
  const off_type current = fOffset - (egptr() - gptr());
  if (direction == std::ios_base::cur && offset == 0) return pos_type(current);
  off_t target;
  if (direction == std::ios_base::end) {
    target = ::lseek(fDescriptor, offset, SEEK_END);
  } else {
    const off_type wanted = direction == std::ios_base::beg ? offset : current + offset;
    target = wanted < 0 ? static_cast<off_t>(-1) : ::lseek(fDescriptor, wanted, SEEK_SET);
  }
  if (target < 0) return pos_type(off_type(-1));
  setg(nullptr, nullptr, nullptr);
  fOffset = target;
  return pos_type(target);
}

DescriptorBuffer::pos_type DescriptorBuffer::seekpos(pos_type position,
                                                     std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace kivo::Detail
