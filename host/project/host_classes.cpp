// Registration of the host's own node classes.
#include "host/project/host_classes.h"

#include "core/plugin.h"
#include "core/project.h"
#include "host/node/class_pool.h"
#include "host/project/camera.h"
#include "host/project/enviro_light.h"
#include "host/project/function_nodes.h"
#include "host/project/render_node.h"
#include "host/project/sunlight.h"
#include "host/raster/heightfield_load.h"
#include "host/voxel/vdb_density.h"

namespace ovhost {
namespace {

/// Holds other nodes, and nothing else.
class GroupNode : public trBase {};

}  // namespace

void RegisterHostClasses() {
  struct Row {
    const char* category;
    const char* name;
    trBase* (*create)();
  };
  static const Row kRows[] = {
      {"hidden", "ombrivex_project", trCreateNode<juProject>},
      {"camera", "camera", trCreateNode<trCameraNode>},
      {"render", "render", trCreateNode<trRenderNode>},
      {"light", "sunlight", trCreateNode<trSunlightNode>},
      {"light", "enviro_light", trCreateNode<trEnviroLightNode>},
      {"group", "group", trCreateNode<GroupNode>},
      {"heightfield_operator", "heightfield_load", trCreateNode<trHeightfieldLoad>},
      {"function/constant", "constant_scalar", trCreateNode<ConstantScalar>},
      {"function/constant", "constant_colour", trCreateNode<ConstantColour>},
      {"function/get", "get_position", trCreateNode<GetPosition>},
      {"function/get", "get_altitude", trCreateNode<GetAltitude>},
      {"function/get", "get_slope", trCreateNode<GetSlope>},
      {"function/get", "get_normal", trCreateNode<GetNormal>},
      {"function/get", "get_camera_distance", trCreateNode<GetCameraDistance>},
      {"function/get", "vdb_density", trCreateNode<trVdbDensity>},
      {"function/math", "add", trCreateNode<AddFunction>},
      {"function/math", "multiply", trCreateNode<MultiplyFunction>},
      {"function/math", "mix", trCreateNode<MixFunction>},
      {"function/math", "clamp", trCreateNode<ClampFunction>},
      {"function/math", "smooth_step", trCreateNode<SmoothStepFunction>},
  };
  static bool isDone = false;
  if (isDone) return;
  isDone = true;
  for (const Row& row : kRows) RegisterHostClass(row.category, row.name, row.create, trDestroyNode);
}

}  // namespace ovhost
