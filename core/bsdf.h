// The reflection of a surface at one point: an emission colour and a short list of lobes, kept in place.
#pragma once

#include "core/colour.h"
#include "core/vector.h"

class trGeomGroup;
class trShader;

/// What fills the inside of a transparent surface. Where nothing scatters, light is absorbed twice over.
struct trMedium {
  double decayDistance = -1;  ///< metres after which 1/e is left in a channel of tint 1; negative: all is
  trFCol decayTint{1.0f};     ///< share of that distance a channel: the darker, the sooner absorbed
  double volumeDensity = 0;   ///< scattering events in a decay distance
  trFCol volumeColour;
  trShader* volumeColourFunction = nullptr;  ///< evaluated inside the volume, where not null
  int method = 0;  ///< 0 hard surface, 1 scatter towards the normal, 2 scatter in all directions
  const trGeomGroup* group = nullptr;
  trVector point, textureNormal, eye;  ///< where the surface was met, and from where
};

/// One lobe. The kinds' numbers are part of the shaders' contract.
struct trLobe {
  enum Kind : int {
    kDiffuseReflection = 2,
    kDiffuseTransmission = 3,
    kSpecularReflection = 4,
    kSpecularTransmission = 5,
    kLight = 1000  ///< light already gathered: `colour` is radiance
  };
  int kind = kDiffuseReflection;
  trFCol colour;  ///< weight of the whole lobe

  // Kinds 4 and 5. Reflectance is base + (edge - base) * Fresnel, per channel (trRoughReflectance);
  // transmittance is base * (1 - reflectivity * Fresnel).
  trFCol base, edge, reflectivity{1.0f};
  trFCol clear;            ///< of a reflection: share of what isn't reflected that goes through
  trVector normal;         ///< reflecting normal, on the viewer's side
  trVector litNormal;      ///< by which a reflection sees small lights; zero where that is no other
  float roughness = 0;     ///< of the microfacets
  float roughness2 = 0;    ///< square of the highlight roughness
  float fresnelScale = 0;  ///< (ior - 1) / (ior + 1)
  float invTweak = 2;
  float index = 1;          ///< relative index of the far side as met
  float outerIndex = 1;     ///< the same, 1 or more
  signed char model = -1;   ///< 0 Blinn, 1 Beckmann OV 2, 2 Beckmann OV 4.5, 3 GGX; -1 for transmission
  signed char facets = -1;  ///< model whose microfacets transmit, so that both lobes share what there is
  signed char medium = -1;  ///< index of the medium beyond (transmission) or before (reflection); -1 for air
  unsigned char thin = 0;
  unsigned char compensated = 0;  ///< nothing is lost between facets (trSharesOf); `colour` is an albedo then
  float lightGain = 1;            ///< what suns count that the lobe shows; all other light counts as it is
};

/// Emission (radiance) and lobes. A value type: a copy moves only the lobes there are.
class trBsdf {
 public:
  static constexpr int kMaxLobes = 16, kMaxMedia = 4;

  trBsdf() {}
  trBsdf(const trBsdf& other) { *this = other; }
  trBsdf& operator=(const trBsdf& other) {
    emission_ = other.emission_;
    count_ = other.count_;
    mediaCount_ = other.mediaCount_;
    for (int i = 0; i < count_; ++i) lobes_[i] = other.lobes_[i];
    for (int i = 0; i < mediaCount_; ++i) media_[i] = other.media_[i];
    return *this;
  }

  trFCol& Emission() { return emission_; }
  const trFCol& Emission() const { return emission_; }
  int NumLobes() const { return count_; }
  const trLobe& Lobe(int i) const { return lobes_[i]; }
  trLobe& Lobe(int i) { return lobes_[i]; }
  /// The medium of a lobe, or null for air.
  const trMedium* Medium(const trLobe& lobe) const {
    return lobe.medium >= 0 && lobe.medium < mediaCount_ ? &media_[static_cast<int>(lobe.medium)] : nullptr;
  }

  void Clear() {
    emission_ = trFCol();
    ClearLobes();
  }
  void ClearLobes() { count_ = mediaCount_ = 0; }
  /// Appends a lobe. In a full list it is added to the first of its kind, or to the last where there is none.
  void AddLobe(const trLobe& lobe) {
    if (count_ < kMaxLobes) {
      lobes_[count_++] = lobe;
      return;
    }
    int i = 0;
    while (i < count_ - 1 && lobes_[i].kind != lobe.kind) ++i;
    lobes_[i].colour += lobe.colour;
  }
  /// Keeps a medium for lobes to name; -1 (air) when there is no room.
  int AddMedium(const trMedium& medium) {
    if (mediaCount_ == kMaxMedia) return -1;
    media_[mediaCount_] = medium;
    return mediaCount_++;
  }
  void AddLambert(const trFCol& colour) { AddLobe(Lambert(trLobe::kDiffuseReflection, colour)); }
  static trLobe Lambert(int kind, const trFCol& colour) {
    trLobe lobe;
    lobe.kind = kind;
    lobe.colour = colour;
    return lobe;
  }
  /// Multiplies emission and every lobe, per channel.
  void Scale(const trFCol& factor) {
    emission_ *= factor;
    for (int i = 0; i < count_; ++i) lobes_[i].colour *= factor;
  }
  /// Adds the emission, and appends the lobes, of another; black lobes are left behind.
  void Add(const trBsdf& other) {
    emission_ += other.emission_;
    int mediumAt[kMaxMedia] = {-1, -1, -1, -1};
    for (int i = 0; i < other.count_; ++i) {
      trLobe lobe = other.lobes_[i];
      if (lobe.colour.IsBlack()) continue;
      if (const trMedium* medium = other.Medium(lobe)) {
        int& at = mediumAt[static_cast<int>(lobe.medium)];
        if (at < 0) at = AddMedium(*medium);
        lobe.medium = static_cast<signed char>(at);
      }
      AddLobe(lobe);
    }
  }
  /// Sum of the colours of one kind of lobe.
  trFCol ColourOf(int kind) const {
    trFCol sum;
    for (int i = 0; i < count_; ++i)
      if (lobes_[i].kind == kind) sum += lobes_[i].colour;
    return sum;
  }

 private:
  trFCol emission_;
  int count_ = 0, mediaCount_ = 0;
  // Left unset past the counts: nested evaluations copy states all the time.
  union {
    trLobe lobes_[kMaxLobes];
  };
  union {
    trMedium media_[kMaxMedia];
  };
};
