// AccessorDebugText.*    what the debug output of accessors, their factories
//                        and the serializer families tells: the file, the
//                        names read, the registered extensions and formats
// AccessorEmptyFileName.*  a read of "" in both formats
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataChannelSerializer.h>
#include <kivo/serialize/kivoDataStreamSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "access/kivoAccessTestFiles.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::AccessorFactory;
using kivo::Data::AccessorFactoryBase;

template <class T>
std::string printed(const T* object) {
  std::ostringstream out;
  {
    kivo::Debug::Print print(out);
    EXPECT_TRUE(T::Debug(object, print));
  }
  return out.str();
}

// An accessor of its own format, which reads nothing.
class NullAccessor : public Accessor {
 protected:
  bool performRead(const std::set<std::string>*, const std::set<std::string>*,
                   std::string&) override {
    return true;
  }
};

TEST(AccessorDebugText, TellsTheFileAndTheNamesRead) {
  kivo::Test::TempFolder folder;
  const std::string path = folder.path("scene.ta");
  kivo::Test::writeBytes(path,
                         kivo::Test::asciiBody(100) +
                             "dataStructure -fmt \"raw\" -as \"name=edgeCrease:int8=b\";\n"
                             "applyMetadata -fmt \"raw\" -v \"endAssociations\" \n\t\tpCube1;\n" +
                             kivo::Test::kAsciiTrailer);
  std::string errors;
  std::unique_ptr<Accessor> accessor = Accessor::readFile(path, errors);
  ASSERT_NE(accessor, nullptr) << errors;
  const std::string text = printed(accessor.get());
  for (const std::string& fact :
       {"'" + path + "'", std::string("(1) 'edgeCrease'"), std::string("(1) 'pCube1'")})
    EXPECT_NE(text.find(fact), std::string::npos) << fact << " in " << text;
  EXPECT_NE(printed<Accessor>(nullptr).find(" ta tb"), std::string::npos);

  kivo::Debug::Footprint footprint;
  EXPECT_TRUE(Accessor::Debug(accessor.get(), footprint));
  EXPECT_GT(footprint.totalSize(), sizeof(Accessor));
  EXPECT_TRUE(Accessor::Debug(nullptr, footprint));
}

TEST(AccessorDebugText, FactoriesTellTheirExtension) {
  const uint64_t alive = AccessorFactoryBase::_objectsAlive;
  {
    AccessorFactory<NullAccessor> factory("NuLL");
    EXPECT_NE(printed<AccessorFactoryBase>(&factory).find("'null'"), std::string::npos);
    EXPECT_NE(printed<AccessorFactoryBase>(nullptr).find(std::to_string(alive + 1)),
              std::string::npos);
    kivo::Debug::Footprint footprint;
    EXPECT_TRUE(AccessorFactoryBase::Debug(&factory, footprint));
    EXPECT_TRUE(AccessorFactoryBase::Debug(nullptr, footprint));
    EXPECT_EQ(footprint.totalSize(), sizeof(AccessorFactoryBase));
  }
  EXPECT_EQ(AccessorFactoryBase::_objectsAlive, alive);
  EXPECT_EQ(Accessor::accessorByExtension("null"), nullptr);
}

TEST(AccessorDebugText, SerializerFamiliesTellTheirFormatsAndDefault) {
  using namespace kivo::Data;
  const std::string texts[] = {printed<StructureSerializer>(nullptr),
                               printed<StreamSerializer>(nullptr),
                               printed<ChannelSerializer>(nullptr),
                               printed<AssociationsSerializer>(nullptr),
                               printed(ChannelSerializer::formatByName("raw")),
                               printed(AssociationsSerializer::formatByName("raw"))};
  for (const std::string& text : texts) EXPECT_NE(text.find("'raw'"), std::string::npos) << text;
  kivo::Debug::Footprint footprint;
  EXPECT_TRUE(StructureSerializer::Debug(StructureSerializer::formatByName("raw"), footprint));
  EXPECT_TRUE(ChannelSerializer::Debug(ChannelSerializer::formatByName("raw"), footprint));
  EXPECT_TRUE(AssociationsSerializer::Debug(nullptr, footprint));
  EXPECT_GT(footprint.totalSize(), 0u);
}

TEST(AccessorEmptyFileName, IsRefusedInBothFormats) {
  for (const char* extension : {"ta", "tb"}) {
    SCOPED_TRACE(extension);
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(extension);
    std::string errors;
    EXPECT_FALSE(accessor->read("", errors));
    EXPECT_EQ(errors, "Empty file name.");
  }
}

}  // namespace
