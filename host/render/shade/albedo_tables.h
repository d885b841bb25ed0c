// How much light rough interfaces send on after one reflection or refraction, by roughness and angle.
#pragma once

#include <array>
#include <cstddef>

namespace ovhost {

/// Albedos of one roughness by the viewer's cosine, for one model of facets and one relative index.
struct AlbedoRow {
  static constexpr int kCosines = 33;
  using Values = std::array<float, kCosines>;
  Values white;      ///< share of the light that facets which reflect all of it send away at once
  Values reflected;  ///< what Fresnel's facets do, less the white share of what the smooth border would
  Values total;      ///< reflected or transmitted by a clear border
  Values passed;     ///< transmitted if nothing were reflected
  float meanWhite;   ///< over all directions, each counting by its cosine
};

/// Facets of a model, tail (trLobe::invTweak), relative index and roughness. A value type; thread-safe. The
/// first one of a kind computes for some hundredths of a second.
class InterfaceAlbedo {
 public:
  InterfaceAlbedo(int model, double tail, double index, double roughness);

  /// All at the cosine of a viewer or light.
  float White(double cosine) const { return At(&AlbedoRow::white, cosine); }
  float MeanWhite() const;
  float Reflected(double cosine) const;
  /// Light that goes through where all but `reflectivity` of Fresnel's share does.
  float Transmitted(double cosine, float reflectivity) const;
  /// Reflectance of a smooth border to light from all sides.
  float MeanFresnel() const { return meanFresnel_; }

 private:
  float At(AlbedoRow::Values AlbedoRow::*values, double cosine) const;
  void Take(const AlbedoRow& row, float share) { parts_[static_cast<size_t>(count_++)] = {&row, share}; }

  struct Part {
    const AlbedoRow* row;
    float share;
  };
  std::array<Part, 8> parts_;  ///< nodes of roughness, index and tail about this one
  int count_ = 0;
  float meanFresnel_ = 0;
  double index_;
};

}  // namespace ovhost
