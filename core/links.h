// Parameters that name files or other nodes.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/api.h"
#include "core/string.h"

class trBase;
class trLinkIndex;

/// A file path or a link to a node, by name or path. The text is what projects store; the node it leads to is
/// looked up from the owner outwards: its children, its siblings, its parent's siblings and so on to the
/// root. Text changes are main thread only; LinkedNode is thread-safe while nobody edits the graph.
class OV_API trFile {
 public:
  trFile() = default;
  virtual ~trFile();
  trFile(const trFile&) = delete;
  trFile& operator=(const trFile&) = delete;

  /// The registered fact that a linked node must declare ("is_shader"), or empty for any node.
  virtual const char* RequiredFact() const { return ""; }
  /// Whether node names are looked up at all: a plain file isn't a link unless its text names an existing
  /// node.
  virtual bool IsLinkType() const { return false; }

  /// The linked node, or null: no text, no such node, or one of the wrong kind.
  trBase* LinkedNode(bool checkKind = true) const;
  /// The link as text; empty when it leads to no node.
  trString LinkString() const;
  /// Whether the text leads to a node.
  bool IsNodeLink() const { return LinkedNode(true) != nullptr; }
  /// The stored text, as in the project.
  const trString& FileStringR() const { return text_; }
  /// The file's path made absolute against the project's folder; empty without text.
  trString FullPath() const;

  /// Whether text or linked node differ from those last accepted.
  bool HasChanged() const;
  void AcceptChange();
  bool IsLinkedNodeEqualToAccepted() const;

  /// Internal links belong to the node's own children; hidden ones aren't shown as connections.
  void SetIsInternal(bool internal = true) { isInternal_ = internal; }
  bool IsInternal() const { return isInternal_; }
  void SetIsHidden(bool hidden = true) { isHidden_ = hidden; }
  bool IsHidden() const { return isHidden_; }

  /// Host side: the node whose parameter this is, and its text.
  void SetOwner(trBase* owner);
  trBase* Owner() const { return owner_; }
  void SetText(const trString& text);

 private:
  friend class trLinkIndex;

  trBase* owner_ = nullptr;
  trString text_, acceptedText_;
  const trBase* acceptedNode_ = nullptr;
  mutable std::atomic<trBase*> cachedNode_{nullptr};        ///< whatever the text names
  mutable std::atomic<trBase*> cachedNodeOfKind_{nullptr};  ///< the same, null where it is of the wrong kind
  mutable std::atomic<bool> isLookedUp_{false};             ///< the two hold what the graph says now
  trLinkIndex* index_ = nullptr;                            ///< where it is entered: that of its tree
  trBase* listedAt_ = nullptr;                              ///< the node that has it among its links
  std::uint64_t serial_ = 0;
  bool isForgotten_ = false;
  bool isInternal_ = false, isHidden_ = false;
};

class OV_API trNodeLink : public trFile {
 public:
  bool IsLinkType() const override { return true; }
};
class OV_API trShaderLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_shader"; }
};
class OV_API trObjectLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_object"; }
};
class OV_API trPlanetLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_planet"; }
};
class OV_API trCameraLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_camera"; }
};
class OV_API trSkyPaintLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_sky_paint"; }
};
class OV_API trHeightfieldLink : public trNodeLink {
 public:
  const char* RequiredFact() const override { return "is_heightfield"; }
};
