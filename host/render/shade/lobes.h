// The ways in which light leaves a path's vertex: a reflection's lobes gathered for choosing one, drawing
// from it, and asking all of them about a light.
#pragma once

#include <array>
#include <optional>

#include "host/render/shade/light_layers.h"
#include "host/render/shade/specular_lobe.h"

namespace ovhost {

/// A thin sheet whose roughness is at most this lets light go straight on: shadow rays pass it as paths do.
constexpr float kStraightRoughness = 0.02f;

/// Whether a reflection is emission and diffuse reflection over all of the surface.
OV_API bool IsPlain(const trBsdf& bsdf, const trFCol& opacity);

/// How much of a surface there is to meet, by its opacity: 0 to 1; NaN counts as nothing.
OV_API trFCol CoverOf(const trFCol& opacity);

/// What goes straight through a surface: what its opacity leaves and its clear thin sheets transmit. With
/// `bordersToo` what clear solids transmit counts as well, as if it weren't bent.
OV_API trFCol StraightThrough(const trBsdf& bsdf, const trFCol& opacity, bool bordersToo);

/// A point's lobes. Colours of subtracting layers take from the other lobes of their kind and never leave
/// less than nothing. Keeps a pointer to the reflection it was made of. Per-thread state.
class OV_API LobeSet {
 public:
  struct Allowed {
    bool diffuse = true, specular = true;
  };
  struct Sampled {
    trVector direction;
    trFCol weight;   ///< lobe times cosine over density and the chance of the choice
    double pdf = 0;  ///< per solid angle, with the chance of the choice; 0 where light goes one way only
    LightKind kind = LightKind::kDiffuse;
    float roughness = 1;               ///< of the lobe
    float lightGain = 1;               ///< what suns count that the lobe shows
    bool isStraight = false;           ///< through a clear thin sheet
    bool isAcross = false;             ///< to the far side of a solid's surface
    double shownDiscs = 0;             ///< suns' discs up to this radius are Evaluate's alone, radians
    const trMedium* medium = nullptr;  ///< what the light then travels in; null for air
  };
  /// What a light from one direction gives, by layers.
  struct Lit {
    trFCol diffuse, specular, transmission;
    bool IsBlack() const { return diffuse.IsBlack() && specular.IsBlack() && transmission.IsBlack(); }
  };

  /// Takes the lobes of a reflection. `toViewer` and the normals are unit vectors; `normal` and `face` lie on
  /// the viewer's side.
  void Make(const trBsdf& bsdf, const trVector& toViewer, const trVector& normal, const trVector& face);

  /// Lets Evaluate alone show small discs, by lobes made for that. Sharp lobes show them as a pixel averages
  /// them, where normals turn by up to `turn` and the viewer's direction by up to `opening` within it,
  /// radians: a ray that happens to meet a disc in a mirror ball is one in thousands (after Kaplanyan, Hill,
  /// Patney and Lefohn, Filtering Distributions of Normals for Shading Antialiasing, 2016). Lobes that lean
  /// towards the viewer show them where the surface's own normal does.
  void ShowSmallDiscs(double turn, double opening);

  const trFCol& Diffuse() const { return diffuse_; }
  /// Radiance that lobes brought with them.
  const trFCol& Gathered() const { return gathered_; }
  /// Everything that is scattered, roughly: what denoisers and previews take for the surface's colour.
  trFCol Albedo() const;
  /// Sum of the colours of the lobes that reflect, or that transmit, other than diffusely.
  trFCol SpecularColour(bool transmission) const;
  trVector SpecularNormal() const { return count_ ? lobes_[0].normal : normal_; }

  /// Settles how likely each lobe is to be drawn, by what it would do to `throughput`. False where none is
  /// left.
  bool Weigh(const trFCol& throughput, const Allowed& allowed);
  /// Draws a lobe and from it a direction. False where the draw leads nowhere.
  bool Sample(double choice, const tr2Vector& draw, Sampled& out) const;
  /// Lobes times cosine for light from `direction`. The share of rough lobes is weighted against drawing the
  /// same direction from them, where `lightPdf` is the light's density per solid angle and Weigh has told the
  /// chances; mirrors have no share but of small discs, by the light's angular radius. `transmits`
  /// false leaves out what comes through solids.
  Lit Evaluate(const trVector& direction, double lightPdf, double lightRadius, bool transmits) const;

 private:
  struct Lobe {
    std::optional<SpecularLobe> shape;
    trFCol colour;
    trVector normal;
    float roughness, chance, lightGain;
    bool isTransmission, isStraight, isMirror, isThin;
    const trMedium* medium;
    std::optional<SpecularLobe> lit;
    double shownDiscs;  ///< radius up to which suns' discs are seen by `lit`; 0 for none
  };
  void AddSpecular(const trBsdf& bsdf, const trLobe& lobe, const trFCol& scale);
  bool SampleDiffuse(bool through, const tr2Vector& draw, Sampled& out) const;
  bool SampleSpecular(const Lobe& lobe, const tr2Vector& draw, Sampled& out) const;

  trVector toViewer_, normal_, face_;
  trFCol diffuse_, translucency_, gathered_;
  float diffuseChance_ = 0, translucencyChance_ = 0;
  int count_ = 0;
  std::array<Lobe, trBsdf::kMaxLobes> lobes_;
};

/// How much a strategy of density `a` counts for a direction that one of density `b` could have drawn too:
/// the power heuristic (Veach and Guibas 1995).
inline double PowerHeuristic(double a, double b) {
  if (!(a > 0)) return 0;
  const double ratio = b / a;
  return 1 / (1 + ratio * ratio);
}

/// A cosine-weighted direction about `normal` (Malley's method on concentric discs, Shirley and Chiu 1997).
OV_API trVector CosineDirection(const trVector& normal, const tr2Vector& draw);

}  // namespace ovhost
