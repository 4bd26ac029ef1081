#include <kivo/serialize/kivoDataAssociationsSerializer.h>

#include "serialize/kivoSerializerFamily.h"

namespace kivo::Data {

uint64_t AssociationsSerializer::_objectsCreated = 0;
uint64_t AssociationsSerializer::_objectsAlive = 0;
const AssociationsSerializer* AssociationsSerializer::_defaultFormat = nullptr;

AssociationsSerializer::AssociationsSerializer() {
  ++_objectsCreated;
  ++_objectsAlive;
}

AssociationsSerializer::~AssociationsSerializer() { --_objectsAlive; }

AssociationsSerializer::Formats& AssociationsSerializer::allFormatsToEdit() {
  static Formats formats;
  return formats;
}

const AssociationsSerializer::Formats& AssociationsSerializer::allFormats() { return allFormatsToEdit(); }

void AssociationsSerializer::registerFormat(const AssociationsSerializer& format) { allFormatsToEdit().insert(&format); }

void AssociationsSerializer::deregisterFormat(const AssociationsSerializer& format) { allFormatsToEdit().erase(&format); }

const AssociationsSerializer* AssociationsSerializer::formatByName(const std::string& name) {
  return Detail::formatByName(allFormats(), name);
}

void AssociationsSerializer::setDefaultFormat(const AssociationsSerializer* format) { _defaultFormat = format; }

const AssociationsSerializer* AssociationsSerializer::defaultFormat() { return _defaultFormat; }

// Debug output

bool AssociationsSerializer::Debug(const AssociationsSerializer* format, kivo::Debug::Print& print) {
  return Detail::printFormat(format, _defaultFormat, allFormats(), "AssociationsSerializer", print);
}

bool AssociationsSerializer::Debug(const AssociationsSerializer* format, kivo::Debug::Footprint& footprint) {
  return Detail::countFormat(format, footprint);
}

}  // namespace kivo::Data
