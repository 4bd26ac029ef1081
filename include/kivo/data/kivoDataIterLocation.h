// IterLocation: where a new iterator starts. kBegin (1) places it on the
// first position; any other value places it at the end. Shared by the member,
// channel and associations iterators and by handles.
#pragma once

namespace kivo::Data {

enum IterLocation { kEnd = 0, kBegin = 1 };

}  // namespace kivo::Data
