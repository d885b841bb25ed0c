// Paint on the sky, kept in the project.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "core/sky_paint.h"

/// `sky_paint`. Up to ten viewpoints with six faces each, written into the project as the node's own data.
class SkyPaint final : public SkyPaintBase {
 public:
  SkyPaint();
  ~SkyPaint() override;

  void Sample(trFCol& result, const trShadingInterface& si, long index) const override;
  std::vector<trSkyPaintViewpoint> Viewpoints() override;

  /// "sky paint store": the trSkyPaintStore. Main thread only, as is the rest.
  void* RequestMember(const char* name) override;
  void WriteXMLCustomData(trString indent, trString& out) override;
  void EnteredXMLCustomData() override;
  void HandleXMLCustomElement(const trString& name, const char** attributes) override;
  void HandleXMLCustomElementClosed(const trString& name) override;
  void HandleXMLCustomCharacterData(const trString& text) override;
  void ExitedXMLCustomData() override;

 private:
  class XmlReader;
  /// The text of a face, and what it is the text of: making it takes half a second for a million pixels, and
  /// projects are turned to text more often than they are painted.
  struct EncodedFace {
    trString text;
    std::uint64_t hash = 0;
  };
  using EncodedFaces = std::array<std::array<EncodedFace, kSkyPaintFaces>, trSkyPaintStore::kViewpoints>;

  /// Empty for an empty face.
  const trString& TextOf(std::size_t viewpoint, std::size_t face);

  trSkyPaintStore store_;
  EncodedFaces encoded_;
  std::unique_ptr<XmlReader> reader_;  ///< while the project's data is read
};

/// `sky_paint_merge`. The paints of its inputs as one: viewpoints of one place are one viewpoint, whose
/// colours cover as layers of ink do, 1 - (1 - p) (1 - q); all others stand one after another.
class SkyPaintMerge final : public SkyPaintBase {
 public:
  SkyPaintMerge();
  void Sample(trFCol& result, const trShadingInterface& si, long index) const override;
  std::vector<trSkyPaintViewpoint> Viewpoints() override;

 private:
  static constexpr int kInputs = 4;
  /// A viewpoint of an input, and the merged one that it belongs to.
  struct Source {
    const SkyPaintBase* paint;
    long index, merged;
  };
  trSkyPaintLink input_[kInputs];
  std::vector<Source> sources_;
  bool isListing_ = false;  ///< a merge that leads to itself has nothing to add
};
