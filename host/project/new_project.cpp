// The project that `ov new` starts with.
#include "host/project/new_project.h"

#include <algorithm>

#include "core/shading_state.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/host_classes.h"

namespace ovhost {
namespace {

/// A new node as a user would make it.
trBase* AddNode(trBase* parent, const char* className, const char* name) {
  trBase* node = CreateNode(className, parent, name);
  if (!node) {
    trError(std::string("The class '") + className +
            "' is not registered; is the module of standard components loaded?");
    return nullptr;
  }
  node->OnCreate();
  node->OnFirstCreate();
  node->OnUserCreate();
  return node;
}

/// A class whose objects are made to be populated with, a rock before others; empty where there is none.
std::string PopulatableClass() {
  if (FindClass("rock")) return "rock";
  for (const CatalogueEntry& entry : Catalogue())
    if (entry.category == "object/populatable") return entry.className;
  return {};
}

/// Where a ray of the camera's heading, level with the horizon, leads to after `distance` metres.
trVector AheadOf(const trBase& camera, double distance) {
  trVector position, target;
  camera.GetParam("position", position);
  long useTarget = 0;
  camera.GetParam("use_target", useTarget);
  trVector ahead(0, 0, 1);
  if (useTarget && camera.GetParam("target", target)) ahead = target - position;
  ahead.y = 0;
  return position + Normalised(ahead) * distance;
}

/// The displaced ground below a point.
trVector GroundBelow(trShader& terrain, const trVector& point) {
  trSamplingState state(terrain);
  trShadingInterface& si = state.ShadingInterface();
  si.SetSample({point.x, 0, point.z}, {0, 1, 0});
  terrain.DisplaceTS(si);
  return si.P();
}

bool AddPopulator(juProject& project) {
  constexpr double kSize = 300, kSpacing = 3;  // metres
  trBase* const planet = project.PActiveShadableObject();
  trString surface;
  if (planet) planet->GetParam("surface_shader", surface);
  auto* const terrain = planet ? dynamic_cast<trShader*>(planet->NodeByPath(surface)) : nullptr;
  trBase* const camera = project.NodeByPath("Camera");
  trBase* const populator = AddNode(&project, "populator_v3", "Populator 01");
  if (!terrain || !camera || !populator) return false;
  const trVector centre = AheadOf(*camera, 0.6 * kSize), ground = GroundBelow(*terrain, centre);
  const std::string objectClass = PopulatableClass();
  if (!objectClass.empty()) {
    std::string name = objectClass + " 01";
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    std::replace(name.begin(), name.end(), '_', ' ');
    if (trBase* object = AddNode(&project, objectClass.c_str(), name.c_str())) {
      populator->SetParam("object_maker", object->NameAndPath(), trWhoSystem);
      trBase* const shader = AddNode(&project, "default_shader", "Stone");
      if (!shader) return false;
      shader->SetParam("diffuse_colour", trManRgb(0.22f, 0.2f, 0.17f), trWhoSystem);
      object->SetParam("surface_shader", shader->NameAndPath(), trWhoSystem);
    }
  }
  const std::pair<const char*, trParamValue> settings[] = {
      {"area_centre", trVector(centre.x, 0, centre.z)},
      {"area_size_xz", tr2Vector(kSize, kSize)},
      {"object_spacing_xz", tr2Vector(kSpacing, kSpacing)},
      {"terrain_shader", terrain->NameAndPath()},
      {"planet", planet->NameAndPath()},
      {"minimum_scale", 0.3},
      {"maximum_scale", 1.2},
      {"lean_to_terrain_normal", 1},
      {"lean_effect", 0.8},
      {"slope_of_min_lean", 5.0},
      {"slope_of_full_lean", 30.0}};
  for (const auto& [name, value] : settings) populator->SetParam(name, value, trWhoUser);

  // From high above nobody would see them.
  constexpr double kEyeHeight = 15;
  trVector eye;
  camera->GetParam("position", eye);
  if (eye.y - ground.y > 10 * kEyeHeight) {
    camera->SetParam("use_target", 1, trWhoSystem);
    camera->SetParam("target", ground, trWhoSystem);
    const trVector below = GroundBelow(*terrain, eye);
    camera->SetParam("position", below + trVector(0, kEyeHeight, 0), trWhoSystem);
  }
  return true;
}

}  // namespace

bool AddToProject(juProject& project, const std::string& what) {
  if (what == "populator") return AddPopulator(project);
  trError("There is nothing called '" + what + "' to begin a project with.");
  return false;
}

std::unique_ptr<juProject> NewDefaultProject() {
  RegisterHostClasses();
  auto project = std::make_unique<juProject>();
  trBase* camera = AddNode(project.get(), "camera", "Camera");
  trBase* render = AddNode(project.get(), "render", "Render");
  trBase* sun = AddNode(project.get(), "sunlight", "Sun");
  trBase* sky = AddNode(project.get(), "enviro_light", "Sky light");
  trBase* planet = AddNode(project.get(), "planet", "Planet 01");
  trBase* terrain = planet ? AddNode(planet, "compute_terrain", "Compute terrain 01") : nullptr;
  if (!camera || !render || !sun || !sky || !terrain) return nullptr;
  project->SetActiveShadableObject(planet);
  render->SetParam("camera", camera->Name(), trWhoSystem);

  // Compute terrain stands between the planet and the network it was made with.
  trString network;
  planet->GetParam("surface_shader", network);
  terrain->SetParam("input_node", network, trWhoSystem);
  planet->SetParam("surface_shader", terrain->Name(), trWhoSystem);

  // The default fractal is kilometres high: stand well over it and look at the horizon.
  camera->SetParam("position", trVector(0, 6000, 0), trWhoSystem);
  camera->SetParam("rotation", trVector(-8, 0, 0), trWhoSystem);
  return project;
}

}  // namespace ovhost
