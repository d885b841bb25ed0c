// The links of a tree, from both ends: by the names that their texts hold, and by the nodes they lead to.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "core/links.h"

/// Entered are the links that have a text. A link can only lead elsewhere when a node of a name that stands
/// in its text comes, goes or takes a fact on, or when its owner moves: so a change costs what it concerns,
/// not the whole tree. One a tree, at its root. Main thread only.
class trLinkIndex {
 public:
  trLinkIndex() = default;
  ~trLinkIndex();
  trLinkIndex(const trLinkIndex&) = delete;
  trLinkIndex& operator=(const trLinkIndex&) = delete;

  /// After the link got its text or its place in the tree.
  static void Enter(trFile& link);
  /// Before it loses them.
  static void Leave(trFile& link);
  /// After the parent of `node` changed: the links of `node` and of those below now belong to its root.
  static void Adopt(trBase* node);
  /// Links whose text holds `name`, of a node below `parent`, are looked up anew.
  static void Forget(const trBase* parent, const std::string& name);
  /// `node` ends: what leads to it leads elsewhere.
  static void ForgetTarget(trBase* node);
  /// The links that lead to `node` now, in the order in which they were entered.
  static const std::vector<trFile*>& LinksTo(const trBase* node);

 private:
  /// Lists the links that were forgotten at the nodes to which they lead now.
  void Update();
  void ForgetLink(trFile& link);
  static void List(trFile& link, trBase* target);
  static void Unlist(trFile& link);

  std::unordered_map<std::string, std::vector<trFile*>> byName_;
  std::vector<trFile*> forgotten_;
  std::uint64_t lastSerial_ = 0;
};
