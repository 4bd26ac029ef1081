// CRTP_Debug<T, X>: connects a class's static Debug(const T*, X&) to a
// virtual debug(X&), X being Print or Footprint. Classes deriving from both
// instantiations bring both debug() overloads into scope with using-declarations.
#pragma once

namespace kivo::Debug {

template <class T, class X>
class CRTP_Debug {
 public:
  virtual ~CRTP_Debug() = default;
  virtual bool debug(X& x) const { return T::Debug(static_cast<const T*>(this), x); }
};

}  // namespace kivo::Debug
