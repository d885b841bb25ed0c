// What the small displacing shaders share.
#pragma once

#include "core/idioms.h"

/// A shader that displaces; shading is its input's alone.
class DisplacementEffect : public trSurfaceShader {
 public:
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 0; }
};
