// Foreign meshes as objects: a scene of one group, and a node whose children shade it.
#pragma once

#include <string>

#include "core/scene_maker.h"
#include "host/object/mesh_file.h"

namespace ovhost {

/// Makes a node below `parent` that stands for the mesh, with a `default_shader` for each material that a
/// triangle has, and fills `scene` with a group of it. Images are looked for beside `file`; those that aren't
/// there are warned of. Null with an error where the node can't be made. Main thread only.
OV_API trSceneMaker* MakeMeshObject(trBase& parent, const std::string& file, const ForeignMesh& mesh,
                                    trScene& scene);

}  // namespace ovhost
