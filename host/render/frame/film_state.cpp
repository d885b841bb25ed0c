// Magic, key, sizes, a checksum, then sample counts and sums as they lie in memory (little endian).
#include "host/render/frame/film_state.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace ovhost {
namespace {

constexpr char kMagic[8] = {'O', 'V', 'C', 'H', 'E', 'C', 'K', '3'};

struct Header {
  char magic[8];
  FilmKey key;
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

std::uint64_t ChecksumOf(const Film& film) {
  const std::vector<std::uint32_t>& tiles = film.AllTileSamples();
  const std::vector<float>& sums = film.Sums();
  return Checksum(sums.data(), sums.size() * 4,
                  Checksum(tiles.data(), tiles.size() * 4, 0xcbf29ce484222325ull));
}

Header MakeHeader(const FilmKey& key, const Film& film) {
  Header header{};
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  header.key = key;
  header.tiles = film.AllTileSamples().size();
  header.sums = film.Sums().size();
  return header;
}

bool IsSame(const FilmKey& a, const FilmKey& b) {
  return a.scene == b.scene && a.seed == b.seed && a.frame == b.frame &&
         std::equal(a.area, a.area + 4, b.area) && a.fullWidth == b.fullWidth && a.fullHeight == b.fullHeight;
}

/// More samples than a render counts to are a forger's.
bool ArePossible(const std::vector<std::uint32_t>& tileSamples) {
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  return std::all_of(tileSamples.begin(), tileSamples.end(), [](std::uint32_t n) { return n <= kMost; });
}

FilmState ReadHeader(const ByteReader& read, const FilmKey& key, const Film& film, Header& header) {
  if (!read(&header, sizeof header) || std::memcmp(header.magic, kMagic, sizeof kMagic) != 0)
    return FilmState::kDamaged;
  const Header wanted = MakeHeader(key, film);
  const bool isOurs = IsSame(header.key, key) && header.tiles == wanted.tiles && header.sums == wanted.sums;
  return isOurs ? FilmState::kLoaded : FilmState::kOther;
}

}  // namespace

bool WriteFilm(const ByteWriter& write, const FilmKey& key, const Film& film) {
  Header header = MakeHeader(key, film);
  header.checksum = ChecksumOf(film);
  return write(&header, sizeof header) && write(film.AllTileSamples().data(), header.tiles * 4) &&
         write(film.Sums().data(), header.sums * 4);
}

FilmState ReadFilm(const ByteReader& read, const FilmKey& key, Film& film) {
  Header header;
  const FilmState state = ReadHeader(read, key, film, header);
  if (state != FilmState::kLoaded) return state;
  if (read(film.AllTileSamples().data(), header.tiles * 4) && read(film.Sums().data(), header.sums * 4) &&
      ChecksumOf(film) == header.checksum && ArePossible(film.AllTileSamples()))
    return FilmState::kLoaded;
  film.Clear();
  return FilmState::kDamaged;
}

bool IsFilmOf(const ByteReader& read, const FilmKey& key, const Film& film) {
  Header header;
  return ReadHeader(read, key, film, header) == FilmState::kLoaded;
}

}  // namespace ovhost
