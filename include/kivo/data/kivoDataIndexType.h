// IndexType: abstract base of the complex index types (pair, string). An
// object is reference counted and shared by every Index copied from the one
// that holds it; a new object starts at count 0 and the Index taking it
// calls ref(). Comparisons against an object of another kind never find it
// equal and order it by kind (type name), independently of the values.
// CRTP_IndexType<T>: the base concrete types derive through; it supplies
// clone(), typeName() (T::theTypeName()) and the registry creator doCreate().
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/kivoExport.h>
#include <kivo/support/kivoRefCounted.h>

#include <cstdint>
#include <string>

namespace kivo::Data {

class KIVO_EXPORT IndexType : public RefCounted {
 public:
  IndexType();
  IndexType(const IndexType& other);
  // Leaves the reference count alone.
  IndexType& operator=(const IndexType& other);
  ~IndexType() override;

  // A new object (count 0) equal to this one; the caller owns it.
  virtual IndexType* clone() const = 0;
  virtual std::string asString() const = 0;
  virtual bool supportsDenseMode() const = 0;
  // Slots dense storage needs to span this and other; 0 when other is of
  // another kind or the type has no dense mode.
  virtual uint64_t denseSpaceBetween(const IndexType& other) const = 0;
  virtual bool operator==(const IndexType& other) const = 0;
  virtual bool operator!=(const IndexType& other) const = 0;
  virtual bool operator<(const IndexType& other) const = 0;
  virtual bool operator<=(const IndexType& other) const = 0;
  virtual bool operator>(const IndexType& other) const = 0;
  virtual bool operator>=(const IndexType& other) const = 0;
  virtual std::string typeName() const = 0;

  // Print: the object's text, no newline. Null prints the class counters.
  static bool Debug(const IndexType* object, kivo::Debug::Print& print);
  static bool Debug(const IndexType* object, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  // The fixed order between kinds: negative, 0 or positive as this object's
  // kind sorts before, with or after other's (by type name, then by class).
  int compareKind(const IndexType& other) const;
};

template <class T>
class CRTP_IndexType : public IndexType {
 public:
  IndexType* clone() const override { return new T(static_cast<const T&>(*this)); }
  std::string typeName() const override { return T::theTypeName(); }
  // An Index holding a new T made from text; throws what T's text
  // constructor throws (Index::eCreationErrors).
  static Index doCreate(const std::string& text) {
    const T object(text);
    return Index(object);
  }
};

}  // namespace kivo::Data
