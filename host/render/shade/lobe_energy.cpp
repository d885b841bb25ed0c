// Energy of lobes.
#include "host/render/shade/lobe_energy.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

/// Less light than this between facets is none.
constexpr float kLeastLoss = 1e-6f;
constexpr float kLeastTotal = 1e-3f;
/// Share of what light from all round loses at facets that light loses which comes from facets: that runs
/// upwards more. Of random walks over GGX surfaces (Heitz, Hanika, d'Eon and Dachsbacher, Multiple-Scattering
/// Microfacet BSDFs with the Smith Model, 2016), within 0.02 of their albedos up to roughness 1.
constexpr float kLossOfFurther = 0.73f;

float UnitOr0(float x) { return x > 0 ? std::min(x, 1.0f) : 0.0f; }

}  // namespace

LobeEnergy::LobeEnergy(const trLobe& lobe, double cosV)
    : albedos_(lobe.kind == trLobe::kSpecularTransmission ? lobe.facets : lobe.model, lobe.invTweak,
               std::isfinite(lobe.index) ? std::fabs(lobe.index) : 1.0, lobe.roughness) {
  const float white = albedos_.White(cosV), fresnel = albedos_.Reflected(cosV),
              meanWhite = albedos_.MeanWhite(), meanFresnel = albedos_.MeanFresnel();
  const bool isTransmission = lobe.kind == trLobe::kSpecularTransmission;
  for (int c = 0; c < 3; ++c) {
    const float reflectivity = UnitOr0(lobe.reflectivity[c]), clear = UnitOr0(lobe.clear[c]);
    if (isTransmission || clear > 0) {
      // A clear interface's facets lose none but what they pass to each other.
      const float through =
          lobe.thin ? white - reflectivity * fresnel : albedos_.Transmitted(cosV, reflectivity);
      const float whole = 1 / std::max(reflectivity * fresnel + through, kLeastTotal);
      gain[c] = isTransmission ? whole : 1 + clear * (whole - 1);
      if (isTransmission) albedo[c] = lobe.base[c] * through * whole;
    }
    if (isTransmission) continue;

    // Of light that meets facets once more, `mean` is reflected, and all but `loss` of that gets away.
    const float loss = kLossOfFurther * (1 - meanWhite);
    const float mean = UnitOr0(lobe.base[c] + (lobe.edge[c] - lobe.base[c]) * meanFresnel);
    const float left = 1 / (1 - mean * loss);
    const float further = mean * (1 - white) * left;  // facets met after the first
    broad[c] = 1 - meanWhite > kLeastLoss ? (1 - clear) * further * mean * (1 - loss) : 0;
    broadScale_[c] = broad[c] / std::max(1 - meanWhite, kLeastLoss);
    albedo[c] = (lobe.base[c] * white + (lobe.edge[c] - lobe.base[c]) * fresnel) * gain[c] + broad[c];
    const float first = fresnel + (1 - white) * meanFresnel;
    beneath[c] = std::max(0.0f, 1 - reflectivity * first + (1 - reflectivity * meanFresnel) * further);
  }
}

}  // namespace ovhost
