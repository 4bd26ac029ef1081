#include <kivo/data/kivoDataChannel.h>

#include <memory>
#include <string>

#include <kivo/data/kivoDataChannelImpl.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {

uint64_t Channel::_objectsCreated = 0;
uint64_t Channel::_objectsAlive = 0;

// The counters move only once nothing can throw any more.
Channel::Channel() {
  attach(new ChannelImpl());
  ++_objectsCreated;
  ++_objectsAlive;
}

Channel::Channel(const std::string& name) {
  attach(new ChannelImpl(name));
  ++_objectsCreated;
  ++_objectsAlive;
}

Channel::Channel(const Channel& other) {
  ++_objectsCreated;
  ++_objectsAlive;
  attach(other.fImpl);
}

Channel& Channel::operator=(const Channel& other) {
  attach(other.fImpl);
  return *this;
}

Channel::~Channel() {
  --_objectsAlive;
  fImpl->unref();
}

bool Channel::makeUnique() {
  if (!fImpl->isShared()) return false;
  auto copy = std::make_unique<ChannelImpl>(*fImpl);
  const bool cloned = copy->makeUnique();
  attach(copy.release());
  return cloned;
}

const std::string& Channel::name() const { return fImpl->name(); }

Stream* Channel::setDataStream(const Stream& stream) { return fImpl->setDataStream(stream); }

Stream* Channel::dataStream(const std::string& name) { return fImpl->findDataStream(name); }

Stream* Channel::findDataStream(const std::string& name) { return fImpl->findDataStream(name); }

const Stream* Channel::findDataStream(const std::string& name) const {
  return static_cast<const ChannelImpl*>(fImpl)->findDataStream(name);
}

bool Channel::removeDataStream(const std::string& name) { return fImpl->removeDataStream(name); }

bool Channel::renameDataStream(const std::string& oldName, const std::string& newName) {
  return fImpl->renameDataStream(oldName, newName);
}

const Stream* Channel::dataStream(unsigned int i) const { return fImpl->dataStream(i); }

unsigned int Channel::dataStreamCount() const { return fImpl->dataStreamCount(); }

bool Channel::empty() const { return fImpl->empty(); }

bool Channel::addElement(const Index& index) { return fImpl->addElement(index); }

bool Channel::removeElement(const Index& index) { return fImpl->removeElement(index); }

ChannelIterator Channel::begin() const { return fImpl->begin(); }

ChannelIterator Channel::end() const { return fImpl->end(); }

void Channel::attach(ChannelImpl* impl) {
  impl->ref();
  if (fImpl) fImpl->unref();
  fImpl = impl;
}

// Debug output

bool Channel::Debug(const Channel* channel, kivo::Debug::Print& print) {
  if (!channel) {
    Detail::printClassStatistics(print, "Channel", _objectsCreated, _objectsAlive);
    return true;
  }
  return ChannelImpl::Debug(channel->fImpl, print);
}

bool Channel::Debug(const Channel* channel, kivo::Debug::Footprint& footprint) {
  if (!channel) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(channel, sizeof(*channel));
  return ChannelImpl::Debug(channel->fImpl, footprint);
}

}  // namespace kivo::Data
