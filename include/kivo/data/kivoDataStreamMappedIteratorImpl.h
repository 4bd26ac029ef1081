// StreamMappedIteratorImpl: a position in mapped storage, in Index order.
// Its handle is the stored one (writes change the element); at the end it is
// the storage's default handle and index() is Index(). It holds a plain
// pointer to the storage; removing the current element invalidates it.
#pragma once

#include <kivo/data/kivoDataStreamImplMapped.h>
#include <kivo/data/kivoDataStreamIteratorImpl.h>
#include <kivo/kivoExport.h>

#include <cstdint>

namespace kivo::Data {

class KIVO_EXPORT StreamMappedIteratorImpl : public StreamIteratorImpl {
 public:
  // On the first entry when atBegin and the storage has one, else at the end.
  StreamMappedIteratorImpl(const StreamImplMapped& storage, bool atBegin);
  StreamMappedIteratorImpl(const StreamMappedIteratorImpl& other);
  StreamMappedIteratorImpl& operator=(const StreamMappedIteratorImpl& other);
  ~StreamMappedIteratorImpl() override;

  StreamIteratorImpl& operator++() override;
  StreamIteratorImpl* operator++(int) override;
  bool valid() const override { return !fAtEnd; }
  StreamIteratorImpl* clone() const override;
  Index index() const override;
  const StreamImpl* myStream() const override;

  static bool Debug(const StreamMappedIteratorImpl* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamMappedIteratorImpl* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  StreamImplMapped::ElementMap::iterator fPosition;
  StreamImplMapped* fStorage = nullptr;
};

}  // namespace kivo::Data
