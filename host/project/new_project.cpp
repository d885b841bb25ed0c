// The project that `ov new` starts with.
#include "host/project/new_project.h"

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

}  // namespace

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
