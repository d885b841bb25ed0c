// Microfacet distributions, the highlight models and specular lobes: normalisation, furnaces, reciprocity,
// sampling against density, closed forms.
#include <gtest/gtest.h>

#include <random>

#include "core/reflection.h"
#include "host/render/shade/specular_lobe.h"

using ovhost::InterfaceFresnel;
using ovhost::Microfacet;
using ovhost::SpecularLobe;

namespace {

constexpr double kPi = 3.14159265358979323846;

trVector AtAngle(double theta, double phi = 0) {
  return {std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta)};
}

/// Sums f(half vector, solid angle) over the upper half space in steps that follow the roughness.
template <typename F>
void OverHalfVectors(double roughness, const F& f) {
  constexpr int kSlopes = 400, kTurns = 100;
  for (int i = 0; i < kSlopes; ++i)
    for (int j = 0; j < kTurns; ++j) {
      const double x = (i + 0.5) / kSlopes, slope = roughness * x / (1 - x);
      const double cosine = 1 / std::sqrt(1 + slope * slope), sine = slope * cosine;
      const double width = roughness / ((1 - x) * (1 - x)) / kSlopes * cosine * cosine;
      const double phi = (j + 0.5) / kTurns * 2 * kPi;
      f(trVector(sine * std::cos(phi), sine * std::sin(phi), cosine), sine * width * 2 * kPi / kTurns);
    }
}

struct Draws {
  std::mt19937_64 generator{7};
  std::uniform_real_distribution<double> unit;
  tr2Vector Next() {
    const double x = unit(generator);
    return {x, unit(generator)};
  }
};

struct Facets {
  int model;
  double roughness, invTweak;
};
std::vector<Facets> AllFacets() {
  std::vector<Facets> all;
  for (int model : {0, 1, 2, 3})
    for (double roughness : {0.05, 0.4, 1.0})
      for (double tweak : {1.2, 2.0, 4.0})
        if (model != 0 || tweak == 2) all.push_back({model, roughness, tweak});
  return all;
}

TEST(Microfacets, AreNormalisedAndMaskedToWhatIsVisible) {
  for (const auto& [model, roughness, tweak] : AllFacets()) {
    const Microfacet facets(model, roughness, tweak);
    double area = 0;
    OverHalfVectors(roughness, [&](const trVector& h, double w) { area += facets.D(h.z) * h.z * w; });
    EXPECT_NEAR(area, 1, 2e-3) << model << ' ' << roughness << ' ' << tweak;
    for (double theta : {0.1, 0.8, 1.4}) {
      // The visible facets cover exactly the surface as the viewer sees it (Heitz 2014); so does the density
      // of draws.
      const trVector v = AtAngle(theta);
      double seen = 0, density = 0, expected = 0;
      OverHalfVectors(roughness, [&](const trVector& h, double w) {
        const double across = Dot(v, h);
        if (across <= 0) return;
        seen += facets.D(h.z) * facets.G1(v.z, h.z, across) * across * w / v.z;
        density += facets.PdfHalf(v.z, h.z, across) * w;
        expected += facets.PdfHalf(v.z, h.z, across) * across * w;
      });
      EXPECT_NEAR(seen, 1, 2e-2) << model << ' ' << roughness << ' ' << tweak << ' ' << theta;
      EXPECT_NEAR(density, 1, 2e-3) << model << ' ' << roughness << ' ' << tweak << ' ' << theta;
      Draws draws;
      double drawn = 0;
      constexpr int kDraws = 4000;
      for (int i = 0; i < kDraws; ++i) drawn += Dot(v, facets.SampleHalf(v, draws.Next())) / kDraws;
      EXPECT_NEAR(drawn, expected, 0.02) << model << ' ' << roughness << ' ' << tweak << ' ' << theta;
    }
  }
}

TEST(Microfacets, ReflectAtMostWhatTheyGet) {
  for (const auto& [model, roughness, tweak] : AllFacets())
    for (double theta : {0.0, 0.7, 1.2, 1.5}) {
      const Microfacet facets(model, roughness, tweak);
      const trVector v = AtAngle(theta);
      double white = 0;
      OverHalfVectors(roughness, [&](const trVector& h, double w) {
        const double across = Dot(v, h);
        const trVector l = h * (2 * across) - v;
        if (across > 0 && l.z > 0) white += facets.Reflection(v.z, l.z, h.z, across) * l.z * 4 * across * w;
      });
      EXPECT_LT(white, 1.003) << model << ' ' << roughness << ' ' << tweak << ' ' << theta;
      EXPECT_GT(white, roughness < 0.1 && theta < 1 ? 0.95 : 0) << model << ' ' << tweak << ' ' << theta;
    }
}

TEST(Highlights, MatchTheirPapersAndAreReciprocal) {
  const trFCol s(0.1f, 0.3f, 0), c(0.5f, 0.2f, 0.9f), ior(1.5f);
  const trVector n(0, 0, 1), l = AtAngle(0.5), v = AtAngle(0.9, 2.0);
  const trVector h = Normalised(l + v);
  const double a = 0.35, cosH = h.z, tan2 = 1 / (cosH * cosH) - 1, across = Dot(v, h);
  const float f = 0.2f;

  // Fresnel by its angles, dimmed by what rough facets pass to each other.
  const double in = std::acos(across), out = std::asin(std::sin(in) / 1.5);
  const double rs = std::sin(in - out) / std::sin(in + out), rp = std::tan(in - out) / std::tan(in + out);
  const double fresnel = 0.5 * (rs * rs + rp * rp);
  const auto share = [&](int k, double kappa) {
    const double s1 = s[k] * (1 + kappa * (s[k] + (c[k] - s[k]) * f)) / (1 + kappa);
    const double f1 = fresnel * (1 + kappa * c[k] * f) / (1 + kappa);
    return (s1 + (c[k] - s1) * f1) / (s[k] + c[k]);
  };
  const double beckmann = std::exp(-tan2 / (a * a)) / (kPi * a * a * std::pow(cosH, 4));
  const double ggx = a * a / (kPi * std::pow(cosH, 4) * std::pow(a * a + tan2, 2));
  const double blinn = 1 / (kPi * a * a) * std::pow(cosH, 2 / (a * a) - 2);
  const double cavity = std::min(1.0, std::min(2 * cosH * v.z / across, 2 * cosH * l.z / across));
  const auto lambdaGgx = [&](double z) { return (std::sqrt(1 + a * a * (1 / (z * z) - 1)) - 1) / 2; };
  const auto lambdaBeckmann = [&](double z) {
    const double x = 1 / (a * std::sqrt(1 / (z * z) - 1));
    return (std::erf(x) - 1) / 2 + std::exp(-x * x) / (2 * x * std::sqrt(kPi));
  };
  const double smithGgx = 1 / (1 + lambdaGgx(v.z) + lambdaGgx(l.z));
  const double smithBeckmann = 1 / (1 + lambdaBeckmann(v.z) + lambdaBeckmann(l.z));
  const double angles = kPi / (4 * l.z * v.z);

  const trFCol rough(static_cast<float>(a)), neutral(2.0f);
  const float a2 = static_cast<float>(a * a);
  const struct {
    const char* name;
    trFCol there, back;
    double facets, kappa;
  } cases[] = {{"Blinn", trBlinnModified(s, c, ior, n, l, v, rough),
                trBlinnModified(s, c, ior, n, v, l, rough), blinn * cavity, 0},
               {"OV 2", trSpecularBeckmannOV2(s, c, ior, n, l, v, rough, neutral),
                trSpecularBeckmannOV2(s, c, ior, n, v, l, rough, neutral), beckmann * cavity, 0},
               {"OV 4.5", trSpecularBeckmannOV45(s, c, ior, n, l, v, a, 2, a2, f),
                trSpecularBeckmannOV45(s, c, ior, n, v, l, a, 2, a2, f), beckmann * smithBeckmann, a * a},
               {"GGX", trSpecularGGX(s, c, ior, n, l, v, a, 2, a2, f),
                trSpecularGGX(s, c, ior, n, v, l, a, 2, a2, f), ggx * smithGgx, 1.4 * a * a}};
  for (const auto& model : cases)
    for (int k = 0; k < 3; ++k) {
      const double expected = model.facets * angles * share(k, model.kappa);
      EXPECT_NEAR(model.there[k], expected, 1e-5 * expected + 1e-9) << model.name << ' ' << k;
      EXPECT_FLOAT_EQ(model.there[k], model.back[k]) << model.name << ' ' << k;
    }
}

TEST(Highlights, AreFiniteForAnything) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::nanf("");
  for (float x : {0.0f, 1.0f, -1.0f, 1e-30f, 1e30f, inf, -inf, nan})
    for (double y : {0.0, 1e9, -1.0, std::nan(""), 1e300})
      for (const trVector& l : {AtAngle(0.1), AtAngle(kPi / 2), trVector(), trVector(1e300, 0, 1)}) {
        const trVector n(0, 0, 1), v = AtAngle(0.2);
        const trFCol c(x), d(0.5f), e(static_cast<float>(y));
        for (const trFCol& r :
             {trBlinnModified(c, d, d, n, l, v, e), trSpecularBeckmannOV2(d, c, c, n, l, v, e, c),
              trSpecularBeckmannOV45(c, c, d, n, l, v, y, x, y, y),
              trSpecularGGX(d, c, e, n, l, v, x, y, y, x)})
          for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isfinite(r[k])) << x << ' ' << y;
        EXPECT_TRUE(std::isfinite(trFresnel(x, y, 0.5)));
      }
}

TEST(Fresnel, KnowsItsAngles) {
  for (double n : {1.33, 1.5, 2.4}) {
    EXPECT_NEAR(trFresnel(n, 1, 1), std::pow((n - 1) / (n + 1), 2), 1e-7);
    EXPECT_FLOAT_EQ(trFresnel(n, 0, std::sqrt(1 - 1 / (n * n))), 1);
    // At Brewster's angle light across the plane is all that is reflected.
    const double air = 1 / std::sqrt(1 + n * n), medium = n / std::sqrt(1 + n * n);
    EXPECT_NEAR(trFresnel(n, air, medium), 0.5 * std::pow((n * n - 1) / (n * n + 1), 2), 1e-7);
    // The same from either side, until nothing gets out.
    EXPECT_NEAR(InterfaceFresnel(1 / n, medium), InterfaceFresnel(n, air), 1e-6);
    EXPECT_EQ(InterfaceFresnel(1 / n, std::sqrt(1 - 1.01 / (n * n))), 1);
  }
  EXPECT_EQ(trFresnel(1, 0.3, 0.3), 0);
}

// --- Lobes

struct LobeCase {
  int kind, model;
  float index, roughness, base;
  unsigned char thin;
  double theta;
};

trLobe MakeLobe(const LobeCase& c) {
  trLobe lobe;
  lobe.kind = c.kind;
  lobe.model = lobe.facets = static_cast<signed char>(c.model);
  lobe.roughness = c.roughness;
  lobe.roughness2 = c.roughness * c.roughness;
  lobe.normal = Normalised({1, 2, 3});
  lobe.base = trFCol(c.base);
  lobe.edge = trFCol(1.0f);
  lobe.index = c.index;
  lobe.fresnelScale = 0.2f;
  lobe.thin = c.thin;
  const float fresnel = InterfaceFresnel(c.index, std::cos(c.theta));
  lobe.colour = c.kind == trLobe::kSpecularReflection
                    ? trRoughReflectance(lobe.base, lobe.edge, fresnel, lobe.fresnelScale,
                                         trInterreflection(c.model, lobe.roughness2))
                          .Total()
                    : trFCol(1 - fresnel) * lobe.base;
  return lobe;
}

trVector ViewOf(const LobeCase& c) {
  const trVector n = Normalised({1, 2, 3});
  return n * std::cos(c.theta) + Normalised(Cross(n, {0, 1, 0})) * std::sin(c.theta);
}

TEST(SpecularLobes, SamplesAgreeWithValuesAndDensities) {
  for (const LobeCase& c : {LobeCase{4, 3, 1.5f, 0.5f, 0.2f, 0, 0.6}, LobeCase{4, 2, 0.7f, 0.4f, 0, 0, 0.4},
                            LobeCase{4, 0, 1.5f, 0.5f, 0.9f, 0, 1.3}, LobeCase{5, -1, 1.5f, 0.5f, 1, 0, 0.6},
                            LobeCase{5, 1, 0.7f, 0.4f, 1, 0, 0.4}, LobeCase{5, 2, 1.5f, 0.5f, 1, 1, 1.0}}) {
    const SpecularLobe lobe(MakeLobe(c), ViewOf(c));
    Draws draws;
    constexpr int kDraws = 60000;
    double light = 0, density = 0, weights = 0, arrived = 0;
    for (int i = 0; i < kDraws; ++i) {
      const tr2Vector draw = draws.Next();
      const double z = 2 * draw.x - 1, r = std::sqrt(1 - z * z);
      const trVector d(r * std::cos(2 * kPi * draw.y), r * std::sin(2 * kPi * draw.y), z);
      light += lobe.Evaluate(d).g * 4 * kPi / kDraws;
      density += lobe.Pdf(d) * 4 * kPi / kDraws;
      SpecularLobe::Sampled sampled;
      if (!lobe.Sample(draws.Next(), sampled)) continue;
      EXPECT_NEAR(sampled.pdf, lobe.Pdf(sampled.toLight), 1e-4 * sampled.pdf);
      EXPECT_EQ(Dot(sampled.toLight, MakeLobe(c).normal) > 0, c.kind == 4);
      weights += sampled.weight.g / kDraws;
      arrived += 1.0 / kDraws;
    }
    EXPECT_NEAR(weights, light, 0.03 * light + 2e-3) << c.kind << ' ' << c.model << ' ' << c.theta;
    EXPECT_NEAR(arrived, density, 0.03) << c.kind << ' ' << c.model << ' ' << c.theta;
  }
}

TEST(SpecularLobes, GiveNoMoreThanTheyGet) {
  for (int model : {0, 1, 2, 3})
    for (float index : {1.5f, 0.7f})
      for (float roughness : {0.02f, 0.3f, 0.9f})
        for (double theta : {0.2, 1.0, 1.45}) {
          const SpecularLobe reflection(MakeLobe({4, model, index, roughness, 0, 0, theta}),
                                        ViewOf({4, model, index, roughness, 0, 0, theta}));
          const SpecularLobe transmission(MakeLobe({5, model, index, roughness, 1, 0, theta}),
                                          ViewOf({5, model, index, roughness, 1, 0, theta}));
          double sum = 0;
          constexpr int kSide = 64;
          for (int i = 0; i < kSide * kSide; ++i)
            for (const SpecularLobe* lobe : {&reflection, &transmission}) {
              SpecularLobe::Sampled sampled;
              if (lobe->Sample({(i / kSide + 0.5) / kSide, (i % kSide + 0.5) / kSide}, sampled))
                sum += sampled.weight.r / (kSide * kSide);
            }
          EXPECT_LT(sum, 1.002) << model << ' ' << index << ' ' << roughness << ' ' << theta;
        }
}

TEST(SpecularLobes, MirrorsFollowSnell) {
  for (float index : {1.5f, 0.8f}) {
    const LobeCase c{5, -1, index, 0, 1, 0, 0.6};
    SpecularLobe::Sampled sampled;
    const SpecularLobe lobe(MakeLobe(c), ViewOf(c));
    EXPECT_TRUE(lobe.IsMirror());
    EXPECT_TRUE(lobe.Evaluate(-ViewOf(c)).IsBlack());
    ASSERT_TRUE(lobe.Sample({0.3, 0.6}, sampled));
    const trVector n = MakeLobe(c).normal;
    EXPECT_NEAR(Cross(n, sampled.toLight).Length() * index, std::sin(0.6), 1e-6);
    EXPECT_NEAR(Dot(sampled.toLight, Cross(n, ViewOf(c))), 0, 1e-6);
    EXPECT_LT(Dot(sampled.toLight, n), 0);
    EXPECT_EQ(sampled.weight, MakeLobe(c).colour);
  }
}

TEST(SpecularLobes, KeepWhatLayersAboveLeft) {
  LobeCase c{4, 3, 1.5f, 0.3f, 0.1f, 0, 0.5};
  trLobe lobe = MakeLobe(c);
  const trVector v = ViewOf(c), l = Normalised(lobe.normal * 2 - v);
  const trFCol full = SpecularLobe(lobe, v).Evaluate(l);
  lobe.colour *= trFCol(0.5f, 0, 2);
  const trFCol masked = SpecularLobe(lobe, v).Evaluate(l);
  EXPECT_NEAR(masked.r, 0.5 * full.r, 1e-5);
  EXPECT_EQ(masked.g, 0);
  EXPECT_NEAR(masked.b, 2 * full.b, 1e-5);
}

}  // namespace
