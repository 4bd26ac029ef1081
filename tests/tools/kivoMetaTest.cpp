// End-to-end tests of the kivo-meta tool: each runs the built program on
// scenes that its demo subcommand writes (both formats) or on damaged ones.
// Suites:
//   KivoMetaUsage     exit code 2 and its messages, --help, --version
//   KivoMetaList      listing as text and as JSON, many files with a bad one
//   KivoMetaEdit      show/export/import/remove round trips on "ta" and "tb"
//   KivoMetaSafety    failures and dry runs leave the scene's bytes alone
//   KivoMetaExternals the external content table as JSON, remap and its dry run
//   KivoMetaProgress  the progress line appears on a terminal only
//   KivoMetaCheck     check finds what earlier rewrites left, repair mends it
//                     once and for all
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Result {
  int code;
  std::string out;
  std::string err;
};

std::string readBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const fs::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::string commandLine(const std::vector<std::string>& args) {
  std::string line = quoted(KIVO_META_PATH);
  for (const std::string& arg : args) line += " " + quoted(arg);
  return line;
}

class KivoMetaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    fDir = fs::path(KIVO_META_TEST_TMP) / (std::string(info->test_suite_name()) + "." + info->name());
    fs::remove_all(fDir);
    fs::create_directories(fDir);
  }

  // Runs the tool in the test's folder with stdin from input.
  Result run(const std::vector<std::string>& args, const std::string& input = "") {
    writeBytes(fDir / "stdin", input);
    const std::string line = "cd " + quoted(fDir.string()) + " && " + commandLine(args) +
                             " <stdin >stdout 2>stderr";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readBytes(fDir / "stdout"),
            readBytes(fDir / "stderr")};
  }

  // demo.ta and demo.tb in the test's folder.
  void makeDemo() { ASSERT_EQ(run({"demo", "."}).code, 0); }

  Json json(const std::vector<std::string>& args, int code = 0) {
    const Result result = run(args);
    EXPECT_EQ(result.code, code) << result.err;
    return Json::parse(result.out);
  }

  fs::path fDir;
};

using KivoMetaUsage = KivoMetaTest;
using KivoMetaList = KivoMetaTest;
using KivoMetaEdit = KivoMetaTest;
using KivoMetaSafety = KivoMetaTest;
using KivoMetaExternals = KivoMetaTest;
using KivoMetaProgress = KivoMetaTest;
using KivoMetaCheck = KivoMetaTest;

const char* const kFormats[] = {"demo.ta", "demo.tb"};

TEST_F(KivoMetaUsage, RefusesBadArgumentsWithCodeTwo) {
  struct Case {
    std::vector<std::string> args;
    const char* message;
  };
  const Case cases[] = {
      {{}, "A subcommand is required"},
      {{"list"}, "FILE is required"},
      {{"frobnicate"}, "Unknown subcommand 'frobnicate'"},
      {{"export", "demo.ta"}, "Exactly 1 option from [--node,--scene] is required"},
      {{"remove", "demo.ta", "--node", "a", "--scene"}, "[--node,--scene]"},
      {{"show", "demo.ta", "--node", "a", "--scene"}, "Requires at most 1 options"},
      {{"import", "demo.ta", "in.txt", "--node", "two words"}, "must not hold blanks"},
      {{"import", "demo.ta", "in.txt", "--node", "-scn"}, "must not start with '-'"},
      {{"externals"}, "FILE is required"},
      {{"externals", "remap", "demo.ta", "--from", "", "--to", "/x"}, "must not be empty"},
      {{"externals", "remap", "demo.ta", "--to", "/x"}, "--from is required"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(commandLine(c.args));
    const Result result = run(c.args);
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
  }
}

TEST_F(KivoMetaUsage, HelpAndVersionSucceed) {
  const Result help = run({"--help"});
  EXPECT_EQ(help.code, 0);
  for (const char* command : {"list", "show", "export", "import", "remove", "externals", "check",
                              "repair", "recover", "demo"}) {
    EXPECT_NE(help.out.find(command), std::string::npos) << command;
  }
  EXPECT_EQ(run({"externals", "remap", "--help"}).code, 0);
  const Result version = run({"--version"});
  EXPECT_EQ(version.code, 0);
  EXPECT_EQ(version.out.rfind("kivo-meta ", 0), 0u) << version.out;
}

TEST_F(KivoMetaList, ListsBothFormatsAlikeAsJson) {
  makeDemo();
  const Json listing = json({"list", "--json", "demo.ta", "demo.tb"});
  ASSERT_EQ(listing["files"].size(), 2u);
  for (const Json& file : listing["files"]) {
    SCOPED_TRACE(file["file"].get<std::string>());
    EXPECT_TRUE(file["ok"].get<bool>());
    EXPECT_EQ(file["structures"], listing["files"][0]["structures"]);
    EXPECT_EQ(file["associations"], listing["files"][0]["associations"]);
  }
  const Json& first = listing["files"][0];
  EXPECT_EQ(first["structures"].size(), 6u);
  const Json color = first["structures"][4];
  EXPECT_EQ(color["name"], "vertexColor");
  EXPECT_EQ(color["members"][0], (Json{{"name", "rgb"}, {"type", "float"}, {"length", 3}}));

  const Json& associations = first["associations"];
  ASSERT_EQ(associations.size(), 3u);
  EXPECT_EQ(associations[0]["name"], "");
  EXPECT_TRUE(associations[0]["scene"].get<bool>());
  EXPECT_EQ(associations[1]["name"], "pCubeShape1");
  const Json& channels = associations[1]["channels"];
  ASSERT_EQ(channels.size(), 3u);
  EXPECT_EQ(channels[0]["name"], "edge");
  EXPECT_EQ(channels[0]["streams"][0], (Json{{"name", "crease"},
                                             {"structure", "edgeCrease"},
                                             {"indexType", "pair"},
                                             {"elements", 4}}));
  EXPECT_EQ(channels[1]["streams"][0]["indexType"], "string");
  EXPECT_EQ(channels[2]["streams"][1]["elements"], 8);
}

TEST_F(KivoMetaList, ContinuesPastBadFilesAndNamesThem) {
  makeDemo();
  writeBytes(fDir / "old.ta", "//Tarn ASCII 2013 scene\nselect -ne :time1;\n// End of old.ta\n");
  writeBytes(fDir / "text.tb", "not a binary scene, just some text\n");
  writeBytes(fDir / "scene.abc", "");
  writeBytes(fDir / "empty.tb", "");
  writeBytes(fDir / "cut.ta", readBytes(fDir / "demo.ta").substr(0, 600));
  writeBytes(fDir / "cut.tb", readBytes(fDir / "demo.tb").substr(0, 600));
  fs::create_directories(fDir / "folder.ta");
  const Result result = run({"list", "old.ta", "demo.ta", "text.tb", "missing.ta", "scene.abc",
                             "empty.tb", "cut.ta", "cut.tb", "folder.ta", "demo.tb"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.err,
            "kivo-meta: old.ta: Unsupported year.\n"
            "kivo-meta: text.tb: Not a supported file type.\n"
            "kivo-meta: missing.ta: No such file or directory.\n"
            "kivo-meta: scene.abc: No factory registered for type of file \"scene.abc\"\n"
            "kivo-meta: empty.tb: The file is empty.\n"
            "kivo-meta: cut.ta: Truncated: no trailer line.\n"
            "kivo-meta: cut.ta: Error tokenizing format/value for structure.\n"
            "kivo-meta: cut.tb: Truncated: no trailer-size chunk.\n"
            "kivo-meta: cut.tb: Error seeking to the end of main chunk.\n"
            "kivo-meta: folder.ta: Is a directory.\n");
  EXPECT_EQ(result.out.rfind("demo.ta\n  structure edgeCrease: double sharpness, bool hard\n", 0),
            0u)
      << result.out;
  EXPECT_NE(result.out.find("\ndemo.tb\n"), std::string::npos);
  EXPECT_NE(result.out.find("      stream crease: structure edgeCrease, pair index, 4 elements\n"),
            std::string::npos);

  const Result asJson = run({"list", "--json", "old.ta", "demo.tb"});
  EXPECT_EQ(asJson.code, 1);
  const Json files = Json::parse(asJson.out)["files"];
  EXPECT_EQ(files[0], (Json{{"file", "old.ta"}, {"ok", false}, {"error", "Unsupported year."}}));
  EXPECT_TRUE(files[1]["ok"].get<bool>());
}

TEST_F(KivoMetaEdit, ExportImportShowAndRemoveRoundTrip) {
  makeDemo();
  for (const char* scene : kFormats) {
    SCOPED_TRACE(scene);
    const Result exported = run({"export", scene, "--node", "pCubeShape1", "-o", "cube.txt"});
    ASSERT_EQ(exported.code, 0) << exported.err;
    const std::string text = readBytes(fDir / "cube.txt");
    EXPECT_EQ(run({"show", scene, "--node", "pCubeShape1"}).out, text);
    EXPECT_EQ(text.substr(text.size() - 27), "endChannel\nendAssociations\n");

    // Under a new name, from stdin, with a changed value.
    std::string changed = text;
    changed.replace(changed.find("\"brick\" 1 1000"), 14, "\"stone\" 9 1000");
    const Result imported = run({"import", scene, "--node", "pCubeShape2", "-"}, changed);
    ASSERT_EQ(imported.code, 0) << imported.err;
    EXPECT_EQ(imported.out, std::string(scene) +
                                ": imported 3 channels, 5 streams into node pCubeShape2\n");
    EXPECT_EQ(run({"show", scene, "--node", "pCubeShape2"}).out, changed);
    EXPECT_EQ(run({"show", scene, "--node", "pCubeShape1"}).out, text);

    // Replacing the scene's associations keeps the nodes'.
    ASSERT_EQ(run({"export", scene, "--scene", "-o", "scene.txt"}).code, 0);
    ASSERT_EQ(run({"import", scene, "--scene", "cube.txt"}).code, 0);
    EXPECT_EQ(run({"show", scene, "--scene"}).out, text);
    ASSERT_EQ(run({"import", scene, "--scene", "scene.txt"}).code, 0);

    for (const char* node : {"pCubeShape2", "pPlaneShape1"}) {
      const Result removed = run({"remove", scene, "--node", node});
      EXPECT_EQ(removed.code, 0) << removed.err;
      EXPECT_EQ(run({"show", scene, "--node", node}).out.find("channel"), std::string::npos);
    }
    EXPECT_EQ(run({"show", scene, "--node", "pCubeShape1"}).out, text);
    EXPECT_EQ(run({"show", scene, "--scene"}).out, readBytes(fDir / "scene.txt"));
  }
}

TEST_F(KivoMetaEdit, ImportTakesMissingStructuresFromTheStructuresFile) {
  makeDemo();
  const std::string text =
      "channel\nname vertex\nstream\nname uv\nindexType numeric\nstructure uvSet\n"
      "0\n0.5 0.25\nendStream\nendChannel\nendAssociations\n";
  writeBytes(fDir / "uv.txt", text);
  writeBytes(fDir / "structs.txt", "name=uvSet:float[2]=uv\n\nname=vertexColor:float[3]=rgb:float=alpha\n");
  for (const char* scene : kFormats) {
    SCOPED_TRACE(scene);
    const Result missing = run({"import", scene, "--node", "pCubeShape1", "uv.txt"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("Structure 'uvSet' not found"), std::string::npos) << missing.err;

    const Result given =
        run({"import", scene, "--node", "pCubeShape1", "uv.txt", "--structures", "structs.txt"});
    ASSERT_EQ(given.code, 0) << given.err;
    EXPECT_EQ(run({"show", scene, "--node", "pCubeShape1"}).out, text);
    const std::string structures = run({"show", scene, "--structures"}).out;
    EXPECT_NE(structures.find("\nname=uvSet:float[2]=uv\n"), std::string::npos) << structures;
  }
}

TEST_F(KivoMetaSafety, FailuresAndDryRunsLeaveTheSceneUntouched) {
  makeDemo();
  const std::string good = run({"show", "demo.ta", "--node", "pPlaneShape1"}).out;
  writeBytes(fDir / "good.txt", good);
  const size_t stream = good.find("stream\n");
  writeBytes(fDir / "bad.txt", good.substr(0, stream) + "bogus\n" + good.substr(stream));
  writeBytes(fDir / "empty.txt", "endAssociations\n");
  writeBytes(fDir / "clash.txt", "name=faceMaterial:string=material\n");
  writeBytes(fDir / "broken.txt", "name=s:int32\n");
  struct Case {
    std::vector<std::string> args;
    const char* message;
  };
  const Case cases[] = {
      {{"import", "--node", "n", "bad.txt"}, "Unrecognized keyword 'bogus'"},
      {{"import", "--node", "n", "empty.txt"}, "holds no stream: nothing to import."},
      {{"import", "--node", "n", "missing.txt"},
       "The import text missing.txt: No such file or directory."},
      {{"import", "--node", "n", "good.txt", "--structures", "clash.txt"},
       "Structure faceMaterial is given with another layout than the file declares"},
      {{"import", "--node", "n", "good.txt", "--structures", "broken.txt"}, "Line 1: "},
      {{"remove", "--node", "nobody"}, "The file holds no metadata for node nobody."},
      {{"export", "--node", "pPlaneShape1", "-o", "SCENE"},
       "Refusing to write the export over the scene file."},
      {{"import", "--node", "n", "good.txt", "--dry-run"}, ""},
      {{"remove", "--scene", "--dry-run"}, ""},
      {{"externals", "remap", "--from", "/projects", "--to", "/elsewhere", "--dry-run"}, ""},
  };
  for (const char* scene : kFormats) {
    const std::string before = readBytes(fDir / scene);
    for (const Case& c : cases) {
      std::vector<std::string> args = c.args;
      const size_t at = args[0] == "externals" ? 2 : 1;
      args.insert(args.begin() + at, scene);
      for (std::string& arg : args) arg = arg == "SCENE" ? scene : arg;
      SCOPED_TRACE(commandLine(args));
      const Result result = run(args);
      EXPECT_EQ(result.code, *c.message ? 1 : 0) << result.err;
      if (*c.message) {
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
      }
      EXPECT_EQ(readBytes(fDir / scene), before);
    }
  }
}

TEST_F(KivoMetaExternals, ListsAndRemapsTheResolvedPaths) {
  makeDemo();
  for (const char* scene : kFormats) {
    SCOPED_TRACE(scene);
    const Json before = json({"externals", "--json", scene})["files"][0];
    ASSERT_EQ(before["entries"].size(), 3u);
    EXPECT_EQ(before["entries"][1],
              (Json{{"node", "file2"},
                    {"key", "fileTextureName"},
                    {"upath", "$PROJECT/textures/brick_normal.png"},
                    {"rpath", "/projects/demo/textures/brick_normal.png"},
                    {"roles", {"normal;bump", "texture"}}}));

    const Result dry = run({"externals", "remap", scene, "--from", "/projects/demo/",
                            "--to", "/mnt/site2/", "--dry-run"});
    EXPECT_EQ(dry.out.substr(0, dry.out.find('\n')),
              std::string(scene) + ": 2 of 3 resolved paths would be remapped (dry run)");
    const Result remap =
        run({"externals", "remap", scene, "--from", "/projects/demo/", "--to", "/mnt/site2/"});
    ASSERT_EQ(remap.code, 0) << remap.err;
    EXPECT_EQ(remap.out, std::string(scene) +
                             ": 2 of 3 resolved paths remapped\n"
                             "  file1 fileTextureName: /projects/demo/textures/brick.png -> "
                             "/mnt/site2/textures/brick.png\n"
                             "  file2 fileTextureName: /projects/demo/textures/brick_normal.png -> "
                             "/mnt/site2/textures/brick_normal.png\n");
    Json after = json({"externals", "--json", scene})["files"][0];
    EXPECT_EQ(after["entries"][0]["rpath"], "/mnt/site2/textures/brick.png");
    EXPECT_EQ(after["entries"][0]["upath"], before["entries"][0]["upath"]);
    after["entries"][0]["rpath"] = before["entries"][0]["rpath"];
    after["entries"][1]["rpath"] = before["entries"][1]["rpath"];
    EXPECT_EQ(after["entries"], before["entries"]);
    EXPECT_EQ(json({"list", "--json", scene})["files"][0]["associations"].size(), 3u);
  }
  // A file without a table is no failure; a bad file is, and the rest go on.
  writeBytes(fDir / "bad.tb", "FOR8");
  const Result many = run({"externals", "remap", "bad.tb", "demo.ta", "--from", "/mnt/site2/",
                           "--to", "/projects/demo/"});
  EXPECT_EQ(many.code, 1);
  EXPECT_EQ(many.err, "kivo-meta: bad.tb: Could not read file identification.\n");
  EXPECT_EQ(many.out.substr(0, many.out.find('\n')), "demo.ta: 2 of 3 resolved paths remapped");
}

TEST_F(KivoMetaExternals, RemapMatchesOnPathBoundariesAndWarnsOnUnevenSlashes) {
  makeDemo();
  struct Case {
    std::vector<std::string> args;  // after the file
    const char* firstLine;
    const char* firstChange;  // "" when none
    const char* warning;      // "" when none
  };
  const Case cases[] = {
      {{"--from", "/projects/dem", "--to", "/X"}, "0 of 3 resolved paths", "", ""},
      {{"--from", "/projects/demo", "--to", "/X"}, "2 of 3 resolved paths",
       "/projects/demo/textures/brick.png -> /X/textures/brick.png", ""},
      {{"--from", "/projects/demo/", "--to", "/mnt/x"}, "2 of 3 resolved paths",
       "/projects/demo/textures/brick.png -> /mnt/xtextures/brick.png",
       "kivo-meta: warning: --from ends with '/' and --to does not"},
      {{"--from", "$PROJECT", "--to", "$SITE", "--upath"}, "2 of 6 paths",
       "$PROJECT/textures/brick.png -> $SITE/textures/brick.png", ""},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"externals", "remap", "demo.ta", "--dry-run"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    SCOPED_TRACE(commandLine(args));
    const Result result = run(args);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out.rfind(std::string("demo.ta: ") + c.firstLine, 0), 0u) << result.out;
    EXPECT_NE(result.out.find(c.firstChange), std::string::npos) << result.out;
    EXPECT_EQ(result.err.rfind(c.warning, 0), 0u) << result.err;
    EXPECT_EQ(result.err.empty(), *c.warning == '\0') << result.err;
  }
}

TEST_F(KivoMetaProgress, ShowsDoneAndTotalOnATerminalOnly) {
  if (std::system("command -v script >/dev/null 2>&1") != 0) GTEST_SKIP() << "no script(1)";
  makeDemo();
  const std::vector<std::string> args = {"list", "demo.ta", "demo.tb", "demo.ta", "demo.tb"};
  EXPECT_EQ(run(args).err, "");
  const std::string onTerminal = "script -qec " + quoted(commandLine(args) + " >/dev/null") +
                                 " /dev/null >terminal";
  ASSERT_EQ(std::system(("cd " + quoted(fDir.string()) + " && " + onTerminal).c_str()), 0);
  const std::string screen = readBytes(fDir / "terminal");
  EXPECT_NE(screen.find("[0/4] demo.ta"), std::string::npos) << screen;
  EXPECT_NE(screen.find("[3/4] demo.tb"), std::string::npos) << screen;
}

}  // namespace

namespace {

TEST_F(KivoMetaCheck, RepairMendsWhatCheckFindsOnceAndForAll) {
  makeDemo();
  EXPECT_EQ(run({"check", "demo.ta", "demo.tb"}).out, "demo.ta: ok\ndemo.tb: ok\n");
  // What literal rewrites leave: a stray target line, and an old statement
  // for a node behind the new section.
  std::string text = readBytes(fDir / "demo.ta");
  const size_t first = text.find("applyMetadata");
  const size_t cube = text.find("\t\tpCubeShape1;\n") + 15;
  const size_t trailer = text.find("// End of");
  text.insert(trailer, "\t\tpOld;\n" + text.substr(first, cube - first));
  writeBytes(fDir / "demo.ta", text);
  const Result lines = run({"check", "--jsonl", "demo.tb", "missing.ta"});
  EXPECT_EQ(lines.code, 1);
  EXPECT_EQ(lines.out,
            "{\"kivoFormat\":1,\"file\":\"demo.tb\",\"ok\":true,\"findings\":[]}\n"
            "{\"kivoFormat\":1,\"file\":\"missing.ta\",\"ok\":false,\"error\":\"No such file "
            "or directory.\"}\n");
  const Json found = json({"check", "--json", "demo.ta"}, 1);
  EXPECT_EQ(found["kivoFormat"], 1);
  EXPECT_FALSE(found["files"][0]["ok"].get<bool>());
  EXPECT_EQ(found["files"][0]["findings"].size(), 2u);
  EXPECT_EQ(run({"repair", "--dry-run", "demo.ta"}).code, 0);
  EXPECT_EQ(readBytes(fDir / "demo.ta"), text);
  const Result repaired = run({"repair", "demo.ta"});
  EXPECT_EQ(repaired.code, 0) << repaired.err;
  EXPECT_EQ(repaired.out.rfind("demo.ta: mended 2 problems\n", 0), 0u) << repaired.out;
  EXPECT_EQ(run({"check", "demo.ta"}).code, 0);
  const std::string once = readBytes(fDir / "demo.ta");
  EXPECT_EQ(run({"repair", "demo.ta"}).out, "demo.ta: nothing to repair\n");
  EXPECT_EQ(readBytes(fDir / "demo.ta"), once);
  EXPECT_EQ(run({"recover", "demo.ta"}).out, "demo.ta: nothing to recover\n");
  // Folders, walked in sorted order; --quiet prints failures only.
  fs::create_directories(fDir / "tree" / "b");
  fs::copy_file(fDir / "demo.tb", fDir / "tree" / "b" / "s.TB");
  fs::copy_file(fDir / "demo.ta", fDir / "tree" / "a.ta");
  writeBytes(fDir / "tree" / "notes.txt", "not a scene");
  EXPECT_EQ(run({"check", "-r", "tree"}).out, "tree/a.ta: ok\ntree/b/s.TB: ok\n");
  EXPECT_EQ(run({"-q", "repair", "-r", "tree"}).out, "");
}

TEST_F(KivoMetaEdit, UnderTheCLocaleUtf8TextStillConverts) {
  makeDemo();
  const std::string text =
      "channel\nname face\nstream\nname material\nindexType numeric\nstructure faceMaterial\n"
      "0\n\"tuile \xc3\xa9maill\xc3\xa9\x65\" 3 2000\nendStream\nendChannel\nendAssociations\n";
  writeBytes(fDir / "in.txt", text);
  ::setenv("LC_ALL", "C", 1);
  const Result imported = run({"import", "demo.tb", "--node", "pU", "in.txt"});
  const Result shown = run({"show", "demo.tb", "--node", "pU"});
  ::unsetenv("LC_ALL");
  EXPECT_EQ(imported.code, 0) << imported.err;
  EXPECT_EQ(shown.out, text) << shown.err;
}

}  // namespace

namespace {

TEST_F(KivoMetaEdit, CopyAndDiffBetweenFormats) {
  makeDemo();
  struct Step {
    std::vector<std::string> args;
    int code;
    const char* output;  // the start of stdout, or of stderr on failure
  };
  const Step steps[] = {
      {{"diff", "demo.ta", "demo.tb"}, 0, "The metadata of the two files is the same.\n"},
      {{"copy", "demo.ta", "demo.tb", "--node", "pPlaneShape1", "--as", "pCopy"}, 0,
       "demo.tb: copied 1 channel, 1 stream of node pPlaneShape1 of demo.ta into node pCopy\n"},
      {{"diff", "demo.ta", "demo.tb"}, 1, "node pCopy: only in the second file\n"},
      {{"copy", "demo.tb", "demo.ta", "--node", "pCopy", "--dry-run"}, 0,
       "demo.ta: would copy 1 channel, 1 stream of node pCopy of demo.tb into node pCopy (dry "
       "run)\n"},
      {{"copy", "demo.tb", "demo.ta", "--node", "pCopy"}, 0, "demo.ta: copied"},
      {{"diff", "demo.ta", "demo.tb"}, 0, "The metadata of the two files is the same.\n"},
      {{"copy", "demo.ta", "demo.tb", "--node", "nope"}, 1,
       "kivo-meta: demo.tb: The file holds no metadata for node nope.\n"},
      {{"remove", "demo.tb", "--node", "pCubeShape1"}, 0, "demo.tb: removed"},
      {{"diff", "demo.tb", "demo.ta"}, 1, "node pCubeShape1: only in the second file\n"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(commandLine(step.args));
    const Result result = run(step.args);
    EXPECT_EQ(result.code, step.code) << result.err;
    const std::string& text = step.code == 0 || !result.err.size() ? result.out : result.err;
    EXPECT_EQ(text.rfind(step.output, 0), 0u) << text;
  }
}

}  // namespace
