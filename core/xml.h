// Nodes as XML text: clips.
#pragma once

#include <vector>

#include "core/node.h"

/// Main thread only.
class OV_API trBaseXML {
 public:
  /// The node with its children as an element of a project file, indented by `indent`.
  static trString GetElement(trBase* node, const trString& indent = "");
  /// A clip of several nodes: an `ombrivex_clip` around their elements.
  static trString GetClip(const std::vector<trBase*>& nodes);
  /// Reads a clip's nodes below `parent`; names that are taken get a number. 0 where the text is no clip;
  /// what was read up to there is taken away again.
  static long ReadBuffer(trBase* parent, const trString& text);
};
