// Associations: the metadata attached to one object: a set of channels keyed
// by channel name (one of per-vertex streams, one of per-face streams ...),
// walked in byte-wise name order, at most one channel per name. A
// value-like handle onto a shared, reference-counted AssociationsImpl: every
// constructor creates or shares one, copies share it, and mutations act on
// the shared implementation. makeUnique() is the way to a private copy.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataAssociationsIterator.h>
#include <kivo/data/kivoDataChannel.h>

#include <cstdint>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class AssociationsImpl;

class KIVO_EXPORT Associations {
 public:
  using iterator = AssociationsIterator;
  using const_iterator = AssociationsIterator;

  // A new empty implementation.
  Associations();
  // A new heap object with a new empty implementation; the caller owns it.
  static Associations* create();
  // Shares other's implementation; a new empty one when other is null.
  explicit Associations(const Associations* other);
  // Share other's implementation (the new reference is taken before the old
  // one is released).
  Associations(const Associations& other);
  Associations& operator=(const Associations& other);
  ~Associations();

  // False when the implementation is not shared. Otherwise switches to a
  // private copy whose channels are made unique too (their streams cloned)
  // and returns true when any channel was made unique: a shared
  // associations whose channels hold no streams gets its own implementation
  // but reports false.
  bool makeUnique();

  // The channel named name, created empty and inserted when missing. The
  // result shares the stored channel's implementation.
  Channel channel(const std::string& name);
  // The stored channel named name, or null; nothing is created. Valid until
  // that channel is replaced or removed.
  Channel* findChannel(const std::string& name);
  const Channel* findChannel(const std::string& name) const;
  // Stores channel (sharing its implementation); a channel already stored
  // under its name is replaced.
  void setChannel(const Channel& channel);
  // Erases the channel named name; false when there is none.
  bool removeChannel(const std::string& name);
  // Renaming is not supported: always false, nothing changes. A channel
  // named oldName keeps its name; when there is none, false as well and
  // every channel stays as it was.
  bool renameChannel(const std::string& oldName, const std::string& newName);
  // The i-th channel in name order; null when i is not below the count.
  const Channel* operator[](unsigned int i) const;
  // A copy (shared implementation) of the i-th channel; a new channel named
  // "Unnamed", not stored, when i is not below the count.
  Channel channelAt(unsigned int i) const;
  unsigned int channelCount() const;
  unsigned int size() const { return channelCount(); }
  bool empty() const;

  // Iterators over the channels in name order (see AssociationsIterator for
  // their lifetime); the begin of an empty associations equals its end.
  AssociationsIterator begin() const;
  AssociationsIterator end() const;
  AssociationsIterator cbegin() const { return begin(); }
  AssociationsIterator cend() const { return end(); }

  // The shared implementation (never null).
  AssociationsImpl* impl() const { return fImpl; }

  // Prints the implementation; null prints the class counters.
  static bool Debug(const Associations* associations, kivo::Debug::Print& print);
  // The handle and its implementation.
  static bool Debug(const Associations* associations, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // Takes a reference on impl, then releases the one held.
  void attach(AssociationsImpl* impl);

  AssociationsImpl* fImpl = nullptr;
};

}  // namespace Data
}  // namespace kivo
