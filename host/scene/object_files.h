// Scenes on their way to files.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/scene.h"

class trSceneMaker;

namespace ovhost {

/// Writes a scene by the writer for the path's extension, with parameters of the writer set to the given
/// texts; `maker`, which may be null, brings its shaders along. 0 with an error where it can't.
OV_API long WriteSceneFile(trScene& scene, trSceneMaker* maker, const std::string& path,
                           const std::vector<std::pair<std::string, std::string>>& writerParams);

/// Whether there is a writer for files of the path's extension.
OV_API bool IsObjectPath(const std::string& path);

/// What a scene holds when its groups and the copies of its particles are counted out.
struct SceneSize {
  double points = 0, triangles = 0, copies = 0;
  int depth = 0;
};
OV_API SceneSize MeasureScene(const trScene& scene);

/// All that a scene and its groups hold, copies of particles included, as one group of `to`, in the space of
/// `from`. Materials with the same shader and name are one.
OV_API void FlattenScene(const trScene& from, const std::string& name, trScene& to);

}  // namespace ovhost
