// Binary scene files ("tb"): read the input as a scene file; when it reads,
// write fixed metadata into it and read it back. See kivoFuzzScene.h for the
// checks.
#include <cstddef>
#include <cstdint>

#include "kivoFuzzScene.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kivo::Fuzz::prepareSceneHarness();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kivo::Fuzz::writeScene("tb", data, size);
  return 0;
}
