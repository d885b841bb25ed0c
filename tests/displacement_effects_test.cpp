// Craters, strata, leans, magnets, stones and filters against their formulas, evaluated plainly.
#include <cmath>

#include "core/noise.h"
#include "tests/shading_fixture.h"

namespace {

/// A shader of a class, in a project.
struct Effect {
  explicit Effect(const char* className) : shader(graph.Shader(className)) {}
  void Set(const char* name, const trParamValue& value) {
    ASSERT_TRUE(shader.SetParam(name, value, trWhoSystem)) << name;
  }
  ProbeShader& Linked(const char* param) {
    auto& probe = graph.Add<ProbeShader>(trString("Probe ") + param);
    Graph::Link(shader, param, probe);
    return probe;
  }
  /// Where a point goes, and that the chain runs first and alone where the shader is off.
  trVector Displaced(Sample& sample) {
    EXPECT_EQ(shader.DisplaceTS(sample.si), 1);
    return sample.si.P();
  }
  Graph graph;
  trShader& shader;
};

/// A sample that is displaced by `height` along its geometric normal, with a texture point of its own.
struct Raised : Sample {
  Raised(const trVector& ground, double height, const trVector& normal = {0, 1, 0}) : Sample(ground, normal) {
    si.P() += normal * height;
  }
};

TEST(DisplacementEffects, RunTheirInputFirstAndAloneWhenOff) {
  for (const char* className :
       {"crater_shader", "strata_and_outcrops_shader_v2", "twist_and_shear_shader", "redirect_shader",
        "magnet_shader", "smoothing_filter_shader", "fake_stones_shader"}) {
    Effect effect(className);
    effect.Linked("input_node").onDisplace = [](trShadingInterface& si) { si.P() += trVector(0, 5, 0); };
    effect.Set("enable", 0);
    Sample sample({10, 0, 3});
    EXPECT_EQ(effect.Displaced(sample), trVector(10, 5, 3)) << className;
    EXPECT_EQ(effect.shader.ShadeTS(sample.si), 1);
    EXPECT_EQ(sample.si.Cutil(), trFCol(0.25f, 0.5f, 0.75f)) << className;
    EXPECT_TRUE(effect.shader.HasDisplacement()) << className;
    const bool shades =
        trString(className) == "fake_stones_shader" || trString(className) == "smoothing_filter_shader";
    EXPECT_EQ(effect.shader.HasShade() != 0, shades) << className;
  }
}

TEST(DisplacementEffects, CraterHasBowlAndSkirt) {
  // Bowl: B - (d + B) (1 - t)^p; skirt: B (1 - (1 - t)^p); t measured from the centre and from the skirt's
  // end, pulled towards the rim by an exponential.
  const double diameter = 900, depth = 120, height = 35, skirt = 300, softness = 0.4, tightness = 3;
  const trVector centre(40, 7, -60);
  for (const double r : {0.0, 12.0, 300.0, 449.0, 449.999999, 450.0, 455.0, 600.0, 749.0, 750.0, 2000.0}) {
    Effect crater("crater_shader");
    const std::pair<const char*, double> settings[] = {
        {"diameter", diameter}, {"depth", depth},           {"rim_height", height},
        {"rim_skirt", skirt},   {"rim_softness", softness}, {"rim_tightness", tightness}};
    for (const auto& [name, value] : settings) crater.Set(name, value);
    crater.Set("center", centre);
    auto& rim = crater.Linked("rim_shader");
    rim.onDisplace = [](trShadingInterface& si) {
      si.P() += trVector(0, 0, 8);
      si.N() = {1, 0, 0};
    };

    const double p = softness + 1, b = (depth + height) / p - depth;
    double rise = 0, weight = 0;
    if (r < 450) {
      const double t = r / 450 * std::exp(tightness * (r / 450 - 1));
      rise = b - std::pow(1 - t, p) * (depth + b);
      weight = t / p;
    } else if (r < 750) {
      const double t = (750 - r) / 300 * std::exp(-tightness * (r - 450) / 300);
      rise = b * (1 - std::pow(1 - t, p));
      weight = t * t / p;
    }
    Sample sample({5000, 200, 1000}, {0, 0.8, 0.6});
    sample.si.N() = {0, 0, 2};
    sample.si.Pt() = centre + trVector(0.6, 0, -0.8) * r;
    const trVector expected =
        trVector(5000, 200, 1000) + trVector(0, 0.8, 0.6) * rise + trVector(0, 0, 8 * weight);
    ExpectNear(crater.Displaced(sample), expected, 1e-9, std::to_string(r).c_str());
    ExpectNear(sample.si.N(), Normalised({weight, 0, 2 * (1 - weight)}), 1e-12, "normal");
    EXPECT_EQ(rim.displaced, 1) << "outside too";
  }
}

TEST(DisplacementEffects, CraterOfNoSoftnessIsFinite) {
  Effect crater("crater_shader");
  crater.Set("rim_softness", -1.0);
  Sample inside({100, 0, 0});
  // (1 - t)^0 is 1, so the bowl is flat at its depth, but for what the guard's 1e14 metres leave of it.
  EXPECT_NEAR(crater.Displaced(inside).y, -100, 0.1);
  crater.Set("rim_softness", -3.0);
  crater.Set("rim_tightness", -900.0);
  Sample absurd({100, 0, 0});
  EXPECT_EQ(crater.Displaced(absurd), trVector(100, 0, 0));
}

struct Strata {
  double altitude = 0, depth = 50, steepness = 1, buildup = 0.5, spacing = 200;
  int octaves = 8;
  double direction = 90, angle = 0;
  bool degrees = true;
  double mask = 1;
};

/// The loop over the layers, each height told by its place between the foot of one layer and the next.
double FoldedHeight(const Strata& s, const trVector& p, double h) {
  const double a = s.degrees ? s.direction * M_PI / 180 : s.direction;
  const double slope = std::fabs(s.angle) < 90 ? std::atan(s.angle * M_PI / 180) : 0;
  double depth = std::min(s.depth, s.spacing), spacing = s.spacing;
  double base = (p.x * std::sin(a) + p.z * std::cos(a)) * slope + s.altitude;
  const double q = std::min(s.buildup, s.spacing / depth - 1), f = 1 + s.mask * s.steepness;
  for (int n = std::max(s.octaves, 1); n > 0; --n) {
    const double top = base + spacing * std::ceil((h - depth * q - base) / spacing);
    const double y = 1 + (h - top) / depth;
    double u = y;
    if (y > 0 && y < 1 + q) u = y * f <= 1 ? y * f : 1 + q * (y * f - 1) / (f * (1 + q) - 1);
    h = top + depth * (u - 1);
    base += spacing / 4;
    spacing /= 2;
    depth /= 2;
  }
  return h;
}

TEST(DisplacementEffects, StrataFoldHeightsOntoLayers) {
  const Strata rows[] = {{},
                         {.altitude = -30, .depth = 80, .steepness = 3, .buildup = 0.2, .octaves = 3},
                         {.depth = 500, .spacing = 150, .octaves = 1},
                         {.depth = 40, .buildup = 90, .octaves = 2, .direction = 30, .angle = 12},
                         {.octaves = 0, .angle = -89.9},
                         {.octaves = -7, .angle = 90},
                         {.steepness = 0, .octaves = 5},
                         {.direction = 77, .angle = 5, .degrees = false},
                         {.octaves = 4, .mask = 0.3}};
  for (const Strata& row : rows) {
    Effect strata("strata_and_outcrops_shader_v2");
    long fix = 0;
    ASSERT_TRUE(strata.shader.GetParam("degree_fix", fix));
    EXPECT_EQ(fix, 1) << "of a new node";
    const std::pair<const char*, double> settings[] = {{"hard_layer_altitude", row.altitude},
                                                       {"hard_layer_depth", row.depth},
                                                       {"hard_layer_steepness", row.steepness},
                                                       {"plateau_buildup", row.buildup},
                                                       {"hard_layer_spacing", row.spacing},
                                                       {"num_octaves", row.octaves},
                                                       {"strata_tilt_direction", row.direction},
                                                       {"strata_tilt_angle", row.angle},
                                                       {"degree_fix", row.degrees}};
    for (const auto& [name, value] : settings) strata.Set(name, value);
    const float grey = static_cast<float>(row.mask / 1.0001);
    if (row.mask != 1) strata.Linked("blending_shader").colour = {grey, grey, grey};
    strata.Set("blend_by_shader", row.mask != 1);
    const trVector up(0.36, 0.8, 0.48);
    for (double height = -411.3; height < 500; height += 17.77) {
      Raised sample({300, 20, -700}, height, up);
      const trVector p = sample.si.P();
      const double folded = FoldedHeight(row, p, height);
      ExpectNear(strata.Displaced(sample), p + up * (folded - height), row.mask == 1 ? 1e-8 : 1e-4,
                 (std::to_string(&row - rows) + " " + std::to_string(height)).c_str());
      if (row.steepness == 0) {
        EXPECT_NEAR(folded, height, 1e-9) << "no steepness, no layers";
      }
    }
  }
}

TEST(DisplacementEffects, StrataMask) {
  Effect strata("strata_and_outcrops_shader_v2");
  strata.Set("blend_by_shader", 1);
  Raised sample({0, 0, 0}, 30);
  EXPECT_EQ(strata.shader.DisplaceTS(sample.si), 0) << "a mask that leads nowhere ends the chain";
  auto& mask = strata.graph.Add<ProbeShader>("Mask");
  strata.Set("blend_by_shader", 0);
  strata.shader.SetParam("blending_shader", "/Mask", trWhoUser);
  long isOn = 0;
  strata.shader.GetParam("blend_by_shader", isOn);
  EXPECT_EQ(isOn, 1) << "follows the user's link";
  // Channels below 0 count as 0, and so does what an inverted mask above 1 leaves.
  mask.colour = {-5, -1, 0};
  EXPECT_EQ(strata.Displaced(sample), trVector(0, 30, 0));
  strata.Set("invert_blendshader", 1);
  EXPECT_NE(strata.Displaced(sample), trVector(0, 30, 0));
  mask.colour = {4, 4, 4};
  Raised other({0, 0, 0}, 30);
  EXPECT_EQ(strata.Displaced(other), trVector(0, 30, 0));
  for (const char* name : {"hard_layer_depth", "hard_layer_spacing"}) {
    Effect flat("strata_and_outcrops_shader_v2");
    flat.Set(name, 0.0);
    Raised raised({0, 0, 0}, 30);
    EXPECT_EQ(flat.Displaced(raised), trVector(0, 30, 0)) << name;
  }
}

TEST(DisplacementEffects, TwistAndShearLeansByHeight) {
  Effect lean("twist_and_shear_shader");
  lean.Set("lean_direction", trVector(3, 0, 4));
  lean.Set("lean_factor", 0.5);
  lean.Set("base_altitude", 20.0);
  Raised sample({1000, 5, -3000}, 120);
  ExpectNear(lean.Displaced(sample), trVector(1000 + 50 * 0.6, 125, -3000 + 50 * 0.8), 1e-9);
  lean.Set("lean_direction", trVector());
  Raised nowhere({1000, 5, -3000}, 120);
  EXPECT_EQ(lean.Displaced(nowhere), trVector(1000, 125, -3000));
}

TEST(DisplacementEffects, RedirectRunsEachShaderAlongItsAxis) {
  Effect redirect("redirect_shader");
  const char* const links[] = {"X_shader", "Y_shader", "Z_shader"};
  for (int i = 0; i < 3; ++i)
    redirect.Linked(links[i]).onDisplace = [i](trShadingInterface& si) {
      // Each doubles what the one before has made of the point, so that their order shows.
      si.P() += si.N() * (i + 1 + si.P().x + si.P().y);
    };
  Sample sample({1, 2, 3}, {0.6, 0.8, 0});
  EXPECT_EQ(redirect.Displaced(sample), trVector(1 + 4, 2 + 9, 3 + 19));
  EXPECT_EQ(sample.si.N(), trVector(0.6, 0.8, 0));
}

TEST(DisplacementEffects, MagnetDrawsPoints) {
  Effect magnet("magnet_shader");
  magnet.Set("position", trVector(10, 20, 30));
  magnet.Set("radius_of_influence", 5.0);
  const trVector rows[][2] = {
      {{10, 20, 30}, {10, 20, 30}}, {{12, 20, 30}, {10, 20, 30}}, {{20, 20, 30}, {17.5, 20, 30}}};
  for (const auto& [from, to] : rows) {
    Sample sample(from);
    ExpectNear(magnet.Displaced(sample), to, 1e-12);
  }
}

TEST(DisplacementEffects, MultiShaderRunsTheElementsShader) {
  Effect multi("multi_shader");
  auto& first = multi.Linked("shader_1");
  auto& last = multi.Linked("shader_16");
  last.onDisplace = [](trShadingInterface& si) { si.P() += trVector(0, 1, 0); };
  const struct {
    int element;
    double height;
  } rows[] = {{0, 0}, {1, 0}, {2, 0}, {16, 1}, {17, 0}, {-1, 0}};
  for (const auto& row : rows) {
    Sample sample({1, 0, 2});
    sample.state.CurrentRay().element = row.element;
    EXPECT_EQ(multi.Displaced(sample).y, row.height) << row.element;
    EXPECT_EQ(multi.shader.ShadeTS(sample.si), 1);
  }
  EXPECT_EQ(first.displaced, 1);
  EXPECT_EQ(first.shaded, 1);
  EXPECT_EQ(last.shaded, 1);
}

TEST(DisplacementEffects, SmoothingFilterWidensTheFootprint) {
  Effect filter("smoothing_filter_shader");
  EXPECT_FALSE(Graph().Shader("smoothing_filter_shader").HasDisplacement());
  EXPECT_FALSE(Graph().Shader("smoothing_filter_shader").HasShade());
  auto& probe = filter.Linked("input_node");
  double seen = -1;
  probe.onDisplace = [&](trShadingInterface& si) { seen = si.SmoothSize(); };
  auto& modulator = filter.graph.Add<ProbeShader>("Modulator");
  const struct {
    double scale, footprint;
    float modulation;
    double expected;
  } rows[] = {{3, 4, 1, 5}, {6, 4, 0.5, 5}, {-3, 4, 1, 4}, {3, 4, -2, 4}, {0, 0, 1, 9.999999974752427e-07},
              {3, 0, 1, 3}};
  for (const auto& row : rows) {
    filter.Set("smoothing_scale", row.scale);
    modulator.colour = trFCol(row.modulation / 1.0001f);
    filter.Set("scale_modulator", row.modulation == 1 ? "" : "/Modulator");
    Sample sample({1, 2, 3});
    sample.si.SmoothSize() = row.footprint;
    filter.shader.DisplaceTS(sample.si);
    EXPECT_NEAR(seen, row.expected, 1e-6 * row.expected) << row.scale;
    EXPECT_EQ(sample.si.SmoothSize(), row.footprint) << "put back";
  }
}

// ---------------------------------------------------------------------------------------------------------------

struct Stones {
  double scale = 2, density = 0.6, variation = 1, variationScale = 10, tallness = 0.5, pancake = 1;
  int seed = 17, densitySeed = 4;
  float mask = -1;  ///< none
  bool maskAsDensity = false;
};

/// The stone at a point, by its formulas: how much of it is there, how high it is, its centre in cells.
struct PlainStone {
  double presence = 0, height = 0;
  trVector centre;
};
PlainStone StoneAt(const Stones& s, const trVector& pt, double a, double b) {
  const double mask = s.mask < 0 ? 1 : Luminance(trFCol(s.mask));
  const trVector v = pt / s.scale, shifted = v + trNoff3(s.seed);
  double value;
  trVector near, second;
  trVoronoi3<double>(value, near, second, &shifted.x);
  PlainStone stone;
  stone.centre = v - near;
  const double k = s.scale / std::max(s.variationScale, 1e-12);
  const double n1 = trNoise3(stone.centre * 0.5 + trNoff3(s.densitySeed + 1)),
               n2 = trNoise3(stone.centre * k + trNoff3(s.densitySeed)),
               n3 = trNoise3(stone.centre * (k / 4) + trNoff3(s.densitySeed - 1));
  double u = s.density * (1 + s.variation * (n1 * a / 2 + b * (n2 + n3 / 4)));
  if (s.maskAsDensity) u *= mask;
  u = std::clamp(u, 0.0, 1.0);
  const double q = u > value + 0.5 ? second.Length() - near.Length() : 0;
  stone.presence = (1 - a) * u + (q > 0 ? a : 0);
  if (!s.maskAsDensity) stone.presence *= mask;
  stone.height = s.scale * s.tallness * q * stone.presence;
  return stone;
}

struct StoneRig : Effect {
  explicit StoneRig(const Stones& s) : Effect("fake_stones_shader") {
    const std::pair<const char*, double> settings[] = {{"stone_scale", s.scale},
                                                       {"stone_density", s.density},
                                                       {"density_variation", s.variation},
                                                       {"stone_tallness", s.tallness},
                                                       {"seed", s.seed},
                                                       {"density_variation_scale", s.variationScale},
                                                       {"density_seed", s.densitySeed},
                                                       {"pancake_effect", s.pancake}};
    for (const auto& [name, value] : settings) Set(name, value);
    if (s.mask < 0) return;
    Linked("blending_shader").colour = trFCol(s.mask);
    Set("blend_by_shader", 1);
    Set("blend_as_stone_density", s.maskAsDensity);
  }
};

const Stones kStoneRows[] = {{},
                             {.scale = 0.7, .density = 1, .tallness = 2, .pancake = 0.3},
                             {.density = 0.9, .mask = 0.5f},
                             {.density = 0.9, .mask = 0.5f, .maskAsDensity = true},
                             {.density = 0.4, .variation = 3, .variationScale = 0},
                             {.density = 0}};

TEST(FakeStones, DisplaceByTheStoneAtThePoint) {
  for (const Stones& row : kStoneRows) {
    StoneRig rig(row);
    int stones = 0;
    for (int i = 0; i < 200; ++i) {
      const trVector point(i * 0.731, 0.2, i * -1.37), n(0.6, 0.8, 0);
      const PlainStone stone = StoneAt(row, point, 1, 1);
      for (const bool upwards : {false, true}) {
        rig.Set("only_displace_upwards", upwards);
        Sample sample(point);
        sample.si.N() = n;
        const trVector up = upwards ? trVector(0, 1, 0) : n, risen = point + up * stone.height,
                       out = Normalised(risen - stone.centre * row.scale),
                       sideways = (out - up * Dot(out, up)) * (stone.height * row.pancake);
        ExpectNear(rig.Displaced(sample), stone.height == 0 ? point : risen + sideways, 1e-9);
      }
      stones += stone.height > 0;
    }
    EXPECT_EQ(stones > 0, row.density > 0);
  }
}

TEST(FakeStones, FullDensityPutsAStoneInEveryCell) {
  StoneRig rig({.density = 1, .variation = 0});
  for (int i = 0; i < 200; ++i) {
    Sample sample({i * 0.731, 0, i * -1.37});
    EXPECT_GT(rig.Displaced(sample).y, 0) << i;
  }
}

TEST(FakeStones, SurfaceShaderComesInFromTheEdge) {
  const Stones settings{.density = 1, .variation = 0};
  StoneRig plain(settings), rig(settings);
  auto& surface = rig.Linked("surface_shader");
  trVector seenNormal;
  surface.onDisplace = [&](trShadingInterface& si) {
    seenNormal = si.N();
    EXPECT_EQ(si.Nt(), si.N());
    si.P() += trVector(0, 0, 1);
    si.Pt() = {};
  };
  for (int i = 0; i < 50; ++i) {
    const trVector point(i * 0.731, 0.2, i * -1.37);
    Sample a(point), b(point);
    const PlainStone stone = StoneAt(settings, point, 1, 1);
    const trVector bare = plain.Displaced(a);
    const double y = 1 - std::min(1.0, 2 * stone.height / (settings.tallness * settings.scale));
    ExpectNear(rig.Displaced(b), bare + trVector(0, 0, 1 - y * y), 1e-9);
    const trVector risen = point + trVector(0, stone.height, 0);
    ExpectNear(seenNormal, Normalised(risen - stone.centre * settings.scale), 1e-9);
    EXPECT_EQ(b.si.Pt(), point);
    EXPECT_EQ(b.si.N(), trVector(0, 1, 0));
    EXPECT_EQ(b.si.Nt(), trVector(0, 1, 0));
  }
}

TEST(FakeStones, ColourFadesToCoverAsStonesFallBelowTheFootprint) {
  const auto fade = [](double size, double footprint) {
    const double t = std::clamp(size / footprint * 0.75 - 0.1, 0.0, 1.0);
    return (3 - 2 * t) * t * t;
  };
  for (const Stones& row : kStoneRows)
    for (const double width : {0.01, 2.5, 3.1, 200.0}) {
      StoneRig rig(row);
      rig.Set("diffuse_colour", trManRgb(0.5f, 0.4f, 0.3f));
      rig.Set("variation_in_green", 0.0);
      // A corner each along x and z, `width` away, is a footprint of 0.7071 sqrt(2) of it.
      const double footprint = width * 0.7071 * std::sqrt(2.0), a = fade(row.scale, footprint),
                   b = fade(row.variationScale, footprint);
      for (int i = 0; i < 40; ++i) {
        const trVector point(i * 0.731, 0.2, i * -1.37);
        Sample sample(point);
        auto& corners = sample.state.CurrentRay().corners;
        corners[0] = corners[1] = corners[2] = point;
        corners[1].x += width;
        corners[2].z += width;
        sample.si.Cutil() = trFCol(0.1f);
        sample.si.SetShadingToLambert(trFCol(0.1f));
        rig.shader.ShadeTS(sample.si);
        PlainStone stone = StoneAt(row, point, a, b);
        trVector cell = stone.centre * 10;
        const int c[] = {static_cast<int>(std::floor(cell.x)), static_cast<int>(std::floor(cell.y)),
                         static_cast<int>(std::floor(cell.z))};
        const double k = a > 0 ? trCellNoise3(c) * 2 * a : 0;
        const double expected[] = {0.5 * (1 + k * 0.5), 0.4, 0.3 * (1 + k * 0.5)};
        for (int j = 0; j < 3; ++j) {
          const double mixed = 0.1 + (expected[j] - 0.1) * stone.presence;
          EXPECT_NEAR(sample.si.Cutil()[j], mixed, 1e-6) << width << " " << i;
          EXPECT_NEAR(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection)[j], mixed, 1e-6);
        }
      }
    }
}

TEST(FakeStones, SurfaceShaderColoursWhatTheStoneCovers) {
  // Far away half of the ground is covered.
  StoneRig rig({.density = 0.5});
  rig.Set("apply_colour", 0);
  auto& surface = rig.Linked("surface_shader");
  surface.colour = {1, 0, 0};
  Sample sample({3, 0, 4});
  sample.state.CurrentRay().corners[1] = {1e6, 0, 0};
  sample.si.Cutil() = {0, 0, 1};
  sample.si.SetShadingToLambert({0, 0, 1});
  rig.shader.ShadeTS(sample.si);
  EXPECT_EQ(surface.shaded, 1);
  EXPECT_EQ(sample.si.Cutil(), trFCol(0.5f, 0, 0.5f));
  EXPECT_EQ(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection), trFCol(0, 0, 1))
      << "which left the lobes alone";
}

TEST(FakeStones, CanBeOff) {
  for (const auto& [name, value] : {std::pair("separate_geometry", 1.0),
                                    {"stone_scale", 0.0},
                                    {"stone_tallness", 0.0},
                                    {"blend_by_shader", 1.0}}) {
    StoneRig rig({.density = 1, .variation = 0});
    rig.Set(name, value);
    Sample sample({1, 0, 2});
    EXPECT_EQ(rig.Displaced(sample), trVector(1, 0, 2)) << name;
    if (trString(name) == "stone_tallness") continue;
    EXPECT_EQ(rig.shader.ShadeTS(sample.si), 1);
    EXPECT_TRUE(sample.si.Cutil().IsBlack()) << name;
  }
  Graph graph;
  trShader& stones = graph.Shader("fake_stones_shader");
  EXPECT_TRUE(stones.SetParamFromString("color_variation", "0", trWhoSystem));
  EXPECT_TRUE(stones.SetParamFromString("diffuse_color", "0 1 0", trWhoSystem));
  for (const char* name : {"seed", "density_seed"}) {
    long seed = -1;
    EXPECT_TRUE(stones.GetParam(name, seed) && seed >= 0 && seed < 65536) << name;
  }
}

}  // namespace
