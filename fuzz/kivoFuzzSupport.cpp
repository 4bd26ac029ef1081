#include "kivoFuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

#include <kivo/kivo.h>

namespace kivo::Fuzz {
namespace {

using namespace kivo::Data;

struct Counter {
  const char* name;
  const uint64_t* alive;
};

// Every class that counts its live objects.
const Counter kCounters[] = {
    {"Accessor", &Accessor::_objectsAlive},
    {"AccessorFactoryBase", &AccessorFactoryBase::_objectsAlive},
    {"Associations", &Associations::_objectsAlive},
    {"AssociationsImpl", &AssociationsImpl::_objectsAlive},
    {"AssociationsIterator", &AssociationsIterator::_objectsAlive},
    {"AssociationsIteratorImpl", &AssociationsIteratorImpl::_objectsAlive},
    {"AssociationsSerializer", &AssociationsSerializer::_objectsAlive},
    {"Attach", &Attach::_objectsAlive},
    {"AttachDirectly", &AttachDirectly::_objectsAlive},
    {"Channel", &Channel::_objectsAlive},
    {"ChannelImpl", &ChannelImpl::_objectsAlive},
    {"ChannelIterator", &ChannelIterator::_objectsAlive},
    {"ChannelIteratorImpl", &ChannelIteratorImpl::_objectsAlive},
    {"ChannelSerializer", &ChannelSerializer::_objectsAlive},
    {"Checkpointed", &Checkpointed::_objectsAlive},
    {"Handle", &Handle::_objectsAlive},
    {"Index", &Index::_objectsAlive},
    {"IndexPair", &IndexPair::_objectsAlive},
    {"IndexString", &IndexString::_objectsAlive},
    {"IndexType", &IndexType::_objectsAlive},
    {"Member", &Member::_objectsAlive},
    {"RefCounted", &RefCounted::_objectsAlive},
    {"Stream", &Stream::_objectsAlive},
    {"StreamDenseIteratorImpl", &StreamDenseIteratorImpl::_objectsAlive},
    {"StreamImpl", &StreamImpl::_objectsAlive},
    {"StreamImplDense", &StreamImplDense::_objectsAlive},
    {"StreamImplMapped", &StreamImplMapped::_objectsAlive},
    {"StreamIterator", &StreamIterator::_objectsAlive},
    {"StreamIteratorImpl", &StreamIteratorImpl::_objectsAlive},
    {"StreamMappedIteratorImpl", &StreamMappedIteratorImpl::_objectsAlive},
    {"StreamSerializer", &StreamSerializer::_objectsAlive},
    {"Structure", &Structure::_objectsAlive},
    {"StructureIterator", &StructureIterator::_objectsAlive},
    {"StructureSerializer", &StructureSerializer::_objectsAlive},
};

std::vector<std::pair<const Structure*, std::string>> registrySnapshot() {
  std::vector<std::pair<const Structure*, std::string>> entries;
  for (const Structure* s : Structure::allStructures()) {
    // The name and the count together: a reference left behind on a
    // registered structure changes the count, a rename changes the name.
    entries.emplace_back(s, std::string(s->name() ? s->name() : "(null)") + " refs " +
                                std::to_string(s->refCount()));
  }
  return entries;
}

void registerStructure(const std::string& name, const std::vector<Member::eDataType>& types,
                       unsigned int length) {
  std::unique_ptr<Structure> s(new Structure(name.c_str()));
  for (Member::eDataType type : types) {
    if (!s->addMember(type, length, Member::typeName(type))) fail("cannot build " + name);
  }
  if (!Structure::registerStructure(*s)) fail("cannot register " + name);
  s.release();  // the registry holds it now
}

}  // namespace

void fail(const std::string& what) {
  std::fprintf(stderr, "kivo fuzz check failed: %s\n", what.c_str());
  std::fflush(stderr);
  std::abort();
}

void note(const std::string& what) {
  static const bool verbose = std::getenv("KIVO_FUZZ_VERBOSE") != nullptr;
  if (verbose) std::fprintf(stderr, "  %s\n", what.c_str());
}

LeakCheck::LeakCheck() : fRegistry(registrySnapshot()) {
  for (const Counter& c : kCounters) fAlive.push_back(*c.alive);
}

LeakCheck::~LeakCheck() {
  std::string problems;
  for (size_t i = 0; i < fAlive.size(); ++i) {
    if (*kCounters[i].alive != fAlive[i]) {
      problems += std::string(" ") + kCounters[i].name + " alive " + std::to_string(fAlive[i]) +
                  " -> " + std::to_string(*kCounters[i].alive) + ";";
    }
  }
  if (registrySnapshot() != fRegistry) problems += " the structure registry changed;";
  if (!problems.empty()) fail("objects left behind:" + problems);
}

void registerTextStructures() {
  static bool done = false;
  if (done) return;
  done = true;
  std::vector<Member::eDataType> all;
  for (int t = Member::kBoolean; t < static_cast<int>(Member::kInvalidType); ++t) {
    all.push_back(static_cast<Member::eDataType>(t));
  }
  for (unsigned int length : {1u, 3u, 16u}) {
    const std::string suffix = std::to_string(length);
    registerStructure("all" + suffix, all, length);
    for (Member::eDataType type : all) {
      registerStructure(std::string(Member::typeName(type)) + "x" + suffix, {type}, length);
    }
  }
}

ScratchFile::ScratchFile(const std::string& extension) {
  const char* dir = std::getenv("TMPDIR");
  std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/kivo-fuzz-XXXXXX." + extension;
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  int fd = mkstemps(buffer.data(), static_cast<int>(extension.size() + 1));
  if (fd < 0) fail("cannot create a scratch file from " + pattern);
  close(fd);
  fName = buffer.data();
}

ScratchFile::~ScratchFile() { unlink(fName.c_str()); }

void ScratchFile::write(const uint8_t* data, size_t size) const {
  int fd = open(fName.c_str(), O_WRONLY | O_TRUNC);
  if (fd < 0) fail("cannot open " + fName);
  size_t done = 0;
  while (done < size) {
    ssize_t n = ::write(fd, data + done, size - done);
    if (n <= 0) fail("cannot write " + fName);
    done += static_cast<size_t>(n);
  }
  close(fd);
}

std::string ScratchFile::read() const {
  std::ifstream in(fName, std::ios::binary);
  if (!in) fail("cannot read " + fName);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string structureText(const Structure& structure) {
  std::ostringstream out;
  if (StructureSerializerRaw::theFormat()->write(structure, out) != 0) {
    fail("a structure read from text cannot be written");
  }
  return out.str();
}

std::string streamText(const Stream& stream) {
  std::ostringstream out;
  std::string errors;
  if (StreamSerializerRaw::theFormat()->write(stream, out, errors) != 0 || !errors.empty()) {
    fail("a stream read from text cannot be written: " + errors);
  }
  return out.str();
}

std::string channelText(const Channel& channel) {
  std::ostringstream out;
  std::string errors;
  if (ChannelSerializerRaw::theFormat()->write(channel, out, errors) != 0 || !errors.empty()) {
    fail("a channel read from text cannot be written: " + errors);
  }
  return out.str();
}

std::string associationsText(const Associations& associations) {
  std::ostringstream out;
  std::string errors;
  if (AssociationsSerializerRaw::theFormat()->write(associations, out, errors) != 0 ||
      !errors.empty()) {
    fail("associations read from text cannot be written: " + errors);
  }
  return out.str();
}

}  // namespace kivo::Fuzz
