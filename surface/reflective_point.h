// A point of a reflective surface while it is shaded. Private to the reflective shader.
#pragma once

#include "core/colour.h"
#include "core/vector.h"

struct ReflectivePoint {
  // Geometry: unit vectors, away from the surface.
  trVector p;
  trVector view;              ///< to the viewer
  trVector normal;            ///< that reflects: rough surfaces lean it towards the viewer
  trVector facing;            ///< the shading normal, on the viewer's side
  trVector facingReflecting;  ///< the reflecting normal, on the viewer's side
  trVector reflected, transmitted;
  bool isFront = true;  ///< seen from outside
  bool isThin = false, isDeferred = false;
  bool isCompensated = false;  ///< nothing is lost between facets

  // Roughness
  float roughness = 0;      ///< of the microfacets that rays meet
  float lobeRoughness = 0;  ///< of transmitted highlights
  float highlightRoughness = 0, highlightRoughness2 = 0;
  double spread = 0;          ///< half angle of the ray's cone, radians
  double minLightRadius = 0;  ///< radians

  // The interface
  double ior = 1, index = 1;  ///< of the inside over the outside; of the far side over the near
  float f = 0;                ///< (ior - 1) / (ior + 1)
  float fresnel = 0;
  bool absorbsReflected = false, absorbsTransmitted = false;

  // Weights
  trFCol base, edge;  ///< reflectance at any angle; at grazing ones
  trFCol reflectivity;
  trFCol transparency;
  trFCol transmittance;                      ///< of the interface, Fresnel's share taken off
  trFCol reflectance;                        ///< of the interface, with Fresnel's share
  float lightGain = 1;                       ///< what lights count in highlights
  trFCol litBase, litEdge, litTransparency;  ///< as lights see them
  bool reflects = false, transmits = false;

  trVector Outside() const { return p + facingReflecting * kSurfaceOffset; }
  trVector Beyond() const { return p - facingReflecting * kSurfaceOffset; }

  /// How far off the surface rays start, metres.
  static constexpr double kSurfaceOffset = 1e-6;
};
