// What the fuzzers share.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/base/log.h"

/// Ends the program, which the fuzzer takes for a find.
inline void Check(bool holds) {
  if (!holds) std::abort();
}

/// The same for two texts, with the place where they part.
inline void CheckSame(const std::string& a, const std::string& b) {
  if (a == b) return;
  std::size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  at -= std::min<std::size_t>(at, 100);
  std::fprintf(stderr, "one: %s\nother: %s\n", a.substr(at, 200).c_str(), b.substr(at, 200).c_str());
  std::abort();
}

inline std::string InputText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Messages are made, and go nowhere.
inline void SilenceLog() {
  ovhost::SetLogSink([](void*, const ovhost::LogRecord&) {}, nullptr);
}

/// The path of a file called `name`, in a folder of the program's own that goes with it.
inline std::string FuzzFile(const std::string& name) {
  struct Folder {
    Folder() { Check(mkdtemp(path.data()) != nullptr); }
    ~Folder() {
      std::error_code error;
      std::filesystem::remove_all(path, error);
    }
    std::string path = (std::filesystem::temp_directory_path() / "ov_fuzz_XXXXXX").string();
  };
  static const Folder folder;
  return folder.path + "/" + name;
}

inline void PutFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
