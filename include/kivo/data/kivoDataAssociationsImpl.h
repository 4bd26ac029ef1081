// AssociationsImpl: the shared body behind Associations handles: a set of
// Channel values (each sharing its ChannelImpl) kept in byte-wise name
// order, at most one per name. Reference counted: a new object starts at
// count 0 and the Associations taking it calls ref(). Change it from one
// thread.
#pragma once

#include <kivo/kivoExport.h>
#include <kivo/data/kivoDataChannel.h>
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

class AssociationsIterator;

class KIVO_EXPORT AssociationsImpl
    : public RefCounted,
      public kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Print>,
      public kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Footprint> {
 public:
  using kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Print>::debug;
  using kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Footprint>::debug;

  // Orders channels by name, byte-wise (a shorter prefix first). Also
  // compares a channel with a bare name, so lookups need no channel.
  struct KIVO_EXPORT ChannelCompare {
    using is_transparent = void;
    bool operator()(const Channel& a, const Channel& b) const;
    bool operator()(const Channel& a, const std::string& b) const;
    bool operator()(const std::string& a, const Channel& b) const;
  };
  using ChannelSet = std::set<Channel, ChannelCompare>;

  AssociationsImpl();
  // The same channels, each sharing its implementation. The copy's count
  // starts at 0.
  AssociationsImpl(const AssociationsImpl& other);
  // Empties this set and copies other's (channels shared); nothing happens
  // on self-assignment. The reference count is left alone.
  AssociationsImpl& operator=(const AssociationsImpl& other);
  ~AssociationsImpl() override;

  // Replaces every channel by a copy on which Channel::makeUnique() was
  // called. True when any channel reported being made unique.
  bool makeUnique();

  // The channel named name, created (empty) and inserted when missing; the
  // result shares the stored channel's implementation.
  Channel channel(const std::string& name);
  // The stored channel named name, or null; nothing is created.
  Channel* findChannel(const std::string& name);
  const Channel* findChannel(const std::string& name) const;
  // Inserts channel; one already stored under its name is replaced.
  void setChannel(const Channel& channel);
  // Erases the channel named name; false when there is none.
  bool removeChannel(const std::string& name);
  // Always false and never changes anything: a channel named oldName is
  // kept as it is, and a missing oldName leaves every channel untouched.
  bool renameChannel(const std::string& oldName, const std::string& newName);
  // The i-th channel in name order; null when i is not below the count.
  const Channel* nthChannel(unsigned int i) const;
  unsigned int channelCount() const { return static_cast<unsigned int>(fChannels.size()); }
  bool empty() const { return fChannels.empty(); }

  // Iterators in name order; valid while this implementation lives and its
  // set of channels is not changed.
  AssociationsIterator begin() const;
  AssociationsIterator end() const;
  const ChannelSet& channels() const { return fChannels; }

  // "Data Associations", then "No channels" or each channel's printout.
  // Null prints the class counters.
  static bool Debug(const AssociationsImpl* associations, kivo::Debug::Print& print);
  // The object, its set nodes and its channels.
  static bool Debug(const AssociationsImpl* associations, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  ChannelSet fChannels;
};

}  // namespace Data
}  // namespace kivo
