// What tests of shaders share: a project to link nodes in, a shading state without a renderer, and shaders
// that note what they were given.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "core/project.h"
#include "core/scene.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

/// A shading state at `point` with a renderer that has nothing.
struct Sample {
  explicit Sample(const trVector& point, const trVector& normal = {0, 1, 0}) : state(services, si) {
    si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo);
    si.SetSample(point, normal);
  }
  trNoRenderServices services;
  trShadingInterface si;
  trRenderState state;
};

/// Displaces by a function and shades by a colour, and counts.
class ProbeShader : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    ++displaced;
    DisplaceInput(si);
    if (onDisplace) onDisplace(si);
    return 1;
  }
  long Shade(trShadingInterface& si) override {
    ++shaded;
    seenPt = si.Pt();
    si.Cutil() = colour;
    return 1;
  }
  std::function<void(trShadingInterface&)> onDisplace;
  trFCol colour{0.25f, 0.5f, 0.75f};
  trVector seenPt;
  int displaced = 0, shaded = 0;
};

/// A project of nodes. Classes of the module are made by name.
struct Graph {
  Graph() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
  }
  template <typename T>
  T& Add(const trString& name) {
    T* node = new T;
    ovhost::AttachChild(&project, node, name);
    return *node;
  }
  trShader& Shader(const trString& className) {
    trBase* node = project.CreateChild(className);
    if (!node) throw std::runtime_error(className + " can't be created");
    return dynamic_cast<trShader&>(*node);
  }
  /// Makes `shader` the node's link `param`.
  static void Link(trBase& node, const char* param, const trBase& shader) {
    ASSERT_TRUE(node.SetParam(param, shader.NameAndPath(), trWhoSystem)) << param;
  }
  juProject project;
};

inline double DoubleParam(const trBase& node, const char* name) {
  double value = std::nan("");
  EXPECT_TRUE(node.GetParam(name, value)) << name;
  return value;
}
inline trVector VectorParam(const trBase& node, const char* name) {
  trVector value(std::nan(""), 0, 0);
  EXPECT_TRUE(node.GetParam(name, value)) << name;
  return value;
}

inline void ExpectNear(const trVector& a, const trVector& b, double tolerance, const char* what = "") {
  EXPECT_NEAR(a.x, b.x, tolerance) << what;
  EXPECT_NEAR(a.y, b.y, tolerance) << what;
  EXPECT_NEAR(a.z, b.z, tolerance) << what;
}
