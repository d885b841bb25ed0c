// Nodes in their tree.
#pragma once

#include <string>
#include <vector>

#include "core/node.h"

namespace ovhost {

/// Creates a node of a registered class (redirects followed) below `parent`, without OnCreate: the project
/// reader sets values first. `asChild` lists it among the children; `name` empty makes one. Null for an
/// unknown class.
OV_API trBase* CreateNode(const std::string& className, trBase* parent, const std::string& name,
                          bool asChild = true);
/// Adds a node made elsewhere (a project root's child) to the tree.
OV_API void AttachChild(trBase* parent, trBase* child, const std::string& name);
/// Takes a node out of its parent's lists; it keeps its name and parent.
void Detach(trBase* node);
/// Removes from the tree and destroys, children first.
OV_API void DestroyNode(trBase* node);
/// Every node of the tree below and including `root`, parents first; `owned` nodes after the children of
/// their owner.
OV_API std::vector<trBase*> AllNodes(trBase* root);

}  // namespace ovhost
