// The populator: its records against an evaluation of their own, for any number of threads; couplings; what
// it refuses; what it hands to the renderer, whole or thinned out.
#include "objects/populator.h"

#include <cstring>
#include <random>

#include "core/memory_budget.h"
#include "host/base/log.h"
#include "host/project/camera.h"
#include "host/render/frame/population_claims.h"
#include "tests/mesh_fixture.h"

namespace {

/// An object of several variations: prisms of two triangles, each higher than the last.
class Prisms : public trSceneMaker {
 public:
  long Make(trScene& scene, Context context) override {
    EXPECT_EQ(context, kInstance);
    made.push_back(current_variation);
    if (current_variation == failsAt) return 0;
    scene.BeginGroup("prism");
    trScene& mesh = *scene.GetPGroup(1)->Subscene();
    const long material = mesh.AddMaterial(trMaterial());
    const double height = 1 + static_cast<double>(current_variation);
    AddTriangle(mesh, {-1, 0, 0}, {1, 0, 0}, {0, height, 0.5}, material);
    AddTriangle(mesh, {1, 0, 0}, {-1, 0, 0}, {0, height, -0.5}, material);
    scene.EndGroup();
    return 1;
  }
  unsigned char SupportsVariations() override { return variations > 1; }
  long NumVariations() override { return variations; }
  long variations = 5, failsAt = -1;
  std::vector<long> made;
};

/// A populator with an object, a terrain and a density.
struct Field : Graph {
  Field()
      : populator(Add<Populator3>("Rocks")),
        prisms(Add<Prisms>("Prisms")),
        terrain(Add<FunctionShader>("Terrain")),
        density(Add<FunctionShader>("Density")) {
    populator.OnCreate();
    Set("object_maker", "Prisms");
    Set("area_size_xz", tr2Vector(90, 60));
    Set("object_spacing_xz", tr2Vector(3, 2.5));
    Set("seed", 4321);
    terrain.onDisplace = [](trShadingInterface& si) {
      const trVector p = si.P();
      si.P() += trVector(0.1, 5 * std::sin(p.x * 0.1) + 3 * std::cos(p.z * 0.2), 0);
      si.N() = Normalised({-0.5 * std::cos(p.x * 0.1), 1, 0.6 * std::sin(p.z * 0.2)});
    };
    density.onShade = [](trShadingInterface& si) {
      si.Cutil() = {static_cast<float>(0.5 + 0.5 * std::sin(si.P().x * 0.3)), 0.4f, 0.1f};
    };
    ovhost::SetLogSink(Note, this);
  }
  ~Field() { ovhost::SetLogSink(nullptr, nullptr); }
  void Set(const char* name, const trParamValue& value) {
    ASSERT_TRUE(populator.SetParam(name, value, trWhoUser)) << name;
  }
  static void Note(void* self, const ovhost::LogRecord& record) {
    auto& log = static_cast<Field*>(self)->log;
    log += record.text + "\n";
  }
  long Populate(int threads = 2) {
    long result = 0;
    ovhost::WithThreads(threads, [&] { result = populator.GenerateOrRead(); });
    return result;
  }
  std::vector<InstanceRecord> Records() const {
    std::vector<InstanceRecord> records;
    for (long i = 0; i < populator.Instances().Count(); ++i) records.push_back(*populator.Instances().Get(i));
    return records;
  }
  Populator3& populator;
  Prisms& prisms;
  FunctionShader &terrain, &density;
  std::string log;
};

struct Expected {
  trVector place, up;
  double scale, turn;
  long variation;
};

/// What the populator is to make, told anew: the parameters of the table below over those of Field.
std::vector<Expected> Evaluate(const Field& field) {
  const auto number = [&](const char* name) { return DoubleParam(field.populator, name); };
  tr2Vector area, spacing, randomness;
  EXPECT_TRUE(field.populator.GetParam("area_size_xz", area));
  EXPECT_TRUE(field.populator.GetParam("object_spacing_xz", spacing));
  EXPECT_TRUE(field.populator.GetParam("randomness_xz", randomness));
  const trVector centre = VectorParam(field.populator, "area_centre"),
                 rotation = VectorParam(field.populator, "area_rotation") * (M_PI / 180);
  // Turned by -z about Z, then by -x about X, then by y about Y.
  const auto toWorld = [&](trVector p) {
    p = {p.x * std::cos(-rotation.z) - p.y * std::sin(-rotation.z),
         p.x * std::sin(-rotation.z) + p.y * std::cos(-rotation.z), p.z};
    p = {p.x, p.y * std::cos(-rotation.x) - p.z * std::sin(-rotation.x),
         p.y * std::sin(-rotation.x) + p.z * std::cos(-rotation.x)};
    p = {p.x * std::cos(rotation.y) + p.z * std::sin(rotation.y), p.y,
         -p.x * std::sin(rotation.y) + p.z * std::cos(rotation.y)};
    return p + centre;
  };
  const bool before = number("sample_before_transform") != 0;
  const double loScale = std::fmin(number("minimum_scale"), number("maximum_scale")),
               hiScale = std::fmax(number("minimum_scale"), number("maximum_scale")),
               loTurn = std::fmin(number("minimum_Y_rotation"), number("maximum_Y_rotation")),
               hiTurn = std::fmax(number("minimum_Y_rotation"), number("maximum_Y_rotation"));

  std::vector<Expected> result;
  std::uint32_t c = 0;
  const int nx = static_cast<int>(std::ceil(std::sqrt(area.x / spacing.x))),
            nz = static_cast<int>(std::ceil(std::sqrt(area.y / spacing.y)));
  for (int br = 0; br < nz; ++br)
    for (int bc = 0; bc < nx; ++bc)
      for (int i = 0; i < nz; ++i)
        for (int j = 0; j < nx; ++j, ++c) {
          std::mt19937 draws(static_cast<std::uint32_t>(number("seed")) + c);
          double u[9];
          for (double& x : u) x = static_cast<double>(draws()) / 4294967295.0;
          const trVector local(
              (bc * nx + j) * spacing.x - area.x / 2 + (u[2] - 0.5) * spacing.x * randomness.x, 0,
              (br * nz + i) * spacing.y - area.y / 2 + (u[1] - 0.5) * spacing.y * randomness.y);
          Sample sample(before ? local : toWorld(local));
          if (number("sit_on_terrain") != 0) field.terrain.onDisplace(sample.si);
          Expected made;
          made.scale = loScale + u[0] * (hiScale - loScale);
          made.turn = (loTurn + u[6] * (hiTurn - loTurn)) * M_PI / 180;
          made.variation = static_cast<long>((field.prisms.variations - 0.01) * u[8]);
          made.place = before ? toWorld(sample.si.P()) : sample.si.P();
          made.up = {0, 1, 0};
          const double slope = std::acos(sample.si.N().y) * 180 / M_PI, least = number("slope_of_min_lean"),
                       full = number("slope_of_full_lean");
          if (number("lean_to_terrain_normal") != 0 && slope >= least) {
            const double share = full > least ? std::fmin(1, (slope - least) / (full - least)) : 1;
            const double t = share * number("lean_effect");
            made.up = Normalised(t * sample.si.N() + (1 - t) * trVector(0, 1, 0));
          }
          if (number("use_density_shader") != 0) {
            field.density.onShade(sample.si);
            trFCol colour = sample.si.Cutil();
            if (number("invert_density_shader") != 0) colour = trFCol(1) - colour;
            if (!(0.2125 * colour.r + 0.7152 * colour.g + 0.0724 * colour.b > u[7])) continue;
          }
          result.push_back(made);
        }
  return result;
}

/// Where an instance takes a point of its object: turned about its own up axis, then leant.
trVector Placed(const Expected& made, const trVector& p) {
  const trVector turned(p.x * std::cos(made.turn) + p.z * std::sin(made.turn), p.y,
                        -p.x * std::sin(made.turn) + p.z * std::cos(made.turn));
  trVector x(1, 0, 0), z(0, 0, 1);
  const trVector& up = made.up;
  if (std::fabs(up.x) + std::fabs(up.z) > 1e-6) {
    if (std::fabs(up.x) > std::fabs(up.z)) {
      x = {up.y, -up.x, 0};
      z = Cross(x, up);
    } else {
      z = {0, -up.z, up.y};
      x = Cross(up, z);
    }
  }
  return made.place + (x * turned.x + up * turned.y + z * turned.z) * made.scale;
}

TEST(Populator, RecordsAreWhatAnEvaluationOfTheirOwnGives) {
  using Settings = std::vector<std::pair<const char*, trParamValue>>;
  const Settings rows[] = {
      {{"sit_on_terrain", 0}},
      {{"terrain_shader", "Terrain"}, {"minimum_scale", 3.0}, {"maximum_scale", 0.5}},
      {{"terrain_shader", "Terrain"}, {"minimum_Y_rotation", 200.0}, {"maximum_Y_rotation", 20.0}},
      {{"terrain_shader", "Terrain"},
       {"area_centre", trVector(100, 20, -50)},
       {"area_rotation", trVector(10, 70, -20)},
       {"randomness_xz", tr2Vector(0.5, 2)}},
      {{"terrain_shader", "Terrain"},
       {"area_centre", trVector(100, 20, -50)},
       {"area_rotation", trVector(10, 70, -20)},
       {"sample_before_transform", 1}},
      {{"terrain_shader", "Terrain"},
       {"lean_to_terrain_normal", 1},
       {"lean_effect", 0.7},
       {"slope_of_min_lean", 10.0},
       {"slope_of_full_lean", 30.0}},
      {{"terrain_shader", "Terrain"},
       {"lean_to_terrain_normal", 1},
       {"slope_of_min_lean", 15.0},
       {"slope_of_full_lean", 15.0}},
      {{"terrain_shader", "Terrain"}, {"density_shader", "Density"}},
      {{"terrain_shader", "Terrain"}, {"density_shader", "Density"}, {"invert_density_shader", 1}},
  };
  for (const Settings& row : rows) {
    Field field;
    for (const auto& [name, value] : row) field.Set(name, value);
    ASSERT_TRUE(field.Populate());
    const std::vector<Expected> expected = Evaluate(field);
    const std::vector<InstanceRecord> records = field.Records();
    ASSERT_EQ(records.size(), expected.size()) << row.back().first;
    EXPECT_GT(records.size(), 150u);
    for (size_t i = 0; i < records.size(); ++i) {
      const InstanceRecord& record = records[i];
      ASSERT_EQ(record.variation, expected[i].variation);
      ASSERT_FLOAT_EQ(record.scale, static_cast<float>(expected[i].scale));
      trBoundingBox box;
      const double height = 1 + static_cast<double>(record.variation);
      for (const double x : {-1, 1})
        for (const double y : {0.0, height})
          for (const double z : {-0.5, 0.5}) {
            const trVector placed = Placed(expected[i], {x, y, z});
            ExpectNear(record.Matrix().Point({x, y, z}), placed, 3e-4);
            box.Union(placed);
          }
      ExpectNear({record.boxA[0], record.boxA[1], record.boxA[2]}, box.min, 3e-4);
      ExpectNear({record.boxB[0], record.boxB[1], record.boxB[2]}, box.max, 3e-4);
      if (HasFailure()) return;
    }
  }
}

TEST(Populator, SameBitsForAnyThreadsAndRejectionShiftsNothing) {
  Field field;
  trBase& planet = *field.project.CreateChild("planet");
  planet.SetParam("centre", trVector(0, -6378000, 0), trWhoUser);
  field.Set("terrain_shader", planet.Child(0)->NameAndPath());
  EXPECT_EQ(field.populator.NodeByPath("/Rocks"), &field.populator);
  trString linked;
  field.populator.GetParam("planet", linked);
  EXPECT_EQ(linked, planet.NameAndPath()) << "a terrain that feeds a planet finds it";
  field.Set("object_spacing_xz", tr2Vector(0.3, 0.25));
  field.Set("lean_to_terrain_normal", 1);
  std::vector<InstanceRecord> all, some;
  for (const bool rejects : {false, true}) {
    field.Set("density_shader", rejects ? "Density" : "");
    std::vector<InstanceRecord>& first = rejects ? some : all;
    for (const int threads : {1, 2, 7}) {
      field.populator.SetDirty();
      ASSERT_TRUE(field.Populate(threads));
      const std::vector<InstanceRecord> records = field.Records();
      if (threads == 1) first = records;
      ASSERT_EQ(records.size(), first.size());
      EXPECT_EQ(std::memcmp(records.data(), first.data(), first.size() * sizeof(InstanceRecord)), 0)
          << threads;
    }
  }
  EXPECT_GT(some.size(), all.size() / 4);
  EXPECT_LT(some.size(), all.size() * 3 / 4);
  size_t at = 0;
  for (const InstanceRecord& record : some) {
    while (at < all.size() && std::memcmp(&all[at], &record, sizeof record) != 0) ++at;
    ASSERT_LT(at, all.size());
  }
}

TEST(Populator, ParametersThatSayTheSameStayInStep) {
  Field field;
  const auto two = [&](const char* name) {
    tr2Vector value;
    field.populator.GetParam(name, value);
    return value;
  };
  const auto number = [&](const char* name) { return DoubleParam(field.populator, name); };
  field.Set("area_length_a", 70.0);
  field.Set("area_length_b", 80.0);
  EXPECT_EQ(two("area_size_xz"), tr2Vector(70, 80));
  field.Set("area_size_xz", tr2Vector(5, 6));
  EXPECT_EQ(number("area_length_a"), 5);
  EXPECT_EQ(number("area_length_b"), 6);
  field.Set("object_spacing", 0.3);
  EXPECT_EQ(two("object_spacing_xz"), tr2Vector(0.3, 0.3));
  field.Set("object_spacing_xz", tr2Vector(2, 8));
  EXPECT_EQ(number("object_spacing"), 4);
  field.Set("object_spacing_xz", tr2Vector(-2, 8));
  EXPECT_EQ(number("object_spacing"), 4);

  field.Set("preview_instances", 1);
  EXPECT_EQ(number("show_b-boxes"), 1);
  field.Set("show_b-boxes", 0);
  EXPECT_EQ(number("preview_instances"), 0);
  field.Set("show_wireframes", 1);
  EXPECT_EQ(number("preview_instances"), 1);
  field.Set("preview_instances", 0);
  EXPECT_EQ(number("show_wireframes"), 0);

  field.Set("density_shader", "Density");
  EXPECT_EQ(number("use_density_shader"), 1);
  field.Set("density_shader", "");
  EXPECT_EQ(number("use_density_shader"), 0);
  field.Set("sit_on_terrain", 0);
  field.Set("terrain_shader", "Terrain");
  EXPECT_EQ(number("sit_on_terrain"), 1);

  // A project that tells a switch before its link means it; one that doesn't know the switch has it turned.
  for (const bool isTold : {true, false}) {
    auto& loaded = field.Add<Populator3>("Loaded");
    if (isTold) loaded.SetParamFromString("use_density_shader", "0", trWhoSystem);
    if (isTold) loaded.SetParamFromString("sit_on_terrain", "0", trWhoSystem);
    loaded.SetParamFromString("density_shader", "Density", trWhoSystem);
    loaded.SetParamFromString("terrain_shader", "Terrain", trWhoSystem);
    loaded.OnCreate();
    EXPECT_EQ(DoubleParam(loaded, "use_density_shader"), isTold ? 0 : 1);
    EXPECT_EQ(DoubleParam(loaded, "sit_on_terrain"), isTold ? 0 : 1);
  }
}

TEST(Populator, PopulatesWhereSomethingChanged) {
  Field field;
  auto& input = field.Add<FunctionShader>("Far");
  field.Set("terrain_shader", "Terrain");
  Field::Link(field.terrain, "input_node", input);
  const auto populates = [&] {
    field.log.clear();
    EXPECT_TRUE(field.Populate());
    return field.log.find("objects created by Populator \"Rocks\"") != std::string::npos;
  };
  EXPECT_TRUE(populates());
  EXPECT_FALSE(populates());
  field.Set("show_b-boxes", 1);
  EXPECT_FALSE(populates()) << "the preview's";
  field.Set("maximum_scale", 2.0);
  EXPECT_TRUE(populates());
  input.SetParam("enable", 0, trWhoUser);
  EXPECT_TRUE(populates()) << "a shader that the terrain's depends on";
  field.Set("repopulate_every_frame", 1);
  EXPECT_TRUE(populates());
  EXPECT_TRUE(populates());
}

TEST(Populator, RefusesWhatIsWrongInAWord) {
  using Change = std::function<void(Field&)>;
  const struct {
    Change change;
    const char* message;
    long result;
  } rows[] = {
      {[](Field& f) { f.Set("object_spacing_xz", tr2Vector(0, 1)); },
       "Rocks has an object spacing that is 0 or smaller. Population will not take place.\n", 0},
      {[](Field& f) { f.Set("object_spacing", -1.0); },
       "Rocks has an object spacing that is 0 or smaller. Population will not take place.\n", 0},
      {[](Field& f) { f.Set("object_spacing", 1e-300); }, "places for instances, and 2 147 483 647", 0},
      {[](Field& f) {
         f.Set("area_size_xz", tr2Vector(1e9, 1e9));
         f.Set("object_spacing", 1.0);
       },
       "Rocks has 1 000 028 258 199 628 641 places for instances, and 2 147 483 647 are the most", 0},
      {[](Field& f) {
         f.Set("area_size_xz", tr2Vector(1e300, 1));
         f.Set("object_spacing", 1.0);
       },
       "places for instances, and 2 147 483 647", 0},
      {[](Field& f) { f.Set("use_density_shader", 1); }, "uses a density shader, and none is linked", 0},
      {[](Field& f) { f.Set("object_maker", "Rocks"); }, "leads back to the populator itself", 0},
      {[](Field& f) { f.Set("object_maker", f.project.CreateChild("planet")->NameAndPath()); },
       "is a planet, and planets can't be populated with", 0},
      {[](Field& f) { f.prisms.failsAt = 3; }, "", 0},
      {[](Field& f) { f.Set("object_maker", ""); }, "There is no object to populate with", 1},
      {[](Field& f) {
         f.density.onShade = [](trShadingInterface& si) { si.Cutil() = trFCol(std::nanf("")); };
         f.Set("density_shader", "Density");
       },
       "The density isn't a number at 900 places", 1},
      {[](Field& f) {
         f.terrain.onDisplace = [](trShadingInterface& si) { si.P().y = 1e300; };
         f.Set("terrain_shader", "Terrain");
       },
       "900 places for instances aren't finite", 1},
  };
  for (const auto& row : rows) {
    Field field;
    row.change(field);
    field.log.clear();
    EXPECT_EQ(field.Populate(), row.result) << row.message;
    EXPECT_NE(field.log.find(row.message), std::string::npos) << row.message << " in\n" << field.log;
    EXPECT_EQ(field.populator.Instances().Count() > 0,
              row.result && row.message[0] == 'T' && row.message[6] == 'i')
        << row.message;
    EXPECT_EQ(field.prisms.current_variation, 0);
  }
}

TEST(Populator, WhatDoesNotFitIsRefusedWithItsNumber) {
  Field field;
  field.Set("object_spacing_xz", tr2Vector(0.3, 0.2));
  constexpr std::uint64_t kLittle = 5000000;
  std::vector<ovhost::PopulationClaim> claims;
  bool isRefused = false;
  EXPECT_TRUE(ovhost::FindClaims(field.project, kLittle * 1000, claims, isRefused));
  ASSERT_EQ(claims.size(), 1u);
  EXPECT_EQ(claims[0].copies, 324u * 324u);
  EXPECT_GT(claims[0].bytes, claims[0].copies * (96 + 32 + 56));
  for (const bool rejects : {false, true}) {
    // With a density the number is known once all candidates were looked at.
    if (rejects) field.Set("density_shader", "Density");
    field.log.clear();
    claims.clear();
    field.populator.SetDirty();
    EXPECT_FALSE(ovhost::FindClaims(field.project, kLittle, claims, isRefused));
    EXPECT_TRUE(isRefused);
    EXPECT_TRUE(claims.empty());
    const std::string number = trCountText(rejects ? Evaluate(field).size() : 324 * 324);
    EXPECT_NE(field.log.find("Rocks: " + number + " copies, "), std::string::npos) << field.log;
    EXPECT_NE(field.log.find("; budget 5.0 MB. That doesn't fit."), std::string::npos) << field.log;
  }
}

TEST(Populator, HandsItsInstancesToTheScene) {
  Field field;
  trScene scene;
  field.prisms.variations = 3;
  ASSERT_TRUE(field.populator.Make(scene, trSceneMaker::kNothing));
  EXPECT_EQ(scene.NumGroups(), 0);
  ASSERT_TRUE(field.populator.Make(scene, trSceneMaker::kWithoutPopulating));
  EXPECT_EQ(scene.GetPGroup(1)->Subscene()->NumParticles(), 0);
  ASSERT_TRUE(field.populator.Make(scene, trSceneMaker::kRender));
  EXPECT_EQ(field.prisms.made, (std::vector<long>{0, 1, 2}));
  EXPECT_EQ(DoubleParam(field.populator, "unique_variations"), 3);
  EXPECT_NE(
      field.log.find("900 objects created by Populator \"Rocks\"\n900 objects (1.8e-06 billion triangles) "
                     "inserted by Populator \"Rocks\"\n"),
      std::string::npos)
      << field.log;
  ASSERT_EQ(scene.NumGroups(), 2);
  EXPECT_EQ(scene.GetPGroup(2)->Name(), "/Rocks");
  const trScene& group = *scene.GetPGroup(2)->Subscene();
  ASSERT_EQ(group.NumParticles(), 900);
  EXPECT_FALSE(group.AllowsTriSubdivision());
  const trParticleInflator& inflator = *group.GetParticleInflator();
  EXPECT_EQ(inflator.NumInstanceScenes(), 3);
  for (const long i : {0L, 899L}) {
    const trParticle& particle = *group.GetPParticle(i + 1);
    const InstanceRecord& record = *field.populator.Instances().Get(i);
    EXPECT_EQ(particle.index, i);
    EXPECT_EQ(particle.position, inflator.InstanceTransform(particle).Point({0, 0, 0}));
    EXPECT_EQ(inflator.InstanceSceneIndex(particle), record.variation);
    EXPECT_EQ(inflator.InstanceScene(record.variation)->TotalNumTrisAtPrep(), 2);
    EXPECT_FALSE(inflator.InstanceBoundingBox(particle).IsEmpty());
  }
  EXPECT_TRUE(inflator.InstanceBoundingBox({{}, 900}).IsEmpty());
}

TEST(Populator, ClippedToTheCameraItKeepsWhatTheCameraMaySee) {
  Field field;
  trBase& camera = field.Add<trCameraNode>("Camera");
  camera.SetParam("position", trVector(0, 5, -60), trWhoUser);
  camera.SetParam("field_of_view", 30.0, trWhoUser);
  ASSERT_TRUE(field.Populate());
  const size_t all = field.Records().size();
  field.Set("clip_to_camera", 1);
  ASSERT_TRUE(field.Populate());
  trString linked;
  field.populator.GetParam("clipping_camera", linked);
  EXPECT_EQ(linked, "Camera");
  const trView view = dynamic_cast<trCameraNode&>(camera).View(960, 540);
  for (const InstanceRecord& record : field.Records())
    EXPECT_TRUE(BoxVisibility(view, record.boxA, record.boxB));
  EXPECT_GT(field.Records().size(), all / 10);
  EXPECT_LT(field.Records().size(), all * 3 / 4);
  camera.SetParam("rotation", trVector(0, 180, 0), trWhoUser);
  ASSERT_TRUE(field.Populate());
  EXPECT_TRUE(field.Records().empty()) << "all behind the camera";
}

/// Counts triangles and sums their areas.
class TriangleSum : public trTriSink {
 public:
  bool Take(const trRenderTri& tri) override {
    ++count;
    area += 0.5 * Cross(tri.point[1] - tri.point[0], tri.point[2] - tri.point[0]).Length();
    last = tri;
    return true;
  }
  long count = 0;
  double area = 0;
  trRenderTri last;
};

TEST(Populator, InflatesEveryElementNearAndFewerLargerOnesFar) {
  Field field;
  field.Set("minimum_scale", 2.0);
  field.Set("maximum_scale", 2.0);
  ASSERT_TRUE(field.Populate());
  const InstanceRecord& record = *field.populator.Instances().Get(0);
  const trParticle particle{{record.matrix[0][3], record.matrix[1][3], record.matrix[2][3]}, 0};
  const trScene& mesh = *field.populator.InstanceScene(record.variation)->GetPGroup(1)->Subscene();
  trVector p[3];
  mesh.GetPointVecs(mesh.GetPTri(1)->point, p, 3);
  const double area = 0.5 * Cross(p[1] - p[0], p[2] - p[0]).Length();

  const auto inflate = [&](double distance, std::uint64_t key, TriangleSum& sum) {
    trView view;
    view.eye = particle.position + trVector(0, 0, distance);
    view.width = 1000;
    Sample sample({});
    sample.si.SetMainView(&view);
    sample.si.Eye() = view.eye;
    sample.si.Random() = {key};
    sample.state.SetTriSink(&sum);
    long cursor = 0;
    for (long before = -1; cursor < 2 && cursor > before;) {
      before = cursor;
      if (!field.populator.InflateInstanceElement(sample.state, particle, cursor)) break;
    }
    EXPECT_GE(cursor, 1);
    return cursor;
  };
  TriangleSum near;
  EXPECT_EQ(inflate(10, 1, near), 2);
  EXPECT_EQ(near.count, 2);
  EXPECT_NEAR(near.area, 2 * area * 4, 1e-4 * area);

  // Where an element looks a third as large as is worth tracing: u draws 0 to 4 that are left out, rounded,
  // of which the first goes on with the second element, and all others end the instance.
  const double pixel = 1e-3, ratio = 3, distance = std::sqrt(area * 4 * ratio) / pixel;
  TriangleSum far;
  constexpr int kRuns = 4000;
  for (int i = 0; i < kRuns; ++i) inflate(distance, static_cast<std::uint64_t>(i) * 7919, far);
  // The first stands where less than two are left out (u < 3/8), the second then where one is left at most.
  const double first = 0.375, none = 0.125;
  const double expected = first + none * none;
  EXPECT_NEAR(static_cast<double>(far.count) / kRuns, expected, 0.03);
  // Each corner moves away from the middle by its way from there times the ratio's root of root.
  const double grown = std::pow(1 + std::pow(ratio, 0.25), 2);
  EXPECT_NEAR(far.area / static_cast<double>(far.count), area * 4 * grown, 1e-3 * area);

  TriangleSum nothing;
  EXPECT_EQ(inflate(1e12, 1, nothing), 2);
  EXPECT_EQ(nothing.count, 0);
  long past = 2;
  Sample sample({});
  EXPECT_EQ(field.populator.InflateInstanceElement(sample.state, particle, past), 0);
  EXPECT_NE(field.log.find("Counter error in populator Rocks"), std::string::npos);
}

}  // namespace
