// A tile is two counts, the ends of its lists and their steps, as they lie in memory (little endian); behind
// all tiles stands a checksum.
#include "host/render/frame/deep_film_state.h"

#include <cstring>

namespace ovhost {
namespace {

static_assert(sizeof(DeepStep) == 24, "steps are saved as they lie in memory");

/// FNV-1a over 4-byte words.
template <typename T>
std::uint64_t Checksum(const std::vector<T>& values, std::uint64_t h) {
  const char* at = reinterpret_cast<const char*>(values.data());
  for (size_t i = 0; i < values.size() * sizeof(T); i += 4) {
    std::uint32_t word;
    std::memcpy(&word, at + i, 4);
    h = (h ^ word) * 0x100000001b3ull;
  }
  return h;
}

std::uint64_t ChecksumOf(const DeepFilm& film) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (const DeepFilm::Tile& tile : film.Tiles()) h = Checksum(tile.steps, Checksum(tile.ends, h));
  return h;
}

bool ReadTile(const ByteReader& read, int number, DeepFilm& film) {
  std::uint64_t counts[2];
  constexpr std::uint64_t kMostPixels = static_cast<std::uint64_t>(Film::kTileSize) * Film::kTileSize;
  if (!read(counts, sizeof counts) || counts[0] > kMostPixels || counts[1] > counts[0] * kMostDeepSamples)
    return false;
  DeepFilm::Tile tile;
  tile.ends.resize(counts[0]);
  if (!read(tile.ends.data(), counts[0] * sizeof(std::uint32_t))) return false;
  tile.steps.resize(counts[1]);
  return read(tile.steps.data(), counts[1] * sizeof(DeepStep)) && film.SetTile(number, std::move(tile));
}

}  // namespace

bool WriteDeepFilm(const ByteWriter& write, const DeepFilm& film) {
  for (const DeepFilm::Tile& tile : film.Tiles()) {
    const std::uint64_t counts[2] = {tile.ends.size(), tile.steps.size()};
    if (!write(counts, sizeof counts) || !write(tile.ends.data(), counts[0] * sizeof(std::uint32_t)) ||
        !write(tile.steps.data(), counts[1] * sizeof(DeepStep)))
      return false;
  }
  const std::uint64_t checksum = ChecksumOf(film);
  return write(&checksum, sizeof checksum);
}

bool ReadDeepFilm(const ByteReader& read, DeepFilm& film) {
  const int tiles = static_cast<int>(film.Tiles().size());
  int number = 0;
  while (number < tiles && ReadTile(read, number, film)) ++number;
  std::uint64_t checksum;
  if (number == tiles && read(&checksum, sizeof checksum) && checksum == ChecksumOf(film)) return true;
  film.Clear();
  return false;
}

}  // namespace ovhost
