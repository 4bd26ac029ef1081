// Count: a plain unsigned counter for debug statistics.
#pragma once

#include <kivo/kivoExport.h>

namespace kivo::Debug {

class KIVO_EXPORT Count {
 public:
  Count() = default;
  explicit Count(unsigned long value) : fValue(value) {}
  Count& operator=(unsigned long value);
  unsigned long value() const { return fValue; }
  operator unsigned long() const { return fValue; }

 private:
  unsigned long fValue = 0;
};

}  // namespace kivo::Debug
