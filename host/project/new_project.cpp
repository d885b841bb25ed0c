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

/// Heights of the ground over an area that begins at the world's origin and goes north, metres.
struct GroundHeights {
  double highest = -1e300, middle = 0;

  GroundHeights(trShader& terrain, double size) {
    constexpr int kSteps = 8;
    trSamplingState state(terrain);
    trShadingInterface& si = state.ShadingInterface();
    for (int i = 0; i <= kSteps; ++i)
      for (int j = 0; j <= kSteps; ++j) {
        si.SetSample({(static_cast<double>(i) / kSteps - 0.5) * size, 0, size * j / kSteps}, {0, 1, 0});
        terrain.DisplaceTS(si);
        highest = std::max(highest, si.P().y);
        if (i == kSteps / 2 && j == kSteps / 2) middle = si.P().y;
      }
  }
};

bool AddPopulator(juProject& project) {
  constexpr double kSize = 300, kSpacing = 3, kEyeHeight = 15;  // metres
  trBase* const planet = project.NodeByPath("Planet 01");
  auto* const terrain = planet ? dynamic_cast<trShader*>(planet->NodeByPath("Compute terrain 01")) : nullptr;
  trBase* const camera = project.NodeByPath("Camera");
  trBase* const populator = AddNode(&project, "populator_v3", "Populator 01");
  if (!terrain || !camera || !populator) return false;
  const std::string objectClass = PopulatableClass();
  if (!objectClass.empty()) {
    std::string name = objectClass + " 01";
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    std::replace(name.begin(), name.end(), '_', ' ');
    if (trBase* object = AddNode(&project, objectClass.c_str(), name.c_str())) {
      populator->SetParam("object_maker", object->NameAndPath(), trWhoSystem);
      trBase* const shader = AddNode(&project, "default_shader", "Stone");
      if (shader) object->SetParam("surface_shader", shader->NameAndPath(), trWhoSystem);
    }
  }
  const std::pair<const char*, trParamValue> settings[] = {
      {"area_centre", trVector(0, 0, kSize / 2)},
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

  const GroundHeights ground(*terrain, kSize);
  camera->SetParam("position", trVector(0, ground.highest + kEyeHeight, -kSize / 8), trWhoSystem);
  camera->SetParam("use_target", 1, trWhoSystem);
  camera->SetParam("target", trVector(0, ground.middle, kSize / 2), trWhoSystem);
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
