// Parameters of the cloud layer that follow one another, and what a change makes out of date.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "atmosphere/cloud_layer_v2.h"
#include "core/idioms.h"

namespace {

/// Altitudes that differ by less than this share of themselves are the same.
constexpr double kAltitudeTolerance = 1e-12;
/// The local sphere is moved by no less than this, metres.
constexpr double kLeastMove = 1e-6;
/// More steps than any ray takes.
constexpr double kMostSteps = 1e6;
/// Millions of voxels that a layer may be given.
constexpr double kMostMillionsOfVoxels = 1e6;

/// Parameters that change how voxels are used, and nothing that is kept.
constexpr const char* kMarkNothing[] = {"use_voxels_to_accelerate_empty_space", "visualise_voxels",
                                        "use_voxels_for_shadows", "voxel_shadow_threshold"};
/// Parameters that change the light alone: density and shadow map stay.
constexpr const char* kLightingOnly[] = {"enable_primary",
                                         "cloud_density",
                                         "cloud_colour",
                                         "colour_info_0",
                                         "scattering_colour",
                                         "sun_glow_amount",
                                         "sun_glow_power",
                                         "light_propagation",
                                         "light_propagation_mix",
                                         "fake_internal_scattering",
                                         "enviro_light",
                                         "enviro_light_tint",
                                         "darker_unresolved_scattering",
                                         "anisotropic_enviro_light",
                                         "direct_light_modulator",
                                         "enviro_light_modulator",
                                         "ambient_light_modulator",
                                         "shadow_function",
                                         "ambient",
                                         "fake_dark_power",
                                         "fake_dark_sharpness",
                                         "improved_lighting_model"};

template <size_t N>
bool IsOneOf(const char* name, const char* const (&names)[N]) {
  return std::any_of(std::begin(names), std::end(names),
                     [name](const char* other) { return std::strcmp(name, other) == 0; });
}

bool Differs(double a, double b) { return std::fabs(a - b) > kAltitudeTolerance * std::fabs(b); }

}  // namespace

void CloudLayerV2::OnParamChanged(long index, trBase* who) {
  trAtmosShader::OnParamChanged(index, who);
  if (!isDeclared_ || isCoupling_) return;
  isCoupling_ = true;
  Couple(index, who);
  isCoupling_ = false;
}

void CloudLayerV2::Couple(long index, trBase* who) {
  if (IsParam(index, &settings_.colour)) RefreshColourInfo();
  if (IsParam(index, &settings_.improvedLightingModel) && trIsUser(who)) {
    SetParam("light_propagation", settings_.improvedLightingModel ? 2.0 : 0.875, this);
    SetParam("light_propagation_mix", 0.125, this);
  }
  CoupleQuality(index, who);
  const bool isMoved = CoupleAltitudes(index, who);
  CoupleVoxels(index, who);
  MarkDirt(index);
  trSwitchFollowsLink(this, index, who, settings_.exportBounds, settings_.setExportBounds,
                      "set_export_bounds");
  trSwitchFollowsLink(this, index, who, settings_.paint, settings_.enablePaint, "enable_paint");
  if (isMoved) SendAMessage(kChangedMessage, this);
}

double CloudLayerV2::StepsAtFullQuality() const {
  const double thickness =
      std::sqrt(std::max(0.0, settings_.edgeSharpness)) * settings_.density * settings_.depth;
  return std::sqrt(std::max(0.0, thickness)) * 12.0 + 6.0;
}

void CloudLayerV2::CoupleQuality(long index, trBase* who) {
  const bool isUser = trIsUser(who);
  const bool isShaped = IsParam(index, &settings_.quality) || IsParam(index, &settings_.depth) ||
                        IsParam(index, &settings_.edgeSharpness) || IsParam(index, &settings_.density);
  if (isUser && isShaped) {
    const double steps = std::ceil(StepsAtFullQuality() * settings_.quality);
    const long samples = steps > 0 ? static_cast<long>(std::min(steps, kMostSteps)) : 0;
    if (samples != settings_.numberOfSamples) SetParam("number_of_samples", samples, this);
  }
  if (who == trWhoUser && IsParam(index, &settings_.numberOfSamples))
    SetParam("quality", static_cast<double>(settings_.numberOfSamples) / StepsAtFullQuality(), this);
}

trVector CloudLayerV2::PlacedLocalSphereCentre() const {
  const double altitude = layout_.baseAltitudeIsPrimary ? settings_.baseAltitude : settings_.altitude;
  const trVector away = Normalised(settings_.localSphereCentre - settings_.centre);
  return settings_.centre + away * (settings_.radius + altitude);
}

bool CloudLayerV2::CoupleAltitudes(long index, trBase* who) {
  const bool isBasePrimary = layout_.baseAltitudeIsPrimary;
  const bool isDepth = IsParam(index, &settings_.depth);
  bool isMiddleSet = IsParam(index, &settings_.altitude);
  bool isBaseSet = IsParam(index, &settings_.baseAltitude);

  // The handle of the local sphere drags the layer up and down.
  if (layout_.hasLocalSphere && trIsUser(who) && IsParam(index, &settings_.localSphereCentre)) {
    const double altitude = (settings_.localSphereCentre - settings_.centre).Length() - settings_.radius;
    SetParam(isBasePrimary ? "cloud_base_altitude" : "cloud_altitude", altitude, this);
    (isBasePrimary ? isBaseSet : isMiddleSet) = true;
  }
  if (isMiddleSet || (!isBasePrimary && isDepth)) {
    const double base = settings_.altitude - settings_.depth / 2;
    if (Differs(settings_.baseAltitude, base)) SetParam("cloud_base_altitude", base, this);
    isBaseSet |= isMiddleSet;
  } else if (isBaseSet || isDepth) {
    const double middle = settings_.baseAltitude + settings_.depth / 2;
    if (Differs(settings_.altitude, middle)) SetParam("cloud_altitude", middle, this);
    isMiddleSet |= isBaseSet;
  }
  if ((isBasePrimary ? isBaseSet : isMiddleSet) || IsParam(index, &settings_.radius) ||
      IsParam(index, &settings_.centre))
    PlaceLocalSphere();
  return isMiddleSet || isBaseSet || isDepth;
}

void CloudLayerV2::PlaceLocalSphere() {
  if (!layout_.hasLocalSphere) return;
  const trVector placed = PlacedLocalSphereCentre();
  if ((placed - settings_.localSphereCentre).Length() > kLeastMove)
    SetParam("local_sphere_centre", placed, this);
}

trVector CloudLayerV2::IdealVoxelResolution() const {
  int nx, ny, nz;
  const double millions = std::min(kMostMillionsOfVoxels, settings_.millionsOfVoxels);
  trVoxelBuffer::GetIdealSizeFromBoundingBox(CloudBoundingBox(), millions * 1e6, nx, ny, nz);
  return trVector(nx, ny, nz);
}

void CloudLayerV2::CoupleVoxels(long index, trBase* who) {
  const trVector& resolution = settings_.voxelBufferResolution;
  if (IsParam(index, &resolution)) {
    const double cells = std::floor(resolution.x) * std::floor(resolution.y) * std::floor(resolution.z);
    // A project has both as they were. A grid that is what the number asks for leaves it as the user gave it.
    if (who != trWhoSystem && resolution != IdealVoxelResolution())
      SetParam("millions_of_voxels", cells / 1e6, this);
  } else if (IsParam(index, &settings_.millionsOfVoxels) || IsParam(index, &settings_.localSphereRadius) ||
             IsParam(index, &settings_.localSphereCentre) || IsParam(index, &settings_.depth)) {
    const trVector ideal = IdealVoxelResolution();
    if (resolution != ideal) SetParam("voxel_buffer_resolution", ideal, this);
  }
}

void CloudLayerV2::MarkDirt(long index) {
  const char* const name = ParamName(index);
  if (std::strcmp(name, "enable") != 0) ++changeCounter_;
  if (IsOneOf(name, kMarkNothing)) return;
  lightingDirty_ = true;
  if (IsOneOf(name, kLightingOnly)) return;
  if (!IsParam(index, &settings_.useVoxelBuffer)) shadowMapDirty_ = true;
  if (!IsParam(index, &settings_.useShadowMap) && !IsParam(index, &settings_.density)) voxelsDirty_ = true;
}

void CloudLayerV2::OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who) {
  trAtmosShader::OnDependencyParamChanged(changed, index, link, who);
  if (!isDeclared_ || changed == InputShader()) return;
  lightingDirty_ = shadowMapDirty_ = voxelsDirty_ = true;
  if (changed != settings_.paint.LinkedNode(true)) ++changeCounter_;
  UpdateDerived();
}

void CloudLayerV2::RefreshColourInfo() {
  const auto percent =
      static_cast<long>(std::clamp(settings_.colour.ToRender().MaxChannel(), 0.0f, 1e6f) * 100);
  settings_.colourInfo = "Max albedo = " + std::to_string(percent) + "%";
}

void CloudLayerV2::RefreshGui() { SetParamGuiEnabled("sun_glow_power", settings_.sunGlowAmount != 0); }
