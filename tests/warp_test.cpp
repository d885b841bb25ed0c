// Transforms and warps of texture space: what they do to the texture point, and that they put it back.
#include "core/noise.h"
#include "host/project/project_file.h"
#include "tests/shading_fixture.h"

namespace {

/// What the shader run by `shader` sees as its texture point at `sample`; the state must come back as it was.
struct Seen {
  trVector pt;
  double smoothSize = 0;
};
Seen SeenBy(ProbeShader& probe, trShader& shader, Sample& sample) {
  Seen seen;
  probe.onDisplace = [&](trShadingInterface& si) {
    seen = {si.Pt(), si.SmoothSize()};
    si.Pt() = {1e9, 1e9, 1e9};
  };
  const trVector pt = sample.si.Pt(), p = sample.si.P();
  const double smooth = sample.si.SmoothSize();
  shader.DisplaceTS(sample.si);
  EXPECT_EQ(sample.si.Pt(), pt);
  EXPECT_EQ(sample.si.P(), p);
  EXPECT_EQ(sample.si.SmoothSize(), smooth);
  probe.onDisplace = nullptr;
  shader.ShadeTS(sample.si);
  EXPECT_EQ(probe.seenPt, seen.pt) << "Shade and Displace agree";
  return seen;
}

/// A shader of a class with a probe on its input, or on the link named.
struct Rig {
  explicit Rig(const char* className, const char* link = "input_node")
      : shader(graph.Shader(className)), probe(graph.Add<ProbeShader>("Probe")) {
    Graph::Link(shader, link, probe);
  }
  Seen At(Sample& sample) { return SeenBy(probe, shader, sample); }
  Seen At(const trVector& point) {
    Sample sample(point);
    return At(sample);
  }
  void Set(const char* name, const trParamValue& value) {
    ASSERT_TRUE(shader.SetParam(name, value, trWhoUser)) << name;
  }
  long Int(const char* name) {
    long value = -1;
    EXPECT_TRUE(shader.GetParam(name, value)) << name;
    return value;
  }
  Graph graph;
  trShader& shader;
  ProbeShader& probe;
};

TEST(Transform, UndoesAPlacementOfTheSameNumbers) {
  const trVector move(100, -20, 3), turn(20, -50, 75), size(2, 0.5, -4), point(7, 11, -13);
  const double d = M_PI / 180;
  const auto placement = trTranslate(move) *
                         (trRotateY(turn.y * d) * trRotateX(-turn.x * d) * trRotateZ(-turn.z * d)) *
                         trScale(size.x, size.y, size.z);
  const struct {
    const char *className, *link, *suffix;
  } forms[] = {{"transform_input_shader", "input_node", ""},
               {"transform_merge_shader", "shader", "_shader"},
               {"transform_shader", "shader", "_shader"}};
  for (const auto& form : forms) {
    Rig rig(form.className, form.link);
    for (const char* part : {"translate", "rotate", "scale"})
      rig.Set((part + trString(form.suffix)).c_str(), 1);
    rig.Set("translate_by", move);
    rig.Set("rotate_by", turn);
    rig.Set("scale_by", size);
    Sample sample(placement.Point(point));
    sample.si.SmoothSize() = 3;
    const Seen seen = rig.At(sample);
    ExpectNear(seen.pt, point, 1e-12, form.className);
    EXPECT_DOUBLE_EQ(seen.smoothSize, 6) << "3 by the smallest factor, 0.5";
    Sample unfiltered(point);
    EXPECT_EQ(rig.At(unfiltered).smoothSize, 0);
  }
}

TEST(Transform, DisabledFormsPassOrSkip) {
  Rig input("transform_input_shader");
  input.Set("translate", 1);
  input.Set("translate_by", trVector(1, 1, 1));
  input.Set("enable", 0);
  input.probe.onDisplace = [](trShadingInterface& si) { si.Pt() = {4, 4, 4}; };
  Sample sample({0, 0, 0});
  input.shader.DisplaceTS(sample.si);
  EXPECT_EQ(sample.si.Pt(), trVector(4, 4, 4)) << "a disabled shader keeps all that its input does";

  Rig merge("transform_merge_shader", "shader");
  EXPECT_TRUE(merge.shader.HasDisplacement());
  merge.Set("enable", 0);
  merge.shader.DisplaceTS(sample.si);
  EXPECT_EQ(merge.probe.displaced, 0);
  merge.Set("shader", "");
  EXPECT_FALSE(merge.shader.HasDisplacement());
  EXPECT_FALSE(Graph().Shader("transform_input_shader").HasShade());
}

/// Puts its particles' instances ten times as far away, in a box a unit above.
class Inflator : public trParticleInflator {
 public:
  trBoundingBox InstanceBoundingBox(const trParticle& particle) const override {
    return trBoundingBox::FromCentre(particle.position + trVector(0, 1, 0), {2, 2, 2});
  }
  long InflateInstanceElement(trRenderState&, const trParticle&, long&) override { return 0; }
  bool IntersectInstance(trRenderState&, const trParticle&, const trVector&, const trVector&,
                         double&) override {
    return false;
  }
  trTransform<double> InstanceTransform(const trParticle&) const override { return trScale(10, 10, 10); }
};

TEST(Transform, TextureSpacesHaveTheirSources) {
  trScene scene, particles;
  scene.SetTransform(trTranslate({100, 0, 0}));
  scene.AddPoint({{2, 4, 6}});
  Inflator inflator;
  particles.AssignParticleInflator(&inflator);
  const trParticle particle{{0.1, 0.25, 3}, 1};
  const struct {
    long space;
    trVector plain, inParticle;
  } rows[] = {
      {101, {5, 5, 5}, {5, 5, 5}},       {200, {-99, 1, 1}, {-99, 1, 1}},
      {201, {-98, 2, 2}, {-98, 2, 2}},   {202, {-97, 3, 3}, {-97, 3, 3}},
      {900, {1, 1, 1}, {1, 1, 1}},       {901, {2, 2, 2}, {2, 2, 2}},
      {902, {3, 3, 3}, {3, 3, 3}},       {1900, {0, 0, 0}, {0.1f, 0.25, 3}},
      {1910, {100, 0, 0}, {1000, 0, 0}}, {1920, {102, 4, 6}, {0.1, 1.25, 3}},
  };
  Rig rig("transform_input_shader");
  rig.Set("use_reset_space", 1);
  for (const auto& row : rows) {
    rig.Set("reset_space", row.space);
    for (const bool inParticle : {false, true}) {
      Sample sample({1, 1, 1});
      sample.si.Pg() = {2, 2, 2};
      sample.si.Ph() = {3, 3, 3};
      sample.si.Pt() = {4, 4, 4};
      sample.si.Ptg() = {5, 5, 5};
      sample.si.Object().objectToWorld = &scene.GetTransformForShaders();
      sample.si.Object().scene = &scene;
      if (inParticle) {
        sample.si.Object().particle = &particle;
        sample.si.Object().particleScene = &particles;
      }
      ExpectNear(rig.At(sample).pt, inParticle ? row.inParticle : row.plain, 1e-12,
                 std::to_string(row.space).c_str());
    }
    Sample nowhere({1, 1, 1});
    if (row.space > 1900) {
      EXPECT_EQ(rig.At(nowhere).pt, trVector(1, 1, 1));
    }
  }
  rig.Set("use_reset_space", 0);
  EXPECT_EQ(rig.At({8, 8, 8}).pt, trVector(8, 8, 8));
}

TEST(Transform, OldSpacesAreMended) {
  const long rows[][2] = {{1000, 1900}, {1001, 1920}, {300, 900}, {301, 901}, {302, 902}, {399, 900},
                          {205, 200},   {950, 900},   {901, 901}, {150, 150}, {77, 77},   {1930, 1900}};
  for (const auto& [was, is] : rows) {
    Rig rig("transform_input_shader");
    rig.Set("reset_space", was);
    EXPECT_EQ(rig.Int("reset_space"), was) << "left alone while it is off";
    rig.Set("use_reset_space", 1);
    EXPECT_EQ(rig.Int("reset_space"), is) << was;
  }
}

TEST(Transform, LegacySwitchesFollowAndAreWhatIsStored) {
  const struct {
    const char* text;   ///< attributes of the file
    const char* saved;  ///< attributes that are written again
    long use, space;
  } rows[] = {
      {"use_world_space=\"1\"", "use_world_space=\"1\"", 1, 900},
      {"use_undisplaced_space=\"1\"", "use_undisplaced_space=\"1\"", 1, 901},
      {"use_sticky_world_space=\"1\"", "use_sticky_world_space=\"1\"", 1, 902},
      {"use_reset_space=\"1\" reset_space=\"901\"", "use_undisplaced_space=\"1\"", 1, 901},
      {"use_reset_space=\"1\" reset_space=\"1001\"", "use_reset_space=\"1\" reset_space=\"1920\"", 1, 1920},
      {"use_world_space=\"0\"", "", 0, 900},
  };
  const Graph modules;
  for (const auto& row : rows) {
    const auto project = ovhost::ProjectFromText("<ombrivex_project><transform_input_shader name=\"T\" " +
                                                     trString(row.text) + "/></ombrivex_project>",
                                                 "test");
    ASSERT_TRUE(project) << row.text;
    trBase* node = project->NodeByPath("/T");
    ASSERT_TRUE(node);
    long use, space;
    ASSERT_TRUE(node->GetParam("use_reset_space", use) && node->GetParam("reset_space", space));
    EXPECT_EQ(use, row.use) << row.text;
    EXPECT_EQ(space, row.space) << row.text;
    const trString written = ovhost::ProjectToText(*project);
    for (const char* name : {"use_reset_space", "reset_space", "use_world_space", "use_undisplaced_space",
                             "use_sticky_world_space"}) {
      const trString attribute = trString(" ") + name + "=";
      EXPECT_EQ(written.find(attribute) != trString::npos,
                (trString(" ") + row.saved).find(attribute) != trString::npos)
          << row.text << " " << name;
    }
  }
}

TEST(Transform, LegacySwitchesTurnOffByHandOnly) {
  Rig rig("transform_input_shader");
  rig.Set("use_undisplaced_space", 1);
  EXPECT_EQ(rig.Int("use_reset_space"), 1);
  EXPECT_EQ(rig.Int("reset_space"), 901);
  EXPECT_EQ(rig.Int("use_world_space"), 0);
  rig.shader.SetParam("use_undisplaced_space", 0, trWhoSystem);
  EXPECT_EQ(rig.Int("use_reset_space"), 1);
  rig.Set("use_undisplaced_space", 1);
  rig.Set("use_undisplaced_space", 0);
  EXPECT_EQ(rig.Int("use_reset_space"), 0);
  EXPECT_EQ(rig.Int("reset_space"), 0);
  rig.Set("reset_space", 200);
  rig.Set("use_reset_space", 1);
  EXPECT_EQ(rig.Int("use_current_texture_space"), 0);
  rig.Set("use_current_texture_space", 1);
  EXPECT_EQ(rig.Int("use_reset_space"), 0);
}

TEST(Warp, TexturePointGoesWhereTheWarperDisplacesIt) {
  for (const auto& [className, link] : {std::pair{"warp_input_shader", "input_node"},
                                        {"warp_merge_shader", "shader"},
                                        {"warp_shader", "shader"}}) {
    Rig rig(className, link);
    EXPECT_EQ(rig.At({1, 2, 3}).pt, trVector(1, 2, 3)) << "no warper";
    auto& warper = rig.graph.Add<ProbeShader>("Warper");
    warper.onDisplace = [](trShadingInterface& si) {
      si.P() += trVector(si.P().x, 10, 0);
      si.N() = {9, 9, 9};
    };
    Graph::Link(rig.shader, "warper", warper);
    Sample sample({1, 2, 3});
    sample.si.Pt() = {4, 5, 6};
    EXPECT_EQ(rig.At(sample).pt, trVector(8, 15, 6)) << className;
    EXPECT_EQ(sample.si.N(), trVector(0, 1, 0));
    EXPECT_EQ(warper.shaded, 0);
    rig.Set("enable", 0);
    const int before = warper.displaced;
    rig.shader.DisplaceTS(sample.si);
    EXPECT_EQ(warper.displaced, before);
  }
}

TEST(Warp, VortexTurnsEachRingAsAWhole) {
  const char* const names[] = {"x_axis", "y_axis", "z_axis"};
  for (int axis = 0; axis < 3; ++axis) {
    Rig rig("vortex_warp_shader");
    rig.Set("centre", trVector(10, 20, 30));
    rig.Set("radius", 50.0);
    rig.Set("vorticity", 0.3);
    rig.Set(names[axis], 1);
    for (int other = 0; other < 3; ++other) EXPECT_EQ(rig.Int(names[other]), other == axis);
    const trVector point(60, -13, 44), d = point - trVector(10, 20, 30);
    // A right-handed turn about the axis, a full vorticity at the centre and half of it at the radius.
    const double ring = std::hypot(d[(axis + 1) % 3], d[(axis + 2) % 3]);
    const double angle = 2 * M_PI * 0.3 / (ring / 50 + 1);
    const auto turn = axis == 0 ? trRotateX(angle) : axis == 1 ? trRotateY(angle) : trRotateZ(angle);
    const trVector swirled = rig.At(point).pt;
    ExpectNear(swirled, trVector(10, 20, 30) + turn.Direction(d), 1e-9, names[axis]);
    rig.Set("reverse_direction", 1);
    ExpectNear(rig.At(swirled).pt, point, 1e-9, "turned back");
  }
}

/// The warp of the plane evaluated octave by octave with the library's functions.
trVector FractalWarpAt(const trVector& pt, double scale, double amount, double variation, double roughness,
                       int seed, double smoothSize, double mask) {
  const double x0 = pt.x / scale, z0 = pt.z / scale, g = (smoothSize - 1e-6) / scale;
  double limit = std::min(31.0, 29 - std::log2(std::hypot(x0, z0)));
  if (g > 0) limit = std::min(limit, -std::log2(0.55 * g));
  double x = x0, z = z0;
  for (int k = static_cast<int>(std::ceil(limit)); k >= 0; --k) {
    const double f = std::exp2(k), rate = f * amount * mask / 2;
    const double step = variation * std::exp2(-k / roughness);
    // The last octaves rise in thirds, the finest by how far the limit reaches into it.
    const double age = (limit - k + 1) / 3, t = std::clamp(age, 0.0, 1.0);
    const double weight = -std::expm1(-step * rate) / rate * t * t * (3 - 2 * t);
    const trVector a = trVector(x * f, z * f, 0) + trNoff3(seed + k),
                   c = trVector(x * f, z * f, 0) + trNoff3(seed + k + 5);
    const double pa[] = {a.x, a.y, a.z}, pc[] = {c.x, c.y, c.z}, filter[] = {2 * g * f, 2 * g * f};
    x += weight * (g > 0 ? trLerpNoise3_SmoothXY(pa, filter) : trLerpNoise3(pa));
    z += weight * (g > 0 ? trLerpNoise3_SmoothXY(pc, filter) : trLerpNoise3(pc));
  }
  return {pt.x + (x - x0) / variation * amount * mask * scale, pt.y,
          pt.z + (z - z0) / variation * amount * mask * scale};
}

TEST(Warp, FractalWarpMovesTheHorizontalPlane) {
  const struct {
    double amount, variation, roughness, smoothSize, mask;
  } rows[] = {{1, 1.5, 1, 0, 1}, {0.5, 1, 2, 5, 1},   {2, 0.3, 0.5, 0, 0.25},
              {1, 1.5, 1, 7, 1}, {1, 1.5, 1, 300, 1}, {1, 1.5, 1, 0.01, 0.5}};
  for (const auto& row : rows) {
    Rig rig("fractal_warp_shader");
    rig.Set("scale", 800.0);
    rig.Set("warp_amount", row.amount);
    rig.Set("variation", row.variation);
    rig.Set("roughness", row.roughness);
    rig.Set("seed", 12);
    auto& mask = rig.graph.Add<ProbeShader>("Mask");
    const float grey = static_cast<float>(row.mask);
    mask.colour = {grey, grey, grey};
    Graph::Link(rig.shader, "blending_shader", mask);
    rig.Set("blend_by_shader", row.mask != 1);
    for (const trVector& p : {trVector(100, 5, -2500), trVector(12345, 0, 777), trVector(-3e5, 9, 40)}) {
      Sample sample(p);
      sample.si.SmoothSize() = row.smoothSize;
      const trVector seen = rig.At(sample).pt;
      EXPECT_GT((seen - p).Length(), 0.01) << "it does something";
      const trVector expected = FractalWarpAt(p, 800, row.amount, row.variation, row.roughness, 12,
                                              row.smoothSize, row.mask == 1 ? 1 : Luminance(mask.colour));
      // Each octave multiplies what rounding did in the finer ones.
      ExpectNear(seen, expected, row.smoothSize > 0 ? 1e-6 : 1e-4, std::to_string(&row - rows).c_str());
      rig.Set("obey_smoothing_filter", 0);
      Sample sharp(p);
      sharp.si.SmoothSize() = row.smoothSize;
      const trVector unfiltered = rig.At(sharp).pt;
      rig.Set("obey_smoothing_filter", 1);
      EXPECT_EQ(unfiltered, rig.At(p).pt) << "a filter not obeyed is as none";
    }
  }
}

TEST(Warp, FractalWarpCanBeOff) {
  const trVector p(100, 5, -2500);
  const struct {
    const char* param;
    trParamValue value;
  } rows[] = {{"scale", 0.0}, {"scale", -5.0}, {"warp_amount", 0.0}, {"blend_by_shader", 1}, {"enable", 0}};
  for (const auto& row : rows) {
    Rig rig("fractal_warp_shader");
    rig.Set(row.param, row.value);
    trVector seen;
    rig.probe.onDisplace = [&](trShadingInterface& si) { seen = si.Pt(); };
    Sample sample(p);
    rig.shader.DisplaceTS(sample.si);
    EXPECT_EQ(seen, p) << row.param;
  }
  Rig rig("fractal_warp_shader");
  EXPECT_LT(rig.Int("seed"), 256);
  Sample blurred(p);
  blurred.si.SmoothSize() = 1e6;
  EXPECT_EQ(rig.At(blurred).pt, p) << "a footprint wider than all octaves";

  // Below 0 a mask has nothing to take away.
  Rig masked("fractal_warp_shader");
  auto& mask = masked.graph.Add<ProbeShader>("Mask");
  Graph::Link(masked.shader, "blending_shader", mask);
  masked.Set("blend_by_shader", 1);
  for (const float value : {-0.5f, -INFINITY, std::nanf("")}) {
    mask.colour = trFCol(value);
    EXPECT_EQ(masked.At(p).pt, p) << value;
  }
  // And nothing is divided by no variation.
  Rig even("fractal_warp_shader");
  even.Set("variation", 1e-6);
  const trVector leastVaried = even.At(p).pt;
  EXPECT_GT((leastVaried - p).Length(), 0.01);
  for (const double variation : {0.0, 1e-9, -1.0}) {
    even.Set("variation", variation);
    EXPECT_EQ(even.At(p).pt, leastVaried) << variation;
  }

  // The scale modulator takes octaves away, the largest first.
  auto& filter = rig.graph.Add<ProbeShader>("Filter");
  Graph::Link(rig.shader, "scale_filter", filter);
  filter.colour = trFCol();
  EXPECT_NEAR((rig.At(p).pt - p).Length(), 0, 0.01) << "only the finest are left";
  filter.colour = trFCol(1.0f);
  const double full = (rig.At(p).pt - p).Length();
  filter.colour = trFCol(0.8f);
  EXPECT_GT(full, 1);
  EXPECT_NE((rig.At(p).pt - p).Length(), full);
}

}  // namespace
