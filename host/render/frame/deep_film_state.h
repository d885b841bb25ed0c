// A deep film's lists as bytes, behind those of its film.
#pragma once

#include "host/render/frame/deep_film.h"
#include "host/render/frame/film_state.h"

namespace ovhost {

/// Writes the lists; false where `write` is. Thread-safe.
OV_API bool WriteDeepFilm(const ByteWriter& write, const DeepFilm& film);
/// Fills the lists of a film whose sums have been read. False, and empty, where the bytes aren't such lists.
OV_API bool ReadDeepFilm(const ByteReader& read, DeepFilm& film);

}  // namespace ovhost
