// kivoMetaCommands.h: the kivo-meta subcommands, with their arguments
// already parsed. Each returns the process exit code: 0 when every file
// succeeded, 1 when any failed (each failure is on stderr with the file
// name; commands over several files go on past a bad one). A command that
// changes a file changes nothing when it fails before writing, and nothing
// at all with dryRun.
#pragma once

#include "kivoMetaScene.h"

#include <optional>
#include <string>
#include <vector>

namespace kivo::Meta {

// Structures and associations of each file, as text or as one JSON document.
int listFiles(const std::vector<std::string>& files, bool json);

// The raw text of the chosen associations and/or structures: exactly the
// serializers' text when one thing is chosen, each part under a "# " heading
// line when several are (all of them when nothing is chosen).
int showFile(const std::string& file, const std::optional<Target>& target, bool structures);

// The raw text of one target's associations, to out or (empty out) stdout.
// Refuses an out that is the scene file itself.
int exportAssociations(const std::string& file, const Target& target, const std::string& out);

// Replaces one target's associations by the raw text read from input ("-":
// stdin). Streams name structures that the file declares or that
// structuresFile (raw declarations, one per line) gives; given ones that the
// new streams use are added to the file, and one that clashes with the
// file's declaration of the same name is refused.
int importAssociations(const std::string& file, const Target& target, const std::string& input,
                       const std::string& structuresFile, bool dryRun);

// Drops one target's associations; refuses a target the file does not have.
int removeAssociations(const std::string& file, const Target& target, bool dryRun);

// The external content table of each file, as text or as one JSON document.
int listExternals(const std::vector<std::string>& files, bool json);

// Rewrites every resolved path (with upath, every unresolved one too) that
// starts with from on a path boundary so that it starts with to instead,
// file by file; a file with nothing to change is not written. Warns when
// one prefix ends with '/' and the other does not.
int remapExternals(const std::vector<std::string>& files, const std::string& from,
                   const std::string& to, bool upath, bool dryRun);

// What each file's metadata holds that a user should know of (problems and
// notes), as text or one JSON document; exit 1 when any file has a problem.
int checkFiles(const std::vector<std::string>& files, bool json);
// Rewrites each file that has problems cleanly with the metadata the reader
// sees, and checks it again.
int repairFiles(const std::vector<std::string>& files, bool dryRun);
// The differences of two files' metadata: structures, targets, channels and
// streams only in one of them or different; exit 1 when there are any.
int diffFiles(const std::string& first, const std::string& second, bool json);
// Copies one target's associations (and the structures their streams need)
// from source into destination, under the same target or node as.
int copyAssociations(const std::string& source, const std::string& destination,
                     const Target& target, const std::optional<std::string>& as, bool dryRun);
// With lines, list, externals and check print one JSON object per file per
// line (each with "kivoFormat") instead of one document.
void setJsonLines(bool lines);
// Finishes what an interrupted rewrite left beside each file: rolls the file
// back from a complete journal, removes an incomplete one.
int recoverFiles(const std::vector<std::string>& files);
// Writes the sample scenes demo.ta and demo.tb into directory (made when
// missing; existing demo files are replaced) and lists them.
int runDemo(const std::string& directory);

}  // namespace kivo::Meta
