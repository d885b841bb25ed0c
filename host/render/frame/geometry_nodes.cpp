// Follows links from objects to what their surfaces depend on.
#include "host/render/frame/geometry_nodes.h"

#include <vector>

#include "core/atmosphere.h"
#include "core/scene_maker.h"
#include "host/node/node_data.h"

namespace ovhost {
namespace {

class Search {
 public:
  explicit Search(juProject& project) {
    found_.whole.insert(&project);
    for (trBase* node : AllNodes(&project))
      if (dynamic_cast<trSceneMaker*>(node)) AddObject(*node);
    Follow();
  }
  GeometryNodes Take() { return std::move(found_); }

 private:
  /// An object, whose surface is displaced by the network that it leads to; what fills the air moves nothing.
  /// What it keeps to itself may stand between it and the network.
  void AddObject(trBase& object) {
    trShader* surface = nullptr;
    for (const trParamInfo& param : object.Data().params)
      if (param.name == "surface_shader") surface = dynamic_cast<trShader*>(Linked(param));
    AddDisplacement(surface);
    AddLinks(object, surface);
    for (trBase* owned : object.Data().owned) AddLinks(*owned, surface);
  }

  /// A node of an object's own, and what it leads to but for the surface's network.
  void AddLinks(const trBase& node, const trBase* surface) {
    found_.whole.insert(&node);
    for (const trParamInfo& param : node.Data().params) {
      trBase* const linked = Linked(param);
      if (linked != surface && !dynamic_cast<trAtmosShader*>(linked)) Add(linked);
    }
  }

  /// A chain of shaders that is asked to displace: those that don't leave it to their inputs.
  void AddDisplacement(trShader* shader) {
    for (; shader && walked_.insert(shader).second; shader = shader->InputShader())
      if (shader->HasDisplacement()) {
        found_.displacing.insert(shader);
        const bool asksInput = shader->IsTrue("displaces_by_colour");
        for (const trParamInfo& param : shader->Data().params)
          if (!param.isColourOnly && (asksInput || param.name != "input_node")) Add(Linked(param));
        for (trBase* owned : shader->Data().owned) Add(owned);
      }
  }

  static trBase* Linked(const trParamInfo& param) {
    return param.type >= trParamType::kNodeLink ? static_cast<trFile*>(param.member)->LinkedNode(false)
                                                : nullptr;
  }

  void Add(trBase* node) {
    if (node) waiting_.push_back(node);
  }

  /// What is asked for its value may depend on all that it leads to.
  void Follow() {
    while (!waiting_.empty()) {
      trBase* const node = waiting_.back();
      waiting_.pop_back();
      if (!followed_.insert(node).second) continue;
      found_.whole.insert(node);
      for (const trParamInfo& param : node->Data().params) Add(Linked(param));
      for (trBase* owned : node->Data().owned) Add(owned);
    }
  }

  GeometryNodes found_;
  std::unordered_set<const trBase*> walked_, followed_;
  std::vector<trBase*> waiting_;
};

}  // namespace

bool GeometryNodes::Has(const trBase& node, long param) const {
  if (whole.count(&node)) return true;
  return displacing.count(&node) &&
         (param < 0 || !node.Data().params[static_cast<size_t>(param)].isColourOnly);
}

GeometryNodes FindGeometryNodes(juProject& project) { return Search(project).Take(); }

}  // namespace ovhost
