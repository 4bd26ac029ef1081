#include <kivo/serialize/kivoDataStructureSerializer.h>

#include "serialize/kivoSerializerFamily.h"

namespace kivo::Data {

uint64_t StructureSerializer::_objectsCreated = 0;
uint64_t StructureSerializer::_objectsAlive = 0;
const StructureSerializer* StructureSerializer::_defaultFormat = nullptr;

StructureSerializer::StructureSerializer() {
  ++_objectsCreated;
  ++_objectsAlive;
}

StructureSerializer::~StructureSerializer() { --_objectsAlive; }

StructureSerializer::Formats& StructureSerializer::allFormatsToEdit() {
  static Formats formats;
  return formats;
}

const StructureSerializer::Formats& StructureSerializer::allFormats() { return allFormatsToEdit(); }

void StructureSerializer::registerFormat(const StructureSerializer& format) { allFormatsToEdit().insert(&format); }

void StructureSerializer::deregisterFormat(const StructureSerializer& format) { allFormatsToEdit().erase(&format); }

const StructureSerializer* StructureSerializer::formatByName(const std::string& name) {
  return Detail::formatByName(allFormats(), name);
}

void StructureSerializer::setDefaultFormat(const StructureSerializer* format) { _defaultFormat = format; }

const StructureSerializer* StructureSerializer::defaultFormat() { return _defaultFormat; }

// Debug output

bool StructureSerializer::Debug(const StructureSerializer* format, kivo::Debug::Print& print) {
  return Detail::printFormat(format, _defaultFormat, allFormats(), "StructureSerializer", print);
}

bool StructureSerializer::Debug(const StructureSerializer* format, kivo::Debug::Footprint& footprint) {
  return Detail::countFormat(format, footprint);
}

}  // namespace kivo::Data
