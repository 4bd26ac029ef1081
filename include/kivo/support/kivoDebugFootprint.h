// Footprint: a memory total of objects and the fragments they own. Each data
// class adds its own object size with addObject() and its owned blocks with
// addMember(), recursing into what it owns.
#pragma once

#include <kivo/kivoExport.h>

namespace kivo::Debug {

class Print;

class KIVO_EXPORT Footprint {
 public:
  Footprint() = default;
  virtual ~Footprint() = default;

  // Resets both totals.
  virtual void clear();
  // Adds size bytes and one fragment.
  virtual void addMember(const void* p, unsigned long size);
  // As addMember(), unless objects are being ignored.
  virtual void addObject(const void* p, unsigned long size);

  unsigned long totalSize() const { return fTotalSize; }
  unsigned long totalFragments() const { return fTotalFragments; }
  // When set, addObject() ignores what it is given. Nothing in the library
  // sets it; callers that count only owned blocks may.
  void setIgnoreObjects(bool ignore) { fIgnoreObjects = ignore; }

  // "Footprint : N byte(s), M memory fragment(s)." and a newline; a null
  // footprint writes nothing. Returns true.
  static bool Debug(const Footprint* footprint, Print& print);

 private:
  unsigned long fTotalSize = 0;
  unsigned long fTotalFragments = 0;
  bool fIgnoreObjects = false;
};

}  // namespace kivo::Debug
