// AccessorRegistry.*  factories by extension, first registration wins, readFile
// AccessorBase.*      the base write message, the structure order, references
// AccessorRead.*      the read protocol: registry isolation on every path,
//                     structures of an earlier read kept alive
// AccessorTarnPayload.*  deserializing by format name
// AccessorTarnTruncate.*  cutting a file, lengths past the offset range
// ExternalContent.*   roles text, the table's stream, entries, readTable messages
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/access/kivoDataAccessorTarn.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "access/kivoAccessTestFiles.h"
#include "support/kivoOwnership.h"

namespace {

using kivo::Data::Accessor;
using kivo::Data::AccessorFactory;
using kivo::Data::AccessorTarn;
using kivo::Data::Associations;
using kivo::Data::Channel;
using kivo::Data::Handle;
using kivo::Data::Member;
using kivo::Data::Stream;
using kivo::Data::Structure;
using ExternalContent = AccessorTarn::ExternalContent;
using StructureRef = kivo::Detail::Ref<Structure>;

// An accessor whose reading is a test's function.
class ScriptedAccessor : public Accessor {
 public:
  std::function<bool(std::string&)> onRead = [](std::string&) { return true; };

 protected:
  bool performRead(const std::set<std::string>*, const std::set<std::string>*,
                   std::string& errors) override {
    return onRead(errors);
  }
};

// Registers a new structure name { type member } in the current registry.
Structure* declare(const char* name, Member::eDataType type = Member::kInt32) {
  Structure* structure = Structure::create();
  structure->setName(name);
  structure->addMember(type, 1, "member");
  EXPECT_TRUE(Structure::registerStructure(*structure));
  return structure;
}

TEST(AccessorRegistry, FindsTheAsciiAccessorByExtension) {
  for (const char* name : {"scene.TA", "ta", "TA", "dir.x/scene.ta"}) {
    SCOPED_TRACE(name);
    EXPECT_NE(Accessor::accessorByExtension(name), nullptr);
  }
  for (const char* name : {"scene.", "x.abc", "dir.ta/scene", ""}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Accessor::accessorByExtension(name), nullptr);
  }
  EXPECT_EQ(Accessor::supportedExtensions().count("ta"), 1u);
}

TEST(AccessorRegistry, FirstRegistrationWinsAndDestructionRemovesOnlyItsOwn) {
  {
    AccessorFactory<ScriptedAccessor> duplicate("TA");
    AccessorFactory<ScriptedAccessor> own("KvTest");
    EXPECT_EQ(dynamic_cast<ScriptedAccessor*>(Accessor::accessorByExtension("x.ta").get()),
              nullptr);
    EXPECT_NE(dynamic_cast<ScriptedAccessor*>(Accessor::accessorByExtension("x.KVTEST").get()),
              nullptr);
    EXPECT_EQ(Accessor::supportedExtensions().count("kvtest"), 1u);
  }
  EXPECT_EQ(Accessor::supportedExtensions().count("kvtest"), 0u);
  EXPECT_NE(Accessor::accessorByExtension("ta"), nullptr);
}

TEST(AccessorRegistry, ReadFileOfAnUnknownTypeSaysSo) {
  std::string errors = "earlier";
  EXPECT_EQ(Accessor::readFile("x.abc", errors), nullptr);
  EXPECT_EQ(errors, "earlier\nNo factory registered for type of file \"x.abc\"");
}

TEST(AccessorBase, WriteNamesTheClassThatDoesNotImplementIt) {
  ScriptedAccessor accessor;
  std::string errors;
  EXPECT_FALSE(accessor.write(errors));
  EXPECT_NE(errors.find("ScriptedAccessor does not implement write"), std::string::npos) << errors;
  EXPECT_NE(errors.front(), '*');
  EXPECT_TRUE(accessor.isFileSupported("anything"));
}

TEST(AccessorBase, StructureSetOrdersByteWiseAndRefusesNull) {
  StructureRef b(new Structure("b")), upperB(new Structure("B")), a(new Structure("a"));
  Accessor::StructureSet set{b.get(), upperB.get(), a.get()};
  std::string order;
  for (const Structure* s : set) order += s->name();
  EXPECT_EQ(order, "Bab");
  try {
    set.insert(nullptr);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "Null Structure found in StructureSet.");
  }
  // A null alone in a set meets the comparison with the next structure.
  Accessor::StructureSet lone{nullptr};
  EXPECT_THROW(lone.insert(a.get()), std::invalid_argument);
}

TEST(AccessorBase, SetStructuresTakesAndReleasesReferences) {
  StructureRef one(new Structure("one")), two(new Structure("two"));
  {
    ScriptedAccessor accessor;
    accessor.setStructures({one.get()});
    EXPECT_EQ(one->refCount(), 2);
    accessor.setStructures({two.get()});
    EXPECT_EQ(one->refCount(), 1);
    EXPECT_EQ(two->refCount(), 2);
    accessor.setStructures(accessor.structures());
    EXPECT_EQ(two->refCount(), 2);
    accessor.associations()["node"] = Associations();
    accessor.clear();
    EXPECT_EQ(two->refCount(), 1);
    EXPECT_TRUE(accessor.associations().empty());
    accessor.setStructures({one.get(), two.get()});
  }
  EXPECT_EQ(one->refCount(), 1);
  EXPECT_EQ(two->refCount(), 1);
}

// Tests run with the process structure "shared" registered.
class AccessorRead : public ::testing::Test {
 protected:
  void SetUp() override {
    fShared = declare("shared", Member::kDouble);
    fBefore = Structure::allStructures();
  }
  void TearDown() override { Structure::deregisterStructure(*fShared); }

  void expectRegistryUntouched() {
    EXPECT_EQ(Structure::allStructures(), fBefore);
    EXPECT_EQ(Structure::structureByName("shared"), fShared);
    EXPECT_EQ(fShared->refCount(), 1);
  }

  Structure* fShared = nullptr;
  Structure::StructureSet fBefore;
};

TEST_F(AccessorRead, KeepsTheFileStructuresApartFromTheProcessOnes) {
  ScriptedAccessor accessor;
  accessor.onRead = [&](std::string&) {
    EXPECT_TRUE(Structure::allStructures().empty());
    declare("shared");
    declare("fileOnly");
    accessor.associations()["node"] = Associations();
    return true;
  };
  std::string errors;
  EXPECT_TRUE(accessor.read("f.ta", errors));
  expectRegistryUntouched();
  ASSERT_EQ(accessor.structures().size(), 2u);
  const Structure* fromFile = *accessor.structures().rbegin();
  EXPECT_STREQ(fromFile->name(), "shared");
  EXPECT_NE(fromFile, fShared);
  EXPECT_EQ(fromFile->refCount(), 1);
  EXPECT_EQ(accessor.associations().size(), 1u);
}

TEST_F(AccessorRead, RestoresTheRegistryAfterAFailureOrAnException) {
  ScriptedAccessor accessor;
  accessor.setStructures({fShared});
  accessor.onRead = [&](std::string& errors) {
    declare("shared");
    accessor.associations()["node"] = Associations();
    errors += "bad file";
    return false;
  };
  std::string errors;
  EXPECT_FALSE(accessor.read("bad.ta", errors));
  EXPECT_EQ(errors, "bad file");
  EXPECT_EQ(accessor.fileName(), "bad.ta");
  EXPECT_TRUE(accessor.structures().empty());
  EXPECT_TRUE(accessor.associations().empty());
  EXPECT_EQ(fShared->refCount(), 2);  // set aside, not released, by the read

  accessor.onRead = [&](std::string&) -> bool {
    declare("shared");
    throw std::runtime_error("thrown");
  };
  EXPECT_THROW(accessor.read("throws.ta", errors), std::runtime_error);
  EXPECT_TRUE(accessor.structures().empty());
  EXPECT_EQ(Structure::allStructures(), fBefore);
}

TEST_F(AccessorRead, KeepsStructuresOfAnEarlierReadAliveUntilDestroyed) {
  const uint64_t alive = Structure::_objectsAlive;
  {
    ScriptedAccessor accessor;
    accessor.onRead = [](std::string&) { return declare("first") != nullptr; };
    std::string errors;
    ASSERT_TRUE(accessor.read("a.ta", errors));
    const Structure* first = *accessor.structures().begin();
    accessor.onRead = [](std::string&) { return declare("second") != nullptr; };
    ASSERT_TRUE(accessor.read("a.ta", errors));
    EXPECT_STREQ(first->name(), "first");
    EXPECT_EQ(first->refCount(), 1);
    EXPECT_EQ(Structure::_objectsAlive, alive + 2);
  }
  EXPECT_EQ(Structure::_objectsAlive, alive);
  expectRegistryUntouched();
}

TEST(AccessorTarnPayload, DeserializesByFormatNameOnly) {
  std::string errors;
  EXPECT_EQ(AccessorTarn::deserializeStructure("nope", "name=S:int32=a", errors), nullptr);
  EXPECT_EQ(errors, "Could not find serializer for format nope");
  Associations out;
  out.channel("kept");
  errors.clear();
  EXPECT_FALSE(AccessorTarn::deserializeAssociations("RAW", "endAssociations\n", out, errors));
  EXPECT_EQ(errors, "Could not find serializer for format RAW");
  EXPECT_EQ(out.channelCount(), 1u);

  errors.clear();
  const uint64_t alive = Structure::_objectsAlive;
  const Structure* s = AccessorTarn::deserializeStructure("raw", "name=S:int32=a", errors);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(s->refCount(), 0);
  EXPECT_EQ(Structure::structureByName("S"), nullptr);
  { kivo::Detail::Ref<const Structure> owner(s); }  // the caller's ref() and unref()
  EXPECT_EQ(Structure::_objectsAlive, alive);
}

TEST(AccessorTarnTruncate, CutsToTheLengthAndRefusesLengthsPastTheOffsetRange) {
  kivo::Test::TempFolder folder;
  const std::string path = folder.path("cut.ta");
  kivo::Test::writeBytes(path, "0123456789");
  for (const uint64_t length : {~uint64_t(0), uint64_t(1) << 63}) {
    SCOPED_TRACE(length);
    EXPECT_FALSE(AccessorTarn::truncateFile(path, length));
  }
  EXPECT_EQ(kivo::Test::readBytes(path), "0123456789");
  EXPECT_TRUE(AccessorTarn::truncateFile(path, 4));
  EXPECT_EQ(kivo::Test::readBytes(path), "0123");
  EXPECT_FALSE(AccessorTarn::truncateFile(folder.path("missing.ta"), 0));
}

struct RolesCase {
  std::set<std::string> roles;
  const char* text;
};

TEST(ExternalContent, RolesTextEscapesDashThenSemicolon) {
  const RolesCase cases[] = {
      {{}, ""},
      {{"a;b", "c-d"}, "a-*b;c--d"},
      {{"-*"}, "--*"},
      {{"x-", ";"}, "-*;x--"},
      {{"plain", "two words"}, "plain;two words"},
  };
  for (const RolesCase& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ExternalContent::rolesText(c.roles), c.text);
    std::set<std::string> back;
    ExternalContent::rolesFromText(c.text, back);
    EXPECT_EQ(back, c.roles);
  }
  std::set<std::string> odd;
  ExternalContent::rolesFromText("a-x;b-", odd);
  EXPECT_EQ(odd, (std::set<std::string>{"a-x", "b-"}));
}

TEST(ExternalContent, StreamIsFoundOnlyWhereTheTableLives) {
  StructureRef table(new Structure("externalContentTable"));
  table->addMember(Member::kString, 1, "node");
  Associations scene;
  EXPECT_EQ(ExternalContent::getStream(scene), nullptr);
  EXPECT_EQ(ExternalContent::getStream(static_cast<const Associations&>(scene)), nullptr);
  Channel channel = scene.channel("externalContentTable");
  EXPECT_EQ(ExternalContent::getStream(scene), nullptr);
  channel.setDataStream(Stream(*table, "v1.0"));
  const Associations& constScene = scene;
  ASSERT_NE(ExternalContent::getStream(constScene), nullptr);
  EXPECT_EQ(ExternalContent::getStream(scene)->name(), "v1.0");

  ScriptedAccessor accessor;
  const Accessor& constAccessor = accessor;
  accessor.associations()["node"] = scene;
  EXPECT_EQ(ExternalContent::getStream(accessor), nullptr);
  EXPECT_EQ(ExternalContent::getStream(constAccessor), nullptr);
  accessor.associations()[""] = scene;
  EXPECT_EQ(ExternalContent::getStream(accessor), ExternalContent::getStream(scene));
  EXPECT_EQ(ExternalContent::getStream(constAccessor), ExternalContent::getStream(scene));
}

TEST(ExternalContent, EntryMembersTheStructureLacksAreSkipped) {
  StructureRef partial(new Structure("externalContentTable"));
  partial->addMember(Member::kString, 1, "node");
  partial->addMember(Member::kString, 1, "rpath");
  Handle h(*partial);
  ExternalContent::setEntry(h, "n", "k", "u", "r", {"role"});
  std::string node, key = "old", upath = "old", rpath;
  std::set<std::string> roles;
  ExternalContent::getEntry(h, node, key, upath, rpath, roles);
  EXPECT_EQ(node + "|" + key + "|" + upath + "|" + rpath, "n|||r");
  EXPECT_TRUE(roles.empty());
  ExternalContent::updateEntry(h, "r2");
  ExternalContent::getEntry(h, node, key, upath, rpath, roles);
  EXPECT_EQ(rpath, "r2");
}

TEST(ExternalContent, ReadTableOfAnUnknownTypeSaysSo) {
  Associations out;
  std::string errors;
  EXPECT_FALSE(ExternalContent::readTable("x.unknown", out, errors));
  EXPECT_EQ(errors, "No accessor found for type of file \"x.unknown\"");
}

}  // namespace
