#include <kivo/serialize/kivoDataStreamSerializerRaw.h>

#include <charconv>
#include <cstring>
#include <istream>
#include <limits>
#include <locale>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <typeinfo>
#include <vector>

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImplMapped.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataSerializerInitializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>

#include "data/kivoStreamAccess.h"
#include "serialize/kivoRawText.h"
#include "serialize/kivoRawValues.h"
#include "support/kivoFastText.h"
#include "support/kivoMessages.h"
#include "support/kivoReadAllowance.h"

namespace kivo::Data {
namespace {

using Raw = SerializerRaw;

// Bytes of formatted records collected before they go to the output.
constexpr size_t kWriteBuffer = size_t(1) << 16;

std::string invalidType(Member::eDataType type) {
  return "Invalid type " + std::to_string(static_cast<unsigned int>(type)) + " in structure.\n";
}
std::string creatorNotFound(const std::string& type) {
  return "Creator for index type '" + type + "' not found\n";
}
std::string structureNotFound(const std::string& name) {
  return "Structure '" + name + "' not found\n";
}
std::string beforeStreamName(unsigned int record) {
  return "Index data encountered before Stream name specified at record " +
         std::to_string(record) + "\n";
}
std::string beforeStructureName(unsigned int record) {
  return "Index data encountered before Structure name specified at record " +
         std::to_string(record) + "\n";
}
std::string illegalIndex(const std::string& line, std::istream& input, int code,
                         const std::string& type) {
  return "Value '" + line + "'" + Detail::onOrAbout(Detail::inputPosition(input)) +
         " is not a legal index (code " + std::to_string(code) + ") of type " + type + "\n";
}
std::string couldNotAdd(const Index& index) {
  return "Could not add element at index " + index.asString() + "\n";
}
// A line the 1024-byte buffer cannot hold, and input that ends before the
// terminator, both fail the read: the rest of the stream would be lost.
std::string lineTooLong(unsigned int record) {
  return "Line at record " + std::to_string(record) + " is longer than " +
         std::to_string(Detail::kLineBuffer - 1) + " characters\n";
}
std::string missingEnd(unsigned int record) {
  return std::string("Missing '") + Raw::keyword(Raw::kEndStream) + "' after record " +
         std::to_string(record) + "\n";
}

// What a keyword line carries after its keyword, trimmed.
std::string restAfter(const std::string& line, const char* keyword) {
  std::string rest = line.substr(std::strlen(keyword));
  return Raw::collapseWhitespace(rest);
}

bool startsWith(const std::string& line, const char* keyword) {
  return line.compare(0, std::strlen(keyword), keyword) == 0;
}

// ---- Fast paths ----
//
// Writing formats whole records into a buffer with to_chars, reading parses
// whole data lines with from_chars. Both are taken only where they give the
// stream code's bytes, values and messages exactly; everything else goes
// through the stream code.

// Output that the fast writer reproduces: default flags, width 0, a
// precision to_chars serves, a standard number formatter with "." and no
// grouping, no exceptions and no tied stream to flush.
bool plainOutput(std::ostream& output) {
  if (Detail::streamTextOnly() || !output.good() || !output.rdbuf()) return false;
  if ((output.flags() & ~std::ios_base::skipws) != std::ios_base::dec) return false;
  if (output.width() != 0 || output.precision() < 0 ||
      output.precision() > Detail::kMaxFastPrecision)
    return false;
  if (output.exceptions() != std::ios_base::goodbit || output.tie()) return false;
  const std::locale locale = output.getloc();
  if (locale == std::locale::classic()) return true;
  const std::numpunct<char>& punctuation = std::use_facet<std::numpunct<char>>(locale);
  const std::num_put<char>& formatter = std::use_facet<std::num_put<char>>(locale);
  return punctuation.grouping().empty() && punctuation.decimal_point() == '.' &&
         typeid(formatter) == typeid(std::num_put<char>);
}

// Input that the fast reader may read ahead of and return to: decimal
// integers, the classic locale, no exceptions.
bool plainInput(std::istream& input) {
  if (Detail::streamTextOnly()) return false;
  return (input.flags() & std::ios_base::basefield) == std::ios_base::dec &&
         input.exceptions() == std::ios_base::goodbit && input.getloc() == std::locale::classic();
}

// Hands the buffer to the output; a short write marks the output bad, as a
// failed insertion would.
void flushTo(std::ostream& output, std::string& buffer) {
  if (buffer.empty()) return;
  const std::streamsize size = static_cast<std::streamsize>(buffer.size());
  try {
    if (output.rdbuf()->sputn(buffer.data(), size) != size) output.setstate(std::ios_base::badbit);
  } catch (...) {
    output.setstate(std::ios_base::badbit);
  }
  buffer.clear();
}

struct MemberLayout {
  Member::eDataType type;
  uint64_t offset;
  unsigned int length;
};

// Type, offset and length of every member; false when a type has no text.
bool layoutOf(const Structure& structure, std::vector<MemberLayout>& layout) {
  for (StructureIterator member = structure.begin(); member.valid(); ++member) {
    const Member::eDataType type = Member::type(&*member);
    if (type >= Member::kInvalidType) return false;
    layout.push_back({type, Member::offset(&*member), Member::length(&*member)});
  }
  return true;
}

// A numeric index line in strict form: digits only, within 32 bits.
bool strictNumericIndex(const std::string& line, Index& index) {
  unsigned int value = 0;
  const char* const end = line.data() + line.size();
  if (line.empty() || !Detail::isDigit(line[0])) return false;
  const std::from_chars_result result = std::from_chars(line.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) return false;
  index = Index(value);
  return true;
}

// One stream read: the header, then the elements up to the terminator.
class StreamReader {
 public:
  explicit StreamReader(std::istream& input) : fInput(input) {}
  ~StreamReader() {
    if (Detail::ReadAllowance* allowance = Detail::ReadAllowance::current()) {
      allowance->giveBack(fWorking);
    }
  }
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

  Stream* read(std::string& errors) {
    std::unique_ptr<Stream> stream;
    if (readHeader() && allowed(false)) stream = makeStream();
    fFast = stream && plainInput(fInput) && layoutOf(*fStructure, fLayout);
    if (stream) readElements(*stream);
    if (fCount == 0) return stream.release();
    fMessages += Detail::errorSummary(fCount, " found, Stream not created") + "\n";
    errors = fMessages;
    return nullptr;
  }

 private:
  void record(const std::string& message) {
    fMessages += message;
    ++fCount;
  }

  // Reads the next line into fLine; false, with a message when the line was
  // too long, when there is none.
  bool nextLine() {
    const Detail::LineRead result = Detail::readLine(fInput, fLine);
    if (result == Detail::LineRead::kLine) {
      ++fRecord;
      return true;
    }
    if (result == Detail::LineRead::kTooLong) {
      fTooLong = true;
      record(lineTooLong(fRecord + 1));
    }
    return false;
  }

  // Name, index type and structure lines, in any order; keywords match as
  // prefixes. Leaves the first index line in fLine (fPending). False when
  // reading has to end.
  bool readHeader() {
    while (nextLine()) {
      if (fLine.empty()) continue;
      if (!fNamed && startsWith(fLine, Raw::keyword(Raw::kStreamName))) {
        fName = restAfter(fLine, Raw::keyword(Raw::kStreamName));
        fNamed = true;
      } else if (!fTyped && startsWith(fLine, Raw::keyword(Raw::kIndexType))) {
        fIndexType = restAfter(fLine, Raw::keyword(Raw::kIndexType));
        fTyped = true;
        try {
          fCreator = Index::creator(fIndexType);
        } catch (Index::eCreationErrors) {
          record(creatorNotFound(fIndexType));
          break;
        }
      } else if (fStructure) {
        fPending = true;
        break;
      } else if (startsWith(fLine, Raw::keyword(Raw::kStructure))) {
        const std::string name = restAfter(fLine, Raw::keyword(Raw::kStructure));
        fStructure = Structure::structureByName(name.c_str());
        if (!fStructure) record(structureNotFound(name));
      } else {
        fPending = true;
        break;
      }
    }
    if (fTooLong) return false;
    if (!fNamed) {
      record(beforeStreamName(fRecord));
      return false;
    }
    if (!fStructure) {
      record(beforeStructureName(fRecord));
      return false;
    }
    return true;
  }

  // Counts the structure's default element (workingElement false) or the
  // element the data lines are read into (true) against the allowance of
  // the scene-file read in progress, if any; false, with a message naming
  // the structure, when it does not fit.
  bool allowed(bool workingElement) {
    Detail::ReadAllowance* allowance = Detail::ReadAllowance::current();
    if (!allowance) return true;
    const uint64_t size = fStructure->totalSize();
    if (workingElement ? allowance->take(size) : allowance->takeDefaultElement(fStructure, size)) {
      if (workingElement) fWorking = size;
      return true;
    }
    record(Detail::pastReadAllowance(fStructure->name(), size, fName, allowance->limit()) + "\n");
    return false;
  }

  std::unique_ptr<Stream> makeStream() {
    std::unique_ptr<Stream> stream(new Stream(*fStructure, fName));
    if (fTyped) stream->setIndexType(fIndexType);
    return stream;
  }

  void readElements(Stream& stream) {
    // One handle carries every element into the stream: a new stream is
    // mapped, and its storage takes the handle's block as it is; the handle
    // then gets a fresh block of defaults. It is made at the first element:
    // a stream without elements allocates no element block, however large
    // the structure's elements are.
    StreamImplMapped* mapped = dynamic_cast<StreamImplMapped*>(&StreamAccess::impl(stream));
    std::optional<Handle> element;
    while (fPending || nextLine()) {
      fPending = false;
      if (fLine.empty()) continue;
      if (fLine == Raw::keyword(Raw::kEndStream)) return;
      Index index;
      if (!(fFast && fCreator == &Index::TypeCreator && strictNumericIndex(fLine, index))) {
        try {
          index = fCreator(fLine);
        } catch (Index::eCreationErrors code) {
          record(illegalIndex(fLine, fInput, code, fIndexType));
          continue;
        }
      }
      ++fRecord;
      if (!element && !allowed(true)) return;
      if (!element) element.emplace(*fStructure);
      Handle& handle = *element;
      if (!handle.hasData()) handle.pointToData(fStructure->allocateDefaultChunk(), true);
      if (!readDataLineStrict(handle)) {
        fCount +=
            StreamSerializerRaw::readStructure(*fStructure, fInput, fRecord, handle, fMessages);
        fInput.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      }
      // Once an error is counted the stream will be discarded: its elements
      // are no longer stored, so bad text cannot make it grow.
      if (fCount != 0) continue;
      // Whichever way the line was read, the element is stored on its first
      // member.
      handle.setPositionByMemberIndex(0);
      // Not counted: the stream is still returned, without this element.
      const bool stored =
          mapped ? mapped->takeElement(index, handle) : stream.setElement(index, handle);
      if (!stored) fMessages += couldNotAdd(index);
    }
    if (!fTooLong) record(missingEnd(fRecord));
  }

  // Reads the element's data line into handle when every value on it is in
  // strict form, leaving the input after the line as the stream code and
  // the skip to the line end would. Otherwise returns the input to the
  // start of the line, as it was, and false: the stream code reads it.
  bool readDataLineStrict(Handle& handle) {
    if (!fFast || !fInput.good() || !handle.data()) return false;
    std::streambuf* buffer = fInput.rdbuf();
    const std::streampos start = buffer->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
    if (start == std::streampos(std::streamoff(-1))) {
      fFast = false;  // the input cannot go back
      return false;
    }
    if (fData.empty()) fData.resize(kDataLineBuffer);
    fInput.getline(fData.data(), static_cast<std::streamsize>(fData.size()));
    if (!fInput.fail()) {
      const char* p = fData.data();
      const char* const end = p + fInput.gcount() - (fInput.eof() ? 0 : 1);
      for (const MemberLayout& member : fLayout) {
        p = Detail::readRawValuesStrict(p, end, member.type, handle.data() + member.offset,
                                        member.length);
        if (!p) break;
      }
      if (p) return true;
    }
    fInput.clear();
    if (buffer->pubseekpos(start, std::ios_base::in) != start) fInput.setstate(std::ios_base::badbit);
    return false;
  }

  std::istream& fInput;
  // The working element's bytes, given back to the read's allowance when
  // the stream is read.
  uint64_t fWorking = 0;
  std::string fLine;
  std::string fMessages;
  unsigned long fCount = 0;
  unsigned int fRecord = 0;
  bool fPending = false;
  bool fTooLong = false;
  std::string fName;
  bool fNamed = false;
  std::string fIndexType = Index::theTypeName();
  bool fTyped = false;
  Index::Creator fCreator = Index::creator(Index::theTypeName());
  const Structure* fStructure = nullptr;
  // The fast reader: whether it may be tried, the members' layout, and its
  // line buffer (a longer line goes to the stream code).
  static constexpr size_t kDataLineBuffer = size_t(1) << 16;
  bool fFast = false;
  std::vector<MemberLayout> fLayout;
  std::vector<char> fData;
};

const SerializerInitializer<StreamSerializerRaw> registration;

}  // namespace

StreamSerializerRaw::StreamSerializerRaw() { setDefaultFormat(this); }

StreamSerializerRaw::~StreamSerializerRaw() = default;

const char* StreamSerializerRaw::formatType() const { return Raw::keyword(Raw::kRaw); }

Stream* StreamSerializerRaw::read(std::istream& input, std::string& errors) const {
  Detail::ClassicNumbers classic(input);
  input >> std::skipws;
  return StreamReader(input).read(errors);
}

int StreamSerializerRaw::write(const Stream& stream, std::ostream& output,
                               std::string& errors) const {
  Detail::ClassicNumbers classic(output);
  output << Raw::keyword(Raw::kStreamName) << ' ' << stream.name() << '\n'
         << Raw::keyword(Raw::kIndexType) << ' ' << stream.indexType() << '\n'
         << Raw::keyword(Raw::kStructure) << ' ' << stream.structure().name() << '\n';
  const unsigned int members = stream.structure().memberCount();
  int count = 0;
  unsigned int record = 0;
  // Records are formatted into a buffer when that writes the same bytes:
  // this very class (a derived one may write members its own way) and an
  // output in its plain state, checked after the header has reset the width.
  std::vector<MemberLayout> layout;
  bool fast = typeid(*this) == typeid(StreamSerializerRaw) && plainOutput(output) &&
              layoutOf(stream.structure(), layout);
  const int precision = static_cast<int>(output.precision());
  std::string buffer;
  char number[24];
  for (StreamIterator element = stream.begin(); element.valid(); ++element) {
    ++record;
    const Index index = element.index();
    Handle& handle = *element;
    if (fast && handle.data()) {
      if (index.isComplex()) {
        buffer += index.asString();
      } else {
        buffer.append(number, Detail::formatInteger(number, index.index()));
      }
      buffer += '\n';
      for (unsigned int member = 0; member < members; ++member) {
        if (member > 0) buffer += ' ';
        Detail::appendRawValues(buffer, layout[member].type, handle.data() + layout[member].offset,
                                layout[member].length, precision);
      }
      buffer += '\n';
      if (buffer.size() >= kWriteBuffer) flushTo(output, buffer);
      fast = output.good();
      continue;
    }
    flushTo(output, buffer);
    // The index text, in decimal whatever the stream's flags.
    output << index.asString() << '\n';
    for (unsigned int member = 0; member < members; ++member) {
      if (member > 0) output << ' ';
      if (handle.setPositionByMemberIndex(member)) {
        count += writeMember(handle, record, output, errors);
      }
    }
    output << '\n';
  }
  flushTo(output, buffer);
  output << Raw::keyword(Raw::kEndStream) << '\n';

  std::string text;
  if (output.bad() || output.fail()) text += "Error in stream while writing.\n";
  if (count != 0) {
    text += Detail::errorSummary(count, " found, Stream may not be written correctly") + "\n";
  }
  errors += text;
  return count;
}

int StreamSerializerRaw::writeMember(Handle& handle, unsigned int recordNumber,
                                     std::ostream& output, std::string& errors) const {
  const Member::eDataType type = handle.dataType();
  if (type >= Member::kInvalidType) return 0;
  const char* values = static_cast<const char*>(handle.asType(type));
  if (!values) {
    errors += Detail::memberNotRecognized(recordNumber, type) +
              Detail::errorSummary(1, " found, Member may not be written correctly") + "\n";
    return 1;
  }
  if (plainOutput(output)) {
    std::string text;
    Detail::appendRawValues(text, type, values, handle.dataLength(),
                            static_cast<int>(output.precision()));
    flushTo(output, text);
  } else {
    Detail::writeRawValues(output, type, values, handle.dataLength());
  }
  return 0;
}

int StreamSerializerRaw::readStructure(const Structure& structure, std::istream& input,
                                       unsigned int recordNumber, Handle& handle,
                                       std::string& errors) {
  int count = 0;
  for (unsigned int member = 0; member < structure.memberCount(); ++member) {
    if (!handle.setPositionByMemberIndex(member)) break;
    count += readMember(input, recordNumber, handle, errors);
  }
  return count;
}

int StreamSerializerRaw::readMember(std::istream& input, unsigned int recordNumber,
                                    Handle& handle, std::string& errors) {
  const Member::eDataType type = handle.dataType();
  if (type >= Member::kInvalidType) {
    errors += invalidType(type);
    return 1;
  }
  char* values = static_cast<char*>(handle.asType(type));
  if (!values) {
    errors += Detail::memberNotRecognized(recordNumber, type);
    return 1;
  }
  return Detail::readRawValues(input, type, values, handle.dataLength(), recordNumber, errors);
}

void StreamSerializerRaw::getFormatDescription(std::ostream& output) const {
  const char* const end = Raw::keyword(Raw::kEndStream);
  output << "The " << formatType() << " format consists of a structure name and a series \n"
         << "of values. The first two lines consist of the name of the stream:\n"
         << '\t' << Raw::keyword(Raw::kStreamName) << " {STREAM_NAME}\n"
         << "optionally followed by an index type (numeric if omitted):\n"
         << '\t' << Raw::keyword(Raw::kIndexType) << " {INDEX_TYPE}\n"
         << "and then the name of the structure it uses to define its data:\n"
         << '\t' << Raw::keyword(Raw::kStructure) << " {STRUCTURE_NAME}\n"
         << "This is followed by pairs of lines of data, one per element:\n"
         << "\t{INDEX}\n"
         << "\t{DATA_AT_INDEX}\n"
         << "terminated with a line containing the literal text:\n"
         << '\t' << end << '\n'
         << "Any text after the terminator will not be read.\n"
         << "The format of {INDEX} varies with the type of Index this Stream\n"
         << "has been defined to accept. In the simplest case it is a number\n"
         << "corresponding to the array index of the Metadata element. In\n"
         << "more complex cases it could be a number pair, a string, or even\n"
         << "a point or vector in space.\n"
         << "The {DATA_AT_INDEX} is a space-separated series of values,\n"
         << "one per structure member. If a data member has length greater\n"
         << "than one then each value appears in order together.\n"
         << "Numeric values are formatted as normal, boolean values can be\n"
         << "0, f, F, false, False, 1, t, T, true, or True with the obvious\n"
         << "meanings. String values must be enclosed in double quotation\n"
         << "marks (\") and quotation marks and newlines within the string\n"
         << "must be escaped using the backslash character (\\\", \\n), as\n"
         << "is the backslash itself (\\\\) Matrix elements are printed in\n"
         << "row-major order (R1C1 R1C2 R1C3 R1C4 R2C1 R2C2...)\n"
         << "Here is a sample of a stream 'S1' that uses a structure named\n"
         << "'X1' with member types integer, string, float[3], and boolean\n"
         << "\tS1\n"
         << "\tX1\n"
         << "\t0\n"
         << "\t12 \"Shoulder\" 0.0 1.0 0.5 true\n"
         << "\t3\n"
         << "\t88 \"Shoulder\" -12.3 8.0 2.2 true\n"
         << "\t4\n"
         << "\t1 \"Bicep\" 17.0 -1.0 3.5 false\n"
         << '\t' << end << '\n';
}

StreamSerializerRaw* StreamSerializerRaw::theFormat() {
  static StreamSerializerRaw* const instance = new StreamSerializerRaw();
  return instance;
}

}  // namespace kivo::Data
