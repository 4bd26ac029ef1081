// SerializerRegistry.*  the four family registries: lookup by name, repeated
//                       registration, null entries, the raw defaults at load
// SerializerRawKeywords.*  the keyword table
// SerializerRawText.*  collapseWhitespace, standardizeSeparators, splitString
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataChannelSerializer.h>
#include <kivo/serialize/kivoDataSerializerRaw.h>
#include <kivo/serialize/kivoDataStreamSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using kivo::Data::SerializerRaw;
using kivo::Data::StructureSerializer;

// A structure format that only has a name.
class NamedFormat : public StructureSerializer {
 public:
  explicit NamedFormat(const char* name) : fName(name) {}
  const char* formatType() const override { return fName; }
  kivo::Data::Structure* read(std::istream&, std::string&) const override { return nullptr; }
  int write(const kivo::Data::Structure&, std::ostream&) const override { return 0; }
  void getFormatDescription(std::ostream&) const override {}

 private:
  const char* fName;
};

TEST(SerializerRegistry, RegisteringTwiceAndRemovingOnceLeavesItUnregistered) {
  NamedFormat format("twice");
  const size_t before = StructureSerializer::allFormats().size();
  StructureSerializer::registerFormat(format);
  StructureSerializer::registerFormat(format);
  EXPECT_EQ(StructureSerializer::allFormats().size(), before + 1);
  EXPECT_EQ(StructureSerializer::formatByName("twice"), &format);
  StructureSerializer::deregisterFormat(format);
  EXPECT_EQ(StructureSerializer::formatByName("twice"), nullptr);
  StructureSerializer::deregisterFormat(format);  // not registered: no change
  EXPECT_EQ(StructureSerializer::allFormats().size(), before);
}

TEST(SerializerRegistry, SameNameFindsTheFirstInAddressOrderAndSkipsNulls) {
  NamedFormat pair[2] = {NamedFormat("same"), NamedFormat("same")};
  NamedFormat unnamed(nullptr);
  StructureSerializer::registerFormat(pair[1]);
  StructureSerializer::registerFormat(pair[0]);
  StructureSerializer::registerFormat(unnamed);
  StructureSerializer::allFormatsToEdit().insert(nullptr);
  EXPECT_EQ(StructureSerializer::formatByName("same"), &pair[0]);
  EXPECT_EQ(StructureSerializer::formatByName("SAME"), nullptr);
  EXPECT_EQ(StructureSerializer::formatByName(""), nullptr);
  StructureSerializer::allFormatsToEdit().erase(nullptr);
  StructureSerializer::deregisterFormat(unnamed);
  StructureSerializer::deregisterFormat(pair[0]);
  StructureSerializer::deregisterFormat(pair[1]);
  EXPECT_EQ(StructureSerializer::formatByName("same"), nullptr);
}

TEST(SerializerRegistry, DefaultFormatIsReplaceableAndMayBeNull) {
  const StructureSerializer* saved = StructureSerializer::defaultFormat();
  NamedFormat format("other");
  StructureSerializer::setDefaultFormat(&format);
  EXPECT_EQ(StructureSerializer::defaultFormat(), &format);
  StructureSerializer::setDefaultFormat(nullptr);
  EXPECT_EQ(StructureSerializer::defaultFormat(), nullptr);
  StructureSerializer::setDefaultFormat(saved);
}

TEST(SerializerRegistry, DebugNamesTheFormat) {
  NamedFormat format("named");
  std::ostringstream out;
  kivo::Debug::Print print(out);
  EXPECT_TRUE(StructureSerializer::Debug(&format, print));
  EXPECT_EQ(out.str(), "StructureSerializer format 'named'\n");
}

TEST(SerializerRawKeywords, FixedTableWithThreeNameEntries) {
  const char* expected[] = {"=",         "endAssociations", "endChannel", "channel", "name",
                            "indexType", ":",               "raw",        "endStream", "stream",
                            "name",      "structure",       "name"};
  for (unsigned int i = 0; i < 13; ++i) {
    SCOPED_TRACE(i);
    EXPECT_STREQ(SerializerRaw::keyword(static_cast<SerializerRaw::eKeyword>(i)), expected[i]);
  }
  EXPECT_NE(SerializerRaw::kAssociationsName, SerializerRaw::kStreamName);
  EXPECT_NE(SerializerRaw::kStreamName, SerializerRaw::kStructureName);
  EXPECT_STREQ(SerializerRaw::keyword(static_cast<SerializerRaw::eKeyword>(13)), "????");
  EXPECT_STREQ(SerializerRaw::keyword(static_cast<SerializerRaw::eKeyword>(4000000000u)), "????");
}

struct Rewrite {
  std::string (*rewrite)(std::string&);
  const char* text;
  const char* result;
};

// Each rewrite changes its argument in place and returns the result.
TEST(SerializerRawText, CollapseWhitespaceOnlyTrimsStandardizeSeparatorsKeepsTheLastOfEachRun) {
  const auto collapse = SerializerRaw::collapseWhitespace;
  const auto standardize = SerializerRaw::standardizeSeparators;
  const Rewrite cases[] = {
      {collapse, "  a b  ", "a b"},       {collapse, "   ", ""},         {collapse, "", ""},
      {collapse, "a  b", "a  b"},         {collapse, "\t\n\r\v\fx\n", "x"}, {collapse, "x", "x"},
      {standardize, "a\n\n:b\n", "a:b:"}, {standardize, "a\n \nb", "a: :b"},
      {standardize, ":\n::a", ":a"},      {standardize, "a\n:", "a:"},
      {standardize, "a:\n", "a:"},        {standardize, "\n", ":"},
      {standardize, "", ""},              {standardize, "a b", "a b"},
      {standardize, "a: \n:b", "a: :b"},  {standardize, "::::::", ":"},
  };
  for (const Rewrite& c : cases) {
    SCOPED_TRACE(c.text);
    std::string text = c.text;
    EXPECT_EQ(c.rewrite(text), c.result);
    EXPECT_EQ(text, c.result);
  }
}

TEST(SerializerRawText, SplitStringAppendsEveryFieldButATrailingEmptyOne) {
  using Fields = std::vector<std::string>;
  struct Split {
    const char* text;
    Fields fields;
  };
  const Split cases[] = {
      {"a::b", {"a", "", "b"}}, {"a:", {"a"}}, {"", {}}, {":a", {"", "a"}}, {"a", {"a"}},
      {"a::", {"a", ""}},
  };
  for (const Split& c : cases) {
    SCOPED_TRACE(c.text);
    Fields fields;
    EXPECT_EQ(&SerializerRaw::splitString(c.text, ':', fields), &fields);
    EXPECT_EQ(fields, c.fields);
  }
  Fields fields = {"kept"};
  SerializerRaw::splitString("x=y", '=', fields);
  EXPECT_EQ(fields, (Fields{"kept", "x", "y"}));
}

}  // namespace
