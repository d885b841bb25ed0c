// Broken links, shaders that feed themselves, and networks too deep.
#include "host/node/graph_check.h"

#include <vector>

#include "core/messages.h"
#include "core/shader.h"
#include "host/node/node_data.h"
#include "host/node/ring_search.h"

namespace ovhost {
namespace {

bool IsLink(trParamType type) { return type >= trParamType::kNodeLink; }

const trFile& LinkOf(const trBase& node, long index) {
  return *static_cast<const trFile*>(node.ParamPtr(index));
}

std::vector<const trBase*> CalledShaders(const trBase* node) {
  std::vector<const trBase*> called;
  for (long i = 0; i < node->NumParams(); ++i)
    if (node->ParamType(i) == trParamType::kShaderLink)
      if (const trBase* other = LinkOf(*node, i).LinkedNode(true)) called.push_back(other);
  return called;
}

const RingKind kShaders = {"shader",
                           [](const trBase* node) { return dynamic_cast<const trShader*>(node) != nullptr; },
                           CalledShaders};

}  // namespace

long ReportBrokenLinks(trBase* root, void (*report)(const trString&)) {
  long broken = 0;
  for (const trBase* node : AllNodes(root))
    for (long i = 0; i < node->NumParams(); ++i) {
      if (!IsLink(node->ParamType(i))) continue;
      const trFile& link = LinkOf(*node, i);
      if (link.FileStringR().empty() || link.LinkedNode(true)) continue;
      ++broken;
      const trString name = node->ParamName(i);
      const trScopedErrorsWarningsContext context(node, &name);
      if (const trBase* other = link.LinkedNode(false))
        report("the link to " + other->NameAndPath() + " is of the wrong kind: " + link.RequiredFact() +
               " isn't true of it");
      else
        report("the link \"" + link.FileStringR() + "\" leads to no node");
    }
  return broken;
}

long ReportShaderRings(trBase* root, void (*reportDepth)(const trString&)) {
  const RingSearch search(root, kShaders, false);
  if (search.NumFound() == 0 && search.Depth() > trShadingInterface::kMaxShaderDepth) {
    const trScopedErrorsWarningsContext context(search.Deepest());
    reportDepth("the shader network is " + std::to_string(search.Depth()) + " shaders deep; " +
                std::to_string(trShadingInterface::kMaxShaderDepth) + " are the most");
  }
  return search.NumFound();
}

bool HasShaderRing(trBase* root) { return RingSearch(root, kShaders, true).NumFound() > 0; }

}  // namespace ovhost
