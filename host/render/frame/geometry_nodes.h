// Which nodes have a say in where surfaces lie.
#pragma once

#include <unordered_set>

#include "core/project.h"

namespace ovhost {

/// The nodes whose parameters the surfaces of a project may depend on: objects, what displaces them, and all
/// that these lead to. What shaders only colour or light with isn't among them. Main thread only.
std::unordered_set<const trBase*> GeometryNodes(juProject& project);

}  // namespace ovhost
