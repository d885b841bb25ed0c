// colour_adjust_shader, contour_shader and distance_shader.
#include "surface/colour_utilities.h"

#include <algorithm>

namespace {

/// The middle of the three channels.
float Median(const trManRgb& c) { return std::max(std::min(c.r, c.g), std::min(std::max(c.r, c.g), c.b)); }

float Reciprocal(float x) { return std::fabs(x) > 1e-6f ? 1.0f / x : x < 0 ? -1e6f : 1e6f; }

/// x to the power g up to 1, and a straight line from there on; nothing below 0.
float WithGamma(float x, float g) {
  if (!(x > 0)) return 0;
  return x >= 1 ? (x - 1) * g + 1 : std::pow(x, g);
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------

void ColourAdjustShader::Level::SliderFollows(trBase* node) {
  if (adjust != Median(colour)) node->SetParam(adjustName, Median(colour), node);
}

void ColourAdjustShader::Level::ColourFollows(trBase* node) {
  const float moved = adjust - Median(colour);
  if (moved != 0)
    node->SetParam(colourName, trManRgb(colour.r + moved, colour.g + moved, colour.b + moved), node);
}

void ColourAdjustShader::Declare(Level& level, float value, const trRange& range, const char* about) {
  SetRange(level.hint, this, range);
  Param(level.colour, level.colourName, trRgbLinear709(value)).About(about);
  Gui(trGuiRowClose);
  Param(level.adjust, level.adjustName, value, &level.hint)
      .About("Moves the three channels together; stands at the middle one of them.");
}

ColourAdjustShader::ColourAdjustShader() {
  GuiTab("Input levels", "input_levels_tab");
  Declare(black_, 0, {.min = -0.5, .max = 1.5},
          "Value of the input that becomes 0, channel by channel. Raise it to darken.");
  Declare(white_, 1, {.min = -0.5, .max = 1.5},
          "Value of the input that becomes 1, channel by channel. Lower it to brighten.");
  GuiTab("Gamma", "gamma_tab");
  Declare(gamma_, 1, {.min = 0.0, .max = 4.0, .focusPower = 2.0},
          "Brightens the middle tones above 1 and darkens them below, channel by channel.");
  Param(clampBelowBlack_, "clamp_below_black", 1).About("Raises channels below 0 to 0 at the end.");
  Param(clampAboveWhite_, "clamp_above_white", 1).About("Lowers channels above 1 to 1 at the end.");
  UpdateDerived();
}

void ColourAdjustShader::UpdateDerived() {
  trSurfaceShader::UpdateDerived();
  inverseGamma_ = {Reciprocal(gamma_.colour.r), Reciprocal(gamma_.colour.g), Reciprocal(gamma_.colour.b)};
}

void ColourAdjustShader::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  if (IsParam(index, &black_.colour) || IsParam(index, &white_.colour)) {
    black_.SliderFollows(this);
    white_.SliderFollows(this);
  } else if (IsParam(index, &black_.adjust) || IsParam(index, &white_.adjust)) {
    black_.ColourFollows(this);
    white_.ColourFollows(this);
  } else if (IsParam(index, &gamma_.colour)) {
    gamma_.SliderFollows(this);
  } else if (IsParam(index, &gamma_.adjust)) {
    gamma_.ColourFollows(this);
  }
}

long ColourAdjustShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trFCol& c = si.Cutil();
  bool isChanged = false;

  const trFCol black = black_.colour.ToRender();
  if (!black.IsBlack()) {
    c = c - black;
    isChanged = true;
  }
  const trFCol range = white_.colour.ToRender() - black;
  if (range != trFCol(1.0f)) {
    for (int i = 0; i < 3; ++i) c[i] = GuardedDivide(c[i], range[i]);
    isChanged = true;
  }
  if (gamma_.colour.ToRender() != trFCol(1.0f)) {
    for (int i = 0; i < 3; ++i) c[i] = WithGamma(c[i], inverseGamma_[i]);
    isChanged = true;
  }
  if (clampBelowBlack_) {
    for (int i = 0; i < 3; ++i) c[i] = std::max(c[i], 0.0f);
    isChanged = true;
  }
  if (clampAboveWhite_) {
    for (int i = 0; i < 3; ++i) c[i] = std::min(c[i], 1.0f);
  } else if (!isChanged) {
    return 1;
  }
  if (si.doCo()) si.SetShadingToLambert(c);
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------

ContourShader::ContourShader() {
  mainHeading_.Declare(this, "main_separator", "Main Contour");
  Param(main_.interval, "main_interval", 100.0)
      .Display("Spacing")
      .About("Height between two main lines, metres.");
  Param(main_.thickness, "main_thickness", 2.0)
      .Display("Thickness")
      .About("Height that a line takes, metres: wide on gentle ground, thin on walls.");
  Param(main_.colour, "main_colour", trManRgb(1, 0, 0)).Display("Colour").About("Colour of the main lines.");
  intermediateHeading_.Declare(this, "intermediate_separator", "Intermediate Contours");
  Param(numberOfIntermediates_, "number_of_intermediates", 5.0)
      .About("Intervals of lesser lines within one of the main ones. 0 draws none. Follows their spacing.");
  Param(intermediate_.interval, "intermediate_interval", 20.0)
      .Display("Spacing")
      .About("Height between two lesser lines, metres. Follows their number, and sets it.");
  Param(intermediate_.thickness, "intermediate_thickness", 2.0)
      .Display("Thickness")
      .About("Height that a lesser line takes, metres.");
  Param(intermediate_.colour, "intermediate_colour", trManRgb(1, 1, 0))
      .Display("Colour")
      .About("Colour of the lesser lines.");
  Param(smoothEdges_, "smooth_edges", 1).About("Fades lines out at their edges.");
  Gui(trGuiIndentOpen);
  Param(smoothingDistance_, "smoothing_distance", 0.25).About("Height over which an edge fades, metres.");
  Gui(trGuiIndentClose);
  Param(baseAltitude_, "base_altitude", 0.0)
      .About("Added to altitudes along y, metres, to shift the lines. Counts with \"use Y\" alone.");
  Param(useY_, "use_Y_for_altitude", 0)
      .About("Measures along the world's y axis in place of height over the planet or object.");
}

void ContourShader::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  if (isCoupling_) return;
  const auto couple = [&](const char* name, double divisor) {
    isCoupling_ = true;
    const bool bothPositive = divisor > 0 && main_.interval > 0;
    SetParam(name, bothPositive ? GuardedDivide(main_.interval, divisor) : 0.0, trWhoSystem);
    isCoupling_ = false;
  };
  if (IsParam(index, &numberOfIntermediates_)) couple("intermediate_interval", numberOfIntermediates_);
  if (IsParam(index, &intermediate_.interval)) couple("number_of_intermediates", intermediate_.interval);
}

bool ContourShader::OnLine(const Lines& lines, double x, double& faded) const {
  const double e = smoothingDistance_, m = std::fmod(x, lines.interval), half = lines.thickness * 0.5;
  const auto smooth = [](double t) {
    return t < 1e-12 ? 0.0 : t >= 0.999999999999 ? 1.0 : (3 - 2 * t) * t * t;
  };
  const bool isRising = m < half;
  if (!isRising && !(m >= lines.interval - half)) return false;
  if (smoothEdges_ && e > 0) {
    const double start = isRising ? half - e : lines.interval - half;
    const double t = GuardedDivide(m - start, e);
    faded = m <= start ? 0.0 : smooth(isRising ? t : 1 - t);
  }
  return true;
}

ContourShader::Band ContourShader::Find(double x) const {
  Band band;
  band.hit = band.isMain = OnLine(main_, x, band.faded);
  if (!band.isMain && numberOfIntermediates_ > 0) band.hit = OnLine(intermediate_, x, band.faded);
  return band;
}

long ContourShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  if (main_.interval <= 0 || main_.thickness <= 0) return 0;
  double altitude;
  if (useY_) {
    altitude = si.P().y + baseAltitude_;
  } else {
    const trVector risen = si.P() - si.Pg();
    altitude = risen.Length() * Dot(Normalised(risen), Normalised(si.Ng()));
  }
  const Band band = Find(std::fabs(altitude));
  if (!band.hit) return 1;

  const trFCol colour = (band.isMain ? main_ : intermediate_).colour.ToRender();
  const float weight = static_cast<float>(1 - band.faded);
  si.BlendShadingToLambertAndEmissive(colour, trFCol(), trFCol(weight), trFCol(weight));
  si.Cutil() += (colour - si.Cutil()) * weight;
  return 1;
}

// ---------------------------------------------------------------------------------------------------------------

DistanceShader::DistanceShader() {
  SetRange(distanceHint_, this, {.min = 0.0, .max = 100000.0, .focusPower = 4.0});
  SetMenu(modeHint_, this, {{"Distance (spherical)", 0}, {"Z depth (planar)", 1}});
  SetMenu(spaceHint_, this,
          {{"World space", 0},
           {"Sticky world space", 3},
           {"Undisplaced space", 2},
           {"Terrain or Texture space (warpable and transformable)", 1}});
  Param(applyFar_, "apply_far_colour", 1).About("Gives what is far a colour.");
  Param(farColour_, "far_colour", trRgbLinear709(1.0f)).About("Colour at the far distance.");
  Param(applyNear_, "apply_near_colour", 1).About("Gives what is near a colour.");
  Param(nearColour_, "near_colour", trRgbLinear709(0.0f)).About("Colour at the near distance.");
  Param(farDistance_, "far_distance", 10000.0, &distanceHint_)
      .About("Distance at which the far colour is reached, metres.");
  Param(nearDistance_, "near_distance", 0.0, &distanceHint_)
      .About("Distance up to which the near colour reigns, metres.");
  Param(mode_, "distance_mode", 0, &modeHint_)
      .About("Distance from the camera in a sphere about it, or depth along its view.");
  Param(camera_, "camera", "")
      .About("Camera that distances are measured from. Left empty, it is the one that renders.");
  Param(space_, "coord_space", 0, &spaceHint_)
      .About("Which point is measured: the displaced, the sticky or the undisplaced one, or the texture's.");
  Param(clampFar_, "clamp_far_colour", 1)
      .About("Stays at the far colour beyond its distance. Off, values go on rising.");
  Param(clampNear_, "clamp_near_colour", 1)
      .About("Stays at the near colour before its distance. Off, values go on falling.");
}

long DistanceShader::StartRender(trRenderingInterface& rendering) {
  trBase* const camera = camera_.LinkedNode(true);
  const auto* view = camera ? static_cast<const trView*>(camera->RequestMember("view")) : nullptr;
  hasCamera_ = view != nullptr;
  if (view) {
    cameraPosition_ = view->eye;
    cameraAxis_ = view->forward;
  }
  return ColourUtility::StartRender(rendering);
}

long DistanceShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trVector origin = cameraPosition_, axis = cameraAxis_;
  if (!hasCamera_) {
    if (!si.PMainView()) return 1;
    origin = si.RootEye();
    axis = si.PMainView()->forward;
  }

  const trVector q = space_ == 1 ? si.Pt() : space_ == 2 ? si.Pg() : space_ == 3 ? si.Ph() : si.P();
  const trVector away = q - origin;
  const double distance = mode_ == 1 ? Dot(away, axis) : away.Length();
  double t = GuardedDivide(distance - nearDistance_, farDistance_ - nearDistance_);
  t = std::fmin(std::fmax(t, -1e12), 1e12);
  if (clampFar_) t = std::min(t, 1.0);
  if (clampNear_) t = std::max(t, 0.0);

  double weight = 0;
  trFCol colour;
  if (applyFar_) {
    weight += t;
    colour += farColour_.ToRender() * static_cast<float>(t);
  }
  if (applyNear_) {
    weight += 1 - t;
    colour += nearColour_.ToRender() * static_cast<float>(1 - t);
  }
  const trFCol cover(static_cast<float>(weight));
  si.Cutil() = si.Cutil() * (trFCol(1.0f) - cover) + colour;
  si.BlendShadingToConstant(colour, cover, trFCol(1.0f));
  return 1;
}
