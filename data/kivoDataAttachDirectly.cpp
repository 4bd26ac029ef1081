#include <kivo/data/kivoDataAttachDirectly.h>

#include <memory>

#include <kivo/data/kivoDataAssociations.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kTitle[] = "AttachDirectly";
constexpr char kNoMetadata[] = "No metadata";

}  // namespace

uint64_t AttachDirectly::_objectsCreated = 0;
uint64_t AttachDirectly::_objectsAlive = 0;

AttachDirectly::AttachDirectly() {
  ++_objectsCreated;
  ++_objectsAlive;
}

AttachDirectly::AttachDirectly(const AttachDirectly& other)
    : Attach(other), fMetadata(std::make_unique<Associations>(other.fMetadata.get())) {
  ++_objectsCreated;
  ++_objectsAlive;
}

AttachDirectly& AttachDirectly::operator=(const AttachDirectly& other) {
  if (this != &other) {
    Attach::operator=(other);
    fMetadata = std::make_unique<Associations>(other.fMetadata.get());
  }
  return *this;
}

AttachDirectly::~AttachDirectly() { --_objectsAlive; }

Associations* AttachDirectly::editableMetadata() { return fMetadata.get(); }

const Associations* AttachDirectly::metadata() const { return fMetadata.get(); }

bool AttachDirectly::setMetadata(const Associations& metadata) {
  if (&metadata != fMetadata.get()) fMetadata = std::make_unique<Associations>(&metadata);
  return true;
}

bool AttachDirectly::deleteMetadata() {
  fMetadata.reset();
  return true;
}

// Debug output

bool AttachDirectly::Debug(const AttachDirectly* attach, kivo::Debug::Print& print) {
  if (!attach) {
    Detail::printClassStatistics(print, "AttachDirectly", _objectsCreated, _objectsAlive);
    return true;
  }
  print.beginSection(kTitle);
  if (attach->fMetadata) {
    Associations::Debug(attach->fMetadata.get(), print);
  } else {
    Detail::printLine(print, kNoMetadata);
  }
  print.endSection();
  return true;
}

bool AttachDirectly::Debug(const AttachDirectly* attach, kivo::Debug::Footprint& footprint) {
  if (!attach) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(attach, sizeof(*attach));
  return attach->fMetadata ? Associations::Debug(attach->fMetadata.get(), footprint) : true;
}

}  // namespace kivo::Data
