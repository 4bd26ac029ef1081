// The definitions behind kivoFaultShim.h. A definition in the program comes
// before libc, libstdc++ and a shared sanitizer runtime in symbol lookup, so
// the file calls of the standard streams and the library land here;
// dlsym(RTLD_NEXT) finds the definition they would have reached otherwise
// (with AddressSanitizer that is its interceptor, which keeps checking).
#include "faults/kivoFaultShim.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace kivo::Test::Faults {
namespace {

// Plain globals, constant-initialized: the first calls come before main.
unsigned gMask = 0;
uint64_t gCalls = 0;
uint64_t gFailAt = 0;
bool gSticky = false;
bool gCallFailed = false;
eFault gFault = eFault::kFail;
// Set when the armed call is a write to be cut short.
bool gShortNow = false;

bool gCountAllocations = false;
uint64_t gAllocations = 0;
uint64_t gAllocationFailAt = 0;
bool gAllocationFailed = false;
uint64_t gLargestAllocation = 0;
// Bytes held since armAllocations (blocks freed that were allocated before
// it make this negative), and the most of it at any time.
int64_t gLiveBytes = 0;
int64_t gPeakBytes = 0;

// The next definition of name after this program's; aborts when there is
// none, since nothing could be forwarded.
void* next(const char* name) {
  void* function = ::dlsym(RTLD_NEXT, name);
  if (!function) {
    std::fprintf(stderr, "fault shim: no definition of %s to forward to\n", name);
    std::abort();
  }
  return function;
}

template <class Function>
Function forward(Function& cache, const char* name) {
  if (!cache) cache = reinterpret_cast<Function>(next(name));
  return cache;
}

// True when this call of kind on descriptor fd is to fail; counts it. At
// the armed call a crash ends the process, and a write to be cut short is
// flagged in gShortNow instead of failing.
bool fails(eCall kind, int fd, int error) {
  if (!(gMask & kind) || fd <= 2) return false;
  ++gCalls;
  if (gFailAt == 0 || gCalls < gFailAt || (gCalls > gFailAt && !gSticky)) return false;
  gCallFailed = true;
  if (gCalls == gFailAt && gFault == eFault::kCrash) ::_exit(kCrashStatus);
  if (gCalls == gFailAt && gFault == eFault::kShortWrite && kind == kWrite) {
    gShortNow = true;
    return false;
  }
  errno = error;
  return true;
}

bool allocationFails(std::size_t size) {
  if (!gCountAllocations) return false;
  ++gAllocations;
  if (size > gLargestAllocation) gLargestAllocation = size;
  if (gAllocations != gAllocationFailAt) return false;
  gAllocationFailed = true;
  return true;
}

using ReadFunction = ssize_t (*)(int, void*, size_t);
using WriteFunction = ssize_t (*)(int, const void*, size_t);
using WritevFunction = ssize_t (*)(int, const struct iovec*, int);
using SeekFunction = off_t (*)(int, off_t, int);
using PwriteFunction = ssize_t (*)(int, const void*, size_t, off_t);
using PreadFunction = ssize_t (*)(int, void*, size_t, off_t);
using SyncFunction = int (*)(int);
using FallocateFunction = int (*)(int, int, off_t, off_t);
using UnlinkFunction = int (*)(const char*);
using TruncateFunction = int (*)(const char*, off_t);
using FtruncateFunction = int (*)(int, off_t);
using NewFunction = void* (*)(std::size_t);
using DeleteFunction = void (*)(void*);
using SizedDeleteFunction = void (*)(void*, std::size_t);

ReadFunction gRead = nullptr;
PreadFunction gPread = nullptr;
PreadFunction gPread64 = nullptr;
SyncFunction gFsync = nullptr;
SyncFunction gFdatasync = nullptr;
FallocateFunction gFallocate = nullptr;
FallocateFunction gFallocate64 = nullptr;
UnlinkFunction gUnlink = nullptr;
WriteFunction gWrite = nullptr;
WritevFunction gWritev = nullptr;
SeekFunction gLseek = nullptr;
SeekFunction gLseek64 = nullptr;
PwriteFunction gPwrite = nullptr;
PwriteFunction gPwrite64 = nullptr;
TruncateFunction gTruncate = nullptr;
TruncateFunction gTruncate64 = nullptr;
FtruncateFunction gFtruncate = nullptr;
FtruncateFunction gFtruncate64 = nullptr;
NewFunction gNew = nullptr;
NewFunction gNewArray = nullptr;
DeleteFunction gDelete = nullptr;
DeleteFunction gDeleteArray = nullptr;
SizedDeleteFunction gSizedDelete = nullptr;
SizedDeleteFunction gSizedDeleteArray = nullptr;

// The block's size as the allocator knows it, the same on both sides.
void held(void* block, int sign) {
  if (!gCountAllocations || !block) return;
  gLiveBytes += sign * static_cast<int64_t>(::malloc_usable_size(block));
  if (gLiveBytes > gPeakBytes) gPeakBytes = gLiveBytes;
}

}  // namespace

void armCalls(unsigned mask, uint64_t failAt, bool sticky, eFault fault) {
  gCalls = 0;
  gFailAt = failAt;
  gSticky = sticky;
  gFault = fault;
  gCallFailed = false;
  gMask = mask;
}

uint64_t disarmCalls() {
  gMask = 0;
  return gCalls;
}

bool callFailed() { return gCallFailed; }

void armAllocations(uint64_t failAt) {
  gAllocations = 0;
  gAllocationFailAt = failAt;
  gAllocationFailed = false;
  gLargestAllocation = 0;
  gLiveBytes = 0;
  gPeakBytes = 0;
  gCountAllocations = true;
}

uint64_t disarmAllocations() {
  gCountAllocations = false;
  return gAllocations;
}

bool allocationFailed() { return gAllocationFailed; }
uint64_t largestAllocation() { return gLargestAllocation; }
uint64_t peakBytes() { return static_cast<uint64_t>(gPeakBytes); }

}  // namespace kivo::Test::Faults

using namespace kivo::Test::Faults;

extern "C" {

ssize_t read(int fd, void* buffer, size_t count) {
  if (fails(kRead, fd, EIO)) return -1;
  return forward(gRead, "read")(fd, buffer, count);
}

ssize_t pread(int fd, void* buffer, size_t count, off_t offset) {
  if (fails(kRead, fd, EIO)) return -1;
  return forward(gPread, "pread")(fd, buffer, count, offset);
}

ssize_t pread64(int fd, void* buffer, size_t count, off64_t offset) {
  if (fails(kRead, fd, EIO)) return -1;
  return forward(gPread64, "pread64")(fd, buffer, count, offset);
}

ssize_t write(int fd, const void* buffer, size_t count) {
  if (fails(kWrite, fd, ENOSPC)) return -1;
  if (gShortNow) {
    gShortNow = false;
    if (count > 1) count /= 2;
  }
  return forward(gWrite, "write")(fd, buffer, count);
}

int fsync(int fd) {
  if (fails(kSync, fd, EIO)) return -1;
  return forward(gFsync, "fsync")(fd);
}

int fdatasync(int fd) {
  if (fails(kSync, fd, EIO)) return -1;
  return forward(gFdatasync, "fdatasync")(fd);
}

int fallocate(int fd, int mode, off_t offset, off_t length) {
  if (fails(kFallocate, fd, ENOSPC)) return -1;
  return forward(gFallocate, "fallocate")(fd, mode, offset, length);
}

int fallocate64(int fd, int mode, off64_t offset, off64_t length) {
  if (fails(kFallocate, fd, ENOSPC)) return -1;
  return forward(gFallocate64, "fallocate64")(fd, mode, offset, length);
}

int unlink(const char* path) noexcept {
  if (fails(kUnlink, 3, EIO)) return -1;
  return forward(gUnlink, "unlink")(path);
}

ssize_t writev(int fd, const struct iovec* vector, int count) {
  if (fails(kWritev, fd, ENOSPC)) return -1;
  return forward(gWritev, "writev")(fd, vector, count);
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
  if (fails(kLseek, fd, EIO)) return -1;
  return forward(gLseek, "lseek")(fd, offset, whence);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  if (fails(kLseek, fd, EIO)) return -1;
  return forward(gLseek64, "lseek64")(fd, offset, whence);
}

ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  if (fails(kPwrite, fd, ENOSPC)) return -1;
  return forward(gPwrite, "pwrite")(fd, buffer, count, offset);
}

ssize_t pwrite64(int fd, const void* buffer, size_t count, off64_t offset) {
  if (fails(kPwrite, fd, ENOSPC)) return -1;
  return forward(gPwrite64, "pwrite64")(fd, buffer, count, offset);
}

int truncate(const char* path, off_t length) noexcept {
  if (fails(kTruncate, 3, EIO)) return -1;
  return forward(gTruncate, "truncate")(path, length);
}

int truncate64(const char* path, off64_t length) noexcept {
  if (fails(kTruncate, 3, EIO)) return -1;
  return forward(gTruncate64, "truncate64")(path, length);
}

int ftruncate(int fd, off_t length) noexcept {
  if (fails(kFtruncate, fd, EIO)) return -1;
  return forward(gFtruncate, "ftruncate")(fd, length);
}

int ftruncate64(int fd, off64_t length) noexcept {
  if (fails(kFtruncate, fd, EIO)) return -1;
  return forward(gFtruncate64, "ftruncate64")(fd, length);
}

}  // extern "C"

namespace {

// The C++ library's array forms call the single forms, which are these
// replacements again (the sanitizers' own forms do not): a block is counted,
// and may fail, once, at the outermost call.
thread_local int gNesting = 0;

class Outermost {
 public:
  Outermost() : fOutermost(gNesting++ == 0) {}
  ~Outermost() { --gNesting; }
  Outermost(const Outermost&) = delete;
  Outermost& operator=(const Outermost&) = delete;
  explicit operator bool() const { return fOutermost; }

 private:
  bool fOutermost;
};

}  // namespace

// The two throwing forms of new are replaced, and the four deletes that
// free what they return; the other forms are left to the runtime.
void* operator new(std::size_t size) {
  const Outermost outermost;
  if (outermost && allocationFails(size)) throw std::bad_alloc();
  void* block = forward(gNew, "_Znwm")(size);
  if (outermost) held(block, 1);
  return block;
}

void* operator new[](std::size_t size) {
  const Outermost outermost;
  if (outermost && allocationFails(size)) throw std::bad_alloc();
  void* block = forward(gNewArray, "_Znam")(size);
  if (outermost) held(block, 1);
  return block;
}

void operator delete(void* block) noexcept {
  const Outermost outermost;
  if (outermost) held(block, -1);
  forward(gDelete, "_ZdlPv")(block);
}

void operator delete[](void* block) noexcept {
  const Outermost outermost;
  if (outermost) held(block, -1);
  forward(gDeleteArray, "_ZdaPv")(block);
}

void operator delete(void* block, std::size_t size) noexcept {
  const Outermost outermost;
  if (outermost) held(block, -1);
  forward(gSizedDelete, "_ZdlPvm")(block, size);
}

void operator delete[](void* block, std::size_t size) noexcept {
  const Outermost outermost;
  if (outermost) held(block, -1);
  forward(gSizedDeleteArray, "_ZdaPvm")(block, size);
}
