// How bright light is, and light that sums stay finite with.
#pragma once

#include <cmath>

#include "core/colour.h"

namespace ovhost {

/// Light that sums stay finite with.
inline trFCol FiniteOrBlack(const trFCol& c) {
  return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) ? c : trFCol();
}

/// How bright a colour is beside white.
inline float Brightness(const trFCol& c) { return Luminance(c) / Luminance(trFCol(1.0f)); }

}  // namespace ovhost
