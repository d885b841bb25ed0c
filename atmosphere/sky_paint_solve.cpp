// The paint value at a point, from the colours of all viewpoints and what the cloud takes to be seen there.
#include "atmosphere/sky_paint_solve.h"

#include <algorithm>
#include <cmath>

#include "atmosphere/sky_paint_calibration.h"

namespace {

/// Half of the paint already takes 97 % of the way to where cloud begins to be seen: ln 0.97 / -ln 2.
const float kOnset = static_cast<float>(std::log(0.97) / -std::log(2.0));

/// 0 to 1; 0 where it isn't a number.
float Share(float p) { return p > 0 ? std::min(p, 1.0f) : 0.0f; }

}  // namespace

SkyPaintSolve::SkyPaintSolve() = default;
SkyPaintSolve::~SkyPaintSolve() = default;

void SkyPaintSolve::Bind(SkyPaintBase* paint) {
  if (paint != paint_) viewpoints_.clear();
  paint_ = paint;
}

bool SkyPaintSolve::Calibrate(SkyPaintable& cloud, unsigned long changeCounter, int threads,
                              const trView* view) {
  const std::vector<trSkyPaintViewpoint> list = paint_ ? paint_->Viewpoints() : decltype(list)();
  viewpoints_.resize(list.size());
  for (std::size_t k = 0; k < list.size(); ++k) {
    Viewpoint& own = viewpoints_[k];
    const bool hasMoved = own.position != list[k].position;
    own.isInUse = list[k].isInUse;
    own.position = list[k].position;
    if (!own.isInUse || !own.calibration) own.calibration = std::make_unique<SkyPaintCalibration>();
    if (hasMoved || own.changeCounter != changeCounter) own.calibration->Clear();
    own.needsCalibration = own.isInUse;
  }
  for (std::size_t k = 0; k < list.size(); ++k) {
    Viewpoint& own = viewpoints_[k];
    if (!own.needsCalibration) continue;
    own.changeCounter = changeCounter;
    const trString text =
        "Calibrating paint for " + cloud.PaintedName() + " @ viewpoint " + std::to_string(k + 1);
    if (!own.calibration->Measure(*paint_, static_cast<long>(k), own.position, cloud,
                                  {*this, text, threads, view}))
      return false;
    own.needsCalibration = false;
  }
  return true;
}

float SkyPaintSolve::PaintValue(const trShadingInterface& si) const {
  float removed = 0, added = 0, effort = 0;
  for (std::size_t k = 0; k < viewpoints_.size(); ++k) {
    const Viewpoint& viewpoint = viewpoints_[k];
    if (!viewpoint.isInUse) continue;
    trFCol paint;
    paint_->Sample(paint, si, static_cast<long>(k));
    const float red = Share(paint.r), green = Share(paint.g);
    removed = 1 - (1 - red) * (1 - removed);
    added = 1 - (1 - green) * (1 - added);
    if (green == 0) continue;
    const SkyPaintCalibration::Values values = viewpoint.calibration->At(si.P() - viewpoint.position);
    const float seen = std::max(0.0f, values.seen - 1);
    effort += std::pow(green, kOnset) * seen + std::max(0.0f, values.opaque - 1 - seen) * green;
  }
  return (1 - removed) * effort + 1 - (removed - added);
}

long SkyPaintSolve::Shade(trShadingInterface& si) {
  ShadeInput(si);
  si.Cutil() = trFCol(PaintValue(si));
  return 1;
}

float SkyPaintSolve::FloatValue(trShadingInterface& si) { return PaintValue(si); }
