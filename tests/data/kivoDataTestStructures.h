// Builders shared by the data tests: structures from a member list, the "v" int32 + "s" string
// element and its values, the names a channel or associations walk through, and the text of a
// thrown exception.
#pragma once

#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataIndex.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/kivoOwnership.h"

namespace kivo::Test {

using StructureRef = Detail::Ref<Data::Structure>;

struct Field {
  Data::Member::eDataType type;
  unsigned int length;
  const char* name;
};

// A new, unregistered structure holding the fields in order; every member must be accepted.
inline StructureRef makeStructure(const char* name, const std::vector<Field>& fields) {
  StructureRef structure(new Data::Structure(name));
  for (const Field& f : fields) EXPECT_TRUE(structure->addMember(f.type, f.length, f.name));
  return structure;
}

// "v" int32 then "s" string, so copies and removals exercise owned text.
inline StructureRef valueAndText(const char* name) {
  return makeStructure(name, {{Data::Member::kInt32, 1, "v"}, {Data::Member::kString, 1, "s"}});
}

// A detached element on its first member: v in that member (an int32) and text in "s" when there
// is one.
inline Data::Handle element(const Data::Structure& structure, int32_t v, const char* text = "") {
  Data::Handle h(structure);
  *h.asInt32() = v;
  std::string errors;
  if (h.setPositionByMemberName("s")) h.fromStr(text, 0, errors);
  h.setPositionByMemberIndex(0);
  return h;
}

// The first member's value, -1 when the handle holds no data.
inline int32_t valueOf(Data::Handle h) {
  return h.setPositionByMemberIndex(0) && h.asInt32() ? *h.asInt32() : -1;
}

// The text in "s", or "?" when there is no such member.
inline std::string textOf(Data::Handle h) { return h.setPositionByMemberName("s") ? h.str(0) : "?"; }

// Stores v and text at index in a stream of valueAndText().
inline void put(Data::Stream& stream, unsigned int index, int32_t v, const char* text) {
  ASSERT_TRUE(stream.setElement(Data::Index(index), element(stream.structure(), v, text)));
}

// The "v" value at index, -1 when the stream holds no element there.
inline int32_t valueAt(const Data::Stream& stream, unsigned int index) {
  return valueOf(stream.element(Data::Index(index)));
}

// Names in iteration order of a Channel (its streams) or Associations (its channels).
template <class Container>
std::vector<std::string> names(const Container& container) {
  std::vector<std::string> result;
  for (auto it = container.begin(); it != container.end(); ++it) result.push_back(it->name());
  return result;
}

// what() of the E thrown by call, or "no exception".
template <class E, class Call>
std::string thrownText(Call&& call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "no exception";
}

}  // namespace kivo::Test
