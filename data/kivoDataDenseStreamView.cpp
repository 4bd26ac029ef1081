#include <kivo/data/kivoDataDenseStreamView.h>

#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStreamImplDense.h>
#include <kivo/data/kivoDataStructure.h>

#include <cstring>
#include <utility>

namespace kivo::Data {

DenseStreamView::DenseStreamView() = default;

DenseStreamView::DenseStreamView(const Stream& stream) {
  auto* dense = dynamic_cast<StreamImplDense*>(&stream.impl());
  if (!dense) return;
  fImpl = Ref<StreamImpl>(dense);
  pin();
  const Structure& structure = dense->structure();
  fBase = dense->elementAddr(Index(0u));
  fStride = structure.totalSize();
  fCount = fBase ? dense->elementCount() : 0;
  fColumns.reserve(structure.memberCount());
  for (const Member& member : structure) {
    fColumns.push_back(
        {Member::name(&member), Member::type(&member), Member::length(&member), Member::offset(&member)});
  }
}

DenseStreamView::DenseStreamView(const DenseStreamView& other)
    : fImpl(other.fImpl),
      fBase(other.fBase),
      fStride(other.fStride),
      fCount(other.fCount),
      fColumns(other.fColumns) {
  pin();
}

DenseStreamView::DenseStreamView(DenseStreamView&& other) noexcept
    : fImpl(std::move(other.fImpl)),
      fBase(std::exchange(other.fBase, nullptr)),
      fStride(std::exchange(other.fStride, 0)),
      fCount(std::exchange(other.fCount, 0)),
      fColumns(std::move(other.fColumns)) {}

DenseStreamView& DenseStreamView::operator=(DenseStreamView other) noexcept {
  std::swap(fImpl, other.fImpl);
  std::swap(fBase, other.fBase);
  std::swap(fStride, other.fStride);
  std::swap(fCount, other.fCount);
  fColumns.swap(other.fColumns);
  return *this;
}

DenseStreamView::~DenseStreamView() { release(); }

void DenseStreamView::release() {
  if (fImpl) fImpl->fPins.fetch_sub(1, std::memory_order_relaxed);
  fImpl = Ref<StreamImpl>();
  fBase = nullptr;
  fStride = 0;
  fCount = 0;
  fColumns.clear();
}

const DenseStreamView::Column* DenseStreamView::column(const char* name,
                                                       Member::eDataType type) const {
  if (!name) return nullptr;
  for (const Column& c : fColumns) {
    if (c.type == type && c.name && std::strcmp(c.name, name) == 0) return &c;
  }
  return nullptr;
}

void DenseStreamView::pin() {
  if (fImpl) fImpl->fPins.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace kivo::Data
