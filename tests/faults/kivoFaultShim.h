// Fault injection for the fault tests: this program defines the file calls
// the library and the standard streams make (read, pread, write, writev,
// lseek, pwrite, truncate, ftruncate, fsync, fdatasync, fallocate, unlink)
// and the global operator new and delete, and forwards them to the next
// definition (libc, the sanitizer runtime, libstdc++). Off by default; a
// test arms it for one operation and disarms it at once.
//
// File calls are counted only on descriptors above 2 (the test's own output
// never counts) and, for truncate and unlink, on every path.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kivo::Test::Faults {

enum eCall : unsigned {
  kRead = 1u << 0,
  kWrite = 1u << 1,
  kWritev = 1u << 2,
  kLseek = 1u << 3,
  kPwrite = 1u << 4,
  kTruncate = 1u << 5,
  kFtruncate = 1u << 6,
  kSync = 1u << 7,       // fsync, fdatasync
  kFallocate = 1u << 8,
  kUnlink = 1u << 9,
};

// The calls that change a file or move its position.
constexpr unsigned kWriteCalls = kWrite | kWritev | kLseek | kPwrite | kTruncate | kFtruncate |
                                 kSync | kFallocate | kUnlink;
constexpr unsigned kReadCalls = kRead | kLseek;

// What happens at the call armed.
enum class eFault {
  kFail,        // it fails: EIO, or ENOSPC for the calls that write or reserve
  kShortWrite,  // a write of more than one byte writes half and says so; any other call fails
  kCrash,       // the process ends there (_exit(kCrashStatus)), the call not made
};
constexpr int kCrashStatus = 77;

// Counts the calls of mask from now on. When failAt is not 0, the failAt-th
// of them meets fault; with sticky, every later one fails.
void armCalls(unsigned mask, uint64_t failAt, bool sticky, eFault fault = eFault::kFail);
// Stops counting; returns how many calls of the mask were made.
uint64_t disarmCalls();
// True when an armed failure has happened since the last armCalls.
bool callFailed();

// Counts allocations through operator new from now on; when failAt is not 0
// the failAt-th throws std::bad_alloc (once).
void armAllocations(uint64_t failAt);
// Stops counting; returns how many allocations were made.
uint64_t disarmAllocations();
bool allocationFailed();
// The largest single allocation since armAllocations.
uint64_t largestAllocation();
// The most the bytes held through operator new grew beyond what was held
// at armAllocations, at any time since: the armed operation's peak.
uint64_t peakBytes();

// Arms file calls for one scope.
class ArmedCalls {
 public:
  ArmedCalls(unsigned mask, uint64_t failAt, bool sticky, eFault fault = eFault::kFail) {
    armCalls(mask, failAt, sticky, fault);
  }
  ~ArmedCalls() { disarmCalls(); }
  ArmedCalls(const ArmedCalls&) = delete;
  ArmedCalls& operator=(const ArmedCalls&) = delete;
};

// Arms allocations for one scope.
class ArmedAllocations {
 public:
  explicit ArmedAllocations(uint64_t failAt) { armAllocations(failAt); }
  ~ArmedAllocations() { disarmAllocations(); }
  ArmedAllocations(const ArmedAllocations&) = delete;
  ArmedAllocations& operator=(const ArmedAllocations&) = delete;
};

}  // namespace kivo::Test::Faults
