// What keeps a rewrite from losing or damaging a file besides the formats'
// own checks (the fault tests crash and fail every call of a rewrite).
// Suites:
//   SafeRewrite  a file changed, replaced or swapped for a link since the
//                read is refused and nothing else is touched; two processes
//                writing other nodes of one file at once both land; a lock
//                held too long is reported
#include <kivo/access/kivoDataAccessor.h>
#include <kivo/data/kivoDataAssociations.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "access/kivoAccessTestFiles.h"
#include "access/kivoBinaryTestFiles.h"

namespace {

using kivo::Data::Accessor;
using kivo::Test::readBytes;
using kivo::Test::writeBytes;

class SafeRewrite : public kivo::Test::SceneFileTest {
 protected:
  SafeRewrite() : SceneFileTest("scene.ta") {}

  // A file of each format holding the metadata of node "pCube1".
  std::string scene(const std::string& extension) {
    const std::string path = file(extension == "ta"
                                      ? kivo::Test::asciiBody(2000) + kivo::Test::kAsciiTrailer
                                      : kivo::Test::binaryScene(""),
                                  "scene." + extension);
    std::unique_ptr<Accessor> accessor = readOk(path);
    if (accessor) writeOk(*accessor, {{"pCube1", labelled("cube")}});
    return path;
  }

  // Reads path holding it for the write, adds node's metadata and writes it:
  // the messages, "" when it succeeded.
  std::string addNode(const std::string& path, const std::string& node) {
    std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
    accessor->setHoldForWrite(true);
    std::string errors;
    if (!accessor->read(path, errors)) return errors;
    accessor->associations()[node] = labelled(node);
    return accessor->write(errors) ? "" : errors;
  }
};

TEST_F(SafeRewrite, RefusesAFileChangedOrReplacedSinceTheReadAndTouchesNothingElse) {
  struct Change {
    const char* what;
    std::function<void(const std::string& path, const std::string& other)> make;
  };
  const auto restoreTimes = [](const std::string& path, const struct stat& before) {
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  };
  const Change changes[] = {
      {"same size, modification time put back",
       [&](const std::string& path, const std::string&) {
         struct stat before;
         ASSERT_EQ(::stat(path.c_str(), &before), 0);
         std::string bytes = readBytes(path);
         bytes[bytes.size() / 2] ^= 1;
         writeBytes(path, bytes);
         restoreTimes(path, before);
       }},
      {"another file of the same size and time renamed over it",
       [&](const std::string& path, const std::string& other) {
         struct stat before;
         ASSERT_EQ(::stat(path.c_str(), &before), 0);
         writeBytes(other, readBytes(path));
         restoreTimes(other, before);
         ASSERT_EQ(std::rename(other.c_str(), path.c_str()), 0);
       }},
      {"the name swapped for a link to another file",
       [&](const std::string& path, const std::string& other) {
         ASSERT_EQ(std::remove(path.c_str()), 0);
         ASSERT_EQ(::symlink(other.c_str(), path.c_str()), 0);
       }},
  };
  for (const char* extension : {"ta", "tb"}) {
    for (const bool hold : {false, true}) {
      for (const Change& change : changes) {
        SCOPED_TRACE(std::string(extension) + ", " + change.what + (hold ? ", held" : ""));
        const std::string path = scene(extension);
        const std::string other = fFolder.path("other");
        writeBytes(other, std::string(100000, 'o'));
        std::unique_ptr<Accessor> accessor = Accessor::accessorByExtension(path);
        accessor->setHoldForWrite(hold);
        std::string errors;
        ASSERT_TRUE(accessor->read(path, errors)) << errors;
        change.make(path, other);
        if (::testing::Test::HasFatalFailure()) return;
        const std::string before = readBytes(path);
        const std::string otherBefore = readBytes(other);
        accessor->associations()["pSphere1"] = labelled("sphere");
        EXPECT_FALSE(accessor->write(errors));
        EXPECT_EQ(errors, "The file " + path +
                              " changed since this accessor last read or wrote it; read it again "
                              "before writing.");
        EXPECT_EQ(readBytes(path), before);
        EXPECT_EQ(readBytes(other), otherBefore);
        std::remove(path.c_str());
        std::remove(other.c_str());
      }
    }
  }
}

TEST_F(SafeRewrite, TwoProcessesWritingOtherNodesAtOnceBothLand) {
  // Each round two children read the file, holding it for their write, as
  // soon as the parent lets them go; each adds its own node. Without the
  // lock one of the updates would be lost.
  for (const char* extension : {"ta", "tb"}) {
    const std::string path = scene(extension);
    const std::string original = readBytes(path);
    for (int round = 0; round < 20; ++round) {
      SCOPED_TRACE(std::string(extension) + ", round " + std::to_string(round));
      writeBytes(path, original);
      int gate[2];
      ASSERT_EQ(::pipe(gate), 0);
      pid_t children[2];
      for (int i = 0; i < 2; ++i) {
        children[i] = ::fork();
        if (children[i] == 0) {
          ::close(gate[1]);
          char go;
          (void)!::read(gate[0], &go, 1);
          const std::string errors = addNode(path, "node" + std::to_string(i));
          if (!errors.empty()) std::fprintf(stderr, "%s\n", errors.c_str());
          ::_exit(errors.empty() ? 0 : 1);
        }
      }
      ::close(gate[0]);
      ::close(gate[1]);
      int codes[2];
      for (int i = 0; i < 2; ++i) {
        int status = 0;
        ASSERT_EQ(::waitpid(children[i], &status, 0), children[i]);
        codes[i] = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      EXPECT_EQ(codes[0], 0);
      EXPECT_EQ(codes[1], 0);
      std::unique_ptr<Accessor> back = readOk(path);
      ASSERT_NE(back, nullptr);
      EXPECT_EQ(back->associations().size(), 3u);
      EXPECT_EQ(labelOf(back->associations()["node0"]), "node0");
      EXPECT_EQ(labelOf(back->associations()["node1"]), "node1");
    }
  }
}

TEST_F(SafeRewrite, AWriterThatCannotHaveTheLockInTimeSaysSoAndChangesNothing) {
  const std::string path = scene("tb");
  const std::string before = readBytes(path);
  std::unique_ptr<Accessor> holder = Accessor::accessorByExtension(path);
  holder->setHoldForWrite(true);
  std::string errors;
  ASSERT_TRUE(holder->read(path, errors)) << errors;
  std::unique_ptr<Accessor> other = Accessor::accessorByExtension(path);
  other->setLockWait(50);
  EXPECT_FALSE(other->read(path, errors));
  EXPECT_EQ(errors, "The file " + path +
                        " is locked by another process (waited 50 ms); try again later.");
  holder->unlock();
  errors.clear();
  EXPECT_TRUE(other->read(path, errors)) << errors;
  EXPECT_EQ(readBytes(path), before);
}

}  // namespace
