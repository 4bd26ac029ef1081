#include <kivo/access/kivoDataAccessor.h>

#include <cxxabi.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include <kivo/data/kivoDataStructure.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include "access/kivoDataAccessorTarnInternal.h"
#include "access/kivoSceneFile.h"
#include "support/kivoPrintLine.h"
#include "support/kivoReadAllowance.h"

namespace kivo::Data {
namespace {

constexpr char kNullStructure[] = "Null Structure found in StructureSet.";
constexpr char kDoesNotImplement[] = " does not implement ";
constexpr char kNoFactory[] = "No factory registered for type of file ";

using FactoryRegistry = std::unordered_map<std::string, AccessorFactoryBase*>;

// The extension registry, created on first use (by the first factory built at
// load) and destroyed at process exit, after every factory built before it
// was made.
FactoryRegistry& factories() {
  static FactoryRegistry registry = [] {
    FactoryRegistry fresh(16);
    fresh.max_load_factor(1.0f);
    return fresh;
  }();
  return registry;
}

// The size of the file named, 0 when it cannot be known.
uint64_t fileBytes(const std::string& fileName) {
  struct stat status {};
  return ::stat(fileName.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// Lower-cases ASCII letters only, byte by byte.
std::string lowerCased(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// The class name of an object, demangled when the runtime can; a leading
// '*' of the raw name is dropped.
std::string typeName(const std::type_info& type) {
  const char* raw = type.name();
  if (*raw == '*') ++raw;
  int status = 0;
  char* demangled = abi::__cxa_demangle(raw, nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled) ? demangled : raw;
  std::free(demangled);
  return name;
}

void unrefAll(const Accessor::StructureSet& structures) {
  for (const Structure* structure : structures) structure->unref();
}

}  // namespace

struct Accessor::State {
  std::string fileName;
  StructureSet structures;
  AssociationsMap associations;
  // Structures an earlier read() took out of the set without releasing them;
  // one entry per reference held, released at destruction.
  std::vector<const Structure*> retired;
  bool cleanRewrite = false;
  bool holdForWrite = false;
  unsigned lockWait = 10000;
  bool syncWrites = true;
  // The file a read holds for writing, locked exclusively.
  std::shared_ptr<Detail::SceneFile> held;
};

uint64_t Accessor::_objectsCreated = 0;
uint64_t Accessor::_objectsAlive = 0;
uint64_t AccessorFactoryBase::_objectsCreated = 0;
uint64_t AccessorFactoryBase::_objectsAlive = 0;

bool Accessor::StructureNameLessThan::operator()(const Structure* a, const Structure* b) const {
  if (!a || !b) throw std::invalid_argument(kNullStructure);
  // A structure always has a name: setName(nullptr) gives it the default one.
  return std::strcmp(a->name(), b->name()) < 0;
}

Accessor::Accessor() : fState(std::make_unique<State>()) {
  ++_objectsCreated;
  ++_objectsAlive;
}

Accessor::~Accessor() {
  unrefAll(fState->structures);
  for (const Structure* structure : fState->retired) structure->unref();
  --_objectsAlive;
}

bool Accessor::write(std::string& errors) const {
  Detail::appendMessage(errors, typeName(typeid(*this)) + kDoesNotImplement + "write");
  return false;
}

bool Accessor::isFileSupported(const std::string&) const { return true; }

std::unique_ptr<Accessor> Accessor::accessorByExtension(const std::string& fileNameOrExtension) {
  const size_t dot = fileNameOrExtension.rfind('.');
  if (dot != std::string::npos && dot + 1 == fileNameOrExtension.size()) return nullptr;
  const std::string extension = lowerCased(
      dot == std::string::npos ? fileNameOrExtension : fileNameOrExtension.substr(dot + 1));
  const FactoryRegistry& registry = factories();
  const auto found = registry.find(extension);
  if (found == registry.end()) return nullptr;
  return found->second->create();
}

std::set<std::string> Accessor::supportedExtensions() {
  std::set<std::string> extensions;
  for (const auto& entry : factories()) extensions.insert(entry.first);
  return extensions;
}

std::unique_ptr<Accessor> Accessor::readFile(const std::string& fileName, std::string& errors) {
  std::unique_ptr<Accessor> accessor = accessorByExtension(fileName);
  if (!accessor) {
    Detail::appendMessage(errors, kNoFactory + ("\"" + fileName + "\""));
    return nullptr;
  }
  if (!accessor->read(fileName, errors)) return nullptr;
  return accessor;
}

bool Accessor::read(const std::string& fileName, const std::set<std::string>* structureNames,
                    const std::set<std::string>* associationsNames, std::string& errors) {
  Detail::IsolatedRegistry isolated;
  State& state = *fState;
  // The structures of an earlier read stay alive: pointers to them may have
  // been handed out. Their references move to the retired list.
  state.retired.reserve(state.retired.size() + state.structures.size());
  state.retired.insert(state.retired.end(), state.structures.begin(), state.structures.end());
  state.structures.clear();
  state.associations.clear();
  state.fileName = fileName;
  Detail::ReadAllowance allowance(fileBytes(fileName));

  bool result = false;
  try {
    result = performRead(structureNames, associationsNames, errors);
    if (result) {
      // Every structure now registered is one the file declared and the
      // read wanted. Of several with one name the set keeps the first.
      StructureSet declared;
      for (const Structure* structure : Structure::allStructures()) declared.insert(structure);
      for (const Structure* structure : declared) structure->ref();
      unrefAll(state.structures);
      state.structures.swap(declared);
    } else {
      clear();
      unlock();
    }
  } catch (...) {
    clear();
    unlock();
    throw;
  }
  return result;
}

bool Accessor::read(const std::string& fileName, std::string& errors) {
  return read(fileName, nullptr, nullptr, errors);
}

const std::string& Accessor::fileName() const { return fState->fileName; }

const Accessor::StructureSet& Accessor::structures() const { return fState->structures; }

const Accessor::AssociationsMap& Accessor::associations() const { return fState->associations; }

Accessor::AssociationsMap& Accessor::associations() { return fState->associations; }

void Accessor::setStructures(const StructureSet& s) {
  if (&s == &fState->structures) return;
  StructureSet copy(s);
  for (const Structure* structure : copy) structure->ref();
  unrefAll(fState->structures);
  fState->structures.swap(copy);
}

void Accessor::clear() {
  setStructures(StructureSet());
  fState->associations.clear();
}

void Accessor::setCleanRewrite(bool clean) { fState->cleanRewrite = clean; }

bool Accessor::cleanRewrite() const { return fState->cleanRewrite; }

void Accessor::setHoldForWrite(bool hold) {
  fState->holdForWrite = hold;
  if (!hold) unlock();
}

bool Accessor::holdsForWrite() const { return fState->holdForWrite; }

void Accessor::unlock() { fState->held.reset(); }

void Accessor::setLockWait(unsigned milliseconds) { fState->lockWait = milliseconds; }

unsigned Accessor::lockWait() const { return fState->lockWait; }

void Accessor::setSyncWrites(bool sync) { fState->syncWrites = sync; }

bool Accessor::syncWrites() const { return fState->syncWrites; }

std::string Accessor::journalName(const std::string& fileName) {
  return Detail::journalPath(fileName);
}

Accessor::eRecovery Accessor::recoverFile(const std::string& fileName, std::string& errors,
                                          unsigned waitMilliseconds) {
  switch (Detail::SceneFile::recover(fileName, waitMilliseconds, errors)) {
    case Detail::eRecovery::kNothing: return kNothingToRecover;
    case Detail::eRecovery::kRolledBack: return kRolledBack;
    case Detail::eRecovery::kIncompleteRemoved: return kIncompleteJournalRemoved;
    case Detail::eRecovery::kFailed: break;
  }
  return kRecoveryFailed;
}

std::shared_ptr<Detail::SceneFile> Accessor::sceneFile(bool forWrite,
                                                       const std::string& openFailure,
                                                       std::string& errors,
                                                       int* openError) const {
  State& state = *fState;
  if (openError) *openError = 0;
  if (state.held && state.held->fileName() == state.fileName) return state.held;
  state.held.reset();
  const bool exclusive = forWrite || state.holdForWrite;
  std::shared_ptr<Detail::SceneFile> file = Detail::SceneFile::open(
      state.fileName,
      exclusive ? Detail::SceneFile::eLock::kExclusive : Detail::SceneFile::eLock::kShared,
      state.lockWait, openFailure, errors, openError);
  if (file && !forWrite && state.holdForWrite) state.held = file;
  return file;
}

AccessorFactoryBase::AccessorFactoryBase(const std::string& extension) {
  factories().emplace(lowerCased(extension), this);
  // Counted once nothing can throw: a failed construction runs no destructor.
  ++_objectsCreated;
  ++_objectsAlive;
}

AccessorFactoryBase::~AccessorFactoryBase() {
  FactoryRegistry& registry = factories();
  for (auto entry = registry.begin(); entry != registry.end();) {
    if (entry->second == this) {
      entry = registry.erase(entry);
    } else {
      ++entry;
    }
  }
  --_objectsAlive;
}

// Debug output

bool Accessor::Debug(const Accessor* accessor, kivo::Debug::Print& print) {
  if (!accessor) {
    print.beginSection("kivo::Data::Accessor Static Data");
    Detail::printLine(print, "Accessors created = " + std::to_string(_objectsCreated) +
                                 ", alive = " + std::to_string(_objectsAlive));
    std::string extensions = "Registered extensions =";
    for (const std::string& extension : supportedExtensions()) extensions += " " + extension;
    Detail::printLine(print, extensions);
    print.endSection();
    return true;
  }
  const State& state = *accessor->fState;
  Detail::printLine(print, "Accessor for file '" + state.fileName + "'");
  std::string structures = "Structures (" + std::to_string(state.structures.size()) + ")";
  for (const Structure* structure : state.structures)
    structures += std::string(" '") + structure->name() + "'";
  Detail::printLine(print, structures);
  std::string associations = "Associations (" + std::to_string(state.associations.size()) + ")";
  for (const auto& entry : state.associations) associations += " '" + entry.first + "'";
  Detail::printLine(print, associations);
  return true;
}

bool Accessor::Debug(const Accessor* accessor, kivo::Debug::Footprint& footprint) {
  if (!accessor) return true;
  footprint.addObject(accessor, sizeof(Accessor));
  footprint.addMember(accessor->fState.get(), sizeof(State));
  for (const auto& entry : accessor->fState->associations)
    Associations::Debug(&entry.second, footprint);
  return true;
}

bool AccessorFactoryBase::Debug(const AccessorFactoryBase* factory, kivo::Debug::Print& print) {
  if (!factory) {
    Detail::printLine(print, "Accessor factories created = " + std::to_string(_objectsCreated) +
                                 ", alive = " + std::to_string(_objectsAlive));
    return true;
  }
  std::string line = "Accessor factory for";
  for (const auto& entry : factories()) {
    if (entry.second == factory) line += " '" + entry.first + "'";
  }
  Detail::printLine(print, line);
  return true;
}

bool AccessorFactoryBase::Debug(const AccessorFactoryBase* factory,
                                kivo::Debug::Footprint& footprint) {
  if (factory) footprint.addObject(factory, sizeof(AccessorFactoryBase));
  return true;
}

}  // namespace kivo::Data
