// DebugPrint.*  indentation, sections, filters and value formatting
// DebugFootprint.*  totals and their line
// RefCounted.*  counts across ref/unref, copy and assignment
// Ref.*  one reference per holder, the last one deletes
// Checkpointed.*  the exact increments of the global counter
#include <kivo/support/kivoCheckpointed.h>
#include <kivo/support/kivoDebugFootprint.h>
#include <kivo/support/kivoDebugPrint.h>
#include <kivo/support/kivoRef.h>
#include <kivo/support/kivoRefCounted.h>

#include <gtest/gtest.h>

#include <sstream>
#include <utility>

namespace {

using kivo::Checkpointed;
using kivo::RefCounted;
using kivo::Debug::Footprint;
using kivo::Debug::Print;

TEST(DebugPrint, SectionWithBracesReturnsToLevelZero) {
  std::ostringstream out;
  Print print(out);
  print.beginSection("A");
  print.endSection();
  EXPECT_EQ(out.str(), "A\n{\n}\n");
  EXPECT_EQ(print.indent(0), 0);
}

TEST(DebugPrint, NestedSectionsIndentEveryWrite) {
  std::ostringstream out;
  Print print(out);
  print.beginSection("Outer");
  print << "x" << 1 << "\n";
  print.setSectionStyle(Print::kIndentOnly);
  print.beginSection("Inner");
  print << "y\n";
  print.endSection();
  print.setSectionStyle(Print::kBraces);
  print.endSection();
  EXPECT_EQ(out.str(),
            "Outer\n{\n"
            "    x    1    \n"
            "    Inner\n"
            "        y\n"
            "}\n");
}

TEST(DebugPrint, SkipNextIndentAppliesOnce) {
  std::ostringstream out;
  Print print(out);
  print.indent(1);
  print.setIndentString("..");
  print.skipNextIndent(true);
  print << "a";
  print << "b";
  EXPECT_EQ(out.str(), "a..b");
}

TEST(DebugPrint, FormatsValuesHexAndPointers) {
  std::ostringstream out;
  Print print(out);
  unsigned char bytes[] = {0x00, 0xab, 0x10};
  print << 1.5f << ' ' << -7L << ' ' << 42UL << ' ';
  print.outputHexChars(3, bytes);
  EXPECT_EQ(out.str(), "1.5 -7 42 00 ab 10 ");
  std::ostringstream pointer;
  Print pointerPrint(pointer);
  pointerPrint << static_cast<const void*>(nullptr);
  EXPECT_EQ(pointer.str().rfind("0x", 0), 0u);
}

TEST(DebugPrint, FiltersAreSetReplacedAndRemoved) {
  std::ostringstream out;
  Print print(out);
  int level = -1;
  EXPECT_FALSE(print.findFilter("hex", level));
  EXPECT_EQ(print.addFilter("hex", 2), 2);
  print.addFilter("hex", 3);
  ASSERT_TRUE(print.findFilter("hex", level));
  EXPECT_EQ(level, 3);
  print.removeFilter("hex");
  EXPECT_FALSE(print.findFilter("hex", level));
}

TEST(DebugFootprint, CountsBytesAndFragmentsOnOneLine) {
  Footprint footprint;
  int a = 0;
  footprint.addMember(&a, 8);
  footprint.addMember(&a, 16);
  std::ostringstream out;
  Print print(out);
  EXPECT_TRUE(Footprint::Debug(&footprint, print));
  EXPECT_TRUE(Footprint::Debug(nullptr, print));
  EXPECT_EQ(out.str(), "Footprint : 24 byte(s), 2 memory fragment(s).\n");
  footprint.setIgnoreObjects(true);
  footprint.addObject(&a, 100);
  EXPECT_EQ(footprint.totalSize(), 24u);
  footprint.clear();
  EXPECT_EQ(footprint.totalFragments(), 0u);
}

// Counts its own destruction so tests can see unref() delete it.
struct Probe : RefCounted {
  explicit Probe(int* deaths) : fDeaths(deaths) {}
  ~Probe() override { ++*fDeaths; }
  int* fDeaths;
};

TEST(RefCounted, StartsAtZeroAndDeletesOnLastUnref) {
  int deaths = 0;
  Probe* probe = new Probe(&deaths);
  EXPECT_EQ(probe->refCount(), 0);
  EXPECT_FALSE(probe->isShared());
  probe->ref();
  probe->ref();
  EXPECT_TRUE(probe->isShared());
  probe->unref();
  EXPECT_FALSE(probe->isShared());
  EXPECT_EQ(deaths, 0);
  probe->unref();
  EXPECT_EQ(deaths, 1);
}

TEST(RefCounted, CountIsNeverCopiedOrAssigned) {
  int deaths = 0;
  Probe a(&deaths);
  a.ref();
  a.ref();
  Probe b(a);
  EXPECT_EQ(b.refCount(), 0);
  EXPECT_EQ(a.refCount(), 2);
  b.ref();
  b = a;
  EXPECT_EQ(b.refCount(), 1);
  EXPECT_EQ(a.refCount(), 2);
  std::ostringstream out;
  Print print(out);
  RefCounted::Debug(&a, print);
  RefCounted::Debug(nullptr, print);
  EXPECT_EQ(out.str(), "RefCount : 2\n");
}

TEST(Ref, HoldsOneReferenceEachAndTheLastDeletes) {
  int deaths = 0;
  Probe* probe = new Probe(&deaths);  // count 0, as a structure fresh from a reader
  {
    kivo::Ref<Probe> a(probe);
    kivo::Ref<Probe> b = a;
    EXPECT_EQ(probe->refCount(), 2);
    kivo::Ref<Probe> c = std::move(b);  // handed on, not added
    EXPECT_FALSE(b);
    EXPECT_EQ(probe->refCount(), 2);
    a = c;  // the same object: the new reference comes before the old one goes
    c.reset();
    EXPECT_EQ(probe->refCount(), 1);
    EXPECT_EQ(c.get(), nullptr);
    EXPECT_EQ(a.get(), probe);
  }
  EXPECT_EQ(deaths, 1);
}

TEST(Checkpointed, ConstructionAddsOneAndCopyAddsTwo) {
  const uint64_t before = Checkpointed::globalCheckpoint();
  Checkpointed a;
  EXPECT_EQ(Checkpointed::globalCheckpoint(), before + 1);
  EXPECT_EQ(a.checkpoint(), before + 1);
  EXPECT_TRUE(a.classChangedSinceCheckpoint(before));
  Checkpointed b(a);
  EXPECT_EQ(Checkpointed::globalCheckpoint(), before + 3);
  EXPECT_EQ(b.checkpoint(), before + 3);
  b = a;
  EXPECT_EQ(b.checkpoint(), before + 4);
  {
    Checkpointed c;
  }
  EXPECT_EQ(Checkpointed::globalCheckpoint(), before + 6);
  EXPECT_EQ(Checkpointed::sClassCheckpoint(), before + 6);
}

TEST(Checkpointed, ComparisonsAreStrict) {
  Checkpointed a;
  EXPECT_FALSE(a.changedSinceCheckpoint(a.checkpoint()));
  EXPECT_TRUE(a.changedSinceCheckpoint(a.checkpoint() - 1));
  EXPECT_FALSE(a.classChangedSinceCheckpoint(a.classCheckpoint()));
  const uint64_t saved = a.checkpoint();
  a.objectChanged();
  EXPECT_TRUE(a.changedSinceCheckpoint(saved));
}

TEST(Checkpointed, PrintsObjectAndClassLines) {
  Checkpointed a;
  std::ostringstream out;
  Print print(out);
  Checkpointed::Debug(&a, print);
  Checkpointed::Debug(nullptr, print);
  const std::string g = std::to_string(Checkpointed::globalCheckpoint());
  EXPECT_EQ(out.str(), "Checkpoint : " + std::to_string(a.checkpoint()) +
                           "\nClass Checkpoint  : " + std::to_string(Checkpointed::sClassCheckpoint()) +
                           "\nGlobal Checkpoint : " + g + "\n");
}

}  // namespace
