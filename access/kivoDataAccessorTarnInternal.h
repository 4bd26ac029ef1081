// Internal helpers of the scene-file accessors. Shared by the ASCII and the
// binary format: how messages are joined, the names a selective read still
// wants, keeping or dropping a declared structure, and the size and
// modification time that tell a writer whether the file is still the one it
// read. Of the ASCII format: how payloads are escaped in its statements.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace kivo::Data {
class Structure;
}  // namespace kivo::Data

namespace kivo::Detail {

// Appends message to errors, on a line of its own: a newline is put in
// between when errors holds text that does not end with one.
void appendMessage(std::string& errors, const std::string& message);

// The names a read still wants: all of them when no set was given, else a
// copy of the given set from which every name found is erased.
class WantedNames {
 public:
  explicit WantedNames(const std::set<std::string>* names);
  // True when every name is wanted, or when name was still wanted (it is
  // erased, so a second occurrence is not).
  bool take(const std::string& name);
  // True when a set was given.
  bool selective() const { return fSelective; }
  // True when a set was given and every name of it has been found.
  bool exhausted() const { return fSelective && fNames.empty(); }

 private:
  bool fSelective;
  std::set<std::string> fNames;
};

// A structure a file declares: registered in the (isolated) process registry
// when wanted and not equal to one registered already, destroyed otherwise.
void keepStructureIfWanted(std::unique_ptr<Data::Structure> structure, WantedNames& wanted);

// The size and modification time of a file, as stat() saw them.
struct FileStamp {
  bool valid = false;
  uint64_t size = 0;
  int64_t seconds = 0;
  int64_t nanoseconds = 0;

  bool operator==(const FileStamp& other) const {
    return valid == other.valid && size == other.size && seconds == other.seconds &&
           nanoseconds == other.nanoseconds;
  }
  bool operator!=(const FileStamp& other) const { return !(*this == other); }
};

// The stamp of fileName now; not valid when stat() fails.
FileStamp fileStamp(const std::string& fileName);

// Checks, before a write, that fileName is what the accessor last saw
// (stamp, taken at its last successful read or write). False, with a
// message appended to errors, when it never read the file successfully or
// the size or modification time differ.
bool fileUnchanged(const std::string& fileName, const FileStamp& stamp, std::string& errors);

// ASCII statements. A structure text keeps every character but the line
// feed, written as backslash and 'n'.
std::string escapeAsciiStructureText(const std::string& text);
// An associations text, decoded character by character in the current C
// locale (mbrtowc): control characters (below 32, and 127) as a backslash
// and 'n' 'b' 't' 'a' 'f' 'v' 'r' or three octal digits, '"' and '\' behind
// a backslash, every other character copied. A byte that starts no valid
// character is copied alone, so the walk always moves on.
std::string escapeAsciiValue(const std::string& text);
// The one unescaping rule of both payloads: a backslash and 'n' 'b' 't' 'a'
// 'f' 'v' 'r' give their control characters; a backslash and up to three
// octal digits the character of that value (its low eight bits when above
// 255); a backslash and any other character that character; a backslash at
// the very end stands for itself.
std::string unescapeAsciiPayload(const std::string& text);

}  // namespace kivo::Detail
