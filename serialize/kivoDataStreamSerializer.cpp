#include <kivo/serialize/kivoDataStreamSerializer.h>

#include "serialize/kivoSerializerFamily.h"

namespace kivo::Data {

uint64_t StreamSerializer::_objectsCreated = 0;
uint64_t StreamSerializer::_objectsAlive = 0;
const StreamSerializer* StreamSerializer::_defaultFormat = nullptr;

StreamSerializer::StreamSerializer() {
  ++_objectsCreated;
  ++_objectsAlive;
}

StreamSerializer::~StreamSerializer() { --_objectsAlive; }

StreamSerializer::Formats& StreamSerializer::allFormatsToEdit() {
  static Formats formats;
  return formats;
}

const StreamSerializer::Formats& StreamSerializer::allFormats() { return allFormatsToEdit(); }

void StreamSerializer::registerFormat(const StreamSerializer& format) { allFormatsToEdit().insert(&format); }

void StreamSerializer::deregisterFormat(const StreamSerializer& format) { allFormatsToEdit().erase(&format); }

const StreamSerializer* StreamSerializer::formatByName(const std::string& name) {
  return Detail::formatByName(allFormats(), name);
}

void StreamSerializer::setDefaultFormat(const StreamSerializer* format) { _defaultFormat = format; }

const StreamSerializer* StreamSerializer::defaultFormat() { return _defaultFormat; }

// Debug output

bool StreamSerializer::Debug(const StreamSerializer* format, kivo::Debug::Print& print) {
  return Detail::printFormat(format, _defaultFormat, allFormats(), "StreamSerializer", print);
}

bool StreamSerializer::Debug(const StreamSerializer* format, kivo::Debug::Footprint& footprint) {
  return Detail::countFormat(format, footprint);
}

}  // namespace kivo::Data
