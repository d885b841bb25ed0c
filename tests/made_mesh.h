// What tests of objects share: a node of the module with settings of its own, and the mesh it makes.
#pragma once

#include "core/scene_maker.h"
#include "tests/shading_fixture.h"

struct MadeMesh {
  long result = 0;
  std::shared_ptr<trScene> mesh;
};

/// One variation as a populator asks for it.
inline MadeMesh MakeVariation(trBase& node, long variation) {
  auto& maker = dynamic_cast<trSceneMaker&>(node);
  trScene scene;
  scene.Init();
  maker.current_variation = variation;
  MadeMesh made;
  made.result = maker.Make(scene, trSceneMaker::kInstance);
  maker.current_variation = 0;
  scene.PrepForRender();
  if (scene.NumGroups()) made.mesh = scene.GetPGroup(1)->Subscene();
  return made;
}

struct Generator {
  using Settings = std::initializer_list<std::pair<const char*, trParamValue>>;
  explicit Generator(const char* className, Settings values = {})
      : node(*graph.project.CreateChild(className)) {
    for (const auto& [name, value] : values) EXPECT_TRUE(node.SetParam(name, value, trWhoSystem)) << name;
  }
  MadeMesh Make(long variation = 0) { return MakeVariation(node, variation); }
  Graph graph;
  trBase& node;
};
