// OVO files apart from nodes: their chunks, and geometry on its way to a scene.
#pragma once

#include "core/scene.h"
#include "objectio/ovo_layout.h"

/// Gets the top-level chunks of a file in order, those that were packed among them. Texts come without a
/// terminator; `isWhole` is false for what the file's end cut.
class OvoVisitor {
 public:
  virtual ~OvoVisitor() = default;
  virtual void Group(OvoBytes) {}
  virtual void Shader(OvoBytes, bool /*isWhole*/) {}
  virtual void Nodes(OvoBytes, bool /*isWhole*/) {}
};

/// Walks through a file's bytes. Empty, or the error why it can't be read; `isCut` tells that the file ends
/// inside of a chunk. `path` is for messages. Throws std::bad_alloc.
trString WalkOvo(OvoBytes file, const trString& path, OvoVisitor& visitor, bool& isCut);

/// What a file's groups leave in one scene.
class OvoGeometry : public OvoVisitor {
 public:
  /// Materials are copies of `pattern`; `reverse` turns each triangle's winding.
  OvoGeometry(trScene& scene, const trMaterial& pattern, bool reverse)
      : scene_(scene), pattern_(pattern), reverse_(reverse) {}
  void Group(OvoBytes bytes) override;

  /// Some number was none, and is 0 now.
  bool HadStrangeNumbers() const { return hadStrangeNumbers_; }
  /// Triangles were left out because of corners that aren't there.
  bool LacksTriangles() const { return lacksTriangles_; }

 private:
  /// The tables' sizes when the group began: its indices count from there.
  struct GroupState;

  void Materials(OvoBytes bytes, GroupState& group);
  void Triangles(OvoBytes bytes, GroupState& group);
  template <typename Add>
  void Records(OvoBytes bytes, std::size_t size, const Add& add);
  double Number(const unsigned char* at);
  trVector Swapped(const unsigned char* at);

  trScene& scene_;
  const trMaterial pattern_;
  const bool reverse_;
  bool hadStrangeNumbers_ = false, lacksTriangles_ = false;
};
