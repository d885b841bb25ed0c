// How long things look on screen.
#pragma once

#include <algorithm>
#include <array>

#include "core/render_state.h"

namespace ovhost {

/// Measures lengths in pixels of a view. What lies outside of it only throws shadows and light into it, and
/// counts for less. Thread-safe.
class ViewMetric {
 public:
  explicit ViewMetric(const trView& view)
      : view_(view),
        sides_{Normalised(view.forward * view.tanHalfHorizontal + view.right),
               Normalised(view.forward * view.tanHalfHorizontal - view.right),
               Normalised(view.forward * view.tanHalfVertical + view.up),
               Normalised(view.forward * view.tanHalfVertical - view.up)} {}

  /// Pixels that an edge between two points relative to the eye would cover if it stood across the view,
  /// where it is nearest to the eye. Depends on the two points alone, in either order.
  double Pixels(const trVector& a, const trVector& b) const {
    const trVector edge = b - a;
    const double length = edge.Length();
    const double along = length > 0 ? std::clamp(-Dot(a, edge) / (length * length), 0.0, 1.0) : 0.0;
    const double distance = std::fmax((a + edge * along).Length(), view_.nearClip);
    const double pixelAngle = view_.PixelAngularSize();
    const double pixels = length / (distance * pixelAngle);
    return IsInView((a + b) * 0.5, length) ? pixels : pixels * ShareOutOfView();
  }

  /// Whether anything of a ball round a point relative to the eye may be seen.
  bool IsInView(const trVector& relative, double radius) const {
    return std::all_of(sides_.begin(), sides_.end(),
                       [&](const trVector& side) { return Dot(side, relative) >= -radius; });
  }

  /// What lengths count for outside of the view, beside those within.
  double ShareOutOfView() const {
    const double pixelAngle = view_.PixelAngularSize();
    return pixelAngle / std::fmax(kCoarserOutOfView * pixelAngle, kFinestOutOfView);
  }

 private:
  /// As many times coarser than what is seen, and never finer than the second figure, radians a pixel,
  /// however long the lens.
  static constexpr double kCoarserOutOfView = 12, kFinestOutOfView = 0.003;

  const trView& view_;
  std::array<trVector, 4> sides_;  ///< inward normals, unit
};

}  // namespace ovhost
