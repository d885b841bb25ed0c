// Bases of scene makers: visibility, start positions, transforms, the steps of a maker with a surface.
#include "core/scene_maker.h"

#include "core/project.h"
#include "host/project/camera.h"
#include "host/scene/scene_tables.h"

trSceneMaker::trSceneMaker() {
  DeclareTrue("is_object");
  DeclareTrue("is_scene_maker");
}

long trSceneMaker::Make(trScene&, Context) { return 1; }

long trSceneMaker::WriteObjectFile(const char* path, long* status) {
  trScene scene;
  if (!scene.Init() || !Make(scene, kInstance)) return 0;
  scene.PrepForRender();
  return scene.WriteObjectFile(this, path, status);
}

void trSceneMaker::DeclareVisibilityParams(unsigned char visible, unsigned char inReflections,
                                           unsigned char castShadows, unsigned char allowSubdivision) {
  Param(visible_, "visible", visible)
      .About("Whether the camera sees the object. Hidden, it still casts shadows and shows in reflections.");
  Param(visibleInReflections_, "visible_in_reflections", inReflections)
      .About("Whether reflections, refractions and light from around meet the object.");
  Param(castShadows_, "cast_shadows", castShadows).About("Whether the object keeps sunlight from others.");
  Param(allowSubdivision_, "allow_subdivision", allowSubdivision)
      .About(
          "Lets the renderer divide triangles finely for displacement. Off, displacement shows as bumps "
          "only.");
}

void trSceneMaker::DeclareAdvancedVisibilityParams() {
  Param(holdout_, "holdout", 0)
      .About("The object hides what lies behind it and leaves the picture empty there, for compositing.");
}

void trSceneMaker::ApplyVisibilityParams(trScene& scene) const {
  long index;
  if (!FindParam(index, "visible")) return;
  scene.SetVisibilityMode(!visible_  ? trSceneVisibilityMode::kInvisible
                          : holdout_ ? trSceneVisibilityMode::kHoldout
                                     : trSceneVisibilityMode::kVisible);
  scene.SetIsVisibleInReflections(visibleInReflections_ != 0);
  scene.SetCastsShadows(castShadows_ != 0);
  scene.SetAllowsTriSubdivision(allowSubdivision_ != 0);
}

// ---------------------------------------------------------------------------------------------------------------

trVector juSceneMaker::RecommendedStartPosition(double radius) const {
  // From this size on an object is ground to stand on rather than a thing to look at.
  constexpr double kPlanetRadius = 1e5;
  if (radius >= kPlanetRadius) return {0, -radius, 0};
  const juProject* project = juProject::Of(this);
  const auto* camera = project ? dynamic_cast<const trCameraNode*>(project->PActiveCameraNode()) : nullptr;
  if (!camera) return {};
  const trView view = camera->View(1, 1);
  return view.eye + view.forward * (4 * radius);
}

void juSceneMaker::SetTransformFromParams(trTransform<double>& transform, trScene* scene, trBoundingBox* box,
                                          const trVector& position, const trVector& rotation,
                                          const trVector& scale) {
  transform =
      trTranslate(position) * trRotation{rotation}.GetTransform() * trScale(scale.x, scale.y, scale.z);
  if (scene) scene->SetTransform(transform);
  if (box) *box = ovhost::TransformedBox(transform, scene ? scene->BoundingBoxR() : *box);
}

// ---------------------------------------------------------------------------------------------------------------

juSubSceneMaker::juSubSceneMaker(const char* sizeParam, const char* rotationParam, const char* positionParam)
    : size_(sizeParam), rotation_(rotationParam), position_(positionParam) {}

long juSubSceneMaker::OnCreate() {
  const long result = juSceneMaker::OnCreate();
  long position;
  if (FindParam(position, position_)) CoupleAngularPosition(position, position_);
  return result;
}

void juSubSceneMaker::OnParamChanged(long index, trBase* who) {
  juSceneMaker::OnParamChanged(index, who);
  CoupleAngularPosition(index, position_);
}

void juSubSceneMaker::UpdateDerived() {
  juSceneMaker::UpdateDerived();
  PushPlanetParamsToChildren();
}

long juSubSceneMaker::OnImportMotion() { return ImportMotion(position_, rotation_); }

long juSubSceneMaker::Make(trScene& scene, Context context) {
  if (context == kNothing) return 1;
  PushPlanetParamsToChildren();
  if (!MakePlanetSurface(scene)) return 0;
  BindPlanetMaterials(scene);
  return MakeNonSurface(scene) ? 1 : 0;
}

bool juSubSceneMaker::MakeNonSurface(trScene&) { return true; }
void juSubSceneMaker::BindPlanetMaterials(trScene&) {}
void juSubSceneMaker::PushPlanetParamsToChildren() {}
