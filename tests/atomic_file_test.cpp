// Files that appear under their name only when they are whole.
#include "host/base/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/temp_file.h"

namespace fs = std::filesystem;

namespace {

/// An empty folder for a test.
class AtomicFileTest : public testing::Test {
 protected:
  AtomicFileTest() : folder_(TempFile("atomic")) {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  ~AtomicFileTest() override { fs::remove_all(folder_); }

  std::string At(const std::string& name) const { return (folder_ / name).string(); }
  static std::string Write(const std::string& path, const std::string& text) {
    return ovhost::WriteFileAtomically(path, text.data(), text.size());
  }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  std::size_t NumFiles() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_), {}));
  }

  fs::path folder_;
};

TEST_F(AtomicFileTest, KeepsModeOwnerAndLinks) {
  std::ofstream(At("old")) << "old";
  chmod(At("old").c_str(), 0640);
  const bool mayGiveAway = geteuid() == 0 && chown(At("old").c_str(), 1234, 4321) == 0;
  fs::create_directory(At("sub"));
  fs::create_symlink("../old", At("sub/near"));
  fs::create_symlink(At("sub/near"), At("link"));

  EXPECT_EQ(Write(At("link"), "new"), "");
  EXPECT_EQ(Read(At("old")), "new");
  EXPECT_TRUE(fs::is_symlink(At("link")) && fs::is_symlink(At("sub/near")));
  struct stat status;
  ASSERT_EQ(stat(At("old").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  if (mayGiveAway) {
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 4321u);
  }
  EXPECT_EQ(NumFiles(), 3u);

  const mode_t mask = umask(0027);
  EXPECT_EQ(Write(At("fresh"), "x"), "");
  umask(mask);
  ASSERT_EQ(stat(At("fresh").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);

  // A link to what isn't there yet is a place for it.
  fs::create_symlink("later", At("promise"));
  EXPECT_EQ(Write(At("promise"), "x"), "");
  EXPECT_EQ(Read(At("later")), "x");
}

TEST_F(AtomicFileTest, RefusesWhatIsNoFile) {
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  fs::create_directory(At("folder"));
  fs::create_symlink("ring", At("ring"));
  for (const char* name : {"pipe", "folder", "ring", "nowhere/file"}) {
    const std::string problem = Write(At(name), "x");
    EXPECT_EQ(problem.rfind(At(name) + ": can't be written: ", 0), 0u) << problem;
  }
  EXPECT_EQ(NumFiles(), 3u);
}

TEST_F(AtomicFileTest, LeavesNothingWithoutCommit) {
  std::ofstream(At("kept")) << "old";
  {
    ovhost::AtomicFile file(At("kept"));
    file.Write("new");
    EXPECT_EQ(NumFiles(), 2u);
  }
  EXPECT_EQ(Read(At("kept")), "old");
  EXPECT_EQ(NumFiles(), 1u);
}

/// Two writers of one name don't meet, and a name as long as the system allows has room beside it.
TEST_F(AtomicFileTest, TemporaryNamesAreFree) {
  const std::string path = At(std::string(255, 'n'));
  ovhost::AtomicFile one(path), other(path);
  EXPECT_NE(one.TemporaryPath(), other.TemporaryPath());
  one.Write("one");
  other.Write("other");
  EXPECT_EQ(one.Commit(), "");
  EXPECT_EQ(other.Commit(), "");
  EXPECT_EQ(Read(path), "other");
  EXPECT_EQ(NumFiles(), 1u);
}

/// A library that writes by name may have made the file anew, but nothing else may stand in its place.
TEST_F(AtomicFileTest, AdoptsPlainFilesOnly) {
  ovhost::AtomicFile file(At("file"));
  fs::remove(file.TemporaryPath());
  std::ofstream(file.TemporaryPath()) << "made anew";
  file.Adopt();
  EXPECT_EQ(file.Commit(), "");
  EXPECT_EQ(Read(At("file")), "made anew");

  std::ofstream(At("foreign")) << "foreign";
  ovhost::AtomicFile swapped(At("file"));
  fs::remove(swapped.TemporaryPath());
  fs::create_symlink("foreign", swapped.TemporaryPath());
  swapped.Adopt();
  EXPECT_NE(swapped.Commit(), "");
  EXPECT_EQ(Read(At("file")), "made anew");
}

}  // namespace
