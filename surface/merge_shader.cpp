// merge_shader.
#include "surface/merge_shader.h"

#include "core/shading_save.h"

namespace {

/// What a network may move.
struct Place {
  trVector pt, p, nt, n;
  explicit Place(trShadingInterface& si) : pt(si.Pt()), p(si.P()), nt(si.Nt()), n(si.N()) {}
  void Restore(trShadingInterface& si) const {
    si.Pt() = pt;
    si.P() = p;
    si.Nt() = nt;
    si.N() = n;
  }
};

/// The state becomes x times `a` plus y times `b`, the lobes of x first.
void Combine(trShadingInterface& si, const trSavedShading& x, const trFCol& a, const trSavedShading& y,
             const trFCol& b) {
  x.Restore(si);
  trBlendShading(si, a, y, b);
}

bool DiffersFrom(const trFCol& c, double value) {
  return std::fabs(c.r - value) > 1e-12 || std::fabs(c.g - value) > 1e-12 || std::fabs(c.b - value) > 1e-12;
}

/// What is left to screen: 1 - min(c, 1).
trFCol Dark(const trFCol& c) {
  return {1 - std::min(c.r, 1.0f), 1 - std::min(c.g, 1.0f), 1 - std::min(c.b, 1.0f)};
}

/// Gives the surface a diffuse colour: its first diffuse lobe's, or a lobe of its own.
void SetDiffuse(trBsdf& bsdf, const trFCol& colour) {
  for (int i = 0; i < bsdf.NumLobes(); ++i)
    if (bsdf.Lobe(i).kind == trLobe::kDiffuseReflection) {
      bsdf.Lobe(i).colour = colour;
      return;
    }
  bsdf.AddLambert(colour);
}

}  // namespace

MergeShader::MergeShader() {
  SetMenu(altitudeHint_, this,
          {{"All", kAll}, {"Highest (raise)", kHighest}, {"Lowest (cut away)", kLowest}});
  SetMenu(spaceHint_, this,
          {{"Current texture space (most uses)", kCurrent},
           {"Undisplaced space (for alignment)", kUndisplaced},
           {"Legacy", kLegacy}});
  for (trIntHint* hint : {&colourHint_, &displaceHint_})
    SetMenu(*hint, this,
            {{"Mix (Normal)", kMix},
             {"Add", kAdd},
             {"Subtract (Input - A)", kSubtractA},
             {"Subtract (A - Input)", kSubtractInput},
             {"Difference", kDifference},
             {"Multiply (Input * A's diffuse colour)", kMultiplyInput},
             {"Multiply (A * Input's diffuse colour)", kMultiplyA},
             {"Screen by A's diffuse colour", kScreenByA},
             {"Screen by Input's diffuse colour", kScreenByInput}});

  DeclareTrue("displaces_by_colour");
  SetAbout(this, "input_node", "The first network, which A is merged with.");
  Param(shaderA_, "shader_A", "").About("The second network, which is merged with the input.");
  GuiTab("Mix control", "mix_control_tab");
  Param(mixToA_, "mix_to_A", 0.5)
      .About("How much of A there is, 0 to 1. A controller or a choice by altitude takes its place.");
  Param(mixController_, "mix_controller", "")
      .About("Shader whose colour is the mix, channel by channel: black is the input, white is A.");
  Param(chooseByAltitude_, "choose_by_altitude", kAll, &altitudeHint_)
      .About("Takes the network that lies higher, or lower, at each place, in place of a mix.");
  Param(textureSpace_, "texture_space", kLegacy, &spaceHint_)
      .About(
          "Space in which both are compared and run: the current one, undisplaced, or as older projects had "
          "it.");
  GuiTab("Merge mode", "merge_mode_tab");
  Param(mergeColour_, "merge_colour", 1).About("Merges colours. Off, the input's alone count.");
  Param(colourMode_, "colour_merge_mode", kMix, &colourHint_)
      .About(
          "How colours come together: mixed by the share of A, added, subtracted, multiplied or screened.");
  Param(mergeDisplacement_, "merge_displacement", 1)
      .About("Merges displacement. Off, the input's alone counts.");
  Param(displaceMode_, "displace_merge_mode", kMix, &displaceHint_)
      .About("How displacements come together, as for colours. Screening leaves the input's.");
}

long MergeShader::OnFirstCreate() {
  trShader::OnFirstCreate();
  return SetParam("texture_space", static_cast<long>(kCurrent), this);
}

void MergeShader::Mix::DropUnused() {
  useInput = DiffersFrom(toA, 1);
  useA = DiffersFrom(toA, 0);
}

double MergeShader::Height(trShadingInterface& si, trShader& network) const {
  trRenderState& state = si.RenderState();
  trVector offset;
  if (textureSpace_ == kLegacy)
    offset = state.CallDisplacementOnPlane(&network, true, nullptr, &si.Nt());
  else if (textureSpace_ == kCurrent)
    offset = state.CallDisplacement(&network, true, nullptr, nullptr) - si.P();
  else
    offset = state.CallDisplacement(&network, true, &si.Ptg(), &si.Ni()) - si.Ptg();
  return Dot(si.Nt(), offset);
}

bool MergeShader::FindMix(trShadingInterface& si, bool mayDrop, Mix& mix) const {
  mix.input = InputShader();
  mix.a = LinkedShader(shaderA_);
  if (!mix.input || !mix.a) return false;
  mix.toA = trFCol(Tamed(static_cast<float>(mixToA_)));

  if (chooseByAltitude_ != kAll) {
    const double input = Height(si, *mix.input), a = Height(si, *mix.a);
    const bool isA = chooseByAltitude_ == kHighest ? a > input : chooseByAltitude_ == kLowest && input > a;
    mix.toA = trFCol(isA ? 1.0f : 0.0f);
  } else if (auto* controller = LinkedShader(mixController_)) {
    const bool undisplaced = textureSpace_ == kUndisplaced;
    mix.toA = Tamed(si.RenderState().CallShaderCd(controller, true, undisplaced ? &si.Ptg() : nullptr,
                                                  undisplaced ? &si.Ni() : nullptr));
  }
  if (mayDrop) mix.DropUnused();
  return true;
}

void MergeShader::EnterTextureSpace(trShadingInterface& si) const {
  if (textureSpace_ != kUndisplaced) return;
  si.Pt() = si.Ptg();
  si.Nt() = si.N() = si.Ni();
}

long MergeShader::Displace(trShadingInterface& si) {
  if (!IsEnabled() || !mergeDisplacement_) {
    DisplaceInput(si);
    return 1;
  }
  Mix mix;
  if (!FindMix(si, displaceMode_ == kMix, mix)) return 1;
  const double w = Luminance(mix.toA);

  // Run the networks that count, each from where the surface is now.
  if (mix.IsSingle()) {
    EnterTextureSpace(si);
    mix.Single().DisplaceTS(si);
    return 1;
  }
  const Place start(si);
  const trSavedShading shading(si);
  EnterTextureSpace(si);
  mix.input->DisplaceTS(si);
  double c = 0;
  if (displaceMode_ == kMultiplyA || displaceMode_ == kScreenByInput)
    c = Luminance(Tamed(mix.input->FColValueTS(si)));
  const Place input(si);
  start.Restore(si);
  shading.Restore(si);
  EnterTextureSpace(si);
  if (displaceMode_ == kMultiplyInput || displaceMode_ == kScreenByA)
    c = Luminance(Tamed(mix.a->FColValueTS(si)));
  else
    mix.a->DisplaceTS(si);
  const Place a(si);

  // Merge, points and normals by one expression: x where it was, i the input's, v what A left.
  const auto merged = [&](const trVector& x, const trVector& i, const trVector& v) -> trVector {
    switch (displaceMode_) {
      case kMix:
        return v * w + i * (1 - w);
      case kAdd:
        return i + (v - x) * w;
      case kSubtractA:
      case kDifference:
        return i - (v - x) * w;
      case kSubtractInput:
        return (v - x) * w - i + x * 2;
      case kMultiplyInput:
        return (i * c + x * (1 - c)) * w + i * (1 - w);
      case kMultiplyA:
        return (v * c + x * (1 - c)) * w + i * (1 - w);
      case kScreenByA:
      case kScreenByInput:
        return i;
      default:
        return v;
    }
  };
  if (displaceMode_ < kMix || displaceMode_ > kScreenByInput) return 1;
  si.Pt() = merged(start.pt, input.pt, a.pt);
  si.P() = merged(start.p, input.p, a.p);
  const bool mergesNormals = displaceMode_ == kMix || displaceMode_ == kAdd;
  si.Nt() = mergesNormals ? Normalised(merged(start.nt, input.nt, a.nt)) : input.nt;
  si.N() = mergesNormals ? Normalised(merged(start.n, input.n, a.n)) : input.n;
  return 1;
}

long MergeShader::Shade(trShadingInterface& si) {
  if (!IsEnabled() || !mergeColour_) {
    ShadeInput(si);
    return 1;
  }
  Mix mix;
  if (!FindMix(si, colourMode_ == kMix, mix)) return 1;
  const Place start(si);
  if (mix.IsSingle()) {
    if (textureSpace_ == kUndisplaced) {
      si.Pt() = si.Ptg();
      si.Nt() = si.Ni();
    }
    mix.Single().ShadeTS(si);
    if (textureSpace_ == kUndisplaced) {
      si.Pt() = start.pt;
      si.Nt() = start.nt;
    }
    return 1;
  }
  MergeColours(si, mix);
  return 1;
}

void MergeShader::MergeColours(trShadingInterface& si, const Mix& mix) const {
  // Shade both from the same beginning.
  const Place start(si);
  const trSavedShading before(si);
  mix.input->ShadeTS(si);
  const trSavedShading input(si);
  start.Restore(si);
  before.Restore(si);
  mix.a->ShadeTS(si);
  const trSavedShading a(si);
  start.Restore(si);

  const trFCol one(1.0f), none, &m = mix.toA;
  switch (colourMode_) {
    case kMix:
      Combine(si, input, one - m, a, m);
      break;
    case kAdd:
      Combine(si, input, one, a, m);
      break;
    case kSubtractA:
      Combine(si, input, one, a, none - m);
      break;
    case kSubtractInput:
      Combine(si, input, trFCol(-1.0f), a, m);
      break;
    case kDifference: {
      Combine(si, input, one - m, a, m);
      const trFCol apart = input.cutil - a.cutil;
      const trFCol difference(std::fabs(apart.r), std::fabs(apart.g), std::fabs(apart.b));
      si.Cutil() = input.cutil + m * (difference - input.cutil);
      if (si.doCo()) SetDiffuse(si.Bsdf(), si.Cutil());
      break;
    }
    case kMultiplyInput:
      Combine(si, input, one + m * (a.cutil - one), a, none);
      break;
    case kMultiplyA: {
      Combine(si, input, one - m, a, none);
      const trSavedShading rest(si);
      Combine(si, a, m * input.cutil, rest, one);
      break;
    }
    case kScreenByA: {
      // The reflection is the input's, screened; the utility colour goes on from A's, as it does below.
      const trFCol screened = a.cutil * m * Dark(input.cutil);
      si.Cutil() += screened;
      if (si.doCo()) {
        si.Bsdf() = input.bsdf;
        si.Bsdf().AddLambert(screened);
      }
      break;
    }
    case kScreenByInput: {
      const trFCol screened = input.cutil * m * Dark(a.cutil);
      si.Cutil() += screened;
      if (si.doCo()) si.Bsdf().AddLambert(screened);
      break;
    }
    default:
      return;
  }
  // Light that the networks gathered is mixed in every mode.
  trRenderState::Outputs outputs = a.outputs;
  outputs.Blend(m, input.outputs, one - m);
  si.RenderState().ShadeOutputs() = outputs;
}
