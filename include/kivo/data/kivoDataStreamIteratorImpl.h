// StreamIteratorImpl: the position of a StreamIterator in one kind of
// storage: a pointer to the current Handle (null: no position at all) and
// an at-end flag. The concrete kinds walk dense and mapped storage; they
// hold plain pointers to the storage and must not outlive it.
#pragma once

#include <kivo/data/kivoDataIndex.h>
#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo {
namespace Debug {
class Print;
class Footprint;
}  // namespace Debug

namespace Data {

class Handle;
class StreamImpl;

class KIVO_EXPORT StreamIteratorImpl {
 public:
  StreamIteratorImpl();
  StreamIteratorImpl(const StreamIteratorImpl& other);
  StreamIteratorImpl& operator=(const StreamIteratorImpl& other);
  virtual ~StreamIteratorImpl();

  // The current handle; throw std::out_of_range("Iterator not at a valid
  // position") when there is none.
  virtual Handle& operator*();
  virtual const Handle& operator*() const;
  virtual Handle* operator->();
  virtual const Handle* operator->() const;
  virtual StreamIteratorImpl& operator++() = 0;
  // Advances this iterator and returns a new copy (owned by the caller) at
  // the position it had before.
  virtual StreamIteratorImpl* operator++(int) = 0;
  // True when not at the end.
  virtual bool valid() const = 0;
  // A new copy at the same position, owned by the caller.
  virtual StreamIteratorImpl* clone() const = 0;
  virtual Index index() const = 0;
  // The storage walked.
  virtual const StreamImpl* myStream() const = 0;

  // Different when the at-end flags differ, else when the storages differ,
  // else when the indices differ.
  bool operator!=(const StreamIteratorImpl& other) const;
  bool operator==(const StreamIteratorImpl& other) const { return !(*this != other); }

  // Print: "StreamIterator at index N" or "StreamIterator at the end"; null
  // prints the class counters.
  static bool Debug(const StreamIteratorImpl* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamIteratorImpl* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 protected:
  Handle* fHandle = nullptr;
  bool fAtEnd = true;
};

}  // namespace Data
}  // namespace kivo
