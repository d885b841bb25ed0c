// What a cloud asks about the paint on its sky: the factor by which paint makes the cloud denser or thinner
// at a point.
#pragma once

#include <memory>
#include <vector>

#include "core/shader.h"
#include "core/sky_paint.h"

class SkyPaintCalibration;

/// A cloud that paint is calibrated against.
class SkyPaintable {
 public:
  virtual ~SkyPaintable() = default;
  /// For messages.
  virtual trString PaintedName() const = 0;
  /// Opacity, 0 to 1, of the cloud alone along the ray that leaves `eye` (world, metres) in the unit
  /// `direction`, if the paint's value were `paintValue` at every point of it. It rises with the value.
  /// Random draws are the state's. Called by many threads, each with a state of its own.
  virtual float OpacityAtPaintValue(trRenderState& state, const trVector& eye, const trVector& direction,
                                    float paintValue) = 0;
};

/// `sky_paint_solve`. A cloud keeps one: it binds it to its paint and calibrates it ahead of a render; the
/// march takes FloatValueTS at a point as the point's paint value. 1 is no paint, 0 no cloud, and above 1
/// cloud is added: how much it takes for some to be seen, and for the cloud to hide what is behind it, is
/// what calibration measures.
class SkyPaintSolve final : public trColourShader {
 public:
  SkyPaintSolve();
  ~SkyPaintSolve() override;

  /// Bind it anew ahead of every render: the paint may be gone. Null unbinds. Main thread only.
  void Bind(SkyPaintBase* paint);
  SkyPaintBase* Paint() const { return paint_; }

  /// Brings the list of viewpoints up to date, and measures what isn't measured for `changeCounter`: call it
  /// ahead of every render while the shaders that the cloud asks are started. `view` is the picture's, for
  /// the size of a pixel, or null. False where the user stopped it. Main thread only.
  bool Calibrate(SkyPaintable& cloud, unsigned long changeCounter, int threads, const trView* view);

  /// Leaves the paint value in Cutil. Thread-safe, as is the next.
  long Shade(trShadingInterface& si) override;
  /// The paint value.
  float FloatValue(trShadingInterface& si) override;
  unsigned char HasShade() override { return 1; }

 private:
  struct Viewpoint {
    bool isInUse = false, needsCalibration = true;
    unsigned long changeCounter = 0;  ///< of the cloud as it was measured
    trVector position;
    std::unique_ptr<SkyPaintCalibration> calibration;
  };
  float PaintValue(const trShadingInterface& si) const;

  SkyPaintBase* paint_ = nullptr;
  std::vector<Viewpoint> viewpoints_;
};
