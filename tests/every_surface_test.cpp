// Balls of every registered surface class in one picture: the same bytes for any number of threads, and no
// nonsense whatever their parameters and functions hold.
#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "host/project/camera.h"
#include "host/project/project_file.h"
#include "host/render/engine/path.h"
#include "host/render/frame/world.h"
#include "host/session/render_frame.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

constexpr int kColumns = 8;

/// A colour that no parameter would take.
class Nonsense : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    si.Cutil() = colour;
    return 1;
  }
  trFCol colour;
};

class EverySurface : public testing::Test {
 protected:
  EverySurface() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
    ovhost::RegisterHostClasses();
    for (const char* name : {"render", "camera", "sunlight", "enviro_light"})
      EXPECT_TRUE(ovhost::CreateNode(name, &project_, name));
    Set(*project_.NodeByPath("sunlight"), "elevation", 35.0);
    Set(*project_.NodeByPath("sunlight"), "angular_diameter", 5.0);
    function_ = &AddNode("power_fractal_shader_v3", "Function");
    base_ = &AddNode("lambert_shader", "Base");
  }

  static void Set(trBase& node, const char* param, const trParamValue& value) {
    ASSERT_TRUE(node.SetParam(param, value, trWhoSystem)) << node.Name() << "." << param;
  }
  trBase& AddNode(const std::string& className, const char* name) {
    trBase* node = ovhost::CreateNode(className.c_str(), &project_, name);
    EXPECT_TRUE(node) << className;
    return *node;
  }
  /// A ball with a shader of the class over the base, its other links all to `function`.
  trBase& AddBall(const std::string& className, trBase& function) {
    trBase& ball = AddNode("planet", "Ball");
    const int i = static_cast<int>(balls_++);
    Set(ball, "radius", 1.0);
    Set(ball, "centre", trVector(2.2 * (i % kColumns), 2.2 * (i / kColumns), 0));
    trBase* shader = ball.CreateChild(className.c_str());
    EXPECT_TRUE(shader) << className;
    for (const trParamInfo& param : shader->Data().params)
      if (param.type == trParamType::kShaderLink)
        Graph::Link(*shader, param.name.c_str(), param.name == "input_node" ? *base_ : function);
    Graph::Link(ball, "surface_shader", *shader);
    return *shader;
  }
  void LookAtBalls(int width, int height) {
    const int rows = (balls_ + kColumns - 1) / kColumns;
    trBase& camera = *project_.NodeByPath("camera");
    const trVector middle(1.1 * (kColumns - 1), 1.1 * (rows - 1), 0);
    Set(camera, "position", middle + trVector(0, 0, 30));
    Set(camera, "use_target", 1);
    Set(camera, "target", middle);
    Set(camera, "field_of_view", 36.0);
    trBase& render = *project_.NodeByPath("render");
    Set(render, "image_width", width);
    Set(render, "image_height", height);
    Set(render, "samples", 4);
  }

  juProject project_;
  trBase *function_ = nullptr, *base_ = nullptr;
  int balls_ = 0;
};

TEST_F(EverySurface, SameBytesForAnyNumberOfThreads) {
  int classes = 0;
  std::string last;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    if (entry.category.rfind("shader/", 0) != 0 || entry.category.rfind("shader/atmosphere", 0) == 0 ||
        entry.className == last)
      continue;
    last = entry.className;
    AddBall(entry.className, *function_);
    ++classes;
  }
  ASSERT_GT(classes, 15);
  LookAtBalls(96, 60);
  std::string first;
  for (const int threads : {1, 2, 7}) {
    ovhost::RenderSettings settings;
    settings.output = TempFile("surfaces.exr");
    settings.threads = threads;
    settings.layers = {"all"};
    ovhost::RenderControl control;
    ASSERT_EQ(ovhost::RenderFrame(project_, settings, control), ovhost::RenderOutcome::kDone);
    std::stringstream bytes;
    bytes << std::ifstream(settings.output, std::ios::binary).rdbuf();
    ASSERT_GT(bytes.str().size(), 10000u);
    if (first.empty()) first = bytes.str();
    EXPECT_TRUE(bytes.str() == first) << threads << " threads";
  }
}

/// Another value of a parameter's type.
trParamValue Another(const trParamInfo& param, const trBase& linked) {
  switch (param.type) {
    case trParamType::kInt:
      return *static_cast<long*>(param.member) + 1;
    case trParamType::kBool:
      return *static_cast<unsigned char*>(param.member) == 0;
    case trParamType::kDouble:
      return *static_cast<double*>(param.member) * 0.5 + 0.3;
    case trParamType::kColour:
      return trManRgb(0.9f, 0.1f, 0.4f);
    case trParamType::kShaderLink:
      return linked.NameAndPath();
    default:
      return trString("other.png");
  }
}

TEST_F(EverySurface, ColourOnlyParametersMoveNothing) {
  trBase& other = AddNode("power_fractal_shader_v3", "Other");
  Set(other, "displacement_amplitude", 7.0);
  std::set<std::string> tried, moving;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    if (entry.category.rfind("shader/", 0) != 0 || !tried.insert(entry.className).second) continue;
    auto* shader = dynamic_cast<trShader*>(&AddNode(entry.className, "Tried"));
    ASSERT_TRUE(shader) << entry.className;
    for (const trParamInfo& param : shader->Data().params) {
      if (param.type == trParamType::kShaderLink && !param.isColourOnly)
        Graph::Link(*shader, param.name.c_str(), *function_);
      if (param.name == "apply_displacement" || param.name == "smoothing_effect")
        Set(*shader, param.name.c_str(), 1);
    }
    /// Where points go, and the parameters that may have a part in it.
    const auto displaced = [&] {
      std::vector<double> at;
      for (int i = 0; i < 6; ++i) {
        Sample sample({31.0 * i, 5.0 * i * i, -17.0 * i}, Normalised(trVector(0.2 * i, 1, 0.1)));
        shader->DisplaceTS(sample.si);
        for (const trVector& p : {sample.si.P(), sample.si.Pt(), sample.si.N(), sample.si.Nt()})
          at.insert(at.end(), {p.x, p.y, p.z});
        if (at[at.size() - 12] != 31.0 * i || at[at.size() - 11] != 5.0 * i * i)
          moving.insert(entry.className);
      }
      return at;
    };
    const auto others = [&] {
      std::string texts;
      for (long i = 0; i < shader->NumParams(); ++i) {
        trString text;
        if (!shader->Data().params[static_cast<size_t>(i)].isColourOnly)
          shader->GetStringFromParam(i, text, nullptr);
        texts += text + "|";
      }
      return texts;
    };
    for (long i = 0; i < shader->NumParams(); ++i) {
      const trParamInfo& param = shader->Data().params[static_cast<size_t>(i)];
      if (!param.isColourOnly) continue;
      const std::vector<double> before = displaced();
      const std::string othersBefore = others();
      ASSERT_TRUE(shader->SetParam(i, Another(param, other), trWhoUser))
          << entry.className << "." << param.name;
      EXPECT_TRUE(displaced() == before) << entry.className << "." << param.name;
      EXPECT_EQ(others(), othersBefore) << entry.className << "." << param.name;
    }
  }
  for (const char* className : {"surface_layer", "power_fractal_shader_v3", "default_shader"})
    EXPECT_TRUE(moving.count(className)) << className;
}

TEST_F(EverySurface, NonsenseStaysOutOfThePicture) {
  Nonsense& function = *new Nonsense;
  ovhost::AttachChild(&project_, &function, "Nonsense");
  std::vector<trBase*> shaders;
  for (const char* className : {"reflective_shader", "glass_shader", "water_shader", "default_shader",
                                "lambert_shader", "surface_layer", "colour_adjust_shader", "merge_shader"})
    shaders.push_back(&AddBall(className, function));
  LookAtBalls(32, 8);

  const auto expectFinite = [this](const std::string& what) {
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    settings.view = dynamic_cast<trCameraNode&>(*project_.NodeByPath("camera")).View(32, 8);
    ovhost::World world(project_, settings, stop);
    ASSERT_TRUE(world.Build());
    ovhost::PathTracer tracer(world, {});
    ovhost::CameraSample samples[4];
    int seen = 0;
    for (int pixel = 0; pixel < 32 * 8; ++pixel) {
      tracer.SamplePixel(pixel % 32, pixel / 32, 0, 4, samples);
      seen += samples[0].alpha > 0;
      for (const ovhost::CameraSample& s : samples)
        for (const trFCol& c :
             {s.beauty, s.albedo, s.direct, s.indirect, s.light.specular, s.light.transmission})
          ASSERT_TRUE(std::isfinite(c.r + c.g + c.b)) << what << ", pixel " << pixel;
    }
    EXPECT_GT(seen, 32) << what;
  };
  const float infinity = std::numeric_limits<float>::infinity(), nan = std::nanf("");
  for (const trFCol& colour :
       {trFCol(infinity), trFCol(-infinity), trFCol(nan), trFCol(-1.0f, 1e30f, 0.5f)}) {
    function.colour = colour;
    expectFinite("a function of " + std::to_string(colour.r));
  }
  function.colour = trFCol(1.0f);
  for (const auto& [param, values] : std::map<std::string, std::vector<trParamValue>>{
           {"index_of_refraction", {0.0, 1.0, -1.0}},
           {"specular_roughness", {0.0, 1e9, -1.0}},
           {"roughness", {0.0, 1e9}},
           {"decay_distance", {0.0, -1.0, 1e300}},
           {"reflectivity", {trRgbLinear709(-1.0f), trRgbLinear709(1e30f)}},
           {"transparency", {trRgbLinear709(-1.0f), trRgbLinear709(1e30f)}},
           {"diffuse_colour", {trRgbLinear709(-1.0f), trRgbLinear709(1e30f)}}})
    for (const trParamValue& value : values) {
      bool isTaken = false;
      for (trBase* shader : shaders) isTaken |= shader->SetParam(param.c_str(), value, trWhoSystem) != 0;
      EXPECT_TRUE(isTaken) << param;
      expectFinite(param);
    }
}

}  // namespace
