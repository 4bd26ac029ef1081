// kivo-meta: reads and edits the metadata of "ta" and "tb" scene files
// without loading the scene. Exit codes: 0 all files succeeded, 1 any file
// failed, 2 usage error.
#include "kivoMetaCommands.h"
#include "kivoMetaOutput.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <filesystem>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using kivo::Meta::Target;

constexpr int kUsageError = 2;

constexpr char kDescription[] =
    "Reads and edits the metadata of \"ta\" (ASCII) and \"tb\" (binary) scene files\n"
    "without loading the scene: structures, the associations of nodes and of the\n"
    "scene, and the scene's external content table.\n\n"
    "Text converts between the UTF-8 of binary scenes and the locale's character set;\n"
    "under the C or POSIX locale the tool uses C.UTF-8.\n\n"
    "Exit codes: 0 when every file succeeded, 1 when any failed (or, for check, has a\n"
    "problem), 2 for a usage error.";

// --node NAME or --scene, as one choice.
struct TargetOptions {
  std::string node;
  bool scene = false;
  CLI::Option* nodeOption = nullptr;

  std::optional<Target> chosen() const {
    if (scene) return Target{true, ""};
    if (nodeOption && nodeOption->count() > 0) return Target{false, node};
    return std::nullopt;
  }
};

// Adds --node and --scene to command; exactly one of them when required.
void addTarget(CLI::App& command, TargetOptions& target, bool required) {
  CLI::Option_group* group =
      command.add_option_group("target", "The associations to work on: one node or the scene");
  target.nodeOption = group->add_option("--node", target.node, "The associations of node NAME")
                          ->type_name("NAME");
  group->add_flag("--scene", target.scene, "The associations of the scene itself");
  if (required) {
    group->require_option(1);
  } else {
    group->require_option(0, 1);
  }
}

// Node names for new associations must read back as the same name.
CLI::Validator nodeNameValidator() {
  return CLI::Validator(
      [](std::string& name) -> std::string {
        try {
          kivo::Meta::checkNodeName(name);
        } catch (const kivo::Meta::Failure& failure) {
          return failure.what();
        }
        return std::string();
      },
      "");
}

// The files named, folders replaced (with recursive) by the ".ta" and ".tb"
// files below them, in sorted order.
std::vector<std::string> expanded(const std::vector<std::string>& names, bool recursive) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  for (const std::string& name : names) {
    std::error_code error;
    if (!recursive || !fs::is_directory(name, error)) {
      files.push_back(name);
      continue;
    }
    std::vector<std::string> found;
    for (fs::recursive_directory_iterator it(name, error), end; !error && it != end;
         it.increment(error)) {
      std::string extension = it->path().extension().string();
      for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if ((extension == ".ta" || extension == ".tb") && it->is_regular_file(error))
        found.push_back(it->path().string());
    }
    if (error) found.push_back(name);  // reported as the folder it is
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  // Text in binary scenes converts between UTF-8 and the user's locale; a
  // locale without multibyte characters (C, POSIX: cron, containers) could
  // convert none but ASCII, so the tool uses C.UTF-8 then.
  std::setlocale(LC_ALL, "");
  if (MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");

  CLI::App app(kDescription, "kivo-meta");
  app.set_version_flag("--version", std::string("kivo-meta ") + kivo::kVersionString);
  app.require_subcommand(1);

  std::vector<std::string> files;
  std::string file;
  bool json = false;
  bool dryRun = false;
  bool recursive = false;
  bool jsonLines = false;
  app.add_flag("-q,--quiet", kivo::Meta::Reporter::sQuiet,
               "Print nothing but failures (the exit code tells the rest)");
  const auto addFiles = [&](CLI::App* command, bool required) {
    CLI::Option* option = command->add_option("FILE", files, "Scene files, or with -r folders");
    if (required) option->required();
    command->add_flag("-r,--recursive", recursive,
                      "Take the .ta and .tb files below each folder named, in sorted order");
  };

  CLI::App* list = app.add_subcommand(
      "list", "Per file: its structures and the associations of its nodes and scene");
  addFiles(list, true);
  list->add_flag("--json", json, "One JSON document for scripts");
  list->add_flag("--jsonl", jsonLines, "One JSON object per file per line");

  bool structures = false;
  CLI::App* show = app.add_subcommand(
      "show", "The raw text of a file's associations and structures (all when none is chosen)");
  show->add_option("FILE", file, "Scene file")->required();
  TargetOptions showTarget;
  addTarget(*show, showTarget, false);
  show->add_flag("--structures", structures, "The structure declarations, one per line");

  std::string out;
  CLI::App* exportCommand =
      app.add_subcommand("export", "Write one node's (or the scene's) associations as raw text");
  exportCommand->add_option("FILE", file, "Scene file")->required();
  TargetOptions exportTarget;
  addTarget(*exportCommand, exportTarget, true);
  exportCommand->add_option("-o,--output", out, "Write to OUT instead of stdout")
      ->type_name("OUT");

  std::string input;
  std::string structuresFile;
  CLI::App* import = app.add_subcommand(
      "import", "Replace one node's (or the scene's) associations by raw text");
  import->add_option("FILE", file, "Scene file")->required();
  import->add_option("IN", input, "Raw associations text, - for stdin")->required();
  TargetOptions importTarget;
  addTarget(*import, importTarget, true);
  importTarget.nodeOption->check(nodeNameValidator());
  import->add_option("--structures", structuresFile,
                     "Structure declarations the streams need and the file lacks, one per line")
      ->type_name("STRUCTS");
  import->add_flag("--dry-run", dryRun, "Check everything, change nothing");

  CLI::App* remove =
      app.add_subcommand("remove", "Drop one node's (or the scene's) associations");
  remove->add_option("FILE", file, "Scene file")->required();
  TargetOptions removeTarget;
  addTarget(*remove, removeTarget, true);
  remove->add_flag("--dry-run", dryRun, "Check everything, change nothing");

  CLI::App* externals = app.add_subcommand(
      "externals", "The external content table: node, key, upath, rpath, roles");
  addFiles(externals, false);
  externals->add_flag("--json", json, "One JSON document for scripts");
  externals->add_flag("--jsonl", jsonLines, "One JSON object per file per line");
  externals->require_subcommand(0, 1);

  std::string from;
  std::string to;
  CLI::App* remap = externals->add_subcommand(
      "remap",
      "Rewrite the resolved paths that start with one prefix (on a path boundary) to start "
      "with another");
  addFiles(remap, true);
  remap->add_option("--from", from, "The prefix to replace")
      ->type_name("PREFIX")
      ->required()
      ->check(CLI::Validator([](std::string& text) {
        return text.empty() ? std::string("must not be empty") : std::string();
      }, ""));
  remap->add_option("--to", to, "Its replacement")->type_name("PREFIX")->required();
  bool upath = false;
  remap->add_flag("--upath", upath, "Remap the unresolved paths (upath) too");
  remap->add_flag("--dry-run", dryRun, "Report what would change, change nothing");

  CLI::App* check = app.add_subcommand(
      "check",
      "Per file: leftover, duplicate or unreadable metadata statements, stray lines, "
      "undeclared or unused structures, non-UTF-8 text, a missing trailer, an unfinished "
      "rewrite; exit 1 when any file has a problem");
  addFiles(check, true);
  check->add_flag("--json", json, "One JSON document for scripts");
  check->add_flag("--jsonl", jsonLines, "One JSON object per file per line");

  CLI::App* repair = app.add_subcommand(
      "repair", "Rewrite each file that has problems with the metadata the reader sees, once "
                "per target");
  addFiles(repair, true);
  repair->add_flag("--dry-run", dryRun, "Report what would be mended, change nothing");

  std::string second;
  CLI::App* diff = app.add_subcommand(
      "diff", "The differences of two files' metadata (structures, targets, channels, streams); "
              "exit 1 when there are any");
  diff->add_option("A", file, "First scene file")->required();
  diff->add_option("B", second, "Second scene file")->required();
  diff->add_flag("--json", json, "One JSON document for scripts");

  std::string as;
  CLI::App* copy = app.add_subcommand(
      "copy", "Copy one node's (or the scene's) associations from SRC into DST, with the "
              "structures they need");
  copy->add_option("SRC", file, "Scene file to copy from")->required();
  copy->add_option("DST", second, "Scene file to copy into")->required();
  TargetOptions copyTarget;
  addTarget(*copy, copyTarget, true);
  copy->add_option("--as", as, "Store them under node NAME in DST")
      ->type_name("NAME")
      ->check(nodeNameValidator());
  copy->add_flag("--dry-run", dryRun, "Check everything, change nothing");

  std::vector<std::string> recoverFilesList;
  CLI::App* recover = app.add_subcommand(
      "recover",
      "Roll each file back from the journal an interrupted rewrite left (FILE.kivo-journal)");
  recover->add_option("FILE", recoverFilesList, "Scene files")->required();
  recover->add_flag("-r,--recursive", recursive,
                    "Take the .ta and .tb files below each folder named, in sorted order");

  std::string directory = ".";
  CLI::App* demo = app.add_subcommand(
      "demo", "Write the sample scenes demo.ta and demo.tb into DIR and list them");
  demo->add_option("DIR", directory, "Folder for the samples (default: the current one)");

  try {
    const std::string first = argc > 1 ? argv[1] : "-";
    if (first[0] != '-' &&
        app.get_subcommands([&first](const CLI::App* command) {
             return command->check_name(first);
           }).empty()) {
      throw CLI::ExtrasError("Unknown subcommand '" + first + "'", CLI::ExitCodes::ExtrasError);
    }
    app.parse(argc, argv);
    if (externals->parsed() && !remap->parsed() && files.empty()) {
      throw CLI::RequiredError("FILE");
    }
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? 0 : kUsageError;
  }

  using namespace kivo::Meta;
  files = expanded(files, recursive);
  setJsonLines(jsonLines);
  json = json || jsonLines;
  recoverFilesList = expanded(recoverFilesList, recursive);
  if (list->parsed()) return listFiles(files, json);
  if (show->parsed()) return showFile(file, showTarget.chosen(), structures);
  if (exportCommand->parsed()) return exportAssociations(file, *exportTarget.chosen(), out);
  if (import->parsed()) {
    return importAssociations(file, *importTarget.chosen(), input, structuresFile, dryRun);
  }
  if (remove->parsed()) return removeAssociations(file, *removeTarget.chosen(), dryRun);
  if (remap->parsed()) return remapExternals(files, from, to, upath, dryRun);
  if (externals->parsed()) return listExternals(files, json);
  if (recover->parsed()) return recoverFiles(recoverFilesList);
  if (check->parsed()) return checkFiles(files, json);
  if (diff->parsed()) return diffFiles(file, second, json);
  if (copy->parsed()) {
    return copyAssociations(file, second, *copyTarget.chosen(),
                            as.empty() ? std::nullopt : std::optional<std::string>(as), dryRun);
  }
  if (repair->parsed()) return repairFiles(files, dryRun);
  if (demo->parsed()) return runDemo(directory);
  return kUsageError;
}
