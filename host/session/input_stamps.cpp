// Stamps of files.
#include "host/session/input_stamps.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "host/base/plain_file.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

/// Files up to this size are read: a few hundredths of a second.
constexpr off_t kReadUpTo = 64 << 20;

/// FNV-1a over 8-byte words.
void Mix(std::uint64_t& hash, std::uint64_t word) { hash = (hash ^ word) * 0x100000001b3ull; }

void MixContents(std::uint64_t& hash, const std::string& path) {
  PlainFile file(path);
  std::vector<std::uint64_t> words(1 << 15);
  while (const std::uint64_t got = file.ReadSome(words.data(), words.size() * 8)) {
    std::memset(reinterpret_cast<char*>(words.data()) + got, 0, (8 - got % 8) % 8);
    for (std::uint64_t i = 0; i < (got + 7) / 8; ++i) Mix(hash, words[i]);
  }
}

void MixFile(std::uint64_t& hash, const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return Mix(hash, 0);
  Mix(hash, static_cast<std::uint64_t>(info.st_size));
  if (info.st_size <= kReadUpTo) return MixContents(hash, path);
  Mix(hash, static_cast<std::uint64_t>(info.st_mtim.tv_sec));
  Mix(hash, static_cast<std::uint64_t>(info.st_mtim.tv_nsec));
}

}  // namespace

std::uint64_t InputStamps(juProject& project) {
  std::uint64_t hash = 0xcbf29ce484222325ull;
  // The program: this library, and the modules.
  Dl_info self;
  if (dladdr(reinterpret_cast<const void*>(&InputStamps), &self) && self.dli_fname)
    MixFile(hash, self.dli_fname);
  std::set<std::string> modules;
  for (const CatalogueEntry& entry : Catalogue())
    if (!entry.module.empty() && modules.insert(entry.module).second) MixFile(hash, entry.module);
  for (trBase* node : AllNodes(&project))
    for (const trParamInfo& param : node->Data().params)
      if (param.type == trParamType::kFile)
        if (const std::string path = static_cast<const trFile*>(param.member)->FullPath(); !path.empty())
          MixFile(hash, path);
  return hash;
}

}  // namespace ovhost
