// Ref: one counted reference on a RefCounted object (a Structure, a stream,
// channel or associations implementation): ref() when it takes the object,
// unref() when it lets it go, so the last Ref deletes it. A copy takes a
// reference of its own, a move hands the reference on and leaves the source
// empty. Header-only; the library's own calls keep taking and returning
// plain pointers and references.
//
// Hold a new object, which starts at count 0 (Structure::create(), a
// structure read by a StructureSerializer or by
// AccessorTarn::deserializeStructure), in a Ref before passing it anywhere:
// a call that takes and drops a reference of its own (a member iterator
// does) would otherwise delete it under the caller.
//
//   kivo::Ref<kivo::Data::Structure> s(serializer.read(input, errors));
//   if (s) serializer.write(*s, output);
#pragma once

#include <utility>

namespace kivo {

template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  // Takes a reference on object (none for null).
  explicit Ref(T* object) noexcept : fObject(object) {
    if (fObject) fObject->ref();
  }
  Ref(const Ref& other) noexcept : Ref(other.fObject) {}
  Ref(Ref&& other) noexcept : fObject(std::exchange(other.fObject, nullptr)) {}
  // Takes the new reference before dropping the old one, so assigning a Ref
  // on the same object never deletes it.
  Ref& operator=(Ref other) noexcept {
    std::swap(fObject, other.fObject);
    return *this;
  }
  ~Ref() {
    if (fObject) fObject->unref();
  }

  // Drops the reference held and takes one on object (none for null).
  void reset(T* object = nullptr) { *this = Ref(object); }

  T* get() const noexcept { return fObject; }
  T* operator->() const noexcept { return fObject; }
  T& operator*() const noexcept { return *fObject; }
  explicit operator bool() const noexcept { return fObject != nullptr; }

 private:
  T* fObject = nullptr;
};

}  // namespace kivo
