// Files of tests: in a folder of the program's own, for others may run the same tests at the same time.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

/// The path of a file called `name`. The folder goes with the program.
inline std::string TempFile(const std::string& name) {
  struct Folder {
    Folder() { EXPECT_TRUE(mkdtemp(path.data())); }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path = testing::TempDir() + "/ov_tests_XXXXXX";
  };
  static const Folder folder;
  return folder.path + "/" + name;
}
