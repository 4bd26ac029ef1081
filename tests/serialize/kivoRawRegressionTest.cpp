// StructureRawHostile.*  structure texts found by fuzzing: whatever the reader
//                        accepts, its writer writes as a text that reads back
//                        equal, and nothing in a name is dropped silently
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataStructureSerializerRaw.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Structure;
using kivo::Data::StructureSerializerRaw;
using StructureRef = kivo::Detail::Ref<Structure>;

StructureRef readText(const std::string& text, std::string& errors) {
  std::istringstream in(text);
  return StructureRef(StructureSerializerRaw::theFormat()->read(in, errors));
}

std::string writeText(const Structure& structure) {
  std::ostringstream out;
  EXPECT_EQ(StructureSerializerRaw::theFormat()->write(structure, out), 0);
  return out.str();
}

// "name==" and "name= =" split into the key and an empty value: a structure
// named "" would be written as "name=", which reads as a field without '='
// and no name at all.
TEST(StructureRawHostile, EmptyNameIsRefusedOrReadsBack) {
  for (const char* text : {"int32=a:name==", "name= =:int32=a"}) {
    SCOPED_TRACE(text);
    std::string errors;
    StructureRef first = readText(text, errors);
    if (!first) {
      EXPECT_FALSE(errors.empty());
      continue;
    }
    const std::string written = writeText(*first);
    StructureRef second = readText(written, errors);
    ASSERT_TRUE(second) << written << " gives " << errors;
    EXPECT_TRUE(*second == *first) << written;
  }
}

// A NUL inside a name would cut the name short ("a\0b" stored as "a"), and
// a name cut just after a blank ("b\f\0c") no longer reads back, since the
// reader trims names: such text is refused with a message.
TEST(StructureRawHostile, NulInsideANameIsRefused) {
  const std::string texts[] = {
      std::string("name=S:int32=a\0b", 16),
      std::string("name=S:int32=b\f\0c", 17),
      std::string("name=S\0T:int32=a", 16),
  };
  const char* const messages[] = {
      "Field 'int32=a\\0b' holds a NUL character",
      "Field 'int32=b\f\\0c' holds a NUL character",
      "Field 'name=S\\0T' holds a NUL character\n"
      "Name is missing; member type 'name' is used to set it",
  };
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(texts[i]);
    std::string errors;
    EXPECT_FALSE(readText(texts[i], errors));
    EXPECT_EQ(errors, messages[i]);
  }
  std::string errors;
  EXPECT_FALSE(readText("int32=a:name=", errors));
  EXPECT_EQ(errors,
            "Member type and name must be separated by '='\n"
            "Name is missing; member type 'name' is used to set it");
  EXPECT_FALSE(readText("int32=a:name= =", errors));
  EXPECT_EQ(errors, "Name is missing; member type 'name' is used to set it\n"
                    "Name is missing; member type 'name' is used to set it");
}

}  // namespace
