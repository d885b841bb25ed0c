// A planet with an atmosphere under one sun and a sky, and a cloud whose light and matter are known in closed
// form.
#pragma once

#include <cmath>
#include <functional>

#include "host/base/parallel.h"
#include "host/project/project_file.h"
#include "host/render/engine/standard.h"
#include "host/render/frame/world.h"
#include "tests/shading_fixture.h"

/// A ball, or a shell round a planet's centre, of a matter that is even or tapers off to nothing at its ends,
/// with the phase function of Henyey and Greenstein (1941). Its own light is scattered once.
class AnalyticCloud : public trAtmosShader {
 public:
  static constexpr double kPlanet = 6378000;
  static AnalyticCloud* Ball(const trVector& centre, double radius, double extinction) {
    auto* cloud = new AnalyticCloud;
    cloud->centre_ = centre;
    cloud->outer_ = radius;
    cloud->extinction_ = extinction;
    return cloud;
  }
  /// Between two heights above the ground of a planet whose apex is the origin.
  static AnalyticCloud* Shell(double base, double top, double extinction) {
    AnalyticCloud* cloud = Ball({0, -kPlanet, 0}, kPlanet + top, extinction);
    cloud->inner_ = kPlanet + base;
    return cloud;
  }
  AnalyticCloud* Tapered() { return isTapered_ = true, this; }
  AnalyticCloud* WithAlbedo(const trFCol& albedo) { return albedo_ = albedo, this; }
  AnalyticCloud* WithG(double g) { return g_ = g, this; }
  AnalyticCloud* WithSteps(int steps) { return steps_ = steps, this; }

  double ExtinctionAt(const trVector& point) const {
    const double r = (point - centre_).Length();
    if (r < inner_ || r >= outer_) return 0;
    if (!isTapered_) return extinction_;
    const double x = (r - inner_) / (outer_ - inner_);
    return extinction_ * (inner_ > 0 ? 4 * x * (1 - x) : 1 - x * x);
  }
  /// By many small steps.
  double OpticalDepth(const trVector& from, const trVector& to) const {
    constexpr int kParts = 20000;
    double sum = 0;
    for (int i = 0; i < kParts; ++i) sum += ExtinctionAt(from + (to - from) * ((i + 0.5) / kParts));
    return sum * (to - from).Length() / kParts;
  }

  trVolumeShape Shape() const override { return {centre_, inner_, outer_, false, false}; }
  bool HasMatter() const override { return true; }
  double GreatestExtinction() const override { return 1.3 * extinction_; }
  trVolumeMatter MatterAt(trRenderState&, const trVector& point) override {
    return {trFCol(static_cast<float>(ExtinctionAt(point))), albedo_};
  }
  float PhaseFunction(double c) const override {
    const double d = 1 + g_ * g_ - 2 * g_ * c;
    return static_cast<float>((1 - g_ * g_) / (d * std::sqrt(d)));
  }

  long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) override {
    const trRenderState::Ray& ray = state.CurrentRay();
    const trVector way = Normalised(ray.end - ray.origin), fromCentre = ray.origin - centre_;
    const double length = (ray.end - ray.origin).Length(), nearest = -Dot(fromCentre, way),
                 across = (fromCentre + way * nearest).LengthSquared();
    const double outer = outer_ * outer_ - across, inner = inner_ * inner_ - across;
    if (!(outer > 0)) return 1;
    if (!rayData) rayData = new std::vector<double>;
    auto& steps = *static_cast<std::vector<double>*>(rayData);
    steps.clear();
    const auto add = [&](double begin, double end) {
      begin = std::clamp(begin, 0.0, length);
      end = std::clamp(end, 0.0, length);
      for (int i = 0; end > begin && i < steps_; ++i) {
        const double at = begin + (end - begin) * (i + state.Random()) / steps_;
        trAtmosSample* sample = integrator.AddSample(this, ray.origin + way * at);
        if (!sample) return;
        sample->rayData = rayData;
        sample->index = static_cast<int>(steps.size());
        steps.push_back((end - begin) / steps_);
      }
    };
    const double halfOuter = std::sqrt(outer), halfInner = std::sqrt(std::fmax(inner, 0));
    add(nearest - halfOuter, nearest - halfInner);
    add(nearest + halfInner, nearest + halfOuter);
    return 1;
  }
  long EvaluateRaySample(trRenderState& state, trAtmosSample& sample) override {
    const double step = (*static_cast<std::vector<double>*>(sample.rayData))[sample.index];
    const auto opacity = static_cast<float>(-std::expm1(-ExtinctionAt(sample.position) * step));
    sample.opacityDirect = sample.opacityEnviro = trFCol(opacity);
    const trRenderState::Ray& ray = state.CurrentRay();
    if (!ray.wantsColour || !(opacity > 0)) return 1;
    const trVector way = Normalised(ray.end - ray.origin);
    for (int i = 0; i < state.NumLights(); ++i) {
      const trLightState& light = *state.Light(i);
      sample.colourDirect += albedo_ * light.Intensity(state, sample.position, {}) *
                             (0.25f * opacity * PhaseFunction(Dot(way, light.Dir())));
    }
    trFCol above, below;
    state.EnviroIlluminationInAtmosphereAniso(sample.position, {}, above, below);
    sample.colourEnviro = albedo_ * (above + below) * (0.25f * opacity);
    return 1;
  }
  void FreeIntegrationData(trAtomicIntegrator&, void* rayData) override {
    delete static_cast<std::vector<double>*>(rayData);
  }

 private:
  trVector centre_;
  double inner_ = 0, outer_ = 0, extinction_ = 0, g_ = 0;
  bool isTapered_ = false;
  int steps_ = 24;
  trFCol albedo_{1.0f};
};

/// Level ground on a planet with an atmosphere, under one sun and a sky.
class AirScene : public testing::Test {
 protected:
  AirScene() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
    project_ = ovhost::NewDefaultProject();
    for (trBase* node : ovhost::AllNodes(project_.get())) {
      if (node->ClassName() == "planet") planet_ = node;
      if (node->ClassName() == "planet_atmosphere") atmosphere_ = node;
      if (node->ClassName() == "sunlight") node->SetParam("elevation", 25.0, trWhoSystem);
    }
    trBase* ground = planet_->CreateChild("lambert_shader");
    Graph::Link(*planet_, "surface_shader", *ground);
    settings_.edgePixels = 0.5;
    settings_.view.eye = {0, 60, 0};
    settings_.view.forward = {0, 0, -1};
    settings_.view.right = {-1, 0, 0};
    settings_.view.width = 24;
    settings_.view.height = 16;
    settings_.view.tanHalfHorizontal = 0.6;
    settings_.view.tanHalfVertical = 0.4;
  }
  /// Adds a volume to the planet's: alone, or ahead of its atmosphere.
  void AddVolume(trAtmosShader* volume, bool isAlone) {
    ovhost::AttachChild(planet_, volume, "Volume");
    Graph::Link(isAlone ? *planet_ : *atmosphere_, isAlone ? "atmosphere_shader" : "input_node", *volume);
  }
  /// Calls use(world) for the scene as it stands.
  template <typename Use>
  void InWorld(int threads, const Use& use) {
    std::atomic<bool> stop{false};
    ovhost::WithThreads(threads, [&] {
      ovhost::World world(*project_, settings_, stop);
      ASSERT_TRUE(world.Build());
      use(world);
    });
  }
  std::vector<ovhost::CameraSample> Picture(int threads, int samples, std::uint64_t* airSamples = nullptr) {
    const trView& view = settings_.view;
    std::vector<ovhost::CameraSample> result(static_cast<size_t>(view.width) * view.height * samples);
    std::atomic<std::uint64_t> counted{0};
    InWorld(threads, [&](ovhost::World& world) {
      ovhost::ParallelFor(static_cast<size_t>(view.height), [&](size_t y) {
        ovhost::PathTracer tracer(world, path_);
        for (int x = 0; x < view.width; ++x)
          tracer.SamplePixel(x, static_cast<int>(y), 0, samples, &result[(y * view.width + x) * samples]);
        counted += tracer.Counters().volumeSamples;
      });
    });
    if (airSamples) *airSamples = counted;
    return result;
  }
  static trFCol Mean(const std::vector<ovhost::CameraSample>& samples) {
    double sum[3] = {};
    for (const auto& sample : samples)
      for (int c = 0; c < 3; ++c) sum[c] += sample.beauty[c];
    const auto n = static_cast<double>(samples.size());
    return {static_cast<float>(sum[0] / n), static_cast<float>(sum[1] / n), static_cast<float>(sum[2] / n)};
  }

  std::unique_ptr<juProject> project_;
  trBase *planet_ = nullptr, *atmosphere_ = nullptr;
  ovhost::WorldSettings settings_;
  ovhost::PathSettings path_;
};
