// SharedLibrary.*  what a program linking the shared library sees: exported
// classes and the registrations made when the library is loaded.
#include <kivo/kivo.h>

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(SharedLibrary, ExportsSupportAndDataClasses) {
  using kivo::Data::Member;
  EXPECT_STREQ(Member::typeName(Member::kDoubleMatrix4x4), "dbl4x4");
  std::ostringstream out;
  kivo::Debug::Print print(out);
  kivo::Checkpointed stamp;
  EXPECT_TRUE(kivo::Checkpointed::Debug(&stamp, print));
  EXPECT_EQ(out.str().rfind("Checkpoint : ", 0), 0u);
}

TEST(SharedLibrary, RegistersPairAndStringIndexTypesAtLoad) {
  using kivo::Data::Index;
  EXPECT_EQ(Index::doCreate("pair", "3 4").asString(), "3 4");
  EXPECT_EQ(Index::doCreate("string", "edge").typeName(), "string");
}

}  // namespace
