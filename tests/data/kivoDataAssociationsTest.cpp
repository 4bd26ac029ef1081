// AssociationsChannels.*  channels by name: on-demand creation, replacement, order, lookups
// AssociationsSharing.*   handles share, makeUnique separates channels and stream data
// AssociationsIterator.*  walking, exception texts, the post-increment
// AttachDirectly.*        held metadata: null at first, shared on set and copy
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataAttachDirectly.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kivoDataTestStructures.h"

namespace {

using kivo::Data::Associations;
using kivo::Data::AssociationsIterator;
using kivo::Data::AttachDirectly;
using kivo::Data::Channel;
using kivo::Data::Stream;
using kivo::Test::names;
using kivo::Test::StructureRef;
using Names = std::vector<std::string>;

// A channel called name with one stream "p" holding v at index 0.
Channel channelWithValue(const kivo::Data::Structure& structure, const std::string& name, int32_t v) {
  Channel channel(name);
  kivo::Test::put(*channel.setDataStream(Stream(structure, "p")), 0, v, "text");
  return channel;
}

int32_t valueIn(const Associations& associations, const std::string& channel) {
  const Channel* found = associations.findChannel(channel);
  if (!found || !found->findDataStream("p")) return -1;
  return kivo::Test::valueAt(*found->findDataStream("p"), 0);
}

TEST(AssociationsChannels, ChannelCreatesOnceAndLookupsCreateNothing) {
  Associations associations;
  Channel first = associations.channel("vertex");
  EXPECT_TRUE(associations.channel("vertex") == first);
  EXPECT_EQ(associations.channelCount(), 1u);
  EXPECT_TRUE(*associations.findChannel("vertex") == first);
  EXPECT_EQ(first.name(), "vertex");
  EXPECT_EQ(associations.findChannel("edge"), nullptr);
  EXPECT_FALSE(associations.removeChannel("edge"));
  EXPECT_EQ(associations.channelCount(), 1u);
  EXPECT_TRUE(associations.removeChannel("vertex"));
  EXPECT_TRUE(associations.empty());
}

TEST(AssociationsChannels, SetChannelReplacesSameName) {
  Associations associations;
  Channel old = associations.channel("face");
  associations.channel("vertex");
  Channel replacement("face");
  associations.setChannel(replacement);
  EXPECT_EQ(associations.channelCount(), 2u);
  EXPECT_TRUE(*associations.findChannel("face") == replacement);
  EXPECT_FALSE(*associations.findChannel("face") == old);
  associations.setChannel(*associations.findChannel("face"));  // the stored value itself
  EXPECT_TRUE(*associations.findChannel("face") == replacement);
}

TEST(AssociationsChannels, PositionsFollowNameOrderAndNamesStay) {
  Associations associations;
  for (const char* name : {"vertex", "face", "edge"}) associations.channel(name);
  EXPECT_FALSE(associations.renameChannel("edge", "corner"));  // channel names never change
  EXPECT_EQ(names(associations), (Names{"edge", "face", "vertex"}));
  ASSERT_NE(associations[1], nullptr);
  EXPECT_EQ(associations[1]->name(), "face");
  EXPECT_EQ(associations[3], nullptr);
  EXPECT_TRUE(associations.channelAt(2) == *associations.findChannel("vertex"));
  Channel beyond = associations.channelAt(5);  // a new unnamed channel, not stored
  EXPECT_EQ(beyond.name(), "Unnamed");
  EXPECT_TRUE(beyond.empty());
  EXPECT_EQ(associations.findChannel("Unnamed"), nullptr);
  EXPECT_EQ(associations.channelCount(), 3u);
}

TEST(AssociationsSharing, HandlesShareTheImplementation) {
  Associations original;
  Associations copy(original);
  Associations pointed(&original);
  Associations assigned;
  assigned = original;
  original.channel("vertex");
  EXPECT_EQ(copy.channelCount(), 1u);
  EXPECT_EQ(pointed.channelCount(), 1u);
  EXPECT_EQ(assigned.channelCount(), 1u);
  EXPECT_FALSE(copy.makeUnique());  // separates, but reports false with only empty channels
  copy.channel("face");
  EXPECT_EQ(original.channelCount(), 1u);
  EXPECT_EQ(pointed.channelCount(), 1u);
  EXPECT_EQ(Associations(nullptr).channelCount(), 0u);
  std::unique_ptr<Associations> created(Associations::create());
  EXPECT_TRUE(created->empty());
}

TEST(AssociationsSharing, MakeUniqueClonesChannelsAndStreams) {
  StructureRef s = kivo::Test::valueAndText("AssociationsSample");
  Associations original;
  original.setChannel(channelWithValue(*s, "vertex", 1));
  original.setChannel(channelWithValue(*s, "face", 2));
  EXPECT_FALSE(original.makeUnique());  // not shared

  Associations copy(original);
  EXPECT_TRUE(copy.makeUnique());
  EXPECT_EQ(names(copy), names(original));
  EXPECT_FALSE(*copy.findChannel("vertex") == *original.findChannel("vertex"));
  copy.removeChannel("face");
  kivo::Test::put(*copy.findChannel("vertex")->findDataStream("p"), 0, 10, "ten");
  EXPECT_EQ(valueIn(copy, "vertex"), 10);
  EXPECT_EQ(valueIn(original, "vertex"), 1);
  EXPECT_EQ(valueIn(original, "face"), 2);
}

TEST(AssociationsIterator, PostIncrementDoesNotAdvance) {
  Associations associations;
  associations.channel("a");
  associations.channel("b");
  AssociationsIterator it = associations.begin();
  AssociationsIterator old = it++;
  EXPECT_EQ(it->name(), "a");
  EXPECT_TRUE(old == it);
  ++it;
  EXPECT_EQ((*it).name(), "b");
  ++it;
  EXPECT_TRUE(it == associations.end());
  ++it;
  EXPECT_TRUE(it == associations.end());
}

TEST(AssociationsIterator, InvalidDereferenceThrowsExactTexts) {
  Associations associations;
  AssociationsIterator atEnd = associations.end();
  const AssociationsIterator constAtEnd = associations.begin();
  const auto text = [](auto&& call) { return kivo::Test::thrownText<std::out_of_range>(call); };
  EXPECT_EQ(text([&] { *atEnd; }), "AssociationsImpl::Iterator::operator*");
  EXPECT_EQ(text([&] { atEnd->name(); }), "AssociationsImpl::Iterator::operator->");
  EXPECT_EQ(text([&] { constAtEnd->name(); }), "const AssociationsImpl::Iterator::operator->");
  EXPECT_EQ(text([&] { *AssociationsIterator(); }), "AssociationsImpl::Iterator::operator*");
}

TEST(AttachDirectly, StartsWithoutMetadataAndCopiesGiveEmptyOnes) {
  AttachDirectly object;
  EXPECT_EQ(object.metadata(), nullptr);
  EXPECT_EQ(object.editableMetadata(), nullptr);
  EXPECT_TRUE(object.deleteMetadata());
  AttachDirectly copy(object);
  ASSERT_NE(copy.metadata(), nullptr);
  EXPECT_TRUE(copy.metadata()->empty());
  AttachDirectly target;
  target = object;
  ASSERT_NE(target.metadata(), nullptr);
  EXPECT_TRUE(target.metadata()->empty());
}

TEST(AttachDirectly, SetMetadataSharesUntilMadeUnique) {
  Associations metadata;
  AttachDirectly object;
  EXPECT_TRUE(object.setMetadata(metadata));
  Associations* held = object.editableMetadata();
  ASSERT_NE(held, nullptr);
  EXPECT_NE(held, &metadata);
  EXPECT_TRUE(object.setMetadata(*held));
  EXPECT_EQ(object.editableMetadata(), held);

  AttachDirectly copy(object);
  metadata.channel("vertex");
  EXPECT_EQ(object.metadata()->channelCount(), 1u);
  EXPECT_EQ(copy.metadata()->channelCount(), 1u);
  copy.editableMetadata()->makeUnique();
  copy.editableMetadata()->channel("face");
  EXPECT_EQ(object.metadata()->channelCount(), 1u);
  AttachDirectly assigned;
  assigned = copy;
  const AttachDirectly& itself = assigned;  // self-assignment, spelled so that no compiler warns
  assigned = itself;
  EXPECT_EQ(assigned.metadata()->channelCount(), 2u);

  EXPECT_TRUE(object.deleteMetadata());
  EXPECT_EQ(object.metadata(), nullptr);
  EXPECT_EQ(copy.metadata()->channelCount(), 2u);
}

}  // namespace
