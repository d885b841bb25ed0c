// lake.
#include "objects/lake.h"

#include "core/idioms.h"

namespace {

constexpr long kSides = 16;

}  // namespace

Lake::Lake() : juSubSceneMaker("max_radius", "rotate", "centre") {
  SetRange(levelHint_, this, {.min = -10000.0, .max = 10000.0});
  SetRange(radiusHint_, this, {.max = 1e6, .focusPower = 4.0});
  SetRange(toleranceHint_, this, {.max = 2.0});

  Param(handleInPreview_, "handle_in_preview", 1)
      .About("Shows the handle that moves the lake in the preview.");
  DeclareVisibilityParams(1, 1, 0, 0);
  DeclareAdvancedVisibilityParams();
  GuiTab("Transform", "transform_tab");
  Param(waterLevel_, "water_level", 1.0, &levelHint_)
      .About(
          "Altitude of the water above the planet's radius, in metres. Changing it moves the centre up or "
          "down.");
  Param(centre_, "centre", trVector(0, waterLevel_, 0))
      .Alias("center")
      .About(
          "Middle of the lake's disc in the world, in metres. Changing it sets the water level from the "
          "planet.");
  Param(maxRadius_, "max_radius", 100000.0, &radiusHint_)
      .About(
          "Radius of the water in metres. Choose it so that the shore, and not the edge of the disc, ends "
          "the lake.");
  Param(rotate_, "rotate", trVector())
      .About("Rotation in degrees, kept for motion files. The disc lies level whatever it is.");
  GuiTab("Planet", "planet_tab");
  Param(planet_, "planet", "")
      .About("The planet whose curve the water follows. Without one the lake is a flat disc.");
  GuiTab("Surface Shaders", "shaders_tab");
  Param(surfaceShader_, "surface_shader", "").About("Shader of the water, as a rule a water shader.");
  Param(displacementTolerance_, "displacement_tolerance", 0.5, &toleranceHint_)
      .About(
          "How much waves are expected to move the surface. Raise it where high waves are cut off; it costs "
          "time.");
  GuiTab("Import", "import_tab");
  DeclareImportMotionFileParams(true);

  DeclareTrue("is_water_related");
}

Lake::~Lake() {
  trDestroyObject(userSphere_);
  trDestroyObject(materialSphere_);
}

long Lake::OnCreate() {
  juSubSceneMaker::OnCreate();
  userSphere_ = trCreateObject("sphere_geometry_shader", nullptr, 0);
  materialSphere_ = trCreateObject("sphere_geometry_shader", nullptr, 0);
  return 1;
}

long Lake::OnFirstCreate() {
  juSubSceneMaker::OnFirstCreate();
  SetParam("planet", "Planet 01", this);
  trBase* water;
  if (!surfaceShader_.IsInternal() && Parent()) {
    water = Parent()->CreateChild("water_shader");
    if (water) water->SetBundledWith(this);
  } else {
    water = CreateChild("water_shader");
  }
  if (water) SetParam("surface_shader", water->Name(), this);
  return 1;
}

bool Lake::FindPlanet(Ball& planet) const {
  const trBase* const node = planet_.LinkedNode();
  return node && node->IsTrue("is_planet") && node->GetParam("centre", planet.centre) &&
         node->GetParam("radius", planet.radius);
}

void Lake::SetRadiusOfUser(double radius) {
  if (userSphere_) userSphere_->SetParam("radius", radius, this);
}

void Lake::OnParamChanged(long index, trBase* who) {
  juSubSceneMaker::OnParamChanged(index, who);
  Ball planet;
  if (!trIsUser(who) || !FindPlanet(planet)) return;
  const trVector up = centre_ - planet.centre;
  if (IsParam(index, &centre_) || IsParam(index, &planet_)) {
    SetParam("water_level", up.Length() - planet.radius, this);
    SetRadiusOfUser(up.Length());
  } else if (IsParam(index, &waterLevel_)) {
    const double length = up.Length();
    SetParam("centre",
             planet.centre + up * ((planet.radius + waterLevel_) * (length > 1e-12 ? 1.0 / length : 1e12)),
             this);
    SetRadiusOfUser((centre_ - planet.centre).Length());
  }
}

void Lake::PlaceSpheres(const Ball& planet) {
  const double radius = (centre_ - planet.centre).Length();
  for (trBase* sphere : {userSphere_, materialSphere_}) {
    if (!sphere) continue;
    sphere->SetParam("centre", planet.centre, this);
    sphere->SetParam("radius", radius, this);
  }
}

void Lake::PushPlanetParamsToChildren() {
  Ball planet;
  if (FindPlanet(planet)) PlaceSpheres(planet);
}

long Lake::MakePlanetSurface(trScene& scene) {
  ApplyVisibilityParams(scene);
  trGeometryShader* geometry = nullptr;
  Ball planet;
  if (FindPlanet(planet)) {
    PlaceSpheres(planet);
    geometry = dynamic_cast<trGeometryShader*>(materialSphere_);
  }
  const long material = scene.AddMaterial(trMaterial(geometry, LinkedShader(surfaceShader_), nullptr,
                                                     static_cast<float>(displacementTolerance_)));
  // The disc lies flat and bounds the water; the sphere curves it with the planet. Its front is above.
  const trVector alongZ(0, 0, maxRadius_), alongX(maxRadius_, 0, 0);
  return scene.AddPolyDisc(centre_, alongZ, alongX, kSides, material) ? 1 : 0;
}

void Lake::BindPlanetMaterials(trScene& scene) {
  trShader* const surface = LinkedShader(surfaceShader_);
  for (long i = 1; i <= scene.NumMaterials(); ++i) {
    trMaterial& material = *scene.GetPMaterial(i);
    material.surfaceShader = surface;
    material.displacementTolerance = static_cast<float>(displacementTolerance_);
  }
}

trBoundingBox Lake::BoundingBoxL() {
  const trVector reach(maxRadius_, 0, maxRadius_);
  return {centre_ - reach, centre_ + reach};
}

void Lake::MoveHandlePositionT(const trVector& delta) {
  SetParam("centre", centre_ + delta, trWhoUserIndirect);
}

void Lake::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("rotate", rotate_ + deltaDegrees, trWhoUserIndirect);
}
