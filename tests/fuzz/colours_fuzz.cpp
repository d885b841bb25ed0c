// Foreign bytes as a colour configuration; what follows the word TABLE is a file that it may name,
// table.cube.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/ocio.h"
#include "host/base/log.h"

namespace {

constexpr const char kTable[] = "TABLE";

const std::filesystem::path& Folder() {
  static const std::filesystem::path folder = [] {
    auto path = std::filesystem::temp_directory_path() / ("ov_colours_fuzz_" + std::to_string(getpid()));
    std::filesystem::create_directories(path);
    return path;
  }();
  return folder;
}

void Put(const char* name, const std::string& bytes) {
  std::ofstream(Folder() / name, std::ios::binary) << bytes;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ovhost::SetLogSink([](void*, const ovhost::LogRecord&) {}, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string all(reinterpret_cast<const char*>(data), size);
  const std::size_t split = all.find(kTable);
  Put("config.ocio", all.substr(0, split));
  Put("table.cube", split == std::string::npos ? "" : all.substr(split + std::strlen(kTable)));
  trOcio colours;
  if (!colours.Set((Folder() / "config.ocio").string(), "space")) {
    if (colours.IsActive()) std::abort();
    return 0;
  }
  for (const float value : {0.0f, 0.5f, 1e6f, -1.0f}) {
    trFCol colour(value, 1 - value, 0.25f);
    colours.Apply(colour);
    for (int i = 0; i < 3; ++i)
      if (!std::isfinite(colour[i])) std::abort();
  }
  return 0;
}

/// The parser of colour configurations forgets what it had read of a damaged one.
extern "C" const char* __lsan_default_suppressions() { return "leak:libyaml-cpp\n"; }
