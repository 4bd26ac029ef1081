// Channel: a named set of streams describing one kind of component (several
// streams of per-vertex data, say), found by their own names and walked in
// byte-wise name order; at most one stream per name. A value-like handle
// onto a shared, reference-counted ChannelImpl: every constructor creates
// one, copies share it, and mutations act on the shared implementation, so
// every copy sees them. makeUnique() is the way to a private copy.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataChannelIterator.h>

#include <cstdint>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class ChannelImpl;
class Index;
class Stream;

class KIVO_EXPORT Channel {
 public:
  using iterator = ChannelIterator;
  using const_iterator = ChannelIterator;

  // A new implementation without streams, named "Unnamed".
  Channel();
  // A new implementation without streams, named name.
  explicit Channel(const std::string& name);
  // Share other's implementation (the new reference is taken before the old
  // one is released).
  Channel(const Channel& other);
  Channel& operator=(const Channel& other);
  ~Channel();

  // True only when both share one implementation (identity, not contents).
  bool operator==(const Channel& other) const { return fImpl == other.fImpl; }
  bool operator!=(const Channel& other) const { return fImpl != other.fImpl; }

  // False when the implementation is not shared. Otherwise switches to a
  // private copy whose streams are made unique too (their data cloned) and
  // returns true when any stream was cloned: a shared channel without
  // streams gets its own implementation but reports false.
  bool makeUnique();

  const std::string& name() const;

  // Stores a copy of stream (sharing its implementation) and returns the
  // stored Stream, owned by the channel and valid until that stream is
  // replaced, removed or renamed. A stream held under the same name is
  // replaced, unless it is that very object, which is returned unchanged.
  Stream* setDataStream(const Stream& stream);
  // The stream named exactly name, or null; nothing is created.
  Stream* dataStream(const std::string& name);
  Stream* findDataStream(const std::string& name);
  const Stream* findDataStream(const std::string& name) const;
  // Deletes the stream named name; false when there is none.
  bool removeDataStream(const std::string& name);
  // Renames the stream named oldName through its implementation, so every
  // Stream sharing it sees newName, and returns true. False, changing
  // nothing, when no stream is named oldName. When another stream already
  // has newName, the result is false and the renamed stream is no longer
  // part of the channel (the other one stays): that loss is by design.
  bool renameDataStream(const std::string& oldName, const std::string& newName);
  // The i-th stream in name order; null when i is not below the count.
  const Stream* dataStream(unsigned int i) const;
  unsigned int dataStreamCount() const;
  unsigned int size() const { return dataStreamCount(); }
  bool empty() const;

  // Sets a no-data element at index in every stream whose index type is the
  // index's type name; streams of other index types are skipped. True when
  // at least one stream accepted it; false otherwise, also when empty.
  bool addElement(const Index& index);
  // Removes the element at index from every stream of the index's type.
  // Always returns false, whatever was removed.
  bool removeElement(const Index& index);

  // Iterators over the streams in name order (see ChannelIterator for their
  // lifetime); the begin of an empty channel equals its end.
  ChannelIterator begin() const;
  ChannelIterator end() const;
  ChannelIterator cbegin() const { return begin(); }
  ChannelIterator cend() const { return end(); }

  // The shared implementation (never null).
  ChannelImpl* impl() const { return fImpl; }

  // Prints the implementation; null prints the class counters.
  static bool Debug(const Channel* channel, kivo::Debug::Print& print);
  // The handle and its implementation.
  static bool Debug(const Channel* channel, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // Takes a reference on impl, then releases the one held.
  void attach(ChannelImpl* impl);

  ChannelImpl* fImpl = nullptr;
};

}  // namespace Data
}  // namespace kivo
