// Generators of heightfields through their lives, and heightfields as meshes.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "core/heightfield.h"
#include "core/object_writer.h"
#include "core/shading_state.h"
#include "host/base/log.h"
#include "host/base/session_context.h"
#include "host/image/picture.h"
#include "host/node/shader_start.h"
#include "host/project/project_file.h"
#include "objectio/lwo_writer.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

struct Generators : Graph {
  trHeightfield& Field(const char* className) {
    auto* node = dynamic_cast<trHeightfield*>(project.CreateChild(className));
    if (!node) throw std::runtime_error(className);
    return *node;
  }
  trHeightfield& Generator(double width, double height) {
    trHeightfield& node = Field("heightfield_generate");
    Set(node, "size_in_pixels", tr2Vector(width, height));
    Set(node, "seed", 7);
    return node;
  }
  static void Set(trBase& node, const char* name, const trParamValue& value, trBase* who = trWhoUser) {
    ASSERT_TRUE(node.SetParam(name, value, who)) << name;
  }
};

long Press(trBase& node, const std::string& button) {
  for (const trSheetItem& item : node.Data().sheet)
    if (item.button && item.name == button) return item.button->OnPressed();
  ADD_FAILURE() << button;
  return 0;
}
bool Flag(const trBase& node, const char* name) { return DoubleParam(node, name) != 0; }
std::vector<float> Raster(const trHeightfield& field) {
  const float* first = field.HfScanlineRaw(0);
  return {first, first + static_cast<std::ptrdiff_t>(field.width) * field.height};
}
bool IsFlat(const trHeightfield& field, int w, int h) {
  return field.width == w && field.height == h && Raster(field) == std::vector<float>(size_t(w) * h);
}

/// Counts reports, and asks to stop at one.
struct Reports {
  explicit Reports(long stopAt = -1) : stop(stopAt) {
    ovhost::SetProgressSink(
        [](void* self, const trBase*, const trString& text, float fraction, float, bool) {
          auto* reports = static_cast<Reports*>(self);
          reports->text = text;
          reports->fractions.push_back(fraction);
          return static_cast<long>(reports->fractions.size()) != reports->stop;
        },
        this);
  }
  ~Reports() { ovhost::SetProgressSink(nullptr, nullptr); }
  long stop;
  trString text;
  std::vector<float> fractions;
};

/// What every LWO chunk says, read by rules of its own.
struct LwoFile {
  explicit LwoFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), {});
    ReadForm();
  }
  void ReadForm() {
    ASSERT_GE(bytes.size(), 12u);
    ASSERT_EQ(Name(0), "FORM");
    ASSERT_EQ(Number(4, 4), bytes.size() - 8);
    ASSERT_EQ(Name(8), "LWO2");
    for (size_t at = 12; at < bytes.size(); at += 8 + Number(at + 4, 4)) {
      ASSERT_LE(at + 8 + Number(at + 4, 4), bytes.size());
      order += Name(at) + " ";
      Read(Name(at), at + 8, at + 8 + Number(at + 4, 4));
    }
  }
  std::string Name(size_t at) const { return bytes.substr(at, 4); }
  size_t Number(size_t at, int count) const {
    size_t value = 0;
    for (int i = 0; i < count; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
  }
  float Float(size_t at) const {
    const auto bits = static_cast<std::uint32_t>(Number(at, 4));
    float value;
    std::memcpy(&value, &bits, 4);
    return value;
  }
  size_t Index(size_t& at) const {
    const bool isLong = static_cast<unsigned char>(bytes[at]) == 0xff;
    const size_t value = isLong ? Number(at + 1, 3) : Number(at, 2);
    at += isLong ? 4 : 2;
    return value;
  }
  void Read(const std::string& name, size_t at, size_t end) {
    if (name == "PNTS")
      for (; at + 12 <= end; at += 12) points.emplace_back(Float(at), Float(at + 4), Float(at + 8));
    if (name == "POLS") {
      EXPECT_EQ(Name(at), "FACE");
      for (at += 4; at < end;) {
        EXPECT_EQ(Number(at, 2), 3u);
        at += 2;
        std::array<size_t, 3> corners;
        for (size_t& corner : corners) corner = Index(at);
        polygons.push_back(corners);
      }
    }
    if (name == "PTAG") {
      EXPECT_EQ(Name(at), "SURF");
      for (at += 4; at < end; at += 2) {
        EXPECT_EQ(Index(at), tagged++);
        EXPECT_EQ(Number(at, 2), 0u);
      }
    }
    if (name == "TAGS" || name == "LAYR") {
      const std::string expected = name == "TAGS" ? std::string("Default", 8) : std::string(18, '\0');
      EXPECT_EQ(bytes.substr(at, end - at), expected);
    }
    if (name == "SURF") {
      // A name and a source's name, each with its terminator padded to even, then sub-chunks end to end.
      EXPECT_EQ(bytes.substr(at, 10), std::string("Default\0\0\0", 10));
      for (at += 10; at + 6 <= end; at += 6 + Number(at + 4, 2)) {
        subchunks += Name(at) + " ";
        EXPECT_NEAR(Float(at + 6), Name(at) == "COLR" ? 200 / 255.0 : 1, 1e-5);
      }
      EXPECT_EQ(at, end);
      EXPECT_EQ(subchunks, "COLR DIFF ");
    }
  }
  std::string bytes, order, subchunks;
  std::vector<trVector> points;
  std::vector<std::array<size_t, 3>> polygons;
  size_t tagged = 0;
};

}  // namespace

TEST(HeightfieldGenerate, MakesWhatAFractalOfItsSettingsGives) {
  Generators graph;
  trHeightfield& node = graph.Generator(40, 30);
  Generators::Set(node, "size_in_metres", tr2Vector(1950, 2900));
  Generators::Set(node, "feature_scale", 700.0);
  Generators::Set(node, "position", tr2Vector(300, -400));
  ASSERT_EQ(Press(node, "generate_button"), 1);
  EXPECT_EQ(node.HfXScale(), 50);
  EXPECT_EQ(node.HfYScale(), 100);
  EXPECT_DOUBLE_EQ(node.HfZScale(), std::sqrt(5000));

  // The same settings in a node of the project's, evaluated point by point.
  auto* fractal = ovhost::FindClass("power_fractal_shader_v3")->create();
  const std::pair<const char*, double> settings[] = {{"seed", 7},
                                                     {"feature_scale", 700},
                                                     {"lead-in_scale", 700},
                                                     {"smallest_scale", 12.5},
                                                     {"displacement_amplitude", 175},
                                                     {"displacement_offset", 87.5},
                                                     {"displacement_roughness", 0.875},
                                                     {"displacement_spike_limit", 0.25},
                                                     {"continue_spike_limit", 1},
                                                     {"noise_flavour", 3},
                                                     {"noise_variation", 1.5},
                                                     {"variation_method", 2},
                                                     {"buoyancy_from_variation", 0.5}};
  for (const auto& [name, value] : settings) fractal->SetParam(name, value, trWhoSystem);
  const auto expect = [&](double x0, double z0) {
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 40; ++x) {
        Sample sample({x0 + 50 * x, 0, z0 + 100 * y});
        dynamic_cast<trShader*>(fractal)->Displace(sample.si);
        ASSERT_EQ(node.HfScanlineRaw(y)[x], static_cast<float>(sample.si.P().y / node.HfZScale()));
      }
  };
  expect(300, -400);
  EXPECT_LT(node.HfMinZ(), node.HfMaxZ());

  const std::vector<float> first = Raster(node);
  ovhost::SetNumThreads(5);
  Press(node, "generate_button");
  EXPECT_EQ(Raster(node), first);
  ovhost::SetNumThreads(1);
  Press(node, "generate_button");
  EXPECT_EQ(Raster(node), first);
  ovhost::SetNumThreads(0);

  // The switches of the position exclude each other when the user sets them; with neither there is no
  // position.
  Generators::Set(node, "position_center", 1);
  EXPECT_FALSE(Flag(node, "position_lower_left"));
  Press(node, "generate_button");
  expect(300 - 975, -400 - 1450);
  Generators::Set(node, "position_center", 0);
  Press(node, "generate_button");
  expect(0, 0);
  delete fractal;
}

TEST(HeightfieldGenerate, LivesFromFlatToGeneratedAndBack) {
  Generators graph;
  trHeightfield& node = graph.Generator(20, 10);
  EXPECT_EQ(node.pixels, nullptr);
  ASSERT_EQ(node.HfOperateTS(), 1);
  EXPECT_TRUE(IsFlat(node, 20, 10));
  {
    const Reports reports;
    EXPECT_EQ(Press(node, "generate_button"), 1);
    EXPECT_EQ(reports.text, "HeightfieldGenerate: Generating");
    std::vector<float> expected = {0};
    for (int y = 0; y < 10; ++y) expected.push_back(static_cast<float>(y) / 10);
    expected.push_back(1);
    EXPECT_EQ(reports.fractions, expected);
  }
  EXPECT_TRUE(Flag(node, "auto_generate"));
  EXPECT_TRUE(node.HfIsValid());
  const std::vector<float> generated = Raster(node);
  // Settings of the fractal wait for the next press, and so does the seed.
  Generators::Set(node, "roughness", 0.5);
  Press(node, "randomise_button");
  EXPECT_GE(DoubleParam(node, "seed"), 0);
  EXPECT_LE(DoubleParam(node, "seed"), 65535);
  EXPECT_TRUE(node.HfIsValid());
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(Raster(node), generated);
  // Another size by the user drops the raster and what would make it again; by others, the raster alone.
  Generators::Set(node, "size_in_metres", tr2Vector(50, 50));
  EXPECT_FALSE(Flag(node, "auto_generate"));
  EXPECT_EQ(node.pixels, nullptr);
  ASSERT_EQ(node.HfOperateTS(), 1);
  EXPECT_TRUE(IsFlat(node, 20, 10));
  Press(node, "generate_button");
  Generators::Set(node, "size_in_pixels", tr2Vector(5, 4), trWhoSystem);
  EXPECT_TRUE(Flag(node, "auto_generate"));
  ASSERT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(node.width, 5);
  EXPECT_LT(node.HfMinZ(), node.HfMaxZ());
  // A cancel frees the raster and doesn't try again.
  {
    const Reports reports(4);
    EXPECT_EQ(Press(node, "generate_button"), 0);
  }
  EXPECT_FALSE(Flag(node, "auto_generate"));
  EXPECT_EQ(node.pixels, nullptr);
  // Single points and no points.
  Generators::Set(node, "size_in_pixels", tr2Vector(1, 3));
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_EQ(node.HfXScale(), 50 / 1e-12);
  for (const tr2Vector size : {tr2Vector(0, 9), tr2Vector(-1e30, 4), tr2Vector(1e30, 1e30)}) {
    Generators::Set(node, "size_in_pixels", size);
    EXPECT_EQ(Press(node, "generate_button"), 0);
    EXPECT_EQ(node.pixels, nullptr);
  }
}

TEST(HeightfieldGenerate, TakesItsInputsSizeAndOtherShaders) {
  Generators graph;
  trHeightfield& source = graph.Generator(6, 5);
  trHeightfield& node = graph.Field("heightfield_generate");
  Generators::Set(node, "new_heightfield", 0);
  EXPECT_EQ(node.HfOperateTS(), 0);
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_TRUE(IsFlat(node, 2, 2));
  Graph::Link(node, "input_node", source);
  auto& hill = graph.Add<ProbeShader>("hill");
  hill.onDisplace = [](trShadingInterface& si) {
    si.P() += si.N() * (si.Pt().x + 2 * si.Ptg().z) + trVector(9, 0, 9);
  };
  Graph::Link(node, "shader", hill);
  Generators::Set(node, "position", tr2Vector(10, 0));
  EXPECT_EQ(Press(node, "generate_button"), 1);
  ASSERT_EQ(node.height, 5);
  EXPECT_EQ(node.HfXScale(), 2000);
  EXPECT_FLOAT_EQ(node.HfScanlineRaw(3)[2], static_cast<float>((4010 + 2 * 7500) / node.HfZScale()));
  EXPECT_EQ(hill.displaced, 30);
  // What isn't a shader counts as success and changes nothing.
  const std::vector<float> before = Raster(node);
  for (const char* path : {"/hill/none", "/Heightfield generate 01"}) {
    Generators::Set(node, "shader", path);
    EXPECT_EQ(Press(node, "generate_button"), 1);
    EXPECT_EQ(Raster(node), before);
  }
  // So does an exception.
  Graph::Link(node, "shader", hill);
  hill.onDisplace = [](trShadingInterface&) { throw std::runtime_error("no"); };
  EXPECT_EQ(Press(node, "generate_button"), 1);
}

TEST(HeightfieldGenerate, AProjectGeneratesAtLoadWhatWasGenerated) {
  const std::string path = TempFile("generate.ovd");
  std::vector<float> generated;
  {
    Generators graph;
    trHeightfield& node = graph.Generator(12, 9);
    Press(node, "generate_button");
    generated = Raster(node);
    ASSERT_EQ(ovhost::SaveProject(graph.project, path), "");
  }
  const auto project = ovhost::LoadProject(path);
  ASSERT_TRUE(project);
  auto& node = dynamic_cast<trHeightfield&>(*project->Child(0));
  EXPECT_EQ(node.pixels, nullptr);
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(Raster(node), generated);
}

TEST(HeightfieldFromShader, SamplesOnPressOrWhileAllowed) {
  Generators graph;
  trHeightfield& source = graph.Generator(6, 5);
  Generators::Set(source, "size_in_metres", tr2Vector(50, 40));
  trHeightfield& node = graph.Field("heightfield_from_shader");
  auto& hill = graph.Add<ProbeShader>("hill");
  hill.onDisplace = [](trShadingInterface& si) { si.P().y += si.P().x * 10 + si.Pg().z; };
  Graph::Link(node, "shader", hill);
  EXPECT_EQ(node.HfOperateTS(), 0);
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_TRUE(IsFlat(node, 2, 2));
  Graph::Link(node, "input_node", source);
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_TRUE(IsFlat(node, 2, 2));
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_FALSE(Flag(node, "auto_generate"));
  ASSERT_EQ(node.width, 6);
  EXPECT_EQ(node.HfScanlineRaw(1)[2], 10 * 2 + 1);
  // The switches exclude each other whoever sets them.
  Generators::Set(node, "position_center", 1, trWhoSystem);
  EXPECT_FALSE(Flag(node, "position_lower_left"));
  EXPECT_NE(node.pixels, nullptr);
  Press(node, "generate_button");
  EXPECT_EQ(node.HfScanlineRaw(0)[0], -27);
  // On its own, from now on: a change drops the raster, and whoever asks gets the new one.
  Generators::Set(node, "auto_generate", 1);
  EXPECT_NE(node.pixels, nullptr);
  Generators::Set(node, "position", tr2Vector(25, 20));
  EXPECT_EQ(node.pixels, nullptr);
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(node.HfScanlineRaw(1)[2], 21);
  const int before = hill.displaced;
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(hill.displaced, before);
  // A cancel keeps the rows that are done.
  {
    const Reports reports(4);
    EXPECT_EQ(Press(node, "generate_button"), 0);
    EXPECT_EQ(reports.text, "HeightfieldFromShader: Generating");
  }
  EXPECT_EQ(node.HfScanlineRaw(1)[5], 51);
  EXPECT_EQ(node.HfScanlineRaw(2)[5], 0);
  EXPECT_EQ(node.HfMaxZ(), 51);
}

TEST(HeightfieldFromShader, AShaderThatAsksForTheFieldItMakesIsRefused) {
  Generators graph;
  trHeightfield& source = graph.Generator(6, 5);
  trHeightfield& node = graph.Field("heightfield_from_shader");
  auto& hill = graph.Add<ProbeShader>("hill");
  std::vector<long> answers;
  hill.onDisplace = [&](trShadingInterface&) { answers.push_back(node.HfOperateTS()); };
  Graph::Link(node, "shader", hill);
  Graph::Link(node, "input_node", source);
  Generators::Set(node, "auto_generate", 1);
  const long errors = ovhost::NumErrors();
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(answers, std::vector<long>(30, 0));
  EXPECT_EQ(ovhost::NumErrors(), errors + 1);
  answers.clear();
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_EQ(answers, std::vector<long>(30, 0));
}

TEST(Lwo, AHeightfieldBecomesTrianglesWithTheUpSideOut) {
  Generators graph;
  trHeightfield& source = graph.Generator(300, 260);
  Generators::Set(source, "size_in_metres", tr2Vector(2990, 5180));
  Press(source, "generate_button");
  trHeightfield& node = graph.Field("heightfield_export_LWO");
  EXPECT_EQ(Press(node, "export_button"), 0);
  Graph::Link(node, "input_node", source);
  EXPECT_EQ(Press(node, "export_button"), 0);
  const std::string path = TempFile("field.lwo");
  Generators::Set(node, "filename", path);
  {
    const Reports reports;
    EXPECT_EQ(Press(node, "export_button"), 1);
    EXPECT_EQ(reports.text, "Writing LWO file: " + std::filesystem::path(path).lexically_normal().string());
  }
  const LwoFile file(path);
  EXPECT_EQ(file.order, "TAGS LAYR PNTS POLS PTAG SURF ");
  ASSERT_EQ(file.points.size(), 300u * 260u);
  ASSERT_EQ(file.polygons.size(), 299u * 259u * 2);
  EXPECT_EQ(file.tagged, file.polygons.size());
  ExpectNear(file.points[7 * 300 + 3], {30, source.HfScanlineRaw(7)[3] * source.HfZScale(), 140}, 1e-4);
  // Seen from above, corners go round clockwise, x to the right and z up; together they cover the field once.
  double area = 0;
  for (const auto& [a, b, c] : file.polygons) {
    const trVector &p = file.points.at(a), q = file.points.at(b) - p, r = file.points.at(c) - p;
    const double twice = q.z * r.x - q.x * r.z;
    ASSERT_GT(twice, 0);
    area += twice / 2;
  }
  EXPECT_NEAR(area, 2990.0 * 5180.0, 1e-3);
  // The node itself passes heights on.
  EXPECT_EQ(node.HfOperateTS(), 1);
  EXPECT_EQ(Raster(node), Raster(source));
  const long errors = ovhost::NumErrors();
  Generators::Set(node, "filename", "/nowhere/at/all.lwo");
  EXPECT_EQ(Press(node, "export_button"), 0);
  EXPECT_EQ(ovhost::NumErrors(), errors + 1);
  std::filesystem::remove(path);
}

TEST(Lwo, MorePointsThanIndicesReachAreRefused) {
  const std::string path = TempFile("vast.lwo");
  for (const bool hasPoints : {true, false}) {
    LwoMesh mesh;
    mesh.numPoints = hasPoints ? 1 << 24 : 3;
    mesh.numTriangles = hasPoints ? 1 : 1 << 24;
    EXPECT_EQ(WriteLwo(mesh, path), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST(Lwo, AScenesFirstGroupIsWritten) {
  const Graph graph;
  trScene scene;
  ASSERT_TRUE(scene.Init());
  const std::string path = TempFile("scene.LWO");
  long status = 1;
  EXPECT_EQ(scene.WriteObjectFile(nullptr, path.c_str(), &status), 0);  // no group
  EXPECT_EQ(status, 0);
  scene.BeginGroup("first");
  for (int i = 0; i < 66000; ++i) scene.AddPoint({trVector(i, 2, 3)});
  trTri tri;
  for (int i = 0; i < 3; ++i) tri.point[i] = 65279 + i;
  scene.AddTri(tri);
  scene.EndGroup();
  scene.BeginGroup("second");
  scene.AddPoint({});
  scene.EndGroup();
  EXPECT_EQ(scene.WriteObjectFile(nullptr, path.c_str(), &status), 1);
  EXPECT_EQ(status, 1);
  const LwoFile file(path);
  ASSERT_EQ(file.points.size(), 66000u);
  ExpectNear(file.points[1], {1, 2, 3}, 0);
  ASSERT_EQ(file.polygons.size(), 1u);
  EXPECT_EQ(file.polygons[0], (std::array<size_t, 3>{65280, 65279, 65278}));
  EXPECT_EQ(trLibraryObjects().back(), path);
  EXPECT_EQ(scene.WriteObjectFile(nullptr, "a.unknown", nullptr), 0);
  std::filesystem::remove(path);
}

/// Counts its renders.
class StartedShader : public trSurfaceShader {
 public:
  long StartRender(trRenderingInterface& rendering) override {
    ++starts;
    view = rendering.PMainView();
    return 1;
  }
  long FinishRender(trRenderingInterface&) override { return ++finishes; }
  long Displace(trShadingInterface& si) override {
    isReady = isReady && starts == finishes + 1 && si.PMainView();
    si.P().y += 3;
    return 1;
  }
  int starts = 0, finishes = 0;
  bool isReady = true;
  const trView* view = nullptr;
};

TEST(HeightfieldFromShader, ShadersAreStartedAndSeeTheCamera) {
  Generators graph;
  ovhost::RegisterHostClasses();
  trBase& camera = *ovhost::CreateNode("camera", &graph.project, "Camera");
  Generators::Set(camera, "position", trVector(25, 100, 20));
  Generators::Set(camera, "rotation", trVector(-90, 0, 0));
  trHeightfield& source = graph.Generator(6, 5);
  Generators::Set(source, "size_in_metres", tr2Vector(50, 40));
  auto& shader = graph.Add<StartedShader>("Started");
  trHeightfield& node = graph.Field("heightfield_from_shader");
  Graph::Link(node, "shader", shader);
  Graph::Link(node, "input_node", source);
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_TRUE(shader.isReady);
  EXPECT_FLOAT_EQ(node.HfScanlineRaw(1)[2] * node.HfZScale(), 3);
  EXPECT_EQ(shader.starts, 1);
  EXPECT_EQ(shader.finishes, 1);

  // What a render has started isn't started again, nor finished under it.
  trShadingState state;
  trRenderingInterface rendering(state.ShadingInterface().RenderState(), 1, nullptr, trRenderContext::kFinal);
  ovhost::StartShader(shader, rendering);
  EXPECT_EQ(Press(node, "generate_button"), 1);
  EXPECT_EQ(shader.starts, 2);
  EXPECT_EQ(shader.finishes, 1);
  ovhost::FinishShader(shader, rendering);

  // An image is projected through the camera: the whole of its picture lies under it.
  ovhost::Picture picture;
  picture.width = picture.height = 2;
  picture.channels = {"R", "G", "B"};
  picture.pixels.assign(12, 0.5f);
  const std::string path = TempFile("projected.exr");
  ASSERT_EQ(ovhost::WritePicture(path, picture, {}, true), "");
  trShader& map = graph.Shader("image_map_shader");
  for (const auto& [name, value] :
       std::initializer_list<std::pair<const char*, trParamValue>>{{"image_filename", path},
                                                                   {"projection_type", 3},
                                                                   {"position_center", 0},
                                                                   {"position_lower_left", 0},
                                                                   {"size", tr2Vector(1, 1)},
                                                                   {"convert_to_linear", 0},
                                                                   {"apply_displacement", 1},
                                                                   {"displacement_amplitude", 8.0}})
    Generators::Set(map, name, value, trWhoSystem);
  for (const bool linksCamera : {false, true}) {
    if (linksCamera) Graph::Link(map, "projection_camera", camera);
    Graph::Link(node, "shader", map);
    EXPECT_EQ(Press(node, "generate_button"), 1);
    EXPECT_NEAR(node.HfScanlineRaw(2)[3] * node.HfZScale(), 4, 0.01) << linksCamera;
  }
}
