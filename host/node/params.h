// Parameters set by name, one by one or together.
#pragma once

#include <functional>
#include <string>

#include "core/node.h"

namespace ovhost {

/// Where a project's attribute stands in the order of the node's declarations: an old name just before the
/// parameter that it sets, a name that isn't known behind all others.
OV_API long AttributeRank(const trBase& node, const std::string& name);
/// The parameter of a name, old ones included; -1 where there is none.
OV_API long FindParamByAnyName(const trBase& node, const std::string& name);
/// Runs `set`, which sets values of the node; what derives from them is computed once, after the last.
OV_API void SetTogether(trBase& node, const std::function<void()>& set);
/// While one lives, changes made on this thread aren't told to the nodes that link to the changed one: a
/// project being loaded is told as a whole, by OnCreate.
class OV_API QuietDependents {
 public:
  QuietDependents();
  ~QuietDependents();
};

}  // namespace ovhost
