// Index: the key of one element in a stream. Either numeric (an unsigned
// 32-bit number, vertex 12) or complex (a shared IndexType object: a pair of
// numbers, a string). Copies of a complex index share its object through the
// object's reference count. Also the process-wide registry of index types:
// type name -> creator function making an Index from text, seeded with
// "numeric"; fill it from one thread (the library registers its own types at
// load).
#pragma once

#include <kivo/kivoExport.h>

#include <cstdint>
#include <map>
#include <string>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class IndexType;

class KIVO_EXPORT Index {
 public:
  // Thrown by value when an index cannot be made. No text goes with them.
  enum eCreationErrors {
    kUnknownIndexType = 0,   // no creator registered under the type name
    kBadNumericIndex = 1,    // a character other than digits, blank, tab, CR,
                             // or no unsigned 32-bit number could be read
    kTrailingIndexText = 2,  // further non-blank text after the number
  };
  // Makes an Index from its text; may throw eCreationErrors.
  using Creator = Index (*)(const std::string& text);
  using CreatorMap = std::map<std::string, Creator>;

  // Numeric; Index() is numeric zero.
  Index(unsigned int value = 0);
  // Complex, holding (and referencing) a clone of object.
  Index(const IndexType& object);
  // Numeric from text such as " 42\t". Throws kBadNumericIndex for a sign,
  // a letter, a newline, blank text or a value beyond 32 bits, and
  // kTrailingIndexText for "12 34".
  explicit Index(const std::string& text);
  // Copies share the other's object (one more reference) or copy the number.
  Index(const Index& other);
  Index& operator=(const Index& other);
  // Drops any object; the index becomes numeric.
  Index& operator=(unsigned int value);
  ~Index();

  // The number of a numeric index, 0 for a complex one.
  operator unsigned int() const { return index(); }
  unsigned int index() const;
  // The object of a complex index (still owned by the index), null for a
  // numeric one.
  operator IndexType*() const;
  bool isComplex() const { return fComplex; }

  // Numeric: the number in decimal; complex: the object's text.
  std::string asString() const;
  // "numeric" for a numeric index, else the object's type name.
  std::string typeName() const;
  static std::string theTypeName();

  // Numbers compare as numbers; two complex indices compare through the
  // first one's object; every numeric index sorts before every complex one
  // and never equals it.
  bool operator==(const Index& other) const;
  bool operator!=(const Index& other) const;
  bool operator<(const Index& other) const;
  bool operator<=(const Index& other) const;
  bool operator>(const Index& other) const;
  bool operator>=(const Index& other) const;

  // True for a numeric index; a complex one asks its object.
  bool supportsDenseMode() const;
  // Slots dense storage needs to span both indices: |a - b| + 1 for two
  // numbers (5 and 5 give 1), 0 between a numeric and a complex index, the
  // first object's answer for two complex ones.
  uint64_t denseSpaceBetween(const Index& other) const;

  // The registry, created on first use and seeded with "numeric".
  static CreatorMap& creators();
  // False, keeping the first registration, when name is already taken.
  static bool registerType(const std::string& name, Creator creator);
  // Throws kUnknownIndexType for an unregistered name.
  static Creator creator(const std::string& name);
  // The index that the creator of typeName makes from text; throws
  // kUnknownIndexType or whatever the creator throws.
  static Index doCreate(const std::string& typeName, const std::string& text);
  // The creator of "numeric": Index(text).
  static Index TypeCreator(const std::string& text);

  // Print: the number of a numeric index, nothing for a complex one (its
  // object prints itself); no newline. Null prints the class counters.
  static bool Debug(const Index* index, kivo::Debug::Print& print);
  static bool Debug(const Index* index, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // Drops the object reference, if any.
  void release();

  uint32_t fNumber = 0;
  IndexType* fObject = nullptr;
  bool fComplex = false;
};

}  // namespace Data
}  // namespace kivo
