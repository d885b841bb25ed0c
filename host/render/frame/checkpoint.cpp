// Checkpoint files: magic, key, sizes, a checksum, then sample counts and sums as they lie in memory (little
// endian).
#include "host/render/frame/checkpoint.h"

#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/base/atomic_file.h"
#include "host/base/plain_file.h"

namespace ovhost {
namespace {

constexpr char kMagic[8] = {'O', 'V', 'C', 'H', 'E', 'C', 'K', '2'};

struct Header {
  char magic[8];
  CheckpointKey key;
  std::uint64_t tiles, sums, checksum;
};

/// FNV-1a over 8-byte words.
std::uint64_t Checksum(const void* data, std::uint64_t size, std::uint64_t h) {
  const char* at = static_cast<const char*>(data);
  for (std::uint64_t i = 0; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, at + i, 8);
    h = (h ^ word) * 0x100000001b3ull;
  }
  for (std::uint64_t i = size / 8 * 8; i < size; ++i)
    h = (h ^ static_cast<unsigned char>(at[i])) * 0x100000001b3ull;
  return h;
}

std::uint64_t ChecksumOf(const std::vector<std::uint32_t>& tiles, const std::vector<float>& sums) {
  return Checksum(sums.data(), sums.size() * 4,
                  Checksum(tiles.data(), tiles.size() * 4, 0xcbf29ce484222325ull));
}

Header MakeHeader(const CheckpointKey& key, const Film& film) {
  Header header{};
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  header.key = key;
  header.tiles = film.AllTileSamples().size();
  header.sums = film.Sums().size();
  return header;
}

bool SameKey(const CheckpointKey& a, const CheckpointKey& b) {
  return a.projectHash == b.projectHash && a.seed == b.seed && a.frame == b.frame &&
         std::equal(a.area, a.area + 4, b.area) && a.fullWidth == b.fullWidth && a.fullHeight == b.fullHeight;
}

}  // namespace

std::string CheckpointPath(const std::string& output) { return output + ".ovcheckpoint"; }

std::string WriteCheckpoint(const std::string& path, const CheckpointKey& key, const Film& film) {
  Header header = MakeHeader(key, film);
  header.checksum = ChecksumOf(film.AllTileSamples(), film.Sums());
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
  bytes.append(reinterpret_cast<const char*>(film.AllTileSamples().data()), header.tiles * 4);
  bytes.append(reinterpret_cast<const char*>(film.Sums().data()), header.sums * 4);
  return WriteFileAtomically(path, bytes.data(), bytes.size());
}

CheckpointState ReadCheckpoint(const std::string& path, const CheckpointKey& key, Film& film) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return CheckpointState::kNone;
  std::string problem;
  if (!IsPlainFile(path, problem)) return CheckpointState::kDamaged;
  std::ifstream in(path, std::ios::binary);
  if (!in) return CheckpointState::kNone;
  Header header;
  if (!in.read(reinterpret_cast<char*>(&header), sizeof header) ||
      std::memcmp(header.magic, kMagic, sizeof kMagic) != 0)
    return CheckpointState::kDamaged;
  const Header wanted = MakeHeader(key, film);
  if (!SameKey(header.key, key) || header.tiles != wanted.tiles || header.sums != wanted.sums)
    return CheckpointState::kOther;
  std::vector<std::uint32_t> tiles(header.tiles);
  std::vector<float> sums(header.sums);
  if (!in.read(reinterpret_cast<char*>(tiles.data()), static_cast<std::streamsize>(tiles.size() * 4)) ||
      !in.read(reinterpret_cast<char*>(sums.data()), static_cast<std::streamsize>(sums.size() * 4)) ||
      ChecksumOf(tiles, sums) != header.checksum)
    return CheckpointState::kDamaged;
  film.AllTileSamples() = std::move(tiles);
  film.Sums() = std::move(sums);
  return CheckpointState::kLoaded;
}

}  // namespace ovhost
