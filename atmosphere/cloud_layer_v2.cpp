// The cloud layer's life between renders.
#include "atmosphere/cloud_layer_v2.h"

#include <algorithm>

#include "core/idioms.h"

CloudLayerV2::CloudLayerV2() : CloudLayerV2(CloudLayout()) {}

CloudLayerV2::CloudLayerV2(const CloudLayout& layout)
    : layout_(layout),
      randomiseButton_(this),
      analyzeButton_(this),
      resetButton_(this),
      voxels_(std::make_unique<CloudVoxels>()) {
  DeclareTrue("is_atmosphere_related");
  DeclareTrue("has_voxel_server");
}

CloudLayerV2::~CloudLayerV2() { trDestroyObject(ownPaintSolver_); }

long CloudLayerV2::OnCreate() {
  if (!trAtmosShader::OnCreate()) return 0;
  if (isDeclared_) return 1;
  SetRanges();
  DeclareIdentity();
  DeclareMainParams();
  DeclareColourParams();
  DeclareLightingParams();
  DeclareTweakTabs();
  DeclareExtraParams();
  DeclareQualityParams();
  DeclareOptimisationParams();
  DeclarePaintParams();
  isDeclared_ = true;
  UpdateDerived();
  return 1;
}

long CloudLayerV2::OnFirstCreate() {
  if (!trAtmosShader::OnFirstCreate()) return 0;
  if (layout_.makesDensityFractal) {
    trBase* const owner = Parent() ? Parent() : this;
    if (trBase* const fractal = owner->CreateChild("cloud_fractal_shader_v3")) {
      if (owner != this) fractal->SetBundledWith(this);
      fractal->SetName("Density fractal %02d");
      SetParam("density_shader", fractal->Name(), this);
    }
  }
  SetParam("improved_lighting_model", 1, this);
  SetParam("darker_unresolved_scattering", 1, this);
  return 1;
}

long CloudLayerV2::SetParamFromString(const char* name, const trString& value, trBase* who) {
  const trString key = name;
  if (key == "ray_fuzziness" || key == "acceleration_cache") {
    if (value == "0") return 1;
    const long context = trSetupErrorsWarningsContext(this, &key);
    trWarning(key == "ray_fuzziness" ? "Ray fuzziness is no longer supported."
                                     : "Cloud layer 'acceleration cache' is no longer available.");
    trClearErrorsWarningsContext(context);
    return 1;
  }
  if (key == "paint_shader") {
    legacyPaint_ = value;
    return 1;
  }
  return trAtmosShader::SetParamFromString(name, value, who);
}

void CloudLayerV2::UpdateDerived() {
  trAtmosShader::UpdateDerived();
  if (!isDeclared_) return;
  PrepareCloudDerived();
  RefreshGui();
}

trVolumeShape CloudLayerV2::Shape() const {
  trVolumeShape shape;
  if (!isDeclared_) return shape;
  shape.centre = settings_.centre;
  shape.innerRadius = std::max(0.0, settings_.radius + settings_.altitude - settings_.depth / 2);
  shape.outerRadius = std::max(0.0, settings_.radius + settings_.altitude + settings_.depth / 2);
  return shape;
}

void CloudLayerV2::MoveHandlePositionT(const trVector& delta) {
  if (layout_.hasLocalSphere)
    SetParam("local_sphere_centre", settings_.localSphereCentre + delta, trWhoUserIndirect);
}

trBoundingBox CloudLayerV2::CloudBoundingBox() const {
  const trVector& centre = settings_.localSphereCentre;
  const double across = std::fabs(settings_.localSphereRadius);
  const double extent = layout_.baseAltitudeIsPrimary ? settings_.depth : settings_.depth / 2;
  const double up = std::max(0.0, std::min(across, extent));
  const double down = layout_.baseAltitudeIsPrimary ? 0.0 : up;
  return {centre - trVector(across, down, across), centre + trVector(across, up, across)};
}

long CloudLayerV2::PrepareAtmosphere(trRenderingInterface& rendering) {
  cloudSteps_ = rendering.CloudSteps();
  // Linked shaders may have come or gone, and a planet may have moved, without a change here.
  PrepareCloudDerived();
  PrepareCloudForRender(rendering);
  return 1;
}
