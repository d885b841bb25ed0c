// crater_shader.
#include "fractal/crater_shader.h"

CraterShader::CraterShader() {
  SetRange(lengthHint_, this, {.min = 0, .max = 1e6, .focusPower = 4});
  SetRange(tightnessHint_, this, {.min = 0, .max = 16, .focusPower = 2});
  Gui(trGuiBlockOpen);
  Param(centre_, "center", trVector())
      .About(
          "Centre of the crater in texture space, metres. The height of it counts too, so put it on the "
          "undisplaced ground.");
  Param(diameter_, "diameter", 1000.0, &lengthHint_).About("Width of the bowl from rim to rim, metres.");
  Param(depth_, "depth", 100.0, &lengthHint_)
      .About("How far the middle of the bowl lies below the surroundings, metres.");
  Param(rimHeight_, "rim_height", 10.0, &lengthHint_)
      .About(
          "Height of the rim before it is softened, metres. A soft rim is lower, or even sinks below the "
          "ground.");
  Param(rimSkirt_, "rim_skirt", 1000.0, &lengthHint_)
      .About("How far the rim runs out into the surroundings, metres from the edge of the bowl.");
  Param(rimSoftness_, "rim_softness", 0.125)
      .About(
          "Roundness of bowl and rim: 0 makes straight slopes and a sharp crest, larger values a gentle "
          "one.");
  Param(rimTightness_, "rim_tightness", 4.0, &tightnessHint_)
      .About(
          "How closely walls and skirt hug the rim: 0 spreads them evenly, large values leave a narrow wall "
          "around a flat floor.");
  Param(rimShader_, "rim_shader", "")
      .About(
          "A shader whose displacement grows towards the rim, for blocks and broken rock; it has no effect "
          "in the middle and outside.");
  Gui(trGuiBlockClose);
}

CraterShader::Profile CraterShader::ProfileAt(double distanceSquared) const {
  const double radius = diameter_ * 0.5, reach = radius + rimSkirt_;
  if (!(reach * reach > distanceSquared)) return {};
  // The rim is as high as the power law that makes it soft still leaves of it.
  const double power = rimSoftness_ + 1;
  const double rim = GuardedDivide(depth_ + rimHeight_, power) - depth_;
  const double distance = std::sqrt(distanceSquared);
  Profile profile;
  if (diameter_ * diameter_ * 0.25 > distanceSquared) {
    double t = GuardedDivide(distance, radius);
    t *= std::exp((t - 1) * rimTightness_);
    profile = {-std::pow(1 - t, power) * (depth_ + rim) + rim, GuardedDivide(t, power)};
  } else {
    double t = 1 - GuardedDivide(distance - radius, rimSkirt_);
    t *= std::exp((t - 1) * rimTightness_);
    profile = {(1 - std::pow(1 - t, power)) * rim, GuardedDivide(t * t, power)};
  }
  // Powers and tightness out of all bounds leave the ground as it is.
  return std::isfinite(profile.rise) && std::isfinite(profile.rimWeight) ? profile : Profile();
}

long CraterShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const Profile profile = ProfileAt((si.Pt() - centre_).LengthSquared());
  si.P() += si.Ng() * profile.rise;

  const trVector p = si.P(), n = si.N();
  trShader* const rim = LinkedShader(rimShader_);
  if (rim) rim->DisplaceTS(si);
  const double w = profile.rimWeight;
  if (!rim || w == 0) {
    // What the rim shader did is gone without a trace, however far it went.
    si.P() = p;
    si.N() = Normalised(n);
  } else {
    si.P() = p * (1 - w) + si.P() * w;
    si.N() = Normalised(n * (1 - w) + si.N() * w);
  }
  return 1;
}
