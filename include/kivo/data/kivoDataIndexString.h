// IndexString: a complex index made of a text, such as a name. Type name
// "string". Any text is taken as it stands (no trimming, "" is valid), so
// making one never fails. Strings order byte-wise (a prefix first) and have
// no dense mode: streams keyed by strings stay mapped. Against another kind
// of index a string is never equal and sorts by kind. Copies copy the text;
// registered as "string" when the library is loaded.
#pragma once

#include <kivo/data/kivoDataIndexType.h>
#include <kivo/kivoExport.h>
#include <kivo/support/kivoDebugCRTP.h>

#include <cstdint>
#include <string>

namespace kivo::Data {

class KIVO_EXPORT IndexString : public CRTP_IndexType<IndexString>,
                                public kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Print>,
                                public kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Footprint> {
 public:
  static constexpr char myTypeName[] = "string";
  static std::string theTypeName() { return myTypeName; }

  IndexString();
  explicit IndexString(const std::string& text);
  IndexString(const IndexString& other);
  IndexString& operator=(const IndexString& other);
  IndexString& operator=(const std::string& text);
  ~IndexString() override;

  const std::string& indexString() const { return fText; }

  // The text itself.
  std::string asString() const override;
  bool supportsDenseMode() const override { return false; }
  // Always 0.
  uint64_t denseSpaceBetween(const IndexType& other) const override;
  bool operator==(const IndexType& other) const override;
  bool operator!=(const IndexType& other) const override;
  bool operator<(const IndexType& other) const override;
  bool operator<=(const IndexType& other) const override;
  bool operator>(const IndexType& other) const override;
  bool operator>=(const IndexType& other) const override;

  using kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Print>::debug;
  using kivo::Debug::CRTP_Debug<IndexString, kivo::Debug::Footprint>::debug;
  // Print: the text, no newline. Null prints the class counters.
  static bool Debug(const IndexString* index, kivo::Debug::Print& print);
  static bool Debug(const IndexString* index, kivo::Debug::Footprint& footprint);

  static uint64_t _objectsCreated;
  static uint64_t _objectsAlive;

 private:
  // Negative, 0 or positive as this string sorts before, with or after
  // other (of any kind).
  int compare(const IndexType& other) const;

  std::string fText;
};

}  // namespace kivo::Data
