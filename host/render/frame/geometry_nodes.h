// Which nodes have a say in where surfaces lie.
#pragma once

#include <unordered_set>

#include "core/project.h"

namespace ovhost {

/// The nodes whose parameters the surfaces of a project may depend on: objects, what displaces them, and all
/// that these lead to. What shaders only colour or light with isn't among them. Main thread only.
struct GeometryNodes {
  std::unordered_set<const trBase*> whole;       ///< with all their parameters
  std::unordered_set<const trBase*> displacing;  ///< asked to displace alone: with those that do

  /// Whether surfaces may depend on a parameter of the node, or with -1 on any.
  bool Has(const trBase& node, long param) const;
};

GeometryNodes FindGeometryNodes(juProject& project);

}  // namespace ovhost
