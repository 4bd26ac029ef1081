#include <kivo/serialize/kivoDataStructureSerializerRaw.h>

#include <locale>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <kivo/data/kivoDataMember.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataSerializerInitializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>

#include "serialize/kivoRawFields.h"

namespace kivo::Data {
namespace {

using Raw = SerializerRaw;

constexpr char kNoNameOrMember[] = "Structures must have a name and at least one member";

std::string keyword(Raw::eKeyword which) { return Raw::keyword(which); }

std::string noSeparator() {
  return "Member type and name must be separated by '" + keyword(Raw::kKeyValueSeparator) + "'";
}
std::string nameBeforeDimension(const std::string& type) {
  return "Member '" + type + "' needs name before dimension specifier";
}
// The opening/closing wording is crossed with the condition on purpose: the
// text names the other bracket.
std::string closingWithoutOpening(const std::string& type) {
  return "Member '" + type +
         "' has opening bracket '[' but no closing bracket ']' for dimension specification";
}
std::string openingWithoutClosing(const std::string& type) {
  return "Member '" + type +
         "' has closing bracket ']' but no opening bracket '[' for dimension specification";
}
std::string numericDimension(const std::string& type) {
  return "Member '" + type + "' needs numeric value for dimension specifier";
}
std::string typeNotRecognized(const std::string& type) {
  return "Member type '" + type + "' not recognized";
}
std::string missingName() {
  return "Name is missing; member type '" + keyword(Raw::kStructureName) +
         "' is used to set it";
}
// Members that Structure::addMember refuses, other than a repeated name.
std::string zeroLength(const std::string& type) {
  return "Member '" + type + "' needs a dimension of at least 1";
}
std::string emptyMemberName(const std::string& type) {
  return "Member '" + type + "' needs a name";
}
std::string tooLarge(const std::string& type) { return "Member '" + type + "' is too large"; }
// A NUL would cut a name short where it is stored as a C string.
std::string holdsNul(std::string field) {
  for (size_t at = field.find('\0'); at != std::string::npos; at = field.find('\0', at + 2)) {
    field.replace(at, 1, "\\0");
  }
  return "Field '" + field + "' holds a NUL character";
}

// The member type text of one field, split into type name and length.
struct TypeText {
  std::string name;
  unsigned int length = 1;
  std::string problem;  // empty when the text is usable
};

TypeText parseTypeText(const std::string& text) {
  TypeText result;
  const size_t open = text.find('[');
  const size_t close = text.rfind(']');
  if (open == 0) {
    result.problem = nameBeforeDimension(text);
  } else if (close != std::string::npos && open == std::string::npos) {
    result.problem = closingWithoutOpening(text);
  } else if (open != std::string::npos && close == std::string::npos) {
    result.problem = openingWithoutClosing(text);
  } else if (open != std::string::npos) {
    if (open == close) {  // cannot happen: "[" and "]" are different characters
      result.problem = numericDimension(text);
      return result;
    }
    result.name = text.substr(0, open);
    // Plain unsigned extraction: blanks skipped, trailing text ignored. A
    // failed extraction leaves 0, which addMember refuses.
    std::istringstream dimension(close > open ? text.substr(open + 1, close - open - 1) : "");
    dimension.imbue(std::locale::classic());
    result.length = 0;
    dimension >> result.length;
  } else {
    result.name = text;
  }
  return result;
}

// Builds one structure from its fields, collecting messages.
class FieldReader {
 public:
  FieldReader() : fStructure(Structure::create()) {}

  void readField(std::string_view field) {
    field = Detail::trimmedView(field);
    if (field.size() <= 2) return;
    // Split on '=' as splitString would; only whether there are two parts,
    // and those two, matter.
    std::string_view parts[2];
    size_t count = 0;
    Detail::forEachField(field, Raw::keyword(Raw::kKeyValueSeparator)[0],
                         [&](std::string_view part) {
                           if (count < 2) parts[count] = part;
                           ++count;
                         });
    if (count != 2) {
      fMessages.push_back(noSeparator());
      return;
    }
    const std::string key(Detail::trimmedView(parts[0]));
    const std::string value(Detail::trimmedView(parts[1]));
    if (field.find('\0') != std::string_view::npos) return fail(holdsNul(std::string(field)));
    if (key == Raw::keyword(Raw::kStructureName)) {
      // An empty name could not be written so that it reads back.
      if (value.empty()) return fail(missingName());
      fStructure->setName(value.c_str());
      fNamed = true;
      return;
    }
    readMember(key, value);
  }

  // The structure when the fields made a valid one, else null; errors gets
  // the messages joined by newlines.
  Structure* finish(std::string& errors) {
    if (!fNamed) fail(missingName());
    for (size_t i = 0; i < fMessages.size(); ++i) {
      if (i > 0) errors += '\n';
      errors += fMessages[i];
    }
    return fFailed ? nullptr : fStructure.release();
  }

 private:
  void fail(const std::string& message) {
    fMessages.push_back(message);
    fFailed = true;
  }

  void readMember(const std::string& typeText, const std::string& memberName) {
    const TypeText type = parseTypeText(typeText);
    if (!type.problem.empty()) return fail(type.problem);
    const Member::eDataType dataType = Member::typeFromName(type.name.c_str());
    if (dataType == Member::kInvalidType) return fail(typeNotRecognized(type.name));
    if (fStructure->addMember(dataType, type.length, memberName.c_str())) {
      fNames.insert(memberName);
      return;
    }
    // A repeated name is addMember's business: the first member stays.
    if (type.length == 0) return fail(zeroLength(typeText));
    if (memberName.empty()) return fail(emptyMemberName(typeText));
    if (fNames.count(memberName) == 0) fail(tooLarge(typeText));
  }

  std::unique_ptr<Structure> fStructure;
  std::set<std::string> fNames;
  std::vector<std::string> fMessages;
  bool fNamed = false;
  bool fFailed = false;
};

// The rest of the input: what its buffer holds already, taken at its exact
// size, then whatever follows, a piece at a time.
std::string readAll(std::istream& input) {
  std::string text;
  std::streambuf* buffer = input.rdbuf();
  if (!buffer) return text;
  const std::streamsize held = buffer->in_avail();
  if (held > 0) {
    text.resize(static_cast<size_t>(held));
    text.resize(static_cast<size_t>(buffer->sgetn(&text[0], held)));
  }
  char piece[4096];
  for (std::streamsize got; (got = buffer->sgetn(piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<size_t>(got));
  return text;
}

const SerializerInitializer<StructureSerializerRaw> registration;

}  // namespace

StructureSerializerRaw::StructureSerializerRaw() { setDefaultFormat(this); }

StructureSerializerRaw::~StructureSerializerRaw() = default;

const char* StructureSerializerRaw::formatType() const { return Raw::keyword(Raw::kRaw); }

Structure* StructureSerializerRaw::read(std::istream& input, std::string& errors) const {
  errors.clear();
  std::string text = readAll(input);
  input.setstate(std::ios::eofbit);

  // Trimmed and separators joined in place, then walked field by field: the
  // text is held once.
  Detail::trimBlanks(text);
  Detail::joinSeparators(text);
  const char separator = Raw::keyword(Raw::kFieldSeparator)[0];
  if (Detail::fieldCount(text, separator) < 2) {
    errors = kNoNameOrMember;
    return nullptr;
  }
  FieldReader reader;
  Detail::forEachField(text, separator, [&reader](std::string_view field) { reader.readField(field); });
  return reader.finish(errors);
}

int StructureSerializerRaw::write(const Structure& structure, std::ostream& output) const {
  const char* const separator = Raw::keyword(Raw::kKeyValueSeparator);
  std::string text = Raw::keyword(Raw::kStructureName);
  text += separator;
  if (structure.name()) {
    text += structure.name();
  } else {
    output.setstate(std::ios::badbit);
  }
  for (auto member = structure.begin(); member != structure.end(); ++member) {
    const Member& m = *member;
    text += Raw::keyword(Raw::kFieldSeparator);
    text += Member::typeName(Member::type(&m));
    if (Member::length(&m) != 1) text += "[" + std::to_string(Member::length(&m)) + "]";
    text += separator;
    if (Member::name(&m)) {
      text += Member::name(&m);
    } else {
      output.setstate(std::ios::badbit);
    }
  }
  output << text;
  return 0;
}

void StructureSerializerRaw::getFormatDescription(std::ostream& output) const {
  output << "\nThe raw format consists of a series of colon or"
         << "\nnewline separated fields. The first field  must"
         << "\nbe the name field,  indicating  the name of the"
         << "\nstructure:"
         << "\n"
         << "\n    name=NAME"
         << "\n"
         << "\nAfter that  is one  or more  member fields, one"
         << "\nfor each member of the structure:"
         << "\n"
         << "\n    TYPE[DIM]=TYPENAME"
         << "\n"
         << "\nTYPE is one  of the valid  data structure types"
         << "\ntaken from kivo::Data::Structure:"
         << "\n"
         << "\n    (";
  const char* separator = "";
  for (unsigned int type = 0; type < Member::kInvalidType; ++type) {
    const char* name = Member::typeName(static_cast<Member::eDataType>(type));
    if (!name) {
      output.setstate(std::ios::badbit);
      continue;
    }
    output << separator << name;
    separator = ", ";
  }
  output << ")"
         << "\n"
         << "\n[DIM] is an optional suffix denoting the length"
         << "\nof the data  member  type with a  default of 1."
         << "\ne.g. a float[3] is a data  member consisting of"
         << "\n3 float values."
         << "\n"
         << "\nTYPENAME is the unique string defining the name"
         << "\nof each member type. It is an error to have the"
         << "\nsame 'TYPENAME' more than once in a structure."
         << "\n"
         << "\nAny extra newlines/whitespace will be ignored."
         << "\nMember names and the  structure  name may only"
         << "\nhave  internal  whitespace.  (e.g. the  member"
         << "\nname 'My Height' is  legal but neither of  the"
         << "\nnames ' My Height' or 'My Height ' are)"
         << "\n"
         << "\nEither  newlines  or  colons  may  be  used to"
         << "\nseparate  member  definitions. These two forms"
         << "\nboth represent the same structure:"
         << "\n"
         << "\n    name=My Structure:int32=ID:float[3]=Origin"
         << "\nand"
         << "\n    name=My Structure"
         << "\n    int32=ID"
         << "\n    float[3]=Origin";
}

StructureSerializerRaw* StructureSerializerRaw::theFormat() {
  static StructureSerializerRaw* const instance = new StructureSerializerRaw();
  return instance;
}

}  // namespace kivo::Data
