// fake_stones_shader: stones at a point, and what they do to shape and colour.
#include "fractal/fake_stones_shader.h"

#include "core/shading_save.h"

namespace {

/// The number that a function shader multiplies by; 1 where none is linked.
double Factor(trShadingInterface& si, const trShaderLink& function) {
  trShader* const shader = LinkedShader(function);
  return shader ? Luminance(Tamed(shader->FColValueTS(si))) : 1.0;
}

/// Width of the sample's footprint, metres: of its corners' box, 0.7071 of the diagonal.
double FootprintOf(const trRenderState::Ray& ray) {
  trVector width;
  for (int i = 0; i < 3; ++i) {
    const auto [least, largest] = std::minmax({ray.corners[0][i], ray.corners[1][i], ray.corners[2][i]});
    width[i] = (largest - least) * 0.7071;
  }
  return width.Length();
}

/// 1 for what is larger than the footprint, 0 for what is much smaller.
double FadeOf(double size, double footprint) {
  return SmoothStep(GuardedDivide(std::fabs(size), footprint) * 0.75 - 0.1);
}

}  // namespace

double FakeStonesShader::MaskNumber(const trFCol& colour) const {
  const float value = Luminance(Tamed(colour));
  return invertMask_ ? 1.0f - value : value;
}

double FakeStonesShader::MaskOnGround(trShadingInterface& si, double scale) const {
  trShader* const shader = LinkedShader(maskShader_);
  if (!shader) return 0;
  if (!fitMask_) return MaskNumber(shader->FColValueTS(si));
  const trVector fitted = si.Pt() * GuardedDivide(1.0, scale);
  return MaskNumber(si.RenderState().CallShaderCd(shader, true, &fitted, nullptr));
}

double FakeStonesShader::MaskAtStone(trShadingInterface& si, const trVector& centre, double scale) const {
  trShader* const shader = LinkedShader(maskShader_);
  if (!shader) return 0;
  const trVector point = fitMask_ ? centre : centre * scale;
  return MaskNumber(si.RenderState().CallShaderCd(shader, true, &point, nullptr));
}

double FakeStonesShader::VariedDensity(const trVector& centre, const Asked& asked) const {
  if (!varyDensity_ || densityVariation_ == 0) return stoneDensity_;
  // From stone to stone, and two octaves of patches.
  const double frequency = GuardedDivide(asked.scale, asked.variationScale);
  const double alone = trNoise3(centre * 0.5 + densityOffset_[2]),
               patches = trNoise3(centre * frequency + densityOffset_[1]),
               wide = trNoise3(centre * frequency * 0.25 + densityOffset_[0]);
  const double sum =
      wide * asked.variationFade * 0.25 + patches * asked.variationFade + alone * asked.stoneFade * 0.5;
  return stoneDensity_ * (sum * densityVariation_ + 1);
}

FakeStonesShader::Stone FakeStonesShader::StoneAt(trShadingInterface& si, const Asked& asked) const {
  Stone stone;
  const bool masksDensity = useMask_ && maskAsDensity_,
             isEven = asked.stoneFade == 0 && asked.variationFade == 0;
  double mask = 1;
  if (useMask_ && !maskAsDensity_) {
    mask = MaskOnGround(si, asked.scale);
    if (!(mask > 0)) return stone;
  }
  if (!masksDensity && isEven) {
    stone.presence = std::clamp(stoneDensity_, 0.0, 1.0) * mask;
    return stone;
  }

  const trVector cell = si.Pt() * SafeReciprocal(asked.scale), offsetCell = cell + cellOffset_;
  double value;
  trVector toNearest, toSecond;
  trVoronoi3<double>(value, toNearest, toSecond, &offsetCell.x);
  stone.centre = cell - toNearest;
  if (masksDensity) {
    mask = MaskAtStone(si, stone.centre, asked.scale);
    if (!(mask > 0)) return stone;
    if (isEven) {
      stone.presence = std::clamp(stoneDensity_ * mask, 0.0, 1.0);
      return stone;
    }
  }

  double density = VariedDensity(stone.centre, asked);
  if (maskAsDensity_) density *= mask;
  density = density > 0 ? std::min(density, 1.0) : 0;
  // Highest over the feature, down to the ground where the next cell begins.
  const double raw = density > value + 0.5 ? toSecond.Length() - toNearest.Length() : 0;
  stone.presence = (1 - asked.stoneFade) * density + (raw > 0 ? asked.stoneFade : 0);
  if (!maskAsDensity_) stone.presence *= mask;
  stone.height = asked.scale * asked.tallness * raw * stone.presence;
  return stone;
}

long FakeStonesShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  if (separateGeometry_ || stoneScale_ == 0 || stoneTallness_ == 0) return 1;
  const double factor = Factor(si, scaleFunction_), scale = factor * stoneScale_,
               tallness = Factor(si, tallnessFunction_) * stoneTallness_;
  const Stone stone = StoneAt(si, {scale, factor * densityVariationScale_, tallness, 1, 1});
  if (stone.height == 0 || !std::isfinite(stone.height)) return 1;

  const trVector up = onlyDisplaceUpwards_ ? si.Ng() : si.N();
  si.P() += up * stone.height;
  // Pushed out sideways, away from its centre, a stone is flat on top and steep around.
  const trVector outward = Normalised(si.P() - stone.centre * scale);
  si.P() += (outward - up * Dot(outward, up)) * (stone.height * pancakeEffect_);
  if (!LinkedShader(surfaceShader_)) return 1;

  // The stone's own surface comes in from its edge, fully where it is half as high as it is wide.
  const double edge = 1 - std::min(1.0, 2 * GuardedDivide(stone.height, tallness * scale));
  DisplaceBySurface(si, outward, 1 - edge * edge);
  return 1;
}

void FakeStonesShader::DisplaceBySurface(trShadingInterface& si, const trVector& outward,
                                         double cover) const {
  const trVector pt = si.Pt(), p = si.P(), n = si.N(), nt = si.Nt();
  if (!onlyDisplaceUpwards_) si.Nt() = si.N() = outward;
  LinkedShader(surfaceShader_)->DisplaceTS(si);
  si.Pt() = pt;
  si.P() = si.P() * cover + p * (1 - cover);
  si.N() = n;
  si.Nt() = nt;
}

long FakeStonesShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  if (separateGeometry_ || stoneScale_ == 0) return 1;
  if (!applyColour_ && !LinkedShader(surfaceShader_)) return 1;
  const double factor = Factor(si, scaleFunction_), scale = factor * stoneScale_,
               variationScale = factor * densityVariationScale_;
  const double footprint = FootprintOf(si.RenderState().CurrentRay());
  const double stoneFade = FadeOf(scale, footprint);
  const Stone stone =
      StoneAt(si, {scale, variationScale, stoneTallness_, stoneFade, FadeOf(variationScale, footprint)});
  if (stone.presence != 0) ShadeStone(si, stone, stoneFade);
  return 1;
}

void FakeStonesShader::ShadeStone(trShadingInterface& si, const Stone& stone, double stoneFade) const {
  trFCol colour = diffuseColour_.ToRender();
  if (colourVariation_ && stoneFade > 0) {
    const double varied = trCellNoise3(stone.centre * 10) * (2 * stoneFade);
    for (int i = 0; i < 3; ++i) colour[i] *= static_cast<float>(varied * colourVariations_[i] + 1);
    colour = Tamed(colour);
  }

  const float presence = static_cast<float>(stone.presence);
  trShader* const surface = LinkedShader(surfaceShader_);
  if (!surface) {
    si.Cutil() += (colour - si.Cutil()) * presence;
    if (si.doCo()) si.BlendShadingToLambert(colour, trFCol(presence), trFCol(presence));
    return;
  }
  const trSavedShading ground(si);
  const trFCol groundOpacity = si.Oo_surf();
  if (applyColour_) {
    si.Cutil() = colour;
    if (si.doCo()) si.SetShadingToLambert(colour);
  }
  surface->ShadeTS(si);
  if (stone.presence == 1) return;
  trBlendShading(si, trFCol(presence), ground, trFCol(1 - presence));
  si.Oo_surf() = si.Oo_surf() * presence + groundOpacity * (1 - presence);
}
