// planet.
#include "objects/planet.h"

#include "core/idioms.h"
#include "core/project.h"

namespace {

/// Largest radius that renders, metres: about a tenth of a light year.
constexpr double kLargestRadius = 1e15;
/// More shaders than this in an atmosphere's chain mean that it feeds itself.
constexpr int kLongestChain = 512;

}  // namespace

Planet::Planet() : juSubSceneMaker("radius", "rotation", "centre") {
  SetRange(radiusHint_, this, {.min = 100.0, .max = 7.1492e7, .focusPower = 4.0});
  SetRange(toleranceHint_, this, {.max = 2.0});

  Param(showBox_, "show_b-box_in_preview", 1).About("Shows the planet's extent in the preview.");
  GuiTab("Planet", "main_tab");
  Param(renderSurface_, "render_surface", 1)
      .About("Whether there is a ground. Off, the planet is its atmosphere alone.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(translateTextures_, "translate_textures_with_planet", 0)
      .About("Moves textures along with the planet's centre. Off, the ground slides through them.");
  Param(renderAtmosphere_, "render_atmosphere", 1).About("Whether there is air, with its clouds.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(rotateTextures_, "rotate_textures_with_planet", 0)
      .About("Turns textures along with the planet. Off, the ground turns through them.");
  Param(latLongAtApex_, "lat_long_at_apex", tr2Vector())
      .About(
          "Latitude and longitude of the point that lies at the top of the planet, degrees: places maps on "
          "it.");
  Param(centre_, "centre", trVector(0, -6378000, 0))
      .Alias("center")
      .About("Centre of the planet, metres. By default the world's origin lies on the ground.");
  Param(rotation_, "rotation", trVector())
      .Alias("rotate")
      .About("Rotation of the planet about its centre, degrees.");
  Param(radius_, "radius", 6.378e6, &radiusHint_)
      .About(
          "Radius of the undisplaced ground, metres; the Earth has 6,378,000. Atmosphere and clouds follow "
          "it.");
  GuiTab("Angular Position", "angular_position_tab");
  DeclareAngularPositionParams();
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "")
      .About("Last node of the network that colours and displaces the ground.");
  Param(atmosphereShader_, "atmosphere_shader", "").About("Last volume of the chain of air and clouds.");
  Param(displacementTolerance_, "displacement_tolerance", 1.0, &toleranceHint_)
      .About(
          "Kept with the project; without effect, as the renderer finds the reach of displacement itself.");
  GuiTab("Import", "import_tab");
  DeclareImportMotionFileParams(true);

  AddGuiAction({"render_surface"}, {"surface_shader"}, 3);
  AddGuiAction({"render_atmosphere"}, {"atmosphere_shader"}, 3);
  DeclareTrue("is_planet");
}

Planet::~Planet() {
  trDestroyObject(sphereGeometry_);
  trDestroyObject(textureTransform_);
}

void Planet::PreDestroy() {
  // While links still lead here.
  juProject* const project = juProject::Of(this);
  if (project && project->PActiveShadableObject() == this) project->SetActiveShadableObject(nullptr);
  juSubSceneMaker::PreDestroy();
}

long Planet::OnCreate() {
  juSubSceneMaker::OnCreate();
  sphereGeometry_ = trCreateObject("sphere_geometry_shader", this, 0);
  textureTransform_ = trCreateObject("transform_shader", this, 0);
  juProject* const project = juProject::Of(this);
  if (project && !project->PActiveShadableObject()) project->SetActiveShadableObject(this);
  return 1;
}

long Planet::OnFirstCreate() {
  juSubSceneMaker::OnFirstCreate();
  SetParam("centre", RecommendedStartPosition(radius_), this);
  CreateSurfaceNetwork();
  CreateAtmosphere();
  return 1;
}

void Planet::CreateSurfaceNetwork() {
  trBase* const fractal = CreateChild("power_fractal_shader_v3");
  if (!fractal) return;
  const struct {
    const char* name;
    trParamValue value;
  } settings[] = {{"feature_scale", radius_ * 0.5},
                  {"lead-in_scale", radius_ * 0.5},
                  {"noise_octaves", 16},
                  {"high_colour", trRgbLinear709(0.3f)},
                  {"low_colour", trRgbLinear709(0.1f)},
                  {"apply_low_colour", 1},
                  {"colour_roughness", 2.5},
                  {"displacement_amplitude", 5000.0},
                  {"displacement_roughness", 1.5},
                  {"displacement_spike_limit", 0.25},
                  {"continue_spike_limit", 1},
                  {"noise_flavour", 3},
                  {"noise_variation", 1.5},
                  {"lead-in_warp_effect", 1},
                  {"less_warp_at_feature_scale", 1}};
  for (const auto& setting : settings) fractal->SetParam(setting.name, setting.value, this);
  SetParam("surface_shader", fractal->Name(), this);
}

void Planet::CreateAtmosphere() {
  trBase* const atmosphere = CreateChild("planet_atmosphere");
  if (!atmosphere) return;
  atmosphere->SetName("Atmosphere %02d");
  SetParam("atmosphere_shader", atmosphere->Name(), this);
  atmosphere->SetParam("centre", centre_, this);
  atmosphere->SetParam("radius", radius_, this);
}

trTransform<double> Planet::Turn() const {
  return trRotateY(rotation_.y * kDegreesToRadians) * trRotateX(-rotation_.x * kDegreesToRadians) *
         trRotateZ(-rotation_.z * kDegreesToRadians);
}

long Planet::MakePlanetSurface(trScene& scene) {
  ApplyVisibilityParams(scene);
  // The mesh is a ball of radius 1; shaders see the planet's space in metres.
  const trTransform<double> placed = trTranslate(centre_) * Turn();
  scene.SetTransform(placed * trScale(radius_, radius_, radius_));
  scene.SetTransformForShaders(placed);

  trShader* const surface = SurfaceShader();
  if (textureTransform_)
    textureTransform_->SetParam("shader", surface ? surface->NameAndPath() : trString(), this);

  const long material = scene.AddMaterial(trMaterial());
  if (!renderSurface_) return 1;
  if (!(radius_ > 0 && radius_ <= kLargestRadius)) {
    const trString name = "radius";
    const trScopedErrorsWarningsContext context(this, &name);
    trError("A planet's radius must be above 0 and at most 1e15 metres.");
    return 0;
  }
  return scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4, material) ? 1 : 0;
}

bool Planet::MakeNonSurface(trScene& scene) {
  trShader* const atmosphere = AtmosphereShader();
  return !renderAtmosphere_ || !atmosphere || scene.AddAtmosphere(atmosphere) != 0;
}

void Planet::BindPlanetMaterials(trScene& scene) {
  trShader* surface = SurfaceShader();
  if (translateTextures_ || rotateTextures_) surface = dynamic_cast<trShader*>(textureTransform_);
  // The geometry shader has the planet's own centre and radius, in the world: its object transform stays the
  // identity.
  const trMaterial bound(dynamic_cast<trGeometryShader*>(sphereGeometry_), surface, nullptr,
                         static_cast<float>(displacementTolerance_));
  for (long i = 1; i <= scene.NumMaterials(); ++i) *scene.GetPMaterial(i) = bound;
}

void Planet::PushPlanetParamsToChildren() {
  if (sphereGeometry_) {
    sphereGeometry_->SetParam("centre", centre_, this);
    sphereGeometry_->SetParam("radius", radius_, this);
  }
  if (textureTransform_) PushTextureTransform();
  trShader* shader = AtmosphereShader();
  for (int i = 0; shader && i < kLongestChain; ++i, shader = shader->InputShader())
    if (shader->IsAtmosShader()) {
      shader->SetParam("centre", centre_, this, false);
      shader->SetParam("radius", radius_, this, false);
    }
}

void Planet::PushTextureTransform() {
  // The transform shader turns about the world's origin and the planet about its own centre: where the
  // textures turn but don't move along, a shift makes the two agree, with the centre as the fixed point.
  trVector translateBy;
  if (translateTextures_)
    translateBy = centre_;
  else if (rotateTextures_)
    translateBy = centre_ - Turn().Point(centre_);
  textureTransform_->SetParam("translate_shader", translateTextures_ || rotateTextures_, this);
  textureTransform_->SetParam("rotate_shader", rotateTextures_ != 0, this);
  textureTransform_->SetParam("translate_by", translateBy, this);
  textureTransform_->SetParam("rotate_by", rotateTextures_ ? rotation_ : trVector(), this);
}

trBoundingBox Planet::BoundingBoxL() {
  const trVector reach(radius_, radius_, radius_);
  return {centre_ - reach, centre_ + reach};
}

void Planet::MoveHandlePositionT(const trVector& delta) {
  SetParam("centre", centre_ + delta, trWhoUserIndirect);
}

void Planet::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("rotation", rotation_ + deltaDegrees, trWhoUserIndirect);
}
