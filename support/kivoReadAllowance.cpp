#include "support/kivoReadAllowance.h"

namespace kivo::Detail {
namespace {

// 64 MiB less the 1 MiB kept for what the text itself builds (names,
// members, bookkeeping), so that a small file's read stays within twice
// the file plus 64 MiB in all.
constexpr uint64_t kSlack = uint64_t(63) << 20;

ReadAllowance*& installed() {
  static ReadAllowance* allowance = nullptr;
  return allowance;
}

}  // namespace

ReadAllowance::ReadAllowance(uint64_t fileBytes)
    : fLimit(fileBytes > (UINT64_MAX - kSlack) / 2 ? UINT64_MAX : 2 * fileBytes + kSlack),
      fPrevious(installed()) {
  installed() = this;
}

ReadAllowance::~ReadAllowance() { installed() = fPrevious; }

ReadAllowance* ReadAllowance::current() { return installed(); }

bool ReadAllowance::take(uint64_t bytes) {
  if (bytes > fLimit - fTaken) return false;
  fTaken += bytes;
  return true;
}

void ReadAllowance::giveBack(uint64_t bytes) { fTaken -= bytes < fTaken ? bytes : fTaken; }

bool ReadAllowance::takeDefaultElement(const void* key, uint64_t bytes) {
  if (fDefaults.count(key) > 0) return true;
  if (!take(bytes)) return false;
  try {
    fDefaults.insert(key);
  } catch (...) {
    giveBack(bytes);
    throw;
  }
  return true;
}

std::string pastReadAllowance(const std::string& structure, uint64_t elementBytes,
                              const std::string& stream, uint64_t limit) {
  return "Structure '" + structure + "' has elements of " + std::to_string(elementBytes) +
         " bytes: reading stream '" + stream + "' would take this read past the " +
         std::to_string(limit) +
         " bytes it may hold without text behind them (twice the file's size plus 63 MiB)";
}

}  // namespace kivo::Detail
