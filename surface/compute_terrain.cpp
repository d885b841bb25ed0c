// compute_normal and compute_terrain.
#include "surface/compute_terrain.h"

#include "core/idioms.h"

namespace {

/// Smallest patch, metres: below it the differences drown in the rounding of planet-sized coordinates.
constexpr double kSmallestPatch = 0.001;
constexpr double kThird = 0.3333333333333333;

/// The points and normals of a sample that displacement may change.
struct Sample {
  trVector pg, ptg, p, pt, ng, n, nt;

  explicit Sample(trShadingInterface& si)
      : pg(si.Pg()), ptg(si.Ptg()), p(si.P()), pt(si.Pt()), ng(si.Ng()), n(si.N()), nt(si.Nt()) {}

  void Restore(trShadingInterface& si, const trVector& offset) const {
    si.Pg() = pg + offset;
    si.Ptg() = ptg + offset;
    si.P() = p + offset;
    si.Pt() = pt + offset;
    si.Ng() = ng;
    si.N() = n;
    si.Nt() = nt;
  }
};

}  // namespace

long ComputeNormalBase::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  if (!IsEnabled()) {
    input->DisplaceTS(si);
    return 1;
  }

  // An equilateral triangle about the point, in the tangent plane of N.
  const double side = std::fmax(patchSize_, kSmallestPatch);
  const trVector tangent = Normalised({-si.N().y, si.N().x, 0});
  const trVector bitangent = Cross(si.N(), tangent) * side;
  const trVector offsets[3] = {tangent * (-0.5 * side) - bitangent * 0.289,
                               tangent * (0.5 * side) - bitangent * 0.289, bitangent * 0.577};

  // Where its corners land.
  const Sample saved(si);
  trVector p[3], pt, ng, n, nt;
  for (int i = 0; i < 3; ++i) {
    saved.Restore(si, offsets[i]);
    input->DisplaceTS(si);
    p[i] = si.P();
    pt += si.Pt();
    ng += si.Ng();
    n += si.N();
    nt += si.Nt();
  }
  const trVector mean = (p[0] + p[1] + p[2]) * kThird;

  // The sample itself: the mean of the corners, or where the input takes it.
  saved.Restore(si, {});
  if (smoothSurface_) {
    si.P() = mean;
    si.Pt() = pt * kThird;
    si.Ng() = ng * kThird;
    si.N() = n * kThird;
    si.Nt() = nt * kThird;
  } else {
    input->DisplaceTS(si);
  }
  if (movesTexture_) si.Pt() = mean;

  si.N() = si.Nt() = Normalised(Cross(p[1] - p[0], p[2] - p[0]));
  return 1;
}

long ComputeNormalBase::Shade(trShadingInterface& si) {
  ShadeInput(si);
  return 1;
}

ComputeNormal::ComputeNormal() : ComputeNormalBase(false) {
  Gui(trGuiGap);
  Param(patchSize_, "patch_size", 1.0)
      .About(
          "Side of the triangle that the normal is taken over, metres. Larger follows large forms and "
          "ignores stones.");
  Param(smoothSurface_, "smooth_surface", 0)
      .About("Moves the surface to the mean of the triangle, which takes off finer relief.");
}

ComputeTerrain::ComputeTerrain() : ComputeNormalBase(true) {
  SetRange(patchHint_, this, {.max = 1000, .focusPower = 2});
  Gui(trGuiBlockOpen);
  Param(patchSize_, "gradient_patch_size", 20.0, &patchHint_)
      .About(
          "Side of the triangle that the terrain's normal is taken over, metres. Larger follows large forms "
          "alone.");
  Param(smoothSurface_, "smooth_surface", 0)
      .About("Moves the surface to the mean of the triangle, which takes off finer relief.");
  Gui(trGuiBlockClose);
}
