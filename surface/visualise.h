// Small utility shaders: texture points from positions, and normals or texture points as colours.
#pragma once

#include "core/shader.h"

/// tex_coords_from_XYZ: what follows is textured by the displaced position.
class TexCoordsFromXYZ : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
};

/// What visualise_normal and visualise_tex_coords share: a vector shown as a colour, lit or glowing.
class VisualiseBase : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override;
  unsigned char HasShade() override { return diffuse_ || luminous_; }

 protected:
  VisualiseBase();
  /// Writes the colour, and the reflection where it is asked for.
  void Show(trShadingInterface& si, const trVector& colour) const;

 private:
  unsigned char diffuse_, luminous_;
};

class VisualiseNormal : public VisualiseBase {
 public:
  VisualiseNormal();
  long Shade(trShadingInterface& si) override;

 private:
  unsigned char flipX_, flipY_, flipZ_;
};

class VisualiseTexCoords : public VisualiseBase {
 public:
  VisualiseTexCoords();
  long Shade(trShadingInterface& si) override;

 private:
  unsigned char repeat_;
};
