// What the host keeps of every node: declarations, tree, facts, animation.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/node.h"
#include "host/base/progress.h"
#include "host/node/animation.h"
#include "host/node/link_index.h"
#include "host/node/links.h"
#include "host/node/param_text.h"
#include "host/node/params.h"
#include "host/node/tree.h"

/// One key of one component.
struct trAnimationKey {
  double frame = 0;
  double value = 0;
};

/// The keys of one component, by rising frame.
struct trAnimationCurve {
  trAnimationInterpolationMode mode = trAnimationInterpolationMode::kSmooth;
  std::vector<trAnimationKey> keys;
};

/// One declared parameter.
struct trParamInfo {
  std::string name;
  trParamType type;
  void* member = nullptr;
  trHint* hint = nullptr;
  trParamValue defaultValue{0L};
  std::string displayName;  ///< empty: made from the name
  std::string tabLabel;
  const char* about = "";  ///< what it does, for people
  bool saved = true;
  bool hidden = false;
  bool guiEnabled = true;
  bool isColourOnly = false;             ///< surfaces lie where they lie whatever it is
  bool isSeed = false;                   ///< drawn where a project doesn't say it, and then from the path
  std::vector<trAnimationCurve> curves;  ///< empty, or one a component
};

/// A name of older projects.
struct trOldName {
  std::string name;
  long param = -1;                          ///< the parameter that it sets; none for a name without meaning
  std::optional<std::string> neutralValue;  ///< of a name without meaning: the only value that is taken
};

/// One entry of a node's sheet, in declaration order.
struct trSheetItem {
  enum Kind { kTab, kCode, kParam, kButton } kind = kCode;
  int code = 0;             ///< kCode: the trGuiHint
  int argument = 0;         ///< kCode
  long param = -1;          ///< kParam: the parameter's index
  std::string label, name;  ///< kTab: label and name; kButton: the button's name
  trGuiPushButton* button = nullptr;
};

struct trGuiActionInfo {
  std::vector<trString> triggers, targets;
  trGuiActionPreset preset;
};

/// What the project reader couldn't place: written back as it was.
struct trUnknownAttribute {
  std::string name, value;
};
struct trUnknownBlock {
  std::string className;  ///< of a node; empty for a curve
  std::string xml;        ///< verbatim
  long place = 0;         ///< children of the node that stand before it
};

/// A child or owned node by its name.
struct trNamedNode {
  trBase* node = nullptr;
  int next = 0;             ///< of "Rock 07": no "Rock" from 07 up to below this number is free
  std::uint32_t freed = 0;  ///< and that holds while the parent's count is this
};

struct trNodeData {
  // Declarations
  std::vector<trParamInfo> params;
  std::vector<trOldName> oldNames;
  std::vector<trSheetItem> sheet;
  std::vector<trGuiActionInfo> guiActions;
  std::set<std::string> facts;
  int hiddenDepth = 0;  ///< open GUI codes 14
  std::string currentTab;

  // Tree
  trBase* parent = nullptr;
  std::vector<trBase*> children;
  std::vector<trBase*> owned;  ///< made by trCreateObject: in the tree for lookups, not a child
  std::unordered_map<std::string, trNamedNode> named;  ///< children and owned
  std::uint32_t freed = 0;                             ///< number of names below this node that became free
  std::string name, className;
  trBase* bundledWith = nullptr;
  int starts = 0;                          ///< of a shader: renders and samplings that have it started
  void (*destroy)(trBase*) = nullptr;      ///< null for nodes the pool didn't make
  std::vector<trFile*> linksHere;          ///< the index's; asked for through it
  std::unique_ptr<trLinkIndex> linkIndex;  ///< of a root
  int setsTogether = 0;                    ///< open calls of SetTogether

  // Project
  std::vector<trUnknownAttribute> unknownAttributes;
  std::vector<trUnknownBlock> unknownBlocks;
};
