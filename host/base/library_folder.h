// Where the host library lies: its modules, codecs and helpers are looked for beside it.
#pragma once

#include <filesystem>

namespace ovhost {

/// The folder of the host library itself; the working folder where that can't be told. Thread-safe.
std::filesystem::path LibraryFolder();

}  // namespace ovhost
