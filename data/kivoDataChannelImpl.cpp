#include <kivo/data/kivoDataChannelImpl.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <kivo/data/kivoDataChannelIterator.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "support/kivoClassStatistics.h"
#include "support/kivoDebugParts.h"
#include "support/kivoPrintLine.h"

namespace kivo::Data {
namespace {

constexpr char kDefaultName[] = "Unnamed";
constexpr char kNullStream[] = "Null Stream found in Channel.";
constexpr char kChannelTitle[] = "Channel ";
constexpr char kStreamTitle[] = "Stream ";
constexpr char kEmptyChannel[] = "Empty Channel";

// Deletes the Stream objects of a set that is being dropped.
void deleteAll(ChannelImpl::StreamSet& streams) {
  for (Stream* stream : streams) delete stream;
  streams.clear();
}

}  // namespace

uint64_t ChannelImpl::_objectsCreated = 0;
uint64_t ChannelImpl::_objectsAlive = 0;

bool ChannelImpl::StreamCompare::operator()(const Stream* a, const Stream* b) const {
  if (!a || !b) throw std::invalid_argument(kNullStream);
  return a->name() < b->name();
}

ChannelImpl::ChannelImpl() : ChannelImpl(kDefaultName) {}

ChannelImpl::ChannelImpl(const std::string& name) : fName(name) {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelImpl::ChannelImpl(const ChannelImpl& other)
    : RefCounted(other),
      kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Print>(other),
      kivo::Debug::CRTP_Debug<ChannelImpl, kivo::Debug::Footprint>(other),
      fName(other.fName) {
  try {
    for (const Stream* stream : other.fStreams) insertCopy(*stream);
  } catch (...) {
    deleteAll(fStreams);
    throw;
  }
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelImpl& ChannelImpl::operator=(const ChannelImpl& other) {
  if (this == &other) return *this;
  fName = other.fName;
  for (const Stream* stream : other.fStreams) insertCopy(*stream);
  return *this;
}

ChannelImpl::~ChannelImpl() {
  --_objectsAlive;
  deleteStreams();
}

bool ChannelImpl::makeUnique() {
  StreamSet unique;
  bool cloned = false;
  try {
    for (const Stream* stream : fStreams) {
      auto copy = std::make_unique<Stream>(*stream);
      if (copy->makeUnique()) cloned = true;
      if (unique.insert(copy.get()).second) copy.release();
    }
  } catch (...) {
    deleteAll(unique);
    throw;
  }
  deleteStreams();
  fStreams.swap(unique);
  return cloned;
}

Stream* ChannelImpl::setDataStream(const Stream& stream) {
  auto found = fStreams.find(const_cast<Stream*>(&stream));
  if (found != fStreams.end()) {
    if (*found == &stream) return *found;
    std::unique_ptr<Stream> replaced(*found);
    fStreams.erase(found);
  }
  return insertCopy(stream);
}

Stream* ChannelImpl::findDataStream(const std::string& name) {
  auto found = findByName(name);
  return found == fStreams.end() ? nullptr : *found;
}

const Stream* ChannelImpl::findDataStream(const std::string& name) const {
  auto found = findByName(name);
  return found == fStreams.end() ? nullptr : *found;
}

bool ChannelImpl::removeDataStream(const std::string& name) {
  auto found = findByName(name);
  if (found == fStreams.end()) return false;
  std::unique_ptr<Stream> removed(*found);
  fStreams.erase(found);
  return true;
}

bool ChannelImpl::renameDataStream(const std::string& oldName, const std::string& newName) {
  auto found = findByName(oldName);
  if (found == fStreams.end()) return false;
  std::unique_ptr<Stream> renamed(*found);
  fStreams.erase(found);
  renamed->setName(newName);
  // When newName is taken the stream stays out of the set and is deleted
  // here; its implementation keeps the new name for its other holders.
  if (!fStreams.insert(renamed.get()).second) return false;
  renamed.release();
  return true;
}

const Stream* ChannelImpl::dataStream(unsigned int i) const {
  unsigned int position = 0;
  for (ChannelIterator it = begin(), last = end(); it != last; ++it, ++position) {
    if (position == i) return *it;
  }
  return nullptr;
}

bool ChannelImpl::addElement(const Index& index) {
  const std::string type = index.typeName();
  bool accepted = false;
  for (Stream* stream : fStreams) {
    if (stream->indexType() != type) continue;
    const Handle noData(stream->structure(), nullptr);
    if (stream->setElement(index, noData)) accepted = true;
  }
  return accepted;
}

bool ChannelImpl::removeElement(const Index& index) {
  const std::string type = index.typeName();
  for (Stream* stream : fStreams) {
    if (stream->indexType() == type) stream->removeElement(index);
  }
  return false;
}

ChannelIterator ChannelImpl::begin() const { return ChannelIterator(this, kBegin); }

ChannelIterator ChannelImpl::end() const { return ChannelIterator(this, kEnd); }

ChannelImpl::StreamSet::const_iterator ChannelImpl::findByName(const std::string& name) const {
  // A linear scan: a stream renamed through another holder of its
  // implementation may no longer sit where its name would sort.
  for (auto it = fStreams.begin(); it != fStreams.end(); ++it) {
    if ((*it)->name() == name) return it;
  }
  return fStreams.end();
}

Stream* ChannelImpl::insertCopy(const Stream& stream) {
  auto copy = std::make_unique<Stream>(stream);
  if (!fStreams.insert(copy.get()).second) return nullptr;
  return copy.release();
}

void ChannelImpl::deleteStreams() { deleteAll(fStreams); }

// Debug output

bool ChannelImpl::Debug(const ChannelImpl* channel, kivo::Debug::Print& print) {
  if (!channel) {
    Detail::printClassStatistics(print, "ChannelImpl", _objectsCreated, _objectsAlive);
    return true;
  }
  print.beginSection((kChannelTitle + channel->fName).c_str());
  if (channel->fStreams.empty()) Detail::printLine(print, kEmptyChannel);
  for (const Stream* stream : channel->fStreams) {
    print.beginSection((kStreamTitle + stream->name()).c_str());
    Stream::Debug(stream, print);
    print.endSection();
  }
  print.endSection();
  return true;
}

bool ChannelImpl::Debug(const ChannelImpl* channel, kivo::Debug::Footprint& footprint) {
  if (!channel) {
    Detail::addClassStatistics(footprint, _objectsCreated, _objectsAlive);
    return true;
  }
  footprint.addObject(channel, sizeof(*channel));
  Detail::addStringText(footprint, channel->fName);
  // Each node holds a pointer to a Stream object the channel owns.
  for (Stream* const& stream : channel->fStreams) {
    footprint.addMember(&stream, Detail::kTreeNodeLinks + sizeof(stream));
    Stream::Debug(stream, footprint);
  }
  return true;
}

}  // namespace kivo::Data
