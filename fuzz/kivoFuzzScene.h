// The scene-file harnesses, shared by both formats ("ta" and "tb"): the
// input bytes become a scratch scene file, read through the accessor that
// the extension selects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kivo::Fuzz {

// Once per process: switches to the "C.UTF-8" locale, and registers a
// process structure "fz" whose layout differs from the "fz" that scene
// files declare, so every read also checks that a file leaves the process
// registry alone.
void prepareSceneHarness();

// Reads the file whole and selectively (structure "fz", the scene
// associations). Checks: a failed read says why, no read changes the file,
// and what a read returns can be written as raw text.
void readScene(const std::string& extension, const uint8_t* data, size_t size);

// Reads the file; when that succeeds, replaces its metadata by a fixed set
// (structure "fz", scene associations and those of node "nodeA") and
// writes it. Checks: a refused write leaves the file as it was; a
// successful one changes nothing before the metadata section ("ta") or the
// trailer group ("tb"), and a second read returns what was written.
void writeScene(const std::string& extension, const uint8_t* data, size_t size);

}  // namespace kivo::Fuzz
