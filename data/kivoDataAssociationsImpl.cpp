#include <kivo/data/kivoDataAssociationsImpl.h>

#include <string>

#include <kivo/data/kivoDataAssociationsIterator.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoDebugParts.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kTitle[] = "Data Associations";
constexpr char kNoChannels[] = "No channels";

}  // namespace

uint64_t AssociationsImpl::_objectsCreated = 0;
uint64_t AssociationsImpl::_objectsAlive = 0;

bool AssociationsImpl::ChannelCompare::operator()(const Channel& a, const Channel& b) const {
  return a.name() < b.name();
}

bool AssociationsImpl::ChannelCompare::operator()(const Channel& a, const std::string& b) const {
  return a.name() < b;
}

bool AssociationsImpl::ChannelCompare::operator()(const std::string& a, const Channel& b) const {
  return a < b.name();
}

AssociationsImpl::AssociationsImpl() {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsImpl::AssociationsImpl(const AssociationsImpl& other)
    : RefCounted(other),
      kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Print>(other),
      kivo::Debug::CRTP_Debug<AssociationsImpl, kivo::Debug::Footprint>(other),
      fChannels(other.fChannels) {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsImpl& AssociationsImpl::operator=(const AssociationsImpl& other) {
  if (this != &other) fChannels = other.fChannels;
  return *this;
}

AssociationsImpl::~AssociationsImpl() { --_objectsAlive; }

bool AssociationsImpl::makeUnique() {
  ChannelSet unique;
  bool madeUnique = false;
  for (const Channel& channel : fChannels) {
    Channel copy(channel);
    if (copy.makeUnique()) madeUnique = true;
    unique.insert(unique.end(), copy);
  }
  fChannels.swap(unique);
  return madeUnique;
}

Channel AssociationsImpl::channel(const std::string& name) {
  auto found = fChannels.lower_bound(name);
  if (found == fChannels.end() || found->name() != name) {
    found = fChannels.insert(found, Channel(name));
  }
  return *found;
}

Channel* AssociationsImpl::findChannel(const std::string& name) {
  auto found = fChannels.find(name);
  // A stored Channel cannot change its name, so changes through it keep the
  // set's order.
  return found == fChannels.end() ? nullptr : const_cast<Channel*>(&*found);
}

const Channel* AssociationsImpl::findChannel(const std::string& name) const {
  auto found = fChannels.find(name);
  return found == fChannels.end() ? nullptr : &*found;
}

void AssociationsImpl::setChannel(const Channel& channel) {
  // Copy first: channel may be the very value about to be erased.
  Channel stored(channel);
  auto found = fChannels.find(stored.name());
  if (found != fChannels.end()) found = fChannels.erase(found);
  fChannels.insert(found, stored);
}

bool AssociationsImpl::removeChannel(const std::string& name) {
  auto found = fChannels.find(name);
  if (found == fChannels.end()) return false;
  fChannels.erase(found);
  return true;
}

bool AssociationsImpl::renameChannel(const std::string& /*oldName*/,
                                     const std::string& /*newName*/) {
  // A channel's name is fixed by its implementation, which other holders
  // share; an existing channel keeps its name and a missing one has nothing
  // to rename.
  return false;
}

const Channel* AssociationsImpl::nthChannel(unsigned int i) const {
  unsigned int position = 0;
  for (AssociationsIterator it = begin(), last = end(); it != last; ++it, ++position) {
    if (position == i) return &*it;
  }
  return nullptr;
}

AssociationsIterator AssociationsImpl::begin() const { return AssociationsIterator(this, kBegin); }

AssociationsIterator AssociationsImpl::end() const { return AssociationsIterator(this, kEnd); }

// Debug output

bool AssociationsImpl::Debug(const AssociationsImpl* associations, kivo::Debug::Print& print) {
  if (!associations) {
    Detail::printClassStatistics(print, "AssociationsImpl", _objectsCreated, _objectsAlive);
    return true;
  }
  Detail::printLine(print, kTitle);
  if (associations->fChannels.empty()) {
    Detail::printLine(print, kNoChannels);
    return true;
  }
  for (const Channel& channel : associations->fChannels) Channel::Debug(&channel, print);
  return true;
}

bool AssociationsImpl::Debug(const AssociationsImpl* associations,
                             kivo::Debug::Footprint& footprint) {
  if (!associations) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(associations, sizeof(*associations));
  // Each node holds a Channel, which counts itself and its implementation.
  for (const Channel& channel : associations->fChannels) {
    footprint.addMember(&channel, Detail::kTreeNodeLinks);
    Channel::Debug(&channel, footprint);
  }
  return true;
}

}  // namespace kivo::Data
