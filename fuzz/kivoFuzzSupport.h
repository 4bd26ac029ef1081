// What every fuzz harness shares: the leak and registry check run around each
// input, the structures the text harnesses find registered, scratch scene
// files, and small helpers that turn objects into their raw text.
//
// A harness defines LLVMFuzzerTestOneInput (and LLVMFuzzerInitialize when it
// needs set-up); the same source links either with libFuzzer or with the
// replay driver (kivoFuzzReplay.cpp), which runs it over corpus files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kivo::Data {
class Associations;
class Channel;
class Stream;
class Structure;
}  // namespace kivo::Data

namespace kivo::Fuzz {

// Stops the process with a message on stderr: the fuzzer (or the replay
// test) reports the input that got here as a finding.
[[noreturn]] void fail(const std::string& what);

// With KIVO_FUZZ_VERBOSE set in the environment, writes what happened to
// the input on stderr (to see what a seed reaches); otherwise nothing.
void note(const std::string& what);

// Checks, when it goes out of scope, that every class's live-object counter
// is back where it was and that the process structure registry holds the
// same structures with the same reference counts and names. Leaks that stay
// reachable (a structure left registered, a reference never dropped) show
// up here even where LeakSanitizer sees nothing. Aborts otherwise.
class LeakCheck {
 public:
  LeakCheck();
  ~LeakCheck();
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;

 private:
  std::vector<uint64_t> fAlive;
  std::vector<std::pair<const Data::Structure*, std::string>> fRegistry;
};

// Registers, once per process, the structures that stream, channel and
// associations texts may name, so that their element lines are reached:
// "all1", "all3" and "all16" hold one member of every type (named after the
// type: "bool", "double", ... "uint64") at that length, and "<type>x1",
// "<type>x3", "<type>x16" hold that one member alone ("int8x3").
void registerTextStructures();

// A scratch file of the process, named with the given extension ("ta",
// "tb"), removed at process exit. write() replaces its content.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& extension);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& name() const { return fName; }
  void write(const uint8_t* data, size_t size) const;
  std::string read() const;

 private:
  std::string fName;
};

// The raw texts of objects; each fails the input when its writer reports an
// error, which a well-formed object never causes.
std::string structureText(const Data::Structure& structure);
std::string streamText(const Data::Stream& stream);
std::string channelText(const Data::Channel& channel);
std::string associationsText(const Data::Associations& associations);

// The input as text.
inline std::string asText(const uint8_t* data, size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace kivo::Fuzz
