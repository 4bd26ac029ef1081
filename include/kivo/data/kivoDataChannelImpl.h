// ChannelImpl: the shared body behind Channel handles: a name and a set of
// streams kept in byte-wise name order, at most one per name. The channel
// owns each Stream object in its set (created on insertion, deleted on
// removal and destruction); each Stream shares its StreamImpl with whoever
// passed it in. Reference counted: a new object starts at count 0 and the
// Channel taking it calls ref(). Change a channel from one thread.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/support/kivoDebugCRTP.h>
#include <kivo/support/kivoRefCounted.h>

#include <cstdint>
#include <set>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class ChannelIterator;
class Index;
class Stream;

class KIVO_EXPORT ChannelImpl : public RefCounted,
                                public kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Print>,
                                public kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Footprint> {
 public:
  using kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Print>::debug;
  using kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Footprint>::debug;

  // Orders streams by name, byte-wise (a shorter prefix first). Throws
  // std::invalid_argument("Null Stream found in Channel.") when either
  // pointer is null.
  struct KIVO_EXPORT StreamCompare {
    bool operator()(const Stream* a, const Stream* b) const;
  };
  using StreamSet = std::set<Stream*, StreamCompare>;

  // No streams, named "Unnamed".
  ChannelImpl();
  explicit ChannelImpl(const std::string& name);
  // Same name, and a new Stream object for each of other's streams, sharing
  // that stream's implementation. The copy's count starts at 0.
  ChannelImpl(const ChannelImpl& other);
  // Takes other's name and adds a Stream copy (shared implementation) of
  // each of other's streams; a stream already held under the same name stays
  // and the copy is dropped. The reference count is left alone.
  ChannelImpl& operator=(const ChannelImpl& other);
  // Deletes the Stream objects (their implementations live on while shared).
  ~ChannelImpl() override;

  // Replaces every stream by a new Stream on which Stream::makeUnique() was
  // called, so stream data shared with other holders is cloned. True when
  // any stream was cloned (so false for an empty channel).
  bool makeUnique();

  const std::string& name() const { return fName; }

  // Stores a copy of stream (sharing its implementation) and returns the
  // stored Stream, owned by the channel. A stream held under the same name
  // is deleted and replaced, unless it is that very object, which is
  // returned unchanged.
  Stream* setDataStream(const Stream& stream);
  // The stream named exactly name, or null; nothing is created.
  Stream* findDataStream(const std::string& name);
  const Stream* findDataStream(const std::string& name) const;
  // Deletes the stream named name; false when there is none.
  bool removeDataStream(const std::string& name);
  // Renames the stream named oldName through its implementation, so every
  // Stream sharing it sees newName. False, changing nothing, when no stream
  // is named oldName. When another stream already has newName the renamed
  // stream cannot go back into the set: it is deleted (its implementation,
  // renamed, lives on with its other holders), the other stream stays and
  // the result is false.
  bool renameDataStream(const std::string& oldName, const std::string& newName);
  // The i-th stream in name order; null when i is not below the count.
  const Stream* dataStream(unsigned int i) const;
  unsigned int dataStreamCount() const { return static_cast<unsigned int>(fStreams.size()); }
  bool empty() const { return fStreams.empty(); }

  // Sets a no-data element at index in every stream whose index type is the
  // index's type name; others are skipped. True when at least one stream
  // accepted it; false otherwise, also for an empty channel.
  bool addElement(const Index& index);
  // Removes the element at index from every stream whose index type is the
  // index's type name. Always false, whatever was removed.
  bool removeElement(const Index& index);

  // Iterators in name order; valid while this implementation lives and its
  // set of streams is not changed.
  ChannelIterator begin() const;
  ChannelIterator end() const;
  const StreamSet& streams() const { return fStreams; }

  // A "Channel <name>" section holding "Empty Channel" or one "Stream
  // <name>" section per stream. Null prints the class counters.
  static bool Debug(const ChannelImpl* channel, kivo::Debug::Print& print);
  // The object, its name and set nodes, and its streams.
  static bool Debug(const ChannelImpl* channel, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // The entry whose stream is named name; end() when none is.
  StreamSet::const_iterator findByName(const std::string& name) const;
  // Inserts a new Stream sharing stream's implementation; returns the stored
  // pointer, or null (nothing kept) when the name is already taken.
  Stream* insertCopy(const Stream& stream);
  void deleteStreams();

  StreamSet fStreams;
  std::string fName;
};

}  // namespace Data
}  // namespace kivo
