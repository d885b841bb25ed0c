// Where a point of a planet lies on a georeferenced raster.
#include "imagemap/geog_image_map_shader.h"

long GeogImageMapShader::StartRender(trRenderingInterface& rendering) {
  // The picture is what the sheet says, whether or not somebody has pressed "Update".
  if (image_ && loadMethod_ == kRasterLibrary && replaceNoData_ && !(NoDataSettings() == loadedNoData_))
    Reload();
  planetState_.store(PlanetState::kUnread);
  return ImageMapShader::StartRender(rendering);
}

const trPlanetGeography* GeogImageMapShader::Planet() {
  PlanetState state = planetState_.load(std::memory_order_acquire);
  if (state == PlanetState::kUnread) {
    const std::lock_guard lock(lazy_);
    state = planetState_.load(std::memory_order_relaxed);
    if (state == PlanetState::kUnread) {
      planet_ = trPlanetGeography();
      state = planet_.Read(this) ? PlanetState::kFound : PlanetState::kNone;
      planetState_.store(state, std::memory_order_release);
    }
  }
  return state == PlanetState::kFound ? &planet_ : nullptr;
}

/// The thread's own way from degrees to the file; null where there is none.
trGeoTransformation* GeogImageMapShader::WayOf(unsigned thread) {
  if (!place_.fromDegrees || thread >= ways_.size()) return nullptr;
  std::unique_ptr<trGeoTransformation>& way = ways_[thread];
  if (!way) {
    const std::lock_guard lock(lazy_);
    way = place_.fromDegrees->Clone();
  }
  return way.get();
}

bool GeogImageMapShader::FindOnPlanet(trShadingInterface& si, double& u, double& v) {
  const trPlanetGeography* const planet = Planet();
  if (!planet) return false;
  const bool reprojects = loadMethod_ == kRasterLibrary && reproject_;
  const GeogTable& table = place_.table;
  const double middle = !reprojects        ? 0.5 * (corners_[3].y + corners_[2].y)
                        : !table.IsEmpty() ? table.MiddleLongitude()
                                           : 0.5 * (fileCorners_[0].y + fileCorners_[1].y);
  const tr2Vector at = planet->LatLong(si.Pt(), middle);
  if (reprojects && !table.IsEmpty()) {
    tr2Vector pixel;
    if (!table.Find(at.x, at.y, pixel)) return false;
    u = pixel.x / image_->width;
    v = pixel.y / image_->height;
  } else if (reprojects) {
    double x = at.y, y = at.x;
    if (place_.fromDegrees) {
      trGeoTransformation* const way = WayOf(si.Thread());
      if (!way || !way->Transform(x, y)) x = y = 0;
    }
    if (place_.hasInverse) {
      const double* const g = place_.inverse;
      const double column = g[0] + x * g[1] + y * g[2], row = g[3] + x * g[4] + y * g[5];
      x = column, y = row;
    }
    u = GuardedDivide(x, static_cast<double>(image_->width));
    v = GuardedDivide(y, static_cast<double>(image_->height));
  } else {
    u = GuardedDivide(at.y - corners_[3].y, corners_[2].y - corners_[3].y);
    v = GuardedDivide(at.x - corners_[3].x, corners_[0].x - corners_[3].x);
  }
  return true;
}

long GeogImageMapShader::MapToImage(trShadingInterface& si, double& x, double& y, trFCol& mask) {
  x = y = 0;
  mask = trFCol();
  if (!image_ || (mask_.IsOn() && !mask_.Link())) return 0;
  if (image_->width == 0 || image_->height == 0) return 1;

  double u, v;
  if (georeference_) {
    if (!FindOnPlanet(si, u, v)) return 1;
  } else {
    u = GuardedDivide(si.Pt().x - position_.x, size_.x) + (positionCentre_ ? 0.5 : 0.0);
    v = GuardedDivide(si.Pt().z - position_.z, size_.y) + (positionCentre_ ? 0.5 : 0.0);
  }
  if (!(u >= 0 && u < 1 && v >= 0 && v < 1)) return 1;

  const double border = BorderMask(u, v);
  if (border == 0) return 1;
  float byShader;
  mask_.EvaluateAt(si, {u, 0, v}, byShader);
  mask = trFCol(static_cast<float>(border) * byShader);

  // Files have their northern row first.
  if (loadMethod_ == kRasterLibrary && place_.rowsRunSouth && !(georeference_ && reproject_)) v = 1 - v;
  if (flipX_) u = 1 - u;
  if (flipY_) v = 1 - v;
  x = image_->width * u;
  y = image_->height * v;
  return 1;
}
