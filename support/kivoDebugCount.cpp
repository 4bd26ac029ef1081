#include <kivo/support/kivoDebugCount.h>

namespace kivo::Debug {

Count& Count::operator=(unsigned long value) {
  fValue = value;
  return *this;
}

}  // namespace kivo::Debug
