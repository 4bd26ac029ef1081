// ASCII scene files ("ta"): Accessor::read of the input written to a scratch
// file, whole and selectively. See kivoFuzzScene.h for the checks.
#include <cstddef>
#include <cstdint>

#include "kivoFuzzScene.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivo::Fuzz::prepareSceneHarness();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kivo::Fuzz::readScene("ta", data, size);
  return 0;
}
