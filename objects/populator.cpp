// populator_v3: parameters and what follows from them.
#include "objects/populator.h"

#include <cmath>
#include <cstring>

#include "core/idioms.h"
#include "core/project.h"

namespace {

/// By `render_quality`: below which projected size elements are thinned out, as a share of a pixel's area,
/// and how much those that are left grow for the others.
struct Quality {
  double sizeFactor, enlargementFactor;
};
constexpr Quality kQualities[] = {{4, 0.5}, {1, 0.5}, {0.25, 0.75}, {0.0625, 1}, {0.015625, 1}};

}  // namespace

Populator3_CalculateButton::Populator3_CalculateButton(Populator3* populator)
    : trGuiPushButton(populator, "Populate Now"), populator_(populator) {}

long Populator3_CalculateButton::OnPressed() {
  populator_->SetDirty();
  return populator_->GenerateOrRead();
}

Populator3::Populator3() {
  DeclareParams();
  DeclareTrue("is_populator");
  Refresh();
}

Populator3::~Populator3() = default;

void Populator3::DeclareParams() {
  SetRange(variationsHint_, this, {.min = 1, .max = 100});
  variationsHint_.SetParam("do_range", 1, this, 1);
  SetMenu(qualityHint_, this,
          {{"Low quality (fastest)", 0},
           {"Medium quality", 1},
           {"High quality", 2},
           {"Very high quality", 3},
           {"Ultra quality (slowest)", 4}});
  SetRange(lengthHint_, this, {.max = 10000, .focusPower = 2});
  SetRange(turnHint_, this, {.min = 0, .max = 360});
  SetRange(slopeHint_, this, {.min = 0, .max = 90});

  Param(previewInstances_, "preview_instances", 0)
      .About("Shows instances in the 3D preview, as boxes or wireframes. Pictures are not changed.");
  Param(showBoxInPreview_, "show_b-box_in_preview", 1)
      .About("Shows the outline of the area in the 3D preview. Turn off where it is in the way.");
  Param(showBoxes_, "show_b-boxes", 0)
      .About("Shows each instance as its box in the 3D preview. Quick, and enough to judge a layout.");
  Param(showWireframes_, "show_wireframes", 0)
      .About("Shows the edges of each instance in the 3D preview. Slow where there are many.");
  Param(objectMaker_, "object_maker", "")
      .About("The object of which instances are made. It is then made for the populator alone.");
  Param(uniqueVariations_, "unique_variations", 1, &variationsHint_)
      .About("How many different objects the instances share. Told by the object at each population.");
  Param(renderQuality_, "render_quality", 1, &qualityHint_)
      .About(
          "How soon elements far away are thinned out, where a renderer makes each element of each "
          "instance.");
  GuiTab("Distribution", "distribution_tab");
  Param(areaCentre_, "area_centre", trVector())
      .Alias("area_center")
      .About("Middle of the area, in metres in the world. The ground sets the height of each instance.");
  Param(areaRotation_, "area_rotation", trVector())
      .About("Turns the area about its centre, in degrees. The second number turns it on the ground.");
  Param(areaLengthA_, "area_length_a", 1000.0, &lengthHint_)
      .About("First length of the area in metres, as older projects have it: the same as in Area size.");
  Param(areaLengthB_, "area_length_b", 1000.0, &lengthHint_)
      .About("Second length of the area in metres, as older projects have it: the same as in Area size.");
  Param(objectSpacing_, "object_spacing", 10.0)
      .About(
          "Spacing in metres along both sides, as older projects have it: the same as in Object spacing in "
          "a,b.");
  Param(areaSize_, "area_size_xz", tr2Vector(1000, 1000))
      .About("Lengths of the two sides of the area, in metres, before it is turned.");
  Param(spacing_, "object_spacing_xz", tr2Vector(10, 10))
      .Display("Object spacing in a,b")
      .About("Sides of the cells that the area is cut in, in metres: one place for an instance in each.");
  Param(randomness_, "randomness_xz", tr2Vector(1, 1))
      .Display("Spacing variation in a,b")
      .About("How far places stray from a grid, in cells. 0 shows rows, 1 fills the cell evenly.");
  Param(useDensityShader_, "use_density_shader", 0)
      .About("Lets the density shader decide how many places get an instance. Off, all of them do.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(densityShader_, "density_shader", "")
      .About(
          "Brightness is the share of places that get an instance: 1 all, 0 none. Asked at the displaced "
          "ground.");
  Param(invertDensityShader_, "invert_density_shader", 0)
      .About("Puts instances where the density shader is dark, and leaves out those where it is bright.");
  GuiTab("Terrain", "terrain_tab");
  Param(sitOnTerrain_, "sit_on_terrain", 1)
      .About("Puts instances on the planet and its terrain. Off, they lie in the flat area itself.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(terrainShader_, "terrain_shader", "")
      .About(
          "What displaces the ground: the end of its network, such as a compute terrain that tells normals.");
  Param(planet_, "planet", "")
      .About(
          "The planet whose ball instances stand on before the terrain moves them. Found by the terrain "
          "shader.");
  GuiTab("Object scale", "object_scale_tab");
  Param(minimumScale_, "minimum_scale", 1.0)
      .About("Least size of an instance, in sizes of the object. Sizes are drawn evenly between the two.");
  Param(maximumScale_, "maximum_scale", 1.0)
      .About("Greatest size of an instance, in sizes of the object. It may stand first or second.");
  GuiTab("Object rotation", "object_rotation_tab");
  Param(minimumTurn_, "minimum_Y_rotation", 0.0, &turnHint_)
      .About("Least turn about the up axis of an instance, in degrees.");
  Param(maximumTurn_, "maximum_Y_rotation", 360.0, &turnHint_)
      .About("Greatest turn about the up axis of an instance, in degrees. 0 to 360 shows no pattern.");
  Param(leansToNormal_, "lean_to_terrain_normal", 0)
      .About("Lets instances lean with the slope. Good for stones and tufts; most trees grow upright.");
  Param(leanEffect_, "lean_effect", 0.5)
      .Display("Lean effect (0..1)")
      .About("How far instances lean: 0 stays upright, 1 stands square to the ground on full slopes.");
  Param(slopeOfMinLean_, "slope_of_min_lean", 45.0, &slopeHint_)
      .Display("Don't lean if slope below")
      .About("Slopes below this many degrees leave instances upright, whatever the lean effect.");
  Param(slopeOfFullLean_, "slope_of_full_lean", 90.0, &slopeHint_)
      .Display("Reduce lean if slope below")
      .About("From this slope on, in degrees, instances lean in full; between the two less and less.");
  GuiTab("Seed", "seed_tab");
  Param(seed_, "seed", 0)
      .About("Number that all random draws follow from. Another one gives another layout of the same kind.");
  PushButton(randomiseButton_, "randomise_button");
  Param(sampleBeforeTransform_, "sample_before_transform", 0)
      .Display("Sample terrain and density shader before moving and rotating area")
      .About(
          "Asks terrain and density where places are before the area is moved and turned, and takes both "
          "along.");
  Param(repopulateEveryFrame_, "repopulate_every_frame", 0)
      .About(
          "Makes the population anew for each frame of an animation. Needed where the ground itself moves.");
  PushButton(populateButton_, "populate_button");
  Param(clipToCamera_, "clip_to_camera", 0)
      .About(
          "Keeps only what the project's camera may see. Saves memory; shadows and reflections of the rest "
          "are missing.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(clippingCamera_, "clipping_camera", "")
      .About("The camera that instances were last kept for. Follows the active camera of the project.");

  AddGuiAction({"use_density_shader"}, {"density_shader"}, 3);
  AddGuiAction({"sit_on_terrain"}, {"terrain_shader"}, 3);
  AddGuiAction({"clip_to_camera"}, {"clipping_camera"}, 3);
}

long Populator3::OnCreate() {
  isCreated_ = true;
  return trSceneMaker::OnCreate();
}

long Populator3::OnFirstCreate() {
  trSceneMaker::OnFirstCreate();
  SetParam("terrain_shader", "Compute Terrain", this);
  FindPlanet();
  SetParam("seed", trNewSeed(), this);
  return 1;
}

void Populator3::FindPlanet() {
  trShader* const terrain = LinkedShader(terrainShader_);
  const trBase* const planet = terrain ? terrain->FindOutputNodeByClass("planet", true) : nullptr;
  if (planet) SetParam("planet", planet->NameAndPath(), trWhoSystem);
}

// --- Changes

bool Populator3::IsPreviewParam(long index) const {
  return IsParam(index, &previewInstances_) || IsParam(index, &showBoxInPreview_) ||
         IsParam(index, &showBoxes_) || IsParam(index, &showWireframes_);
}

void Populator3::OnParamChanged(long index, trBase* who) {
  trSceneMaker::OnParamChanged(index, who);
  // What the node sets along with a change sets nothing further.
  if (who != this) {
    CoupleLegacySizes(index);
    CouplePreviewSwitches(index);
  }
  FollowLinks(index, who);
  if (IsParam(index, &objectMaker_)) LetObjectBePopulated();
  if (!IsPreviewParam(index)) Refresh();
}

void Populator3::CoupleLegacySizes(long index) {
  if (IsParam(index, &areaLengthA_)) SetParam("area_size_xz", tr2Vector(areaLengthA_, areaSize_.y), this);
  if (IsParam(index, &areaLengthB_)) SetParam("area_size_xz", tr2Vector(areaSize_.x, areaLengthB_), this);
  if (IsParam(index, &objectSpacing_))
    SetParam("object_spacing_xz", tr2Vector(objectSpacing_, objectSpacing_), this);
  if (IsParam(index, &areaSize_)) {
    SetParam("area_length_a", areaSize_.x, this);
    SetParam("area_length_b", areaSize_.y, this);
  }
  // Where the product is negative there is no root, and the old parameter stays.
  if (IsParam(index, &spacing_) && spacing_.x * spacing_.y >= 0)
    SetParam("object_spacing", std::sqrt(spacing_.x * spacing_.y), this);
}

void Populator3::CouplePreviewSwitches(long index) {
  if (IsParam(index, &previewInstances_)) {
    SetParam("show_b-boxes", previewInstances_, this);
    if (!previewInstances_) SetParam("show_wireframes", 0, this);
  }
  if (IsParam(index, &showBoxes_) || IsParam(index, &showWireframes_))
    SetParam("preview_instances", showBoxes_ || showWireframes_, this);
}

void Populator3::FollowLinks(long index, trBase* who) {
  // A project that tells a switch and then its link means what it says.
  const bool isLoading = !isCreated_ && who == trWhoSystem;
  if (isLoading && IsParam(index, &useDensityShader_)) densitySwitchIsTold_ = true;
  if (isLoading && IsParam(index, &sitOnTerrain_)) terrainSwitchIsTold_ = true;

  if (IsParam(index, &densityShader_) && !(isLoading && densitySwitchIsTold_)) {
    const bool isLinked = !densityShader_.FileStringR().empty();
    if (isLinked != (useDensityShader_ != 0)) SetParam("use_density_shader", isLinked, trWhoSystem);
    if (isLoading) densitySwitchIsTold_ = false;  // that was us
  }
  if (!IsParam(index, &terrainShader_) || terrainShader_.FileStringR().empty()) return;
  if (!sitOnTerrain_ && !(isLoading && terrainSwitchIsTold_)) SetParam("sit_on_terrain", 1, trWhoSystem);
  if (!planet_.LinkedNode()) FindPlanet();
}

void Populator3::LetObjectBePopulated() {
  trBase* const object = objectMaker_.LinkedNode();
  long mode;
  if (object && object != this && object->FindParam(mode, "population_mode")) object->SetParam(mode, 1, this);
}

void Populator3::OnDependencyParamChanged(trBase* changed, long index, trBase* link, trBase* who) {
  trSceneMaker::OnDependencyParamChanged(changed, index, link, who);
  const char* const name = changed->ParamName(index);
  if (name && (std::strcmp(name, "show_b-box_in_preview") == 0 || std::strcmp(name, "show_wireframe") == 0))
    return;
  if (changed != this && changed == planet_.LinkedNode()) return;
  if (changed == clippingCamera_.LinkedNode() && !clipToCamera_) return;
  Refresh();
}

void Populator3::Refresh() {
  worldFromArea_ = trTranslate(areaCentre_) * trRotateY(areaRotation_.y * kDegreesToRadians) *
                   trRotateX(-areaRotation_.x * kDegreesToRadians) *
                   trRotateZ(-areaRotation_.z * kDegreesToRadians);
  const Quality& quality = kQualities[renderQuality_ >= 0 && renderQuality_ < 4 ? renderQuality_ : 4];
  sizeFactor_ = quality.sizeFactor;
  enlargementFactor_ = quality.enlargementFactor;
  isDirty_ = true;
}

void* Populator3::RequestMember(const char* name) {
  return std::strcmp(name, "population_bytes") == 0 ? &bytes_ : trSceneMaker::RequestMember(name);
}

// --- Preview

trBoundingBox Populator3::BoundingBoxL() {
  const trVector half(areaSize_.x * 0.5, 0, areaSize_.y * 0.5);
  return {-half, half};
}

void Populator3::MoveHandlePositionT(const trVector& delta) {
  SetParam("area_centre", areaCentre_ + delta, trWhoUserIndirect);
}

void Populator3::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("area_rotation", areaRotation_ + deltaDegrees, trWhoUserIndirect);
}
