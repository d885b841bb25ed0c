// Projection, colour and displacement of image_map_shader.
#include <algorithm>

#include "core/ocio.h"
#include "imagemap/image_map_shader.h"

namespace {

constexpr double kPi = 3.14159265358979, kTwoPi = 6.28318530717958;
constexpr double kOneOverTwoPi = 0.1591549430918955, kOneOverPi = 0.318309886183791;
constexpr double kSmallestSize = 1e-6;

/// Angle about the y axis, 0 to 1 for a full turn.
double Turn(const trVector& q, double r) {
  if (!(r > 0)) return 0;
  const double s = std::asin(std::clamp(q.x / r, -1.0, 1.0));
  double a = q.z >= 0 ? -s : kPi + s;
  if (a < 0) a += kTwoPi;
  return a * kOneOverTwoPi;
}

/// A power that keeps the sign; not a number counts as 0.
float SignedPower(float x, float gamma) {
  if (x > 0) return std::pow(x, gamma);
  return x < 0 ? -std::pow(-x, gamma) : 0.0f;
}

trFCol WithGamma(const trFCol& c, double gamma) {
  if (gamma == 1) return c;
  const float g = static_cast<float>(gamma);
  return {SignedPower(c.r, g), SignedPower(c.g, g), SignedPower(c.b, g)};
}

trFCol AsColour(const trVector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

/// The pixel that a coordinate lies in; a flipped edge lies just past the last one. No number counts as 0.
const unsigned char* NearestPixel(const trImage& image, double x, double y) {
  const auto index = [](double at, int size) {
    return static_cast<int>(std::fmin(std::fmax(std::floor(at), 0.0), size - 1.0));
  };
  return image.PixelAt(index(x, image.width), index(y, image.height));
}

}  // namespace

void ImageMapShader::Project(const trVector& q, double& u, double& v) const {
  const bool isCentred = positionCentre_ != 0;
  if (projection_ == kCylindrical || projection_ == kSpherical) {
    const double r = std::sqrt(q.x * q.x + q.z * q.z), a = Turn(q, r);
    u = isCentred ? (a - 0.5) / size_.x + 0.5 : a / size_.x;
    if (projection_ == kCylindrical) {
      v = q.y / size_.y + (isCentred ? 0.5 : 0.0);
    } else {
      const double length = std::sqrt(r * r + q.y * q.y);
      const double b = r > 0 ? std::asin(std::clamp(q.y / length, -1.0, 1.0)) * kOneOverPi : 0.0;
      v = isCentred ? b / size_.y + 0.5 : (b + 0.5) / size_.y;
    }
    return;
  }
  const bool isKnown = projection_ >= kPlanY && projection_ <= kObjectUV;
  u = (projection_ == kSideX ? q.y : q.x) / size_.x;
  v = (projection_ == kSideZ || projection_ == kCamera || projection_ == kObjectUV ? q.y : q.z) / size_.y;
  if (isKnown && isCentred) {
    u += 0.5;
    v += 0.5;
  }
}

double ImageMapShader::BorderMask(double u, double v) const {
  if (!(borderBlending_ > 0)) return 1;
  const double k = 1 / borderBlending_;
  double mask = 1;
  if (!repeatX_) mask *= SmoothStep(k * u) * SmoothStep(k * (1 - u));
  if (!repeatY_) mask *= SmoothStep(k * v) * SmoothStep(k * (1 - v));
  return mask;
}

long ImageMapShader::MapToImage(trShadingInterface& si, double& x, double& y, trFCol& mask) {
  x = y = 0;
  mask = trFCol();
  if (!image_ || !(std::fabs(size_.x) >= kSmallestSize) || !(std::fabs(size_.y) >= kSmallestSize)) return 0;
  if (mask_.IsOn() && !mask_.Link()) return 0;
  if (image_->width == 0 || image_->height == 0) return 1;

  trVector q = si.Pt();
  if (projection_ == kCamera) {
    const trView* const view = hasCameraView_ ? &cameraView_ : si.PMainView();
    if (!view) return 1;
    q = view->WPos2SPos(si.P());
  }
  if (positionCentre_ || positionLowerLeft_) q -= position_;
  double u, v;
  Project(q, u, v);
  if (!repeatX_ && !(u >= 0 && u < 1)) return 1;
  if (!repeatY_ && !(v >= 0 && v < 1)) return 1;

  const double border = BorderMask(u, v);
  if (border == 0) return 1;
  float byShader;
  mask_.EvaluateAt(si, {u, 0, v}, byShader);
  mask = trFCol(static_cast<float>(border) * byShader);

  if (flipX_) u = 1 - u;
  if (flipY_) v = 1 - v;
  if (repeatX_) u -= std::floor(u);
  if (repeatY_) v -= std::floor(v);
  x = image_->width * u;
  y = image_->height * v;
  return 1;
}

long ImageMapShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled() || !applyDisplacement_ || (amplitude_ == 0 && displacementOffset_ == 0)) return 1;
  double x, y;
  trFCol mask;
  if (!MapToImage(si, x, y, mask)) return 1;
  const double m = Luminance(mask);
  if (m == 0) return 1;

  double height = 0;
  if (amplitude_ != 0) {
    const bool asColour = hasDispParamBug_ != 0;
    trFCol c = (asColour ? smooth_ : smoothDisp_) ? image_->FColLookupSmooth(x, y, repeatX_, repeatY_)
                                                  : image_->FColFromPixel(NearestPixel(*image_, x, y));
    if (asColour ? toLinear_ : dispToLinear_) c = WithGamma(c, asColour ? gamma_ : dispGamma_);
    height = Luminance(Tamed(c)) * amplitude_;
  }
  si.P() += si.N() * ((height + displacementOffset_) * m);
  return 1;
}

trF4Col ImageMapShader::SampleColour(double x, double y) const {
  return smooth_ ? image_->F4ColLookupSmooth(x, y, repeatX_, repeatY_)
                 : image_->F4ColFromPixel(NearestPixel(*image_, x, y));
}

trFCol ImageMapShader::Converted(const trFCol& texel, float alpha) const {
  trFCol c = texel;
  if (unpremultiply_ && alpha != 0 && alpha != 1)
    c *= 1.0f / std::max({alpha, std::fabs(c.r), std::fabs(c.g), std::fabs(c.b)});
  if (!toLinear_) return c;
  if (trOcio::gProjectSettings.IsActive())
    trOcio::gProjectSettings.Apply(c);
  else
    c = trManRgb(WithGamma(c, gamma_)).ToRender();
  return c;
}

long ImageMapShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled() || !si.doCd() || !applyColour_) return 1;
  double x, y;
  trFCol m;
  if (!MapToImage(si, x, y, m) || m.IsBlack()) return 1;

  // The texel, as colour and alpha.
  const trF4Col texel = SampleColour(x, y);
  float alpha = texel.a;
  trFCol colour;
  if (alphaAsColour_)
    colour = trFCol(invertAlpha_ ? 1 - alpha : alpha);
  else
    colour = Converted({texel.r, texel.g, texel.b}, alpha);
  if (invertAlpha_) alpha = 1 - alpha;

  // What it leaves open: by its alpha, or where it has the key's colour.
  const trFCol one(1.0f);
  const bool wantsOpacity = si.doOo() || si.doAo();
  if (useAlphaDirectly_) m *= alpha;
  if (alphaAsOpacity_ && wantsOpacity) si.Oo_surf() *= one - m * (1 - alpha);
  if (createTransparency_ && wantsOpacity) {
    const trFCol off = colour - key_.ToRender();
    const float distance = std::max({std::fabs(off.r), std::fabs(off.g), std::fabs(off.b)});
    if (keyTolerance_ >= distance) {
      if (useAlphaDirectly_) {
        m = m * (one - m);
        if (invertAlpha_) m = one - m;
      } else {
        si.Oo_surf() *= invertAlpha_ ? m : one - m;
      }
    } else if (invertAlpha_) {
      si.Oo_surf() *= one - m;
    }
  }

  if (multiply_) colour *= AsColour(multiplier_);
  if (offset_) colour += AsColour(offsetValue_);
  colour = Tamed(colour);
  si.Cutil() += m * (colour - si.Cutil());
  if (si.doCo() && !si.Oo_surf().IsBlack()) {
    si.Bsdf().Scale(one - m);
    si.Bsdf().AddLambert(colour * m);
  }
  return 1;
}
