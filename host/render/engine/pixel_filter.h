// Where the samples of a pixel lie: filters by importance, so that every sample counts the same.
#pragma once

#include <memory>
#include <vector>

#include "core/render_state.h"

namespace ovhost {

/// A separable, symmetric filter that samples are drawn from. A value type; thread-safe.
class OV_API PixelFilter {
 public:
  enum class Shape : int { kBox = 0, kTent = 1, kGaussian = 2, kBlackmanHarris = 3 };

  /// A tent over two pixels.
  PixelFilter() = default;
  /// `width` is the whole width, pixels; held between 0 and 16.
  PixelFilter(Shape shape, double width);

  bool operator==(const PixelFilter& other) const {
    return shape_ == other.shape_ && halfWidth_ == other.halfWidth_;
  }
  /// Distance from the pixel's centre for a draw of 0 to 1, pixels.
  double Offset(double draw) const;
  /// The ray of a sample of pixel (x, y), unit.
  trVector Direction(const trView& view, int x, int y, const tr2Vector& draw) const {
    const double sx = (x + 0.5 + Offset(draw.x)) / view.width * 2 - 1,
                 sy = 1 - (y + 0.5 + Offset(draw.y)) / view.height * 2;
    return Normalised(view.forward + view.right * (sx * view.tanHalfHorizontal) +
                      view.up * (sy * view.tanHalfVertical));
  }

 private:
  Shape shape_ = Shape::kTent;
  double halfWidth_ = 1;
  std::shared_ptr<const std::vector<float>> inverse_;  ///< of the running integral, for shapes that need it
};

}  // namespace ovhost
