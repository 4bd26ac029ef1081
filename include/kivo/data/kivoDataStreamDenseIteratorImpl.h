// StreamDenseIteratorImpl: a position in dense storage: a slot number and a
// handle of its own, re-pointed at each slot (no copying). Every slot below
// the element count is visited, never-set ones included. Past the last
// element its handle has no data and index() is Index(0xFFFFFFFF). It holds
// a plain pointer to the storage and dies when the block grows.
#pragma once

#include <kivo/data/kivoDataStreamIteratorImpl.h>
#include <kivo/kivoExport.h>

#include <cstdint>
#include <memory>

namespace kivo::Data {

class StreamImplDense;

class KIVO_EXPORT StreamDenseIteratorImpl : public StreamIteratorImpl {
 public:
  // On slot 0 when atBegin and the storage has elements, else at the end.
  StreamDenseIteratorImpl(const StreamImplDense& storage, bool atBegin);
  // Same storage and slot; a handle of its own on the same data.
  StreamDenseIteratorImpl(const StreamDenseIteratorImpl& other);
  StreamDenseIteratorImpl& operator=(const StreamDenseIteratorImpl& other);
  ~StreamDenseIteratorImpl() override;

  StreamIteratorImpl& operator++() override;
  StreamIteratorImpl* operator++(int) override;
  bool valid() const override { return !fAtEnd; }
  StreamIteratorImpl* clone() const override;
  Index index() const override;
  const StreamImpl* myStream() const override;

  static bool Debug(const StreamDenseIteratorImpl* impl, kivo::Debug::Print& print);
  static bool Debug(const StreamDenseIteratorImpl* impl, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  StreamImplDense* fStorage = nullptr;
  std::unique_ptr<Handle> fOwnHandle;
  uint32_t fSlot = 0;
};

}  // namespace kivo::Data
