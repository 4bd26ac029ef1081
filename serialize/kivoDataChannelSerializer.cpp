#include <kivo/serialize/kivoDataChannelSerializer.h>

#include "serialize/kivoSerializerFamily.h"

namespace kivo::Data {

uint64_t ChannelSerializer::_objectsCreated = 0;
uint64_t ChannelSerializer::_objectsAlive = 0;
const ChannelSerializer* ChannelSerializer::_defaultFormat = nullptr;

ChannelSerializer::ChannelSerializer() {
  ++_objectsCreated;
  ++_objectsAlive;
}

ChannelSerializer::~ChannelSerializer() { --_objectsAlive; }

ChannelSerializer::Formats& ChannelSerializer::allFormatsToEdit() {
  static Formats formats;
  return formats;
}

const ChannelSerializer::Formats& ChannelSerializer::allFormats() { return allFormatsToEdit(); }

void ChannelSerializer::registerFormat(const ChannelSerializer& format) { allFormatsToEdit().insert(&format); }

void ChannelSerializer::deregisterFormat(const ChannelSerializer& format) { allFormatsToEdit().erase(&format); }

const ChannelSerializer* ChannelSerializer::formatByName(const std::string& name) {
  return Detail::formatByName(allFormats(), name);
}

void ChannelSerializer::setDefaultFormat(const ChannelSerializer* format) { _defaultFormat = format; }

const ChannelSerializer* ChannelSerializer::defaultFormat() { return _defaultFormat; }

// Debug output

bool ChannelSerializer::Debug(const ChannelSerializer* format, kivo::Debug::Print& print) {
  return Detail::printFormat(format, _defaultFormat, allFormats(), "ChannelSerializer", print);
}

bool ChannelSerializer::Debug(const ChannelSerializer* format, kivo::Debug::Footprint& footprint) {
  return Detail::countFormat(format, footprint);
}

}  // namespace kivo::Data
