// Paths over surfaces that reflect, refract or are partly clear, and through what is inside them. Diffuse
// surfaces alone don't need it.
#pragma once

#include "host/base/sampler.h"
#include "host/render/air/media.h"
#include "host/render/engine/matter_paths.h"
#include "host/render/engine/roulette.h"
#include "host/render/shade/camera_sample.h"
#include "host/render/shade/lobes.h"
#include "host/render/shade/piece_shading.h"

namespace ovhost {

/// Follows one path at a time from a shaded surface on: lights by multiple importance sampling, then one of
/// the surface's lobes, until nothing is left. Per-thread state.
class OV_API LightWalk {
 public:
  /// `matter` follows light through volumes' matter; null where all are asked for their samples.
  LightWalk(LitScene& scene, const PathSettings& settings, MatterPaths* matter, PathCounters& counters);

  /// Where a path comes from when it meets the first surface that is not just diffuse.
  struct Start {
    PixelSampler sampler;
    std::uint64_t random = 0;
    trVector direction;  ///< of the ray that met the surface
    trFCol throughput{1.0f};
    const SurfaceHit* hit = nullptr;  ///< of that ray
    int depth = 1;                    ///< rays so far
    int diffuseBounces = 0;           ///< of them after diffuse reflection
    bool castsShadows = true;         ///< whether the object met does
    bool isInside = false;            ///< of a solid whose border is met, with suns that came through counted
  };
  /// `bsdf` and `opacity` are what shading left at `point`. Adds to `result` what the path brings.
  void Follow(const Start& start, const SurfacePoint& point, const trBsdf& bsdf, const trFCol& opacity,
              CameraSample& result);
  ShadowRays& Shadows() { return shadows_; }

 private:
  bool IsDirect() const { return path_.kind == LightKind::kDirect; }
  /// Adds light that has been scattered, to the layer of the path's first scattering.
  void Add(const trFCol& light);
  void AddDirect(const LobeSet::Lit& lit, const trFCol& emission);

  // At a surface. Each is false where the path ends.
  bool Scatter(const trBsdf& bsdf, const trFCol& opacity);
  bool GoOn(const trVector& direction);
  bool Survives();
  /// Tells the picture what is seen, once.
  void FillLayers();
  void LightByLobes(bool isBorder);
  void LightByTables(const LobeSet::Allowed& allowed);
  bool Choose(bool isBorder);

  // To the next surface
  bool Travel();
  void AddBackground();
  /// What a broad ray sees of the open sky, where there is a table of that; false where there is none.
  bool AddTabulatedSky(bool isHit);
  void ShadeHit(const SurfaceHit& hit);
  /// The volumes on the way. False where their matter ends the path.
  bool Air(double distance);
  /// Whether the eye sees the ray in hand by mirrors and glass alone, and matter as it is.
  bool FollowsMatter() const { return matter_ && path_.diffuseBounces == 0; }

  // Inside a surface
  bool ScatterInside(double distance);
  bool ScatterAsSurface(const SurfacePoint& point, const trFCol& colour);
  void LightInside(const trFCol& albedo);
  trFCol ColourInside();
  /// What of a sun comes in a straight line to a point inside, through the border that the line leaves by.
  trFCol ThroughBorder(const trVector& origin, const trVector& direction, double nearest);

  LitScene& scene_;
  PathSettings settings_;
  MatterPaths* matter_;
  PathCounters& counters_;
  Roulette roulette_;
  ShadingContext shading_;
  PieceShading pieces_;
  ShadowRays shadows_;
  LobeSet lobes_;
  AirRecord airRecord_;

  /// All that is known of the path in hand; made anew for each.
  struct Path {
    CameraSample* result = nullptr;
    PixelSampler sampler;
    std::uint64_t random = 0;
    trVector origin, direction;
    double nearest = 0, spread = 0, footprint = 0;
    double opening = 0;    ///< how fast the footprint of a sharp path grows, radians
    double curvature = 0;  ///< of the surface in hand, radians a metre
    trFCol throughput{1.0f};
    SurfacePoint point, entry;  ///< the surface in hand, and the one by which the medium was entered
    int depth = 1, diffuseBounces = 0, specularBounces = 0, sheets = 0, eventsInside = 0;
    LightKind kind = LightKind::kDirect;
    int nodeId = 0;
    bool hasFilledLayers = false, castsShadows = true;
    /// How the last scattering could have met a sun's disc: not at all (negative: lights were counted there),
    /// by this density, or as the only way (infinite).
    double discPdf = 0;
    double shownDiscs = 0;  ///< suns of discs up to this radius were counted there, radians
    float discGain = 1;     ///< what a disc counts that the last scattering shows
    bool isInside = false, sunsCounted = false;
    PathMedium medium;
  };
  Path path_;
};

}  // namespace ovhost
