// A film as bytes, so that its render can go on elsewhere.
#pragma once

#include <functional>

#include "host/render/frame/film.h"

namespace ovhost {

/// What makes the sums of two films differ.
struct FilmKey {
  std::uint64_t scene = 0, seed = 0;
  double frame = 0;
  std::int32_t area[4] = {0, 0, 0, 0}, fullWidth = 0, fullHeight = 0;
};

using ByteWriter = std::function<bool(const void* data, std::uint64_t size)>;
using ByteReader = std::function<bool(void* data, std::uint64_t size)>;

/// Writes the sums; false where `write` is.
OV_API bool WriteFilm(const ByteWriter& write, const FilmKey& key, const Film& film);

enum class FilmState { kLoaded, kOther, kDamaged };
/// Fills the film where the bytes belong to the key; it is empty after damaged ones, and else left alone.
OV_API FilmState ReadFilm(const ByteReader& read, const FilmKey& key, Film& film);
/// Whether the bytes begin as those of such a film.
OV_API bool IsFilmOf(const ByteReader& read, const FilmKey& key, const Film& film);

}  // namespace ovhost
