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
#include "host/node/link_index.h"

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

namespace ovhost {

/// Counts up whenever any tree or link changes. Thread-safe.
std::uint32_t GraphGeneration();
void BumpGraphGeneration();

/// Text of a parameter's value in the project file's spelling: shortest numbers that read back the same,
/// vectors and colours with blanks between, links as stored.
OV_API std::string ValueToText(const trParamValue& value);
/// The value of type `type` that `text` spells; false where it is no such value or not finite.
OV_API bool TextToValue(const std::string& text, trParamType type, trParamValue& value);
OV_API std::string DefaultText(const trParamInfo& param);
/// The type's name as users see it: "int", "double", "shader_link" and so on.
OV_API const char* TypeName(trParamType type);
/// The label of a parameter: its display name, or its name with the underscores opened and a capital.
OV_API std::string DisplayName(const trParamInfo& param);
/// Number of animatable components: 1 for numbers, 2 or 3 for vectors and colours, 0 for the rest.
OV_API int NumComponents(trParamType type);

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
/// Looks every link of the tree up now, so that render threads only read.
OV_API void ResolveAllLinks(trBase* root);
/// Where a project's attribute stands in the order of the node's declarations: an old name just before the
/// parameter that it sets, a name that isn't known behind all others.
OV_API long AttributeRank(const trBase& node, const std::string& name);
/// The parameter of a name, old ones included; -1 where there is none.
OV_API long FindParamByAnyName(const trBase& node, const std::string& name);
/// Runs `set`, which sets values of the node; what derives from them is computed once, after the last.
OV_API void SetTogether(trBase& node, const std::function<void()>& set);
/// Updates every animated parameter of the tree to `frame`.
OV_API void UpdateAnimation(trBase* root, double frame);

/// While one lives, changes made on this thread aren't told to the nodes that link to the changed one: a
/// project being loaded is told as a whole, by OnCreate.
class OV_API QuietDependents {
 public:
  QuietDependents();
  ~QuietDependents();
};

}  // namespace ovhost
