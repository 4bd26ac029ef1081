// The definitions behind kivoFaultShim.h. A definition in the program comes
// before libc, libstdc++ and a shared sanitizer runtime in symbol lookup, so
// the file calls of the standard streams and the library land here;
// dlsym(RTLD_NEXT) finds the definition they would have reached otherwise
// (with AddressSanitizer that is its interceptor, which keeps checking).
#include "faults/kivoFaultShim.h"

#include <dlfcn.h>
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

bool gCountAllocations = false;
uint64_t gAllocations = 0;
uint64_t gAllocationFailAt = 0;
bool gAllocationFailed = false;
uint64_t gAllocatedBytes = 0;
uint64_t gLargestAllocation = 0;

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

// True when this call of kind on descriptor fd is to fail; counts it.
bool fails(eCall kind, int fd, int error) {
  if (!(gMask & kind) || fd <= 2) return false;
  ++gCalls;
  if (gFailAt == 0 || gCalls < gFailAt || (gCalls > gFailAt && !gSticky)) return false;
  gCallFailed = true;
  errno = error;
  return true;
}

bool allocationFails(std::size_t size) {
  if (!gCountAllocations) return false;
  ++gAllocations;
  gAllocatedBytes += size;
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
using TruncateFunction = int (*)(const char*, off_t);
using FtruncateFunction = int (*)(int, off_t);
using NewFunction = void* (*)(std::size_t);

ReadFunction gRead = nullptr;
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

}  // namespace

void armCalls(unsigned mask, uint64_t failAt, bool sticky) {
  gCalls = 0;
  gFailAt = failAt;
  gSticky = sticky;
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
  gAllocatedBytes = 0;
  gLargestAllocation = 0;
  gCountAllocations = true;
}

uint64_t disarmAllocations() {
  gCountAllocations = false;
  return gAllocations;
}

bool allocationFailed() { return gAllocationFailed; }
uint64_t allocatedBytes() { return gAllocatedBytes; }
uint64_t largestAllocation() { return gLargestAllocation; }

}  // namespace kivo::Test::Faults

using namespace kivo::Test::Faults;

extern "C" {

ssize_t read(int fd, void* buffer, size_t count) {
  if (fails(kRead, fd, EIO)) return -1;
  return forward(gRead, "read")(fd, buffer, count);
}

ssize_t write(int fd, const void* buffer, size_t count) {
  if (fails(kWrite, fd, ENOSPC)) return -1;
  return forward(gWrite, "write")(fd, buffer, count);
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

// Only the two throwing forms are replaced; the others reach them or are
// left to the runtime, and every delete stays the runtime's own.
void* operator new(std::size_t size) {
  if (allocationFails(size)) throw std::bad_alloc();
  return forward(gNew, "_Znwm")(size);
}

void* operator new[](std::size_t size) {
  if (allocationFails(size)) throw std::bad_alloc();
  return forward(gNewArray, "_Znam")(size);
}
