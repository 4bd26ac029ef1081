#include <kivo/data/kivoDataAssociations.h>

#include <memory>
#include <string>

#include <kivo/data/kivoDataAssociationsImpl.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"

namespace kivo::Data {

uint64_t Associations::_objectsCreated = 0;
uint64_t Associations::_objectsAlive = 0;

// The counters move only once nothing can throw any more.
Associations::Associations() {
  attach(new AssociationsImpl());
  ++_objectsCreated;
  ++_objectsAlive;
}

Associations* Associations::create() { return new Associations(); }

Associations::Associations(const Associations* other) {
  attach(other ? other->fImpl : new AssociationsImpl());
  ++_objectsCreated;
  ++_objectsAlive;
}

Associations::Associations(const Associations& other) {
  ++_objectsCreated;
  ++_objectsAlive;
  attach(other.fImpl);
}

Associations& Associations::operator=(const Associations& other) {
  attach(other.fImpl);
  return *this;
}

Associations::~Associations() {
  --_objectsAlive;
  fImpl->unref();
}

bool Associations::makeUnique() {
  if (!fImpl->isShared()) return false;
  auto copy = std::make_unique<AssociationsImpl>(*fImpl);
  const bool madeUnique = copy->makeUnique();
  attach(copy.release());
  return madeUnique;
}

Channel Associations::channel(const std::string& name) { return fImpl->channel(name); }

Channel* Associations::findChannel(const std::string& name) { return fImpl->findChannel(name); }

const Channel* Associations::findChannel(const std::string& name) const {
  return static_cast<const AssociationsImpl*>(fImpl)->findChannel(name);
}

void Associations::setChannel(const Channel& channel) { fImpl->setChannel(channel); }

bool Associations::removeChannel(const std::string& name) { return fImpl->removeChannel(name); }

bool Associations::renameChannel(const std::string& oldName, const std::string& newName) {
  return fImpl->renameChannel(oldName, newName);
}

const Channel* Associations::operator[](unsigned int i) const { return fImpl->nthChannel(i); }

Channel Associations::channelAt(unsigned int i) const {
  const Channel* channel = fImpl->nthChannel(i);
  return channel ? *channel : Channel();
}

unsigned int Associations::channelCount() const { return fImpl->channelCount(); }

bool Associations::empty() const { return fImpl->empty(); }

AssociationsIterator Associations::begin() const { return fImpl->begin(); }

AssociationsIterator Associations::end() const { return fImpl->end(); }

void Associations::attach(AssociationsImpl* impl) {
  impl->ref();
  if (fImpl) fImpl->unref();
  fImpl = impl;
}

// Debug output

bool Associations::Debug(const Associations* associations, kivo::Debug::Print& print) {
  if (!associations) {
    Detail::printClassStatistics(print, "Associations", _objectsCreated, _objectsAlive);
    return true;
  }
  return AssociationsImpl::Debug(associations->fImpl, print);
}

bool Associations::Debug(const Associations* associations, kivo::Debug::Footprint& footprint) {
  if (!associations) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(associations, sizeof(*associations));
  return AssociationsImpl::Debug(associations->fImpl, footprint);
}

}  // namespace kivo::Data
