// Internal: the storage behind a Stream, for the library's own readers.
#pragma once

#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImpl.h>

namespace kivo::Data {

class StreamAccess {
 public:
  // The implementation, the default mapped one created when there is none.
  static StreamImpl& impl(const Stream& stream) { return stream.impl(); }
};

}  // namespace kivo::Data
