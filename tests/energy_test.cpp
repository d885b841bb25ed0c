// Compensated lobes: no light is lost between the facets of rough interfaces, whatever finds it, and what
// facets pass to each other is tinted as random walks over them tell.
#include <gtest/gtest.h>

#include <random>

#include "core/reflection.h"
#include "host/render/shade/specular_lobe.h"

using ovhost::SpecularLobe;

namespace {

constexpr double kPi = 3.14159265358979323846;

/// A lobe about +z with white colours.
trLobe Compensated(int kind, int model, double roughness, float index) {
  trLobe lobe;
  lobe.kind = kind;
  lobe.model = lobe.facets = static_cast<signed char>(model);
  lobe.roughness = static_cast<float>(roughness);
  lobe.normal = {0, 0, 1};
  lobe.base = lobe.edge = trFCol(1.0f);
  lobe.index = index;
  lobe.compensated = 1;
  return lobe;
}

trVector AtAngle(double theta) { return {std::sin(theta), 0, std::cos(theta)}; }

/// Calls f(direction, solid angle) all over the sphere.
template <typename F>
void OverSphere(int rings, int turns, const F& f) {
  for (int i = 0; i < rings; ++i)
    for (int j = 0; j < turns; ++j) {
      const double z = 2 * (i + 0.5) / rings - 1, r = std::sqrt(1 - z * z), phi = 2 * kPi * (j + 0.5) / turns;
      f(trVector(r * std::cos(phi), r * std::sin(phi), z), 4 * kPi / (rings * turns));
    }
}

/// All that a lobe sends to a viewer in even light, by its own draws, green.
double BySampling(const trLobe& lobe, double theta) {
  trLobe made = lobe;
  made.colour = trSharesOf(lobe, std::cos(theta)).albedo;
  const SpecularLobe shape(made, AtAngle(theta));
  // Draws spread evenly however lobes part them (Roberts 2018).
  constexpr int kDraws = 9000;
  double sum = 0;
  for (int i = 1; i <= kDraws; ++i) {
    SpecularLobe::Sampled sampled;
    const double x = 0.7548776662466927 * i, y = 0.5698402909980532 * i;
    if (shape.Sample({x - std::floor(x), y - std::floor(y)}, sampled)) sum += sampled.weight.g / kDraws;
  }
  return sum;
}

/// The same by its values in directions spread over the sphere.
double ByValues(const trLobe& lobe, double theta) {
  trLobe made = lobe;
  made.colour = trSharesOf(lobe, std::cos(theta)).albedo;
  const SpecularLobe shape(made, AtAngle(theta));
  double sum = 0;
  OverSphere(200, 100, [&](const trVector& d, double w) { sum += shape.Evaluate(d).g * w; });
  return sum;
}

TEST(Energy, WhiteReflectionsLoseNone) {
  for (const int model : {0, 1, 2, 3})
    for (const double tail : {2.0, 1.3})
      for (const double roughness : {0.02, 0.13, 0.5, 0.8, 1.0, 3.0})
        for (const double theta : {0.1, 0.9, 1.4}) {
          if (model == 0 && tail != 2) continue;
          trLobe lobe = Compensated(4, model, roughness, 1.5f);
          lobe.invTweak = static_cast<float>(tail);
          EXPECT_NEAR(BySampling(lobe, theta), 1, 0.01)
              << model << ' ' << tail << ' ' << roughness << ' ' << theta;
          if (roughness >= 0.3) {
            EXPECT_NEAR(ByValues(lobe, theta), 1, 0.01)
                << model << ' ' << tail << ' ' << roughness << ' ' << theta;
          }
        }
}

TEST(Energy, DielectricsLoseNone) {
  const struct {
    float index;
    unsigned char thin;
    float clear;
  } borders[] = {{1.5f, 0, 1}, {1 / 1.5f, 0, 1}, {1.5f, 1, 1}, {2.4f, 0, 0.6f}, {1.33f, 0, 0}, {4, 0, 0}};
  for (const auto& [index, thin, clear] : borders)
    for (const int model : {0, 1, 2, 3})
      for (const double roughness : {0.05, 0.3, 1.0})
        for (const double theta : {0.1, 0.9, 1.35}) {
          trLobe reflection = Compensated(4, model, roughness, index);
          reflection.base = trFCol();
          reflection.thin = thin;
          reflection.clear = trFCol(clear);
          double sum = BySampling(reflection, theta);
          // The rest is under it, or goes through.
          sum += (1 - clear) * trSharesOf(reflection, std::cos(theta)).beneath.g;
          if (clear > 0) {
            trLobe transmission = Compensated(5, model, roughness, index);
            transmission.base = trFCol(clear);
            transmission.thin = thin;
            sum += BySampling(transmission, theta);
          }
          EXPECT_NEAR(sum, 1, 0.01) << index << ' ' << model << ' ' << roughness << ' ' << theta;
        }
}

TEST(Energy, BlendsOfMetalAndWhiteGroundLoseNone) {
  for (const float metal : {0.2f, 0.5f, 0.9f})
    for (const double theta : {0.3, 1.2}) {
      trLobe lobe = Compensated(4, 3, 0.7, 1.5f);
      lobe.base = trFCol(metal);
      EXPECT_NEAR(BySampling(lobe, theta) + (1 - metal) * trSharesOf(lobe, std::cos(theta)).beneath.g, 1,
                  0.01)
          << metal << ' ' << theta;
    }
}

// Heitz, Hanika, d'Eon and Dachsbacher, Multiple-Scattering Microfacet BSDFs with the Smith Model, 2016: a
// walk from facet to facet of a GGX surface, whose heights are even.
class FacetWalk {
 public:
  explicit FacetWalk(double roughness) : a_(roughness) {}

  /// Albedo of facets that reflect `reflectance` of the light.
  double Albedo(double reflectance, double theta) {
    constexpr int kWalks = 20000;
    double sum = 0;
    for (int i = 0; i < kWalks; ++i) {
      trVector w = -AtAngle(theta);
      double share = 1, above = 1;  // the second is the share of heights that are below the walk's
      while (share > 1e-3 && Flies(w, above)) {
        const trVector h = VisibleNormal(-w);
        w = w - h * (2 * Dot(w, h));
        share *= reflectance;
      }
      if (share > 1e-3) sum += share / kWalks;
    }
    return sum;
  }

 private:
  double Unit() { return unit_(generator_); }
  double Lambda(double z) const {
    const double slope = a_ * std::sqrt(1 - z * z) / z;
    return 0.5 * (std::copysign(std::sqrt(1 + slope * slope), z) - 1);
  }
  /// To the next facet; false where the walk leaves the surface.
  bool Flies(const trVector& w, double& above) {
    const double u = 1 - Unit();
    if (w.z > 0.99999) return false;
    if (w.z < -0.99999) {
      above *= u;
      return true;
    }
    const double lambda = Lambda(w.z);
    if (w.z > 0 && u <= std::pow(above, lambda)) return false;
    above = std::min(1.0, above / std::pow(u, 1 / lambda));
    return true;
  }
  trVector VisibleNormal(const trVector& v) {
    const trVector s = Normalised({a_ * v.x, a_ * v.y, v.z});
    const double z = Unit() * (1 + s.z) - s.z, r = std::sqrt(std::max(0.0, 1 - z * z)),
                 phi = 2 * kPi * Unit();
    const trVector h = trVector(r * std::cos(phi), r * std::sin(phi), z) + s;
    return Normalised({a_ * h.x, a_ * h.y, std::max(h.z, 1e-9)});
  }

  double a_;
  std::mt19937_64 generator_{11};
  std::uniform_real_distribution<double> unit_;
};

TEST(Energy, ColoursDeepenAsOnRandomWalks) {
  for (const double roughness : {0.2, 0.5, 0.8, 1.0})
    for (const double theta : {0.3, 1.05, 1.4})
      for (const float reflectance : {0.2f, 0.5f, 0.8f}) {
        trLobe lobe = Compensated(4, 3, roughness, 1.5f);
        lobe.base = lobe.edge = trFCol(reflectance);
        EXPECT_NEAR(trSharesOf(lobe, std::cos(theta)).albedo.g,
                    FacetWalk(roughness).Albedo(reflectance, theta), 0.022)
            << roughness << ' ' << theta << ' ' << reflectance;
      }
}

TEST(Energy, SamplesAgreeWithValuesAndDensities) {
  std::mt19937_64 generator(5);
  std::uniform_real_distribution<double> unit;
  for (const double roughness : {0.4, 1.0})
    for (const int kind : {4, 5}) {
      trLobe lobe = Compensated(kind, 3, roughness, 1.5f);
      lobe.colour = trSharesOf(lobe, std::cos(0.8)).albedo;
      const SpecularLobe shape(lobe, AtAngle(0.8));
      // How often draws fall into a band of angles, and what their density says.
      constexpr int kBands = 8, kDraws = 200000, kRings = 80 * kBands, kTurns = 200;
      const auto band = [&](double z) {
        return std::min(static_cast<int>(std::fabs(z) * kBands), kBands - 1);
      };
      double drawn[kBands] = {}, expected[kBands] = {};
      for (int i = 0; i < kDraws; ++i) {
        SpecularLobe::Sampled sampled;
        if (!shape.Sample({unit(generator), unit(generator)}, sampled)) continue;
        drawn[band(sampled.toLight.z)] += 1.0 / kDraws;
        ASSERT_NEAR(sampled.pdf, shape.Pdf(sampled.toLight), 1e-4 * sampled.pdf);
      }
      OverSphere(kRings, kTurns,
                 [&](const trVector& d, double w) { expected[band(d.z)] += shape.Pdf(d) * w; });
      for (int b = 0; b < kBands; ++b)
        EXPECT_NEAR(drawn[b], expected[b], 0.005) << kind << ' ' << roughness << ' ' << b;
    }
}

}  // namespace
