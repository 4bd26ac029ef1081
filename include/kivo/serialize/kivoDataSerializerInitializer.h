// SerializerInitializer<T>: registers the format T::theFormat() in its
// family's registry on construction and removes it again on destruction; the
// format instance itself is never freed. A static instance in a format's
// source file registers the format while the library is loaded. Not
// copyable.
#pragma once

namespace kivo::Data {

template <class T>
class SerializerInitializer {
 public:
  SerializerInitializer() : fFormat(T::theFormat()) { T::registerFormat(*fFormat); }
  ~SerializerInitializer() { T::deregisterFormat(*fFormat); }
  SerializerInitializer(const SerializerInitializer&) = delete;
  SerializerInitializer& operator=(const SerializerInitializer&) = delete;

  T* format() const { return fFormat; }

 private:
  T* fFormat;
};

}  // namespace kivo::Data
