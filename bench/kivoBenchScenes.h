// Group 5: scene files. Sparse "ta" and "tb" scenes of 1 MiB and 1 GiB (the
// body is a hole, so they cost no disk) carrying about 64 KiB of metadata.
#pragma once

#include <string>

namespace kivo::Bench {

// Writes scene_1MiB.ta, scene_1GiB.ta, scene_1MiB.tb and scene_1GiB.tb into
// the existing folder dir. False, with a message on stderr, on failure.
bool makeScenes(const std::string& dir);

// Reads the metadata of one scene file once; false, with the messages on
// stderr, when the read fails.
bool readSceneOnce(const std::string& path);

// Removes the scene folder the benchmarks made, if any.
void removeBenchScenes();

}  // namespace kivo::Bench
