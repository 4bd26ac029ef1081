// The accessor of ASCII scene files ("ta"): a script of statements ending in
// ';', with the metadata as dataStructure and applyMetadata statements after
// the scene body and before the "// End of" trailer. Reading walks the file
// backwards from its end in 1024-byte blocks and stops at the first
// statement of the scene body; writing overwrites the old metadata section
// in place, re-appends the trailer and truncates the file.
#include <kivo/access/kivoDataAccessor.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <kivo/access/kivoDataAccessorTarn.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include "access/kivoDataAccessorTarnInternal.h"
#include "access/kivoSceneFile.h"

namespace kivo::Data {
namespace {

using Words = AccessorTarn::Ascii;

constexpr int64_t kBlockSize = 1024;
constexpr char kHeaderEnd[] = " scene";
// The header line is read this many bytes at a time.
constexpr size_t kHeaderPiece = 256;
constexpr size_t kYearDigits = 4;  // "2014" in the shortest header
constexpr long kFirstSupportedYear = 2014;
constexpr char kRawFormat[] = "raw";

constexpr char kErrorReadingHeader[] = "Error reading header.";
constexpr char kHeaderTooSmall[] = "Header too small.";
constexpr char kUnexpectedHeaderStart[] = "Unexpected header start.";
constexpr char kUnexpectedHeaderEnd[] = "Unexpected header end.";
constexpr char kUnsupportedYear[] = "Unsupported year.";
constexpr char kEmptyFileName[] = "Empty file name.";
constexpr char kCouldNotOpen[] = "Could not open ";
constexpr char kForWriting[] = " for writing.";
constexpr char kCouldNotSeekToEnd[] = "Could not seek to end.";
constexpr char kCouldNotSeekPreviousBlock[] = "Could not seek previous block.";
constexpr char kCouldNotReadBlock[] = "Could not read block.";
constexpr char kNoAssociationsName[] = "Could not find Associations name.";
constexpr char kTokenizingAssociations[] = "Error tokenizing format/value for associations.";
constexpr char kTokenizingStructure[] = "Error tokenizing format/value for structure.";
constexpr char kCouldNotSeekTrailerStart[] = "Could not seek to trailer start.";
constexpr char kCouldNotReadTrailer[] = "Could not read trailer.";
constexpr char kNoTrailerPrefix[] = "Could not find trailer prefix.";
constexpr char kUnendedBody[] =
    "The line before the metadata section does not end a statement with ';'; the file is left "
    "unchanged.";
constexpr char kForeignLineInSection[] =
    "The metadata section holds a line that is not metadata; the file is left unchanged.";
constexpr char kBodyAfterSection[] =
    "A statement of the scene body follows the metadata section; the file is left unchanged.";
std::string foreignTextMessage(int64_t line, const std::string& fileName) {
  return "Line " + std::to_string(line) + " of " + fileName +
         " is neither metadata nor the trailer; a clean rewrite leaves the file unchanged.";
}
constexpr char kCouldNotSeekFirstBlock[] = "Could not seek to the first metadata block.";
constexpr char kNoMetadataStart[] = "Failed reading line while searching metadata start.";
constexpr char kCouldNotSeekLastBlock[] = "Could not seek to the last metadata block.";
constexpr char kNoMetadataEnd[] = "Failed reading line while searching metadata end.";
constexpr char kCouldNotSeekTrailer[] = "Failed to seek to the trailer position.";
constexpr char kCouldNotReadFileTrailer[] = "Failed to read the file trailer.";
constexpr char kCouldNotSeekMetadataStart[] = "Could not seek to metadata start.";
constexpr char kStructureNotWritten[] = "Could not write structure chunk to file.";
constexpr char kNodeNotWritten[] = "Could not write node associations statement to file.";
constexpr char kSceneNotWritten[] = "Could not write scene associations statement to file.";
constexpr char kTrailerNotWritten[] = "Failed to append the file trailer.";
constexpr char kNotTruncated[] = "Could not truncate the file.";

std::string badNodeName(const std::string& name) {
  return "The node name \"" + name + "\" cannot be written as an applyMetadata target.";
}

std::string backslashInStructure(const char* name) {
  return std::string("The structure \"") + name +
         "\" holds a backslash, which its dataStructure statement cannot keep.";
}

bool startsWith(const std::string& text, const std::string& prefix, size_t at = 0) {
  return text.size() >= at + prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

size_t firstNonBlank(const std::string& line) { return line.find_first_not_of(" \t"); }

// Block k (k >= 1) starts k * 1024 bytes before the end of a file of size
// bytes; the block at the start of the file is shorter.
int64_t blockStart(int64_t size, int64_t k) {
  return size > k * kBlockSize ? size - k * kBlockSize : 0;
}

// The number of the block that holds the byte at position.
int64_t blockOf(int64_t size, int64_t position) {
  return (size - position + kBlockSize - 1) / kBlockSize;
}

// Header ------------------------------------------------------------------

// Checks the first line: "//Tarn ASCII", a blank, a year from 2014 on, text
// ending in " scene"; a trailing carriage return is ignored. False with the
// message otherwise.
bool checkHeader(std::istream& in, std::string& message) {
  const std::string start = Words::getHeaderPrefix() + " ";
  const std::string end = kHeaderEnd;
  // The checks look at the first and the last characters of the line only:
  // those are kept, however long the line is (one more at the end for a
  // carriage return).
  const size_t headSize = start.size() + kYearDigits;
  const size_t tailSize = end.size() + 1;
  std::string head, tail;
  uint64_t length = 0;
  bool readAny = false;
  // Read in pieces: the stream may be unbuffered. What follows the line
  // feed is read too and ignored; the caller seeks afterwards.
  char piece[kHeaderPiece];
  for (bool ended = false; !ended;) {
    in.read(piece, sizeof piece);
    const std::streamsize got = in.gcount();
    if (got <= 0) break;
    readAny = true;
    for (std::streamsize i = 0; i < got && !ended; ++i) {
      const char c = piece[i];
      ended = c == '\n';
      if (ended) break;
      if (head.size() < headSize) head += c;
      if (tail.size() == tailSize) tail.erase(0, 1);
      tail += c;
      ++length;
    }
    if (!in) break;
  }
  if (!readAny) {
    message = kErrorReadingHeader;
    return false;
  }
  if (!tail.empty() && tail.back() == '\r') {
    tail.pop_back();
    --length;
    if (head.size() > length) head.resize(static_cast<size_t>(length));
  }
  if (length < start.size() + kYearDigits + end.size()) {
    message = kHeaderTooSmall;
    return false;
  }
  if (!startsWith(head, start)) {
    message = kUnexpectedHeaderStart;
    return false;
  }
  if (!startsWith(tail, end, tail.size() - end.size())) {
    message = kUnexpectedHeaderEnd;
    return false;
  }
  long year = 0;
  for (size_t i = start.size(); i < headSize && head[i] >= '0' && head[i] <= '9'; ++i)
    year = year * 10 + (head[i] - '0');
  if (year < kFirstSupportedYear) {
    message = kUnsupportedYear;
    return false;
  }
  return true;
}

// The format (between the first and second double quote) and the payload
// (between the third and the last one) of a statement; false when a quote
// is missing.
bool splitQuoted(const std::string& statement, std::string& format, std::string& payload) {
  const size_t first = statement.find('"');
  if (first == std::string::npos) return false;
  const size_t second = statement.find('"', first + 1);
  if (second == std::string::npos) return false;
  const size_t third = statement.find('"', second + 1);
  if (third == std::string::npos) return false;
  const size_t last = statement.rfind('"');
  if (last <= third) return false;
  format = statement.substr(first + 1, second - first - 1);
  payload = statement.substr(third + 1, last - third - 1);
  return true;
}

// A node name is written bare after two tabs and read back as the text after
// the statement's last blank: it must hold no blank, quote, ';' or control
// character, must not look like a comment, and must not be the scene flag.
bool writableNodeName(const std::string& name) {
  if (name == Words::getApplyMetadataCommandSceneFlag() || startsWith(name, "//")) return false;
  for (const char c : name) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 33 || u == 127 || c == '"' || c == ';') return false;
  }
  return true;
}

// True when a line of text begins, after blanks and tabs, with the trailer
// prefix.
bool holdsTrailerLine(const std::string& text) {
  for (size_t lineStart = 0; lineStart < text.size();) {
    const size_t at = text.find_first_not_of(" \t", lineStart);
    if (at != std::string::npos && startsWith(text, Words::getTrailerPrefix(), at)) return true;
    const size_t end = text.find('\n', lineStart);
    if (end == std::string::npos) break;
    lineStart = end + 1;
  }
  return false;
}

bool isTerminalStatement(const std::string& statement) {
  return startsWith(statement, Words::getConnectAttrCommandName()) ||
         startsWith(statement, Words::getCreateNodeCommandName()) ||
         startsWith(statement, Words::getSetAttrCommandName()) ||
         startsWith(statement, Words::getRelationshipCommandName()) ||
         startsWith(statement, Words::getSelectCommandName());
}

// How the text before the metadata section ends, as the backward scan reads
// it: the last line before position that is not blank and not a comment
// must end with ';' (blanks, tabs and carriage returns aside), or there is
// none but the header. Statements written at position are read back only
// then; otherwise the scan joins that line to the first of them. The text is
// walked backwards a window at a time, so that a line of any length costs
// its reading but not its holding.
enum class BodyEnd { kEnded, kUnended, kSeekFailed, kReadFailed };

BodyEnd bodyEndBefore(std::istream& file, int64_t position) {
  constexpr int64_t kWindow = 64 * 1024;
  std::vector<char> window;
  // The line being walked, from its end: its last character other than
  // blank, tab and carriage return (when it has one), its earliest
  // character other than blank and tab so far, and the character after that.
  bool hasLast = false;
  char last = 0;
  char first = 0;
  char afterFirst = 0;
  char previous = '\n';
  for (int64_t end = position; end > 0;) {
    const int64_t start = std::max<int64_t>(0, end - kWindow);
    window.resize(static_cast<size_t>(end - start));
    file.clear();
    if (!file.seekg(start)) return BodyEnd::kSeekFailed;
    if (!file.read(window.data(), end - start)) return BodyEnd::kReadFailed;
    for (size_t i = window.size(); i-- > 0;) {
      const char c = window[i];
      if (c == '\n') {
        const bool comment = first == '/' && afterFirst == '/';
        if (hasLast && !comment) return last == ';' ? BodyEnd::kEnded : BodyEnd::kUnended;
        hasLast = false;
        last = first = afterFirst = 0;
        previous = c;
        continue;
      }
      if (c != ' ' && c != '\t') {
        first = c;
        afterFirst = previous;
        if (!hasLast && c != '\r') {
          hasLast = true;
          last = c;
        }
      }
      previous = c;
    }
    end = start;
  }
  return BodyEnd::kEnded;  // nothing but the header line before position
}

// What the old metadata section, the text the new statements replace, holds:
// only metadata statements (a metadata line at the first column, and the
// lines that continue it, which start with a blank or a tab, until one ends
// with ';') and blank lines; anything else would be lost with it.
enum class SectionText { kMetadataOnly, kForeignLine, kSeekFailed, kReadFailed };

SectionText sectionText(std::istream& file, int64_t start, int64_t end) {
  if (end <= start) return SectionText::kMetadataOnly;
  std::string text(static_cast<size_t>(end - start), '\0');
  file.clear();
  if (!file.seekg(start)) return SectionText::kSeekFailed;
  if (!file.read(&text[0], end - start)) return SectionText::kReadFailed;
  bool open = false;  // inside a metadata statement not yet ended by ';'
  for (size_t lineStart = 0; lineStart < text.size();) {
    size_t lineEnd = text.find('\n', lineStart);
    if (lineEnd == std::string::npos) lineEnd = text.size();
    const std::string line = text.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 1;
    const size_t last = line.find_last_not_of(" \t\r");
    if (last == std::string::npos) continue;
    const bool metadata = startsWith(line, Words::getDataStructureCommandName()) ||
                          startsWith(line, Words::getApplyMetadataCommandName());
    const bool continuation = open && (line[0] == ' ' || line[0] == '\t');
    if (!metadata && !continuation) return SectionText::kForeignLine;
    open = line[last] != ';';
  }
  return SectionText::kMetadataOnly;
}

// True when the text kept after the metadata section holds a line that
// starts, at its first column, with a command of the scene body: the
// backward scan would stop there, before the new statements.
bool holdsBodyStatement(const std::string& text) {
  for (size_t lineStart = 0; lineStart < text.size();) {
    size_t end = text.find('\n', lineStart);
    if (end == std::string::npos) end = text.size();
    if (isTerminalStatement(text.substr(lineStart, end - lineStart))) return true;
    lineStart = end + 1;
  }
  return false;
}

// Forward reading of the metadata section, for the writer.
struct AsciiFwdParser {
  // A plain prefix test at column 0.
  static bool isMetadataLine(const std::string& line) {
    return startsWith(line, Words::getDataStructureCommandName()) ||
           startsWith(line, Words::getApplyMetadataCommandName());
  }
  // After the first metadata line, a line that is not metadata ends the
  // section when its first character other than blank and tab starts the
  // trailer prefix or is a letter. That includes the node line of a
  // node-level applyMetadata statement (two tabs, then the node name): kept
  // as it stands, everything from such a line on is kept as the trailer.
  static bool endsSection(const std::string& line) {
    const size_t at = firstNonBlank(line);
    if (at == std::string::npos) return false;
    return startsWith(line, Words::getTrailerPrefix(), at) || isLetter(line[at]);
  }
  // True when the line of the file starting at position may be read from
  // there: the file start, or a position right after a line feed.
  static bool atLineStart(std::istream& in, int64_t position) {
    if (position == 0) return true;
    char before = 0;
    return in.seekg(position - 1) && in.get(before) && before == '\n';
  }
  // Positions the stream at the first whole line that starts in block k; a
  // line cut by the block start is passed over, so that no search ever
  // starts in the middle of a line.
  static bool seekBlock(std::istream& in, int64_t size, int64_t k) {
    in.clear();
    const int64_t start = blockStart(size, k);
    if (atLineStart(in, start)) return static_cast<bool>(in.seekg(start));
    in.clear();
    if (!in.seekg(start)) return false;
    in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    return true;
  }
};

// Clean rewrites ------------------------------------------------------------

// True for a line an earlier literal rewrite may have left of a node-level
// statement: blanks or tabs, one name without blanks, quotes or ';', then
// ';' and nothing but blanks.
bool isStrayTargetLine(const std::string& line) {
  const size_t start = firstNonBlank(line);
  if (start == std::string::npos || start == 0) return false;
  const size_t end = line.find_first_of(" \t\r\";", start);
  if (end == std::string::npos || end == start || line[end] != ';') return false;
  return line.find_first_not_of(" \t\r", end + 1) == std::string::npos;
}

// Where the old metadata section really ends, read forward from its start:
// every dataStructure and applyMetadata statement (complete at its ';'
// outside double quotes, a backslash in quotes escaping the next
// character), blank lines and stray target lines belong to it; the line
// whose first text is the trailer prefix ends it. end is that line's start;
// on anything else, the start of the line that holds it. Each statement is
// handed to visit with its start, and each stray line with its start too
// (its text empty).
enum class CleanEnd { kFound, kForeignText, kNoTrailer, kReadFailed };

using SectionVisitor = std::function<void(int64_t start, std::string statement)>;

CleanEnd cleanSectionEnd(std::istream& file, int64_t start, int64_t& end,
                         const SectionVisitor& visit = nullptr) {
  file.clear();
  if (!file.seekg(start)) return CleanEnd::kReadFailed;
  std::string line;
  std::string statement;
  bool inStatement = false;
  bool inQuotes = false;
  int64_t statementLine = start;
  for (int64_t position = start;; position = static_cast<int64_t>(file.tellg())) {
    if (!std::getline(file, line)) {
      end = inStatement ? statementLine : position;
      if (file.bad()) return CleanEnd::kReadFailed;
      return inStatement ? CleanEnd::kForeignText : CleanEnd::kNoTrailer;
    }
    size_t at = 0;
    if (!inStatement) {
      const size_t first = firstNonBlank(line);
      if (first == std::string::npos || line.find_first_not_of(" \t\r") == std::string::npos)
        continue;
      if (startsWith(line, Words::getTrailerPrefix(), first)) {
        end = position;
        return CleanEnd::kFound;
      }
      if (isStrayTargetLine(line)) {
        if (visit) visit(position, std::string());
        continue;
      }
      if (!AsciiFwdParser::isMetadataLine(line)) {
        end = position;
        return CleanEnd::kForeignText;
      }
      inStatement = true;
      statementLine = position;
      statement.clear();
    } else if (visit) {
      statement += '\n';
    }
    for (; at < line.size() && inStatement; ++at) {
      const char c = line[at];
      if (inQuotes) {
        if (c == '\\') ++at;
        else if (c == '"') inQuotes = false;
      } else if (c == '"') {
        inQuotes = true;
      } else if (c == ';') {
        inStatement = false;
      }
    }
    if (visit) statement.append(line, 0, std::min(at, line.size()));
    if (!inStatement && line.find_first_not_of(" \t\r", at) != std::string::npos) {
      end = position;
      return CleanEnd::kForeignText;
    }
    if (!inStatement && visit) visit(statementLine, std::move(statement));
  }
}

// The number of the line that starts at position (the first line is 1).
int64_t lineNumberAt(std::istream& file, int64_t position) {
  file.clear();
  if (!file.seekg(0)) return 0;
  int64_t lines = 1;
  char buffer[64 * 1024];
  for (int64_t left = position; left > 0;) {
    const std::streamsize want = static_cast<std::streamsize>(
        std::min<int64_t>(left, static_cast<int64_t>(sizeof buffer)));
    if (!file.read(buffer, want)) return 0;
    lines += std::count(buffer, buffer + want, '\n');
    left -= want;
  }
  return lines;
}

// Backward scan -----------------------------------------------------------

// An applyMetadata statement found by the scan, read once the structures are
// registered (its streams name them).
struct FoundAssociations {
  std::string name;
  std::string format;
  std::string text;
};

// Text met from its end: the bytes of a line, or the lines of a statement.
// They are kept in chunks of fixed size, so that a long text holds little
// more than its length while it grows (a doubling string may hold twice as
// much), and are turned around into one string of the exact length when the
// text is whole.
class ReversedLine {
 public:
  void push(char c) {
    if (fChunks.empty() || fChunks.back().size() == kChunkSize) {
      fChunks.emplace_back();
      fChunks.back().reserve(kChunkSize);
    }
    fChunks.back().push_back(c);
  }

  // Puts text, met whole, before what was pushed so far.
  void pushText(const std::string& text) {
    for (auto c = text.rbegin(); c != text.rend(); ++c) push(*c);
  }

  bool empty() const { return fChunks.empty() || fChunks.front().empty(); }

  // The line in reading order; the buffer is empty again, its first chunk
  // kept for the next line.
  std::string take() {
    size_t length = 0;
    for (const std::string& chunk : fChunks) length += chunk.size();
    std::string line;
    line.reserve(length);
    for (auto chunk = fChunks.rbegin(); chunk != fChunks.rend(); ++chunk) {
      line.append(chunk->rbegin(), chunk->rend());
    }
    if (fChunks.size() > 1) fChunks.resize(1);
    if (!fChunks.empty()) fChunks.front().clear();
    return line;
  }

 private:
  static constexpr size_t kChunkSize = 64 * 1024;
  std::vector<std::string> fChunks;
};

// Walks a file from its end towards its start, block by block, assembling
// lines and statements backwards: a line that ends with ';' ends the
// statement before it. Blank lines and comment lines belong to no
// statement, and neither does the header line. Notes the blocks of the
// earliest and the latest metadata statement; unless only positions are
// wanted, reads the structures (registering the wanted ones) and collects
// the wanted associations. Stops at a statement of the scene body, or when
// both name sets were given and every name was found.
class MetadataScan {
 public:
  // Positions only: nothing is read or registered.
  explicit MetadataScan(int64_t size)
      : fSize(size),
        fPositionsOnly(true),
        fStructures(nullptr),
        fAssociations(nullptr),
        fErrors(nullptr) {}
  MetadataScan(int64_t size, const std::set<std::string>* structureNames,
               const std::set<std::string>* associationsNames, std::string& errors)
      : fSize(size),
        fPositionsOnly(false),
        fStructures(structureNames),
        fAssociations(associationsNames),
        fErrors(&errors) {}

  // Walks the block of bytes that starts at position start, from its last
  // byte to its first. False when the scan is over.
  bool takeBlock(const std::vector<char>& block, int64_t start) {
    for (size_t i = block.size(); i-- > 0;) {
      if (block[i] == '\n') {
        endLine(start + static_cast<int64_t>(i) + 1);
        if (fStopped) return false;
      } else {
        fReversedLine.push(block[i]);
      }
    }
    if (start == 0) {
      endLine(0);
      fCompletedIn = blockOf(fSize, 0);
      endStatement();
      return false;
    }
    return true;
  }

  int64_t firstBlock() const { return fFirstBlock; }
  int64_t lastBlock() const { return fLastBlock; }
  // The position of the earliest metadata statement; meaningful when
  // firstBlock() is not 0.
  int64_t firstStart() const { return fFirstStart; }
  bool failed() const { return fFailed; }
  std::vector<FoundAssociations>& associations() { return fFound; }

 private:
  void endLine(int64_t start) {
    std::string line = fReversedLine.take();
    if (start == 0) return;  // the header
    const size_t end = line.find_last_not_of(" \t\r");
    line.erase(end == std::string::npos ? 0 : end + 1);
    if (line.empty()) return;
    const size_t at = firstNonBlank(line);
    if (startsWith(line, "//", at)) return;
    // The statement after this line is complete now, in the block that
    // holds the line feed before this line.
    if (line.back() == ';') {
      fCompletedIn = blockOf(fSize, start - 1);
      endStatement();
    }
    if (fStopped) return;
    // The statement's lines go into one buffer as they come, so that many
    // short lines cost their bytes and not a string each.
    if (!fStatement.empty()) fStatement.push('\n');
    fStatement.pushText(line);
    fStatementStart = start;
  }

  // The statement's lines joined by line feeds, in one string of the exact
  // length. Never called once the scan has stopped: takeBlock returns at the
  // line that stopped it.
  void endStatement() {
    if (fStatement.empty()) return;
    std::string statement = fStatement.take();
    handle(statement);
  }

  // The handlers free the statement once its payload is cut out of it, so
  // that a long statement is held at most twice at any time.
  void handle(std::string& statement) {
    if (isTerminalStatement(statement)) {
      fStopped = true;
      return;
    }
    const bool isAssociations = startsWith(statement, Words::getApplyMetadataCommandName());
    const bool isStructure = startsWith(statement, Words::getDataStructureCommandName());
    if (!isAssociations && !isStructure) return;
    const int64_t k = fCompletedIn;
    if (fLastBlock == 0) fLastBlock = k;
    fFirstBlock = k;
    fFirstStart = fStatementStart;
    if (fPositionsOnly) return;
    if (isAssociations) {
      handleAssociations(statement);
    } else {
      handleStructure(statement);
    }
    if (fStructures.selective() && fAssociations.selective() && fStructures.exhausted() &&
        fAssociations.exhausted())
      fStopped = true;
  }

  void handleAssociations(std::string& statement) {
    // The name is the text after the last blank, less a final ';'. It is
    // copied out only once the payload is, so that a statement of one long
    // word is not held three times.
    const size_t cut = statement.find_last_of(" \t\n");
    const size_t nameStart = cut == std::string::npos ? statement.size() : cut + 1;
    size_t nameEnd = statement.size();
    if (nameEnd > nameStart && statement[nameEnd - 1] == ';') --nameEnd;
    if (nameEnd == nameStart) return fail(kNoAssociationsName);
    FoundAssociations found;
    if (!splitQuoted(statement, found.format, found.text)) return fail(kTokenizingAssociations);
    found.name = statement.substr(nameStart, nameEnd - nameStart);
    std::string().swap(statement);
    if (found.name == Words::getApplyMetadataCommandSceneFlag())
      found.name = AccessorTarn::getSceneAssociationsName();
    if (!fAssociations.take(found.name)) return;
    found.text = Detail::unescapeAsciiPayload(found.text);
    fFound.push_back(std::move(found));
  }

  void handleStructure(std::string& statement) {
    std::string format, text;
    if (!splitQuoted(statement, format, text)) return fail(kTokenizingStructure);
    std::string().swap(statement);
    text = Detail::unescapeAsciiPayload(text);
    // Messages that come with a structure fail the read as well.
    const size_t before = fErrors->size();
    std::unique_ptr<Structure> structure = Detail::readStructurePayload(format, text, *fErrors);
    if (!structure || fErrors->size() != before) fFailed = true;
    if (structure) Detail::keepStructureIfWanted(std::move(structure), fStructures);
  }

  void fail(const char* message) {
    Detail::appendMessage(*fErrors, message);
    fFailed = true;
  }

  const int64_t fSize;
  const bool fPositionsOnly;
  Detail::WantedNames fStructures;
  Detail::WantedNames fAssociations;
  std::string* fErrors;
  ReversedLine fReversedLine;
  // The statement being assembled, from its end.
  ReversedLine fStatement;
  int64_t fStatementStart = 0;
  // The block in which the scan completed the statement it hands over: the
  // block number the section's positions are kept in.
  int64_t fCompletedIn = 0;
  int64_t fFirstBlock = 0;
  int64_t fLastBlock = 0;
  int64_t fFirstStart = 0;
  bool fStopped = false;
  bool fFailed = false;
  std::vector<FoundAssociations> fFound;
};

// Runs scan over the file in from its end; false, with the message, when
// seeking or reading fails.
bool scanBackwards(std::istream& in, int64_t size, MetadataScan& scan, std::string& errors) {
  std::vector<char> block;
  for (int64_t k = 1;; ++k) {
    const int64_t start = blockStart(size, k);
    const int64_t end = size - (k - 1) * kBlockSize;
    in.clear();
    if (!in.seekg(start)) {
      Detail::appendMessage(errors, kCouldNotSeekPreviousBlock);
      return false;
    }
    block.resize(static_cast<size_t>(end - start));
    if (!in.read(block.data(), static_cast<std::streamsize>(block.size()))) {
      Detail::appendMessage(errors, kCouldNotReadBlock);
      return false;
    }
    if (!scan.takeBlock(block, start)) break;
  }
  return true;
}

// The size of the file in, from its end; -1 when seeking fails.
int64_t fileSize(std::istream& in) {
  in.clear();
  if (!in.seekg(0, std::ios::end)) return -1;
  return static_cast<int64_t>(in.tellg());
}

// The statements of the new metadata section, each with the message its
// failed write gives.
struct Statement {
  std::string text;
  const char* failure;
};

// The accessor ----------------------------------------------------------------

class TarnAsciiFileAccessor : public Accessor {
 public:
  TarnAsciiFileAccessor() = default;
  ~TarnAsciiFileAccessor() override = default;

  bool write(std::string& errors) const override;
  bool isFileSupported(const std::string& fileName) const override;
  // The line of the last block that holds the first trailer prefix.
  bool findTrailer(std::istream& file, int64_t size, int64_t& trailerPosition,
                   std::string& errors) const {
    return locateTrailer(file, size, trailerPosition, errors);
  }

 protected:
  bool performRead(const std::set<std::string>* structureNames,
                   const std::set<std::string>* associationsNames, std::string& errors) override;

 private:
  bool composeSection(std::vector<Statement>& statements, std::string& errors) const;
  bool locateSection(std::istream& file, int64_t size, int64_t& metadataStart,
                     int64_t& trailerPosition, std::string& errors) const;
  bool locateTrailer(std::istream& file, int64_t size, int64_t& trailerPosition,
                     std::string& errors) const;
  void rememberFile(const Detail::SceneFile& file) const;
  void rememberPositions(const MetadataScan& scan, int64_t size) const;

  // The blocks (counted backwards from the end) of the earliest and the
  // latest metadata statement; 0 when the file has none. Set by a read and
  // by each successful write, so that they describe the file as it is.
  mutable int64_t fFirstMetadataBlock = 0;
  mutable int64_t fLastMetadataBlock = 0;
  // How far before the end the earliest metadata statement starts. The
  // search for the section's start begins on that statement's own line
  // rather than at its block's start, so that no line of the scene body in
  // that block can be taken for metadata.
  mutable int64_t fFirstMetadataDistance = 0;
  // The file as this accessor last saw it; a write refuses a changed file.
  mutable Detail::FileStamp fStamp;
};

bool TarnAsciiFileAccessor::isFileSupported(const std::string& fileName) const {
  if (fileName.empty()) return false;
  std::ifstream in(fileName, std::ios::binary);
  std::string ignored;
  return in.is_open() && checkHeader(in, ignored);
}

bool TarnAsciiFileAccessor::performRead(const std::set<std::string>* structureNames,
                                        const std::set<std::string>* associationsNames,
                                        std::string& errors) {
  fFirstMetadataBlock = 0;
  fLastMetadataBlock = 0;
  fFirstMetadataDistance = 0;
  fStamp = Detail::FileStamp();
  const std::string& name = fileName();
  if (name.empty()) {
    Detail::appendMessage(errors, kEmptyFileName);
    return false;
  }
  const std::shared_ptr<Detail::SceneFile> file =
      sceneFile(false, kCouldNotOpen + name + (holdsForWrite() ? kForWriting : ""), errors);
  if (!file) return false;
  // Unbuffered: the backward scan seeks block by block, and a buffered
  // stream would refill its whole buffer after every seek, reading far more
  // of the file than the blocks the scan asks for.
  Detail::DescriptorBuffer buffer(file->descriptor(), 0);
  std::istream in(&buffer);
  const Detail::FileStamp stamp = file->stamp();
  std::string message;
  if (!checkHeader(in, message)) {
    errors = message;
    return false;
  }
  const int64_t size = fileSize(in);
  if (size < 0) {
    Detail::appendMessage(errors, kCouldNotSeekToEnd);
    return false;
  }
  MetadataScan scan(size, structureNames, associationsNames, errors);
  if (!scanBackwards(in, size, scan, errors)) return false;
  bool ok = !scan.failed();
  // The structures are registered now: the streams that name them can be read.
  for (FoundAssociations& found : scan.associations()) {
    Associations associations;
    if (AccessorTarn::deserializeAssociations(found.format, found.text, associations, errors)) {
      this->associations()[found.name] = associations;
    } else {
      ok = false;
    }
  }
  if (!ok) return false;
  rememberPositions(scan, size);
  fStamp = stamp;
  return true;
}

bool TarnAsciiFileAccessor::write(std::string& errors) const {
  const std::string& name = fileName();
  const std::shared_ptr<Detail::SceneFile> sceneFile =
      this->sceneFile(true, kCouldNotOpen + name + kForWriting, errors);
  if (!sceneFile) return false;
  if (!sceneFile->unchangedSince(fStamp, errors)) return false;
  Detail::DescriptorBuffer buffer(sceneFile->descriptor(), Detail::kWriteBuffer);
  std::istream file(&buffer);
  const int64_t size = static_cast<int64_t>(fStamp.size);
  int64_t metadataStart = 0;
  int64_t trailerPosition = 0;
  if (!locateSection(file, size, metadataStart, trailerPosition, errors)) return false;
  const bool clean = cleanRewrite() && fFirstMetadataBlock > 0;
  if (clean) {
    switch (cleanSectionEnd(file, metadataStart, trailerPosition)) {
      case CleanEnd::kFound:
        break;
      case CleanEnd::kForeignText:
        Detail::appendMessage(errors,
                              foreignTextMessage(lineNumberAt(file, trailerPosition), name));
        return false;
      case CleanEnd::kNoTrailer:
        Detail::appendMessage(errors, kNoTrailerPrefix);
        return false;
      case CleanEnd::kReadFailed:
        Detail::appendMessage(errors, kNoMetadataEnd);
        return false;
    }
  }

  file.clear();
  if (!file.seekg(trailerPosition)) {
    Detail::appendMessage(errors, kCouldNotSeekTrailer);
    return false;
  }
  std::string trailer(static_cast<size_t>(size - trailerPosition), '\0');
  if (!file.read(&trailer[0], static_cast<std::streamsize>(trailer.size()))) {
    Detail::appendMessage(errors, kCouldNotReadFileTrailer);
    return false;
  }
  // What follows the section must hold the file's trailer line: a section
  // ended by a line of the scene body would leave the new statements behind
  // a statement the backward scan stops at, and they would not read back.
  if (!holdsTrailerLine(trailer)) {
    Detail::appendMessage(errors, kNoTrailerPrefix);
    return false;
  }
  if (holdsBodyStatement(trailer)) {
    Detail::appendMessage(errors, kBodyAfterSection);
    return false;
  }
  switch (clean ? SectionText::kMetadataOnly
                : sectionText(file, metadataStart, trailerPosition)) {
    case SectionText::kMetadataOnly:
      break;
    case SectionText::kForeignLine:
      Detail::appendMessage(errors, kForeignLineInSection);
      return false;
    case SectionText::kSeekFailed:
      Detail::appendMessage(errors, kCouldNotSeekMetadataStart);
      return false;
    case SectionText::kReadFailed:
      Detail::appendMessage(errors, kCouldNotReadFileTrailer);
      return false;
  }
  switch (bodyEndBefore(file, metadataStart)) {
    case BodyEnd::kEnded:
      break;
    case BodyEnd::kUnended:
      Detail::appendMessage(errors, kUnendedBody);
      return false;
    case BodyEnd::kSeekFailed:
      Detail::appendMessage(errors, kCouldNotSeekMetadataStart);
      return false;
    case BodyEnd::kReadFailed:
      Detail::appendMessage(errors, kCouldNotReadFileTrailer);
      return false;
  }
  // Every statement is composed before the file changes.
  std::vector<Statement> statements;
  if (!composeSection(statements, errors)) return false;
  // One write per statement, so that a failing write is reported by the
  // statement that made it; the first one seeks to the section's start.
  std::vector<Detail::Patch> patches;
  uint64_t length = static_cast<uint64_t>(metadataStart);
  for (Statement& statement : statements) {
    Detail::Patch patch;
    patch.offset = length;
    patch.seek = patches.empty();
    patch.seekFailure = kCouldNotSeekMetadataStart;
    patch.writeFailure = statement.failure;
    length += statement.text.size();
    patch.bytes = std::move(statement.text);
    patches.push_back(std::move(patch));
  }
  Detail::Patch tail;
  tail.offset = length;
  tail.seek = patches.empty();
  tail.seekFailure = kCouldNotSeekMetadataStart;
  tail.writeFailure = kTrailerNotWritten;
  length += trailer.size();
  tail.bytes = std::move(trailer);
  patches.push_back(std::move(tail));
  if (!sceneFile->rewrite(patches, length, kNotTruncated, syncWrites(), errors)) {
    fStamp = Detail::FileStamp();
    return false;
  }
  rememberFile(*sceneFile);
  return true;
}

// Serializes every statement before the file changes: a structure or
// associations that cannot be written, or a node name that could not be
// read back, or a structure text with a backslash, refuses the whole write.
bool TarnAsciiFileAccessor::composeSection(std::vector<Statement>& statements,
                                           std::string& errors) const {
  if (const StructureSerializer* serializer = StructureSerializer::formatByName(kRawFormat)) {
    for (const Structure* structure : structures()) {
      std::ostringstream text;
      if (serializer->write(*structure, text) != 0 || !text) {
        Detail::appendMessage(errors, kStructureNotWritten);
        return false;
      }
      // The statement escapes only the line feed of a structure text, and
      // the reader takes every backslash as an escape.
      if (text.str().find('\\') != std::string::npos) {
        Detail::appendMessage(errors, backslashInStructure(structure->name()));
        Detail::appendMessage(errors, kStructureNotWritten);
        return false;
      }
      statements.push_back({Words::getDataStructureCommandName() + " " +
                                Words::getDataStructureCommandFormatFlag() + " \"" +
                                serializer->formatType() + "\" " +
                                Words::getDataStructureCommandAsStringFlag() + " \"" +
                                Detail::escapeAsciiStructureText(text.str()) + "\";\n",
                            kStructureNotWritten});
    }
  }
  const AssociationsSerializer* serializer = AssociationsSerializer::formatByName(kRawFormat);
  if (!serializer) return true;
  auto statementFor = [&](const std::string& target, const Associations& associations,
                          const char* failure) {
    std::ostringstream text;
    std::string messages;
    if (serializer->write(associations, text, messages) != 0 || !text) {
      if (!messages.empty()) Detail::appendMessage(errors, messages);
      Detail::appendMessage(errors, failure);
      return false;
    }
    statements.push_back(
        {Words::getApplyMetadataCommandName() + " " + Words::getApplyMetadataCommandFormatFlag() +
             " \"" + serializer->formatType() + "\" " + Words::getApplyMetadataCommandValueFlag() +
             " \"" + Detail::escapeAsciiValue(text.str()) + "\" \n\t\t" + target + ";\n",
         failure});
    return true;
  };
  const std::string& scene = AccessorTarn::getSceneAssociationsName();
  for (const auto& entry : associations()) {
    if (entry.first == scene) continue;
    if (!writableNodeName(entry.first)) {
      Detail::appendMessage(errors, badNodeName(entry.first));
      Detail::appendMessage(errors, kNodeNotWritten);
      return false;
    }
    if (!statementFor(entry.first, entry.second, kNodeNotWritten)) return false;
  }
  const auto sceneEntry = associations().find(scene);
  if (sceneEntry != associations().end() && !statementFor(Words::getApplyMetadataCommandSceneFlag(),
                                                          sceneEntry->second, kSceneNotWritten))
    return false;
  return true;
}

// The start of the metadata section and of the trailer after it.
bool TarnAsciiFileAccessor::locateSection(std::istream& file, int64_t size, int64_t& metadataStart,
                                          int64_t& trailerPosition, std::string& errors) const {
  if (fFirstMetadataBlock <= 0) {
    if (!locateTrailer(file, size, trailerPosition, errors)) return false;
    metadataStart = trailerPosition;
    return true;
  }
  file.clear();
  if (fFirstMetadataDistance <= 0 || fFirstMetadataDistance > size ||
      !file.seekg(size - fFirstMetadataDistance)) {
    Detail::appendMessage(errors, kCouldNotSeekFirstBlock);
    return false;
  }
  std::string line;
  for (;;) {
    const int64_t position = static_cast<int64_t>(file.tellg());
    if (position < 0 || !std::getline(file, line)) {
      Detail::appendMessage(errors, kNoMetadataStart);
      return false;
    }
    if (AsciiFwdParser::isMetadataLine(line)) {
      metadataStart = position;
      break;
    }
  }
  if (fLastMetadataBlock != fFirstMetadataBlock) {
    if (!AsciiFwdParser::seekBlock(file, size, fLastMetadataBlock)) {
      Detail::appendMessage(errors, kCouldNotSeekLastBlock);
      return false;
    }
    // A block is numbered where the scan completed its statement, at the
    // line before it: the last block can begin before the section, and the
    // search for its end must not begin among the lines of the body.
    const int64_t position = static_cast<int64_t>(file.tellg());
    if (position >= 0 && position < metadataStart && !file.seekg(metadataStart)) {
      Detail::appendMessage(errors, kCouldNotSeekLastBlock);
      return false;
    }
  }
  for (;;) {
    const int64_t position = static_cast<int64_t>(file.tellg());
    if (position < 0 || !std::getline(file, line)) {
      Detail::appendMessage(errors, kNoMetadataEnd);
      return false;
    }
    if (AsciiFwdParser::isMetadataLine(line)) continue;
    if (AsciiFwdParser::endsSection(line)) {
      trailerPosition = position;
      return true;
    }
  }
}

// Without metadata, the new section goes before the trailer: the line of
// the last block that holds the first trailer prefix. A prefix inside a line
// of the scene body puts the section before that line, and the write then
// refuses, since a body statement would follow the section.
bool TarnAsciiFileAccessor::locateTrailer(std::istream& file, int64_t size,
                                          int64_t& trailerPosition, std::string& errors) const {
  const int64_t start = blockStart(size, 1);
  file.clear();
  if (!file.seekg(start)) {
    Detail::appendMessage(errors, kCouldNotSeekTrailerStart);
    return false;
  }
  std::string block(static_cast<size_t>(size - start), '\0');
  if (!file.read(&block[0], static_cast<std::streamsize>(block.size()))) {
    Detail::appendMessage(errors, kCouldNotReadTrailer);
    return false;
  }
  // The first line of the block is passed over when the block cuts it (its
  // start is not in the block), and when it is the header line, which no
  // write may touch.
  const size_t from =
      start > 0 && AsciiFwdParser::atLineStart(file, start) ? 0 : block.find('\n');
  const size_t at = from == std::string::npos ? from : block.find(Words::getTrailerPrefix(), from);
  if (at == std::string::npos) {
    Detail::appendMessage(errors, kNoTrailerPrefix);
    return false;
  }
  const size_t lineEnd = block.rfind('\n', at);
  trailerPosition = start + static_cast<int64_t>(lineEnd == std::string::npos ? 0 : lineEnd + 1);
  return true;
}

// After a write: the positions and the stamp of the file as it now is, found
// the way a read finds them. When that fails the next write refuses.
void TarnAsciiFileAccessor::rememberFile(const Detail::SceneFile& file) const {
  fStamp = Detail::FileStamp();
  fFirstMetadataBlock = 0;
  fLastMetadataBlock = 0;
  fFirstMetadataDistance = 0;
  Detail::DescriptorBuffer buffer(file.descriptor(), 0);
  std::istream in(&buffer);
  const Detail::FileStamp stamp = file.stamp();
  const int64_t size = fileSize(in);
  if (size < 0) return;
  MetadataScan scan(size);
  std::string ignored;
  if (!scanBackwards(in, size, scan, ignored)) return;
  rememberPositions(scan, size);
  fStamp = stamp;
}

void TarnAsciiFileAccessor::rememberPositions(const MetadataScan& scan, int64_t size) const {
  fFirstMetadataBlock = scan.firstBlock();
  fLastMetadataBlock = scan.lastBlock();
  fFirstMetadataDistance = fFirstMetadataBlock > 0 ? size - scan.firstStart() : 0;
}

AccessorFactory<TarnAsciiFileAccessor> asciiFactory("ta");

// One statement of the section as a check sees it.
Detail::MetadataEntry entryOf(int64_t start, const std::string& statement) {
  Detail::MetadataEntry entry;
  entry.position = start;
  if (statement.empty()) {
    entry.kind = Detail::MetadataEntry::eKind::kStrayLine;
    return entry;
  }
  const bool isAssociations = startsWith(statement, Words::getApplyMetadataCommandName());
  entry.kind = isAssociations ? Detail::MetadataEntry::eKind::kAssociations
                              : Detail::MetadataEntry::eKind::kStructure;
  std::string payload;
  entry.split = splitQuoted(statement, entry.format, payload);
  entry.text = Detail::unescapeAsciiPayload(payload);
  if (isAssociations) {
    const size_t cut = statement.find_last_of(" \t\n");
    std::string target = cut == std::string::npos ? std::string() : statement.substr(cut + 1);
    if (!target.empty() && target.back() == ';') target.pop_back();
    entry.name = target == Words::getApplyMetadataCommandSceneFlag()
                     ? AccessorTarn::getSceneAssociationsName()
                     : target;
  }
  return entry;
}

}  // namespace
}  // namespace kivo::Data

namespace kivo::Detail {

bool listAsciiMetadata(const std::string& fileName, MetadataListing& out, std::string& errors) {
  using namespace Data;
  const std::unique_ptr<SceneFile> file =
      SceneFile::open(fileName, SceneFile::eLock::kShared, 10000,
                      kCouldNotOpen + fileName, errors, nullptr, false);
  if (!file) return false;
  DescriptorBuffer buffer(file->descriptor(), kWriteBuffer);
  std::istream in(&buffer);
  std::string message;
  if (!checkHeader(in, message)) {
    appendMessage(errors, message);
    return false;
  }
  const int64_t size = fileSize(in);
  MetadataScan scan(size);
  if (size < 0 || !scanBackwards(in, size, scan, errors)) return false;
  int64_t end = 0;
  const auto visit = [&](int64_t start, std::string statement) {
    out.entries.push_back(entryOf(start, statement));
  };
  TarnAsciiFileAccessor accessor;
  std::string ignored;
  if (scan.firstBlock() == 0 && !accessor.findTrailer(in, size, end, ignored)) {
    out.problems.push_back({"no-trailer", "The file has no trailer line (\"// End of\").", -1});
    return true;
  }
  switch (scan.firstBlock() == 0 ? CleanEnd::kFound
                                 : cleanSectionEnd(in, scan.firstStart(), end, visit)) {
    case CleanEnd::kFound:
      break;
    case CleanEnd::kForeignText:
      out.problems.push_back(
          {"foreign-text", "Text that is neither metadata nor the trailer stands in the metadata "
                           "section; a rewrite keeps it only in the literal mode.",
           end});
      return true;
    case CleanEnd::kNoTrailer:
      out.problems.push_back({"no-trailer", "The file has no trailer line (\"// End of\").", -1});
      return true;
    case CleanEnd::kReadFailed:
      appendMessage(errors, kNoMetadataEnd);
      return false;
  }
  in.clear();
  std::string trailer(static_cast<size_t>(size - end), '\0');
  if (!in.seekg(end) || !in.read(&trailer[0], static_cast<std::streamsize>(trailer.size()))) {
    appendMessage(errors, kCouldNotReadFileTrailer);
    return false;
  }
  if (holdsBodyStatement(trailer)) {
    out.problems.push_back({"body-after-trailer",
                            "A statement of the scene body follows the trailer line; the "
                            "metadata before it cannot be read.",
                            end});
  }
  return true;
}

}  // namespace kivo::Detail

