#include <kivo/access/kivoDataAccessorTarn.h>

#include <unistd.h>

#include <cstdint>
#include <limits>

#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>
#include <kivo/data/kivoDataChannel.h>
#include <kivo/data/kivoDataHandle.h>
#include <kivo/data/kivoDataStream.h>
#include <kivo/data/kivoDataStructure.h>
#include <kivo/serialize/kivoDataAssociationsSerializer.h>
#include <kivo/serialize/kivoDataStructureSerializer.h>

#include "access/kivoDataAccessorTarnInternal.h"

namespace kivo::Data {
namespace {

constexpr char kNoSerializer[] = "Could not find serializer for format ";
constexpr char kNoAccessor[] = "No accessor found for type of file ";

// One constant string per word, alive for the whole process.
#define KIVO_WORD(function, text)        \
  const std::string& function() {        \
    static const std::string word(text); \
    return word;                         \
  }

// Sets the member named member of h's element from text; the table's
// members are strings, whose conversion cannot fail.
void setMember(Handle& h, const std::string& member, const std::string& text) {
  if (!h.setPositionByMemberName(member.c_str())) return;
  std::string ignored;
  h.fromStr(text, 0, ignored);
}

std::string getMember(Handle& h, const std::string& member) {
  if (!h.setPositionByMemberName(member.c_str())) return std::string();
  return h.str(0);
}

}  // namespace

KIVO_WORD(AccessorTarn::getSceneAssociationsName, "")

KIVO_WORD(AccessorTarn::Ascii::getHeaderPrefix, "//Tarn ASCII")
KIVO_WORD(AccessorTarn::Ascii::getTrailerPrefix, "// End of")
KIVO_WORD(AccessorTarn::Ascii::getDataStructureCommandName, "dataStructure")
KIVO_WORD(AccessorTarn::Ascii::getDataStructureCommandFormatFlag, "-fmt")
KIVO_WORD(AccessorTarn::Ascii::getDataStructureCommandAsStringFlag, "-as")
KIVO_WORD(AccessorTarn::Ascii::getApplyMetadataCommandName, "applyMetadata")
KIVO_WORD(AccessorTarn::Ascii::getApplyMetadataCommandFormatFlag, "-fmt")
KIVO_WORD(AccessorTarn::Ascii::getApplyMetadataCommandValueFlag, "-v")
KIVO_WORD(AccessorTarn::Ascii::getApplyMetadataCommandSceneFlag, "-scn")
KIVO_WORD(AccessorTarn::Ascii::getConnectAttrCommandName, "connectAttr")
KIVO_WORD(AccessorTarn::Ascii::getCreateNodeCommandName, "createNode")
KIVO_WORD(AccessorTarn::Ascii::getSetAttrCommandName, "setAttr")
KIVO_WORD(AccessorTarn::Ascii::getRelationshipCommandName, "relationship")
KIVO_WORD(AccessorTarn::Ascii::getSelectCommandName, "select")

KIVO_WORD(AccessorTarn::Binary::getFormChunkName, "FOR8")
KIVO_WORD(AccessorTarn::Binary::getMainFormChunkType, "Tarn")
KIVO_WORD(AccessorTarn::Binary::getMetaDataStructureChunkName, "DATS")
KIVO_WORD(AccessorTarn::Binary::getApplyNodeMetaDataChunkName, "MTDA")
KIVO_WORD(AccessorTarn::Binary::getApplySceneMetaDataChunkName, "SMTD")
KIVO_WORD(AccessorTarn::Binary::getBackwardChunkSizeChunkName, "BCSZ")

KIVO_WORD(AccessorTarn::ExternalContent::getStructureName, "externalContentTable")
KIVO_WORD(AccessorTarn::ExternalContent::getChannelName, "externalContentTable")
KIVO_WORD(AccessorTarn::ExternalContent::getStreamName, "v1.0")
KIVO_WORD(AccessorTarn::ExternalContent::getNodeMemberName, "node")
KIVO_WORD(AccessorTarn::ExternalContent::getKeyMemberName, "key")
KIVO_WORD(AccessorTarn::ExternalContent::getUnresolvedPathMemberName, "upath")
KIVO_WORD(AccessorTarn::ExternalContent::getResolvedPathMemberName, "rpath")
KIVO_WORD(AccessorTarn::ExternalContent::getRolesMemberName, "roles")
KIVO_WORD(AccessorTarn::ExternalContent::getRolesSeparator, ";")

#undef KIVO_WORD

const Structure* AccessorTarn::deserializeStructure(const std::string& format,
                                                   const std::string& text, std::string& errors) {
  return Detail::readStructurePayload(format, text, errors).release();
}

bool AccessorTarn::deserializeAssociations(const std::string& format, const std::string& text,
                                           Associations& out, std::string& errors) {
  return Detail::readAssociationsPayload(format, text, out, errors);
}

bool AccessorTarn::truncateFile(const std::string& fileName, uint64_t length) {
  if (length > static_cast<uint64_t>(std::numeric_limits<off_t>::max())) return false;
  return ::truncate(fileName.c_str(), static_cast<off_t>(length)) == 0;
}

const Stream* AccessorTarn::ExternalContent::getStream(const Associations& associations) {
  const Channel* channel = associations.findChannel(getChannelName());
  return channel ? channel->findDataStream(getStreamName()) : nullptr;
}

Stream* AccessorTarn::ExternalContent::getStream(Associations& associations) {
  Channel* channel = associations.findChannel(getChannelName());
  return channel ? channel->findDataStream(getStreamName()) : nullptr;
}

const Stream* AccessorTarn::ExternalContent::getStream(const Accessor& accessor) {
  const auto scene = accessor.associations().find(getSceneAssociationsName());
  return scene == accessor.associations().end() ? nullptr : getStream(scene->second);
}

Stream* AccessorTarn::ExternalContent::getStream(Accessor& accessor) {
  const auto scene = accessor.associations().find(getSceneAssociationsName());
  return scene == accessor.associations().end() ? nullptr : getStream(scene->second);
}

void AccessorTarn::ExternalContent::setEntry(Handle& h, const std::string& node,
                                             const std::string& key, const std::string& upath,
                                             const std::string& rpath,
                                             const std::set<std::string>& roles) {
  setMember(h, getNodeMemberName(), node);
  setMember(h, getKeyMemberName(), key);
  setMember(h, getRolesMemberName(), rolesText(roles));
  setMember(h, getUnresolvedPathMemberName(), upath);
  setMember(h, getResolvedPathMemberName(), rpath);
}

void AccessorTarn::ExternalContent::updateEntry(Handle& h, const std::string& rpath) {
  setMember(h, getResolvedPathMemberName(), rpath);
}

void AccessorTarn::ExternalContent::getEntry(Handle& h, std::string& node, std::string& key,
                                             std::string& upath, std::string& rpath,
                                             std::set<std::string>& roles) {
  node = getMember(h, getNodeMemberName());
  key = getMember(h, getKeyMemberName());
  upath = getMember(h, getUnresolvedPathMemberName());
  rpath = getMember(h, getResolvedPathMemberName());
  rolesFromText(getMember(h, getRolesMemberName()), roles);
}

// '-' is doubled first, so that the "-*" standing for ';' can never be
// mistaken for a role's own text.
std::string AccessorTarn::ExternalContent::rolesText(const std::set<std::string>& roles) {
  std::string text;
  bool first = true;
  for (const std::string& role : roles) {
    if (!first) text += getRolesSeparator();
    first = false;
    for (const char c : role) {
      if (c == '-') {
        text += "--";
      } else if (c == ';') {
        text += "-*";
      } else {
        text += c;
      }
    }
  }
  return text;
}

void AccessorTarn::ExternalContent::rolesFromText(const std::string& text,
                                                  std::set<std::string>& roles) {
  if (text.empty()) return;
  std::string role;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == ';') {
      roles.insert(role);
      role.clear();
    } else if (c == '-' && i + 1 < text.size() && (text[i + 1] == '-' || text[i + 1] == '*')) {
      role += text[i + 1] == '-' ? '-' : ';';
      ++i;
    } else {
      role += c;
    }
  }
  roles.insert(role);
}

bool AccessorTarn::ExternalContent::readTable(const std::string& fileName, Associations& out,
                                              std::string& errors) {
  const std::set<std::string> structureNames{getStructureName()};
  const std::set<std::string> associationsNames{getSceneAssociationsName()};
  std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(fileName);
  if (!accessor) {
    Detail::appendMessage(errors, kNoAccessor + ("\"" + fileName + "\""));
    return false;
  }
  if (!accessor->read(fileName, &structureNames, &associationsNames, errors)) return false;
  const auto scene = accessor->associations().find(getSceneAssociationsName());
  if (scene != accessor->associations().end()) out = scene->second;
  return true;
}

}  // namespace kivo::Data

namespace kivo::Detail {
namespace {

// Reads text, where it lies, with the serializer of the family registered
// as format. The readers replace the text they are given: their messages
// are collected apart and appended to errors.
template <class Serializer, class Result>
std::unique_ptr<Result> readPayload(const std::string& format, std::string_view text,
                                    std::string& errors) {
  const Serializer* serializer = Serializer::formatByName(format);
  if (!serializer) {
    appendMessage(errors, Data::kNoSerializer + format);
    return nullptr;
  }
  ViewInput input(text);
  std::string messages;
  std::unique_ptr<Result> result(serializer->read(input, messages));
  if (!messages.empty()) appendMessage(errors, messages);
  return result;
}

}  // namespace

std::unique_ptr<Data::Structure> readStructurePayload(const std::string& format,
                                                      std::string_view text, std::string& errors) {
  return readPayload<Data::StructureSerializer, Data::Structure>(format, text, errors);
}

bool readAssociationsPayload(const std::string& format, std::string_view text,
                             Data::Associations& out, std::string& errors) {
  std::unique_ptr<Data::Associations> associations =
      readPayload<Data::AssociationsSerializer, Data::Associations>(format, text, errors);
  if (!associations) return false;
  out = *associations;
  return true;
}

}  // namespace kivo::Detail
