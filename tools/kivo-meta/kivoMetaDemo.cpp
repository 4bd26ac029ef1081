// kivoMetaDemo.cpp: the demo subcommand. Writes a small scene in each
// format, gives both the same metadata through the library (per-vertex,
// per-edge and per-face streams of several member types and index types,
// and a scene-level external content table), and lists them.
#include "kivoMetaCommands.h"

#include "kivoMetaOutput.h"

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace kivo::Meta {

namespace {

using Data::Associations;
using ExternalContent = Data::AccessorTarn::ExternalContent;

constexpr char kStructures[] =
    "name=vertexColor:float[3]=rgb:float=alpha\n"
    "name=vertexWeight:int32=joint:float=weight\n"
    "name=edgeCrease:double=sharpness:bool=hard\n"
    "name=faceMaterial:string=material:uint16=shadingGroup:int64=id\n"
    "name=faceGroup:uint32=faces:dbl4x4=pivot\n"
    "name=externalContentTable:string=node:string=key:string=upath:string=rpath:string=roles\n";

constexpr char kIdentity[] = "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1";

std::string numericStream(const std::string& name, const std::string& structure,
                          const std::vector<std::string>& rows) {
  std::string text = "stream\nname " + name + "\nindexType numeric\nstructure " + structure + "\n";
  for (size_t i = 0; i < rows.size(); ++i) text += std::to_string(i) + "\n" + rows[i] + "\n";
  return text + "endStream\n";
}

// The cube: colours and skin weights per vertex, creases per edge (keyed by
// the vertex pair), materials per face and named face groups.
std::string cubeText() {
  std::vector<std::string> colors;
  std::vector<std::string> weights;
  for (int v = 0; v < 8; ++v) {
    colors.push_back(std::to_string(v & 1) + " " + std::to_string((v >> 1) & 1) + " " +
                     std::to_string((v >> 2) & 1) + " 1");
    weights.push_back(std::to_string(v < 4 ? 0 : 1) + " " + (v % 4 == 0 ? "0.75" : "1"));
  }
  std::vector<std::string> materials;
  for (int f = 0; f < 6; ++f) {
    materials.push_back(std::string(f < 2 ? "\"brick\" 1 " : "\"mortar\" 2 ") +
                        std::to_string(1000 + f));
  }
  return "channel\nname vertex\n" + numericStream("color", "vertexColor", colors) +
         numericStream("skin", "vertexWeight", weights) +
         "endChannel\n"
         "channel\nname edge\n"
         "stream\nname crease\nindexType pair\nstructure edgeCrease\n"
         "0 1\n2.5 true\n1 3\n2.5 true\n3 2\n0.5 false\n2 0\n0.5 false\nendStream\n"
         "endChannel\n"
         "channel\nname face\n" +
         numericStream("material", "faceMaterial", materials) +
         "stream\nname groups\nindexType string\nstructure faceGroup\n"
         "lid\n2 " + kIdentity + "\nwalls\n4 " + kIdentity + "\nendStream\n"
         "endChannel\n"
         "endAssociations\n";
}

std::string planeText() {
  return "channel\nname face\n" +
         numericStream("material", "faceMaterial", {"\"tile \\\"glazed\\\"\" 3 2000"}) +
         "endChannel\nendAssociations\n";
}

// The files the scene refers to; one role holds ';' to show its escaping.
Associations externalContent(const StructureList& structures) {
  const Data::Structure* table = structures.find(ExternalContent::getStructureName());
  Data::Stream stream(*table, ExternalContent::getStreamName());
  struct Row {
    const char* node;
    const char* key;
    const char* upath;
    const char* rpath;
    std::set<std::string> roles;
  };
  const Row rows[] = {
      {"file1", "fileTextureName", "$PROJECT/textures/brick.png",
       "/projects/demo/textures/brick.png", {"color", "texture"}},
      {"file2", "fileTextureName", "$PROJECT/textures/brick_normal.png",
       "/projects/demo/textures/brick_normal.png", {"normal;bump", "texture"}},
      {"reference1", "reference", "$ASSETS/props/crate.ta", "/assets/props/crate.ta",
       {"reference"}},
  };
  unsigned int index = 0;
  for (const Row& row : rows) {
    Data::Handle handle(*table);
    ExternalContent::setEntry(handle, row.node, row.key, row.upath, row.rpath, row.roles);
    stream.setElement(Data::Index(index++), handle);
  }
  Data::Channel channel(ExternalContent::getChannelName());
  channel.setDataStream(stream);
  Associations scene;
  scene.setChannel(channel);
  return scene;
}

constexpr char kAsciiBody[] =
    "//Tarn ASCII 2014 scene\n"
    "//Codeset: UTF-8\n"
    "requires \"kivo-meta demo\" \"1\";\n"
    "currentUnit -l centimeter -a degree -t film;\n"
    "createNode transform -n \"pCube1\";\n"
    "createNode mesh -n \"pCubeShape1\" -p \"pCube1\";\n"
    "createNode transform -n \"pPlane1\";\n"
    "createNode mesh -n \"pPlaneShape1\" -p \"pPlane1\";\n"
    "createNode file -n \"file1\";\n"
    "createNode file -n \"file2\";\n"
    "createNode reference -n \"reference1\";\n"
    "connectAttr \"file1.outColor\" \"brick.color\";\n"
    "select -ne :time1;\n";

void writeAsciiScene(const std::string& path) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << kAsciiBody << "// End of demo.ta\n";
  if (!out.flush()) throw Failure("Could not write " + path + ".");
}

// Binary chunks: tag, four zero bytes, big-endian 64-bit size, data, zero
// padding to a multiple of 8.
std::string bigEndian(uint64_t value, int bytes) {
  std::string text;
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
    text += static_cast<char>((value >> shift) & 0xFF);
  }
  return text;
}

std::string chunk(const std::string& tag, const std::string& data) {
  return tag + std::string(4, '\0') + bigEndian(data.size(), 8) + data +
         std::string((8 - data.size() % 8) % 8, '\0');
}

// A group is not padded: the trailer group closes the main group, and the
// trailer-size chunk must stay the last 24 bytes of the file.
std::string group(const std::string& type, const std::string& children) {
  const std::string data = type + children;
  return "FOR8" + std::string(4, '\0') + bigEndian(data.size(), 8) + data;
}

void writeBinaryScene(const std::string& path) {
  std::string nodes;
  for (const char* node : {"pCube1", "pCubeShape1", "pPlane1", "pPlaneShape1", "file1", "file2",
                           "reference1"}) {
    nodes += chunk("CREA", std::string(node) + '\0');
  }
  // The trailer group ends with the trailer-size chunk, whose backward offset
  // leads from its own end to the start of the group's content.
  const std::string hostTrailer = chunk("INFO", std::string("kivo-meta demo") + '\0');
  const std::string trailer =
      hostTrailer + chunk("BCSZ", bigEndian(hostTrailer.size() + 20, 4));
  const std::string scene = group("Tarn", chunk("VERS", "2014") + group("DAG ", nodes) +
                                              group("TRLR", trailer));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << scene;
  if (!out.flush()) throw Failure("Could not write " + path + ".");
}

void addMetadata(const std::string& path, const StructureList& structures,
                 const std::map<std::string, Associations>& associations) {
  std::unique_ptr<Data::Accessor> scene = readScene(path, true);
  scene->setStructures(Data::Accessor::StructureSet(structures.items().begin(),
                                                    structures.items().end()));
  for (const auto& [key, value] : associations) scene->associations()[key] = value;
  writeScene(*scene);
}

}  // namespace

int runDemo(const std::string& directory) {
  const std::string ascii = (std::filesystem::path(directory) / "demo.ta").string();
  const std::string binary = (std::filesystem::path(directory) / "demo.tb").string();
  Reporter reporter(1);
  try {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw Failure("Could not create " + directory + ": " + error.message() + ".");
    StructureList structures;
    parseStructures(kStructures, structures);
    const std::map<std::string, Associations> associations = {
        {Data::AccessorTarn::getSceneAssociationsName(), externalContent(structures)},
        {"pCubeShape1", parseAssociations(cubeText(), structures.items())},
        {"pPlaneShape1", parseAssociations(planeText(), structures.items())},
    };
    writeAsciiScene(ascii);
    addMetadata(ascii, structures, associations);
    writeBinaryScene(binary);
    addMetadata(binary, structures, associations);
    reporter.output(listingText(ascii, *readScene(ascii)) + "\n" +
                    listingText(binary, *readScene(binary)));
  } catch (const std::exception& failure) {
    reporter.failure(directory, failure.what());
  }
  return reporter.exitCode();
}

}  // namespace kivo::Meta
