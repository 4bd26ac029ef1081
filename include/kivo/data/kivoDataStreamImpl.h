// StreamImpl: the shared, reference-counted state behind Stream handles, and
// the abstract storage interface that StreamImplMapped (sparse) and
// StreamImplDense (one block) implement. It holds one reference on its
// structure, the stream's name, the index type's name and the use-defaults
// flag. A new implementation starts at count 0; the Stream taking it calls
// ref(). Copies get the source's name, structure and index type (not the
// flag); the storage kinds copy their elements deeply. It also counts the
// DenseStreamViews pinning its storage (pinCount()); a copy starts unpinned.
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStreamIterator.h>
#include <kivo/kivoExport.h>
#include <kivo/support/kivoDebugCRTP.h>
#include <kivo/support/kivoRefCounted.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace kivo::Data {

class Handle;
class Structure;

class KIVO_EXPORT StreamImpl : public RefCounted,
                               public kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Print>,
                               public kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Footprint> {
 public:
  // References structure; numeric index type.
  StreamImpl(const Structure& structure, const std::string& name);
  // Named "Stream", on a new empty structure, numeric index type.
  StreamImpl();
  StreamImpl(const StreamImpl& other);
  // Name, structure (new reference taken before the old is dropped) and
  // index type; the use-defaults flag stays.
  StreamImpl& operator=(const StreamImpl& other);
  ~StreamImpl() override;

  // A new implementation of the same kind with deep copies of the elements;
  // the caller owns it (count 0).
  virtual StreamImpl* clone() const = 0;
  // Iterators over this storage; begin() == end() when it is empty.
  virtual StreamIterator begin() const = 0;
  virtual StreamIterator end() const = 0;
  virtual StreamIterator cbegin() const = 0;
  virtual StreamIterator cend() const = 0;
  virtual unsigned int elementCount() const = 0;
  // Copies each element of other at numeric index 0 .. count - 1 that has
  // data; false at the first one that cannot be stored.
  virtual bool mergeStream(const StreamImpl& other);
  // Returns the previous value.
  virtual bool setUseDefaults(bool useDefaults);
  virtual bool useDefaults() const;
  virtual bool setElement(const Index& index, const Handle& handle) = 0;
  virtual Handle element(const Index& index) const = 0;
  virtual bool hasElement(const Index& index) const = 0;
  virtual bool reindexElement(const Index& from, const Index& to) = 0;
  virtual bool swapElements(const Index& a, const Index& b) = 0;
  virtual bool removeElement(const Index& index) = 0;
  virtual bool setElementRange(const Index& first, const Index& last) = 0;
  virtual bool clear() = 0;

  const Structure& structure() const { return *fStructure; }
  // False while there are elements or pins; otherwise references the new
  // structure and drops the old one.
  bool setStructure(const Structure& structure);
  const std::string& name() const { return fName; }
  void setName(const std::string& name) { fName = name; }
  const std::string& indexType() const { return fIndexType; }
  // False for an unregistered type name or while there are elements or
  // pins; otherwise clears the storage and stores the name.
  bool setIndexType(const std::string& typeName);
  // Deep copy of handle's element into dest (totalSize() bytes, holding no
  // strings of its own); false when dest or the handle's data is null.
  bool copyElementFromHandle(char* dest, const Handle& handle) const;
  // The number of live DenseStreamViews onto this storage. While it is not
  // 0 the element count and the storage's memory stay as they are: every
  // call that would change or move them is refused (false); a caller tells
  // such a refusal from others by this count.
  unsigned int pinCount() const { return fPins.load(std::memory_order_relaxed); }

  using kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Print>::debug;
  using kivo::Debug::CRTP_Debug<StreamImpl, kivo::Debug::Footprint>::debug;
  // "Data Stream 'name' uses structure 'structure' with index type 'type'";
  // null prints the class counters.
  static bool Debug(const StreamImpl* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamImpl* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  // Called by setStructure with the structure being replaced, after the
  // new one is in place and before the old reference is dropped, so that
  // storage laid out for the old structure can be released through it.
  virtual void structureReplaced(const Structure& previous);

 private:
  friend class DenseStreamView;

  const Structure* fStructure = nullptr;
  std::string fName;
  std::string fIndexType;
  bool fUseDefaults = false;
  mutable std::atomic<uint32_t> fPins{0};
};

}  // namespace kivo::Data
