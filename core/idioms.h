// Declarations and evaluations that many classes repeat, said once.
#pragma once

#include <optional>

#include "core/guarded.h"
#include "core/render_state.h"

/// Sets a hint's limits; what isn't given stays unset.
struct trRange {
  std::optional<double> min = {}, max = {}, focusPower = {}, focusValue = {};
};
inline void SetRange(trHint& hint, trBase* owner, const trRange& range) {
  if (range.min) hint.SetParam("min_value", *range.min, owner, 1);
  if (range.max) hint.SetParam("max_value", *range.max, owner, 1);
  if (range.focusValue) hint.SetParam("focus_value", *range.focusValue, owner, 1);
  if (range.focusPower) hint.SetParam("focus_power", *range.focusPower, owner, 1);
}

/// Says anew what a parameter does that a base class declared, where this class uses it in its own way.
inline void SetAbout(trBase* node, const char* name, const char* about) {
  long index;
  if (node->FindParam(index, name)) trParamDecl(node, index).About(about);
}

/// Fills a menu whose stored values are the given ones.
inline void SetMenu(trIntHint& hint, trBase* owner, std::initializer_list<trIntHint::MenuItem> items) {
  hint.SetParam("do_menu", 1, owner, 1);
  int item = 0;
  for (const auto& entry : items) hint.SetMenuItemTextAndValue(item++, entry.text, entry.value);
}

/// A heading of the sheet: a string parameter that says it, as its value and as its label.
class trHeading {
 public:
  void Declare(trBase* node, const char* name, const char* text) {
    hint_.SetStyleFlags(trStringHint::kMultiLine);
    node->Param(text_, name, text, &hint_).Display(text).About("A heading of the sheet, without effect.");
  }

 private:
  trStringHint hint_;
  trString text_;
};

/// The parameter `displacement_direction` and the direction it stands for.
class trDisplacementDirection {
 public:
  void Declare(trBase* node) {
    SetMenu(hint_, node,
            {{"Along vertical", 0},
             {"Along normal", 1},
             {"Vertical only (requires computed normal)", 2},
             {"Lateral only (requires computed normal)", 3},
             {"Lateral normalized (requires computed normal)", 4}});
    node->Param(mode_, "displacement_direction", 1, &hint_)
        .About(
            "Which way points are moved: up from the ground, along the surface's normal, or along a part of "
            "it.");
  }
  trVector Of(trShadingInterface& si) const {
    const trVector &n = si.N(), &ng = si.Ng();
    switch (mode_) {
      case 0:
        return ng;
      case 2:
        return ng * Dot(ng, n);
      case 3:
        return n - ng * Dot(ng, n);
      case 4:
        return Normalised(n - ng * Dot(ng, n));
      default:
        return n;
    }
  }

 private:
  trIntHint hint_;
  long mode_;
};

/// A switch that follows a link: where the user made or cut the link held in `link`, the switch named goes on
/// or off. Called from OnParamChanged.
inline void trSwitchFollowsLink(trBase* node, long index, trBase* who, const trFile& link,
                                const unsigned char& isOn, const char* switchName) {
  if (!trIsUser(who) || !node->IsParam(index, &link)) return;
  const bool linked = !link.FileStringR().empty();
  if (linked != (isOn != 0)) node->SetParam(switchName, linked, trWhoSystem);
}

/// `colour` times the linked shader's, where there is one.
inline void MultiplyByShader(trFCol& colour, trShader* shader, trShadingInterface& si) {
  if (shader) colour *= Tamed(shader->FColValueTS(si));
}

/// Keeps a thread's shading state and gathered light, and puts them back, on every way out. Draws taken
/// meanwhile stay taken, and a tripped depth guard stays tripped.
class trShadingGuard {
 public:
  explicit trShadingGuard(trShadingInterface& si)
      : si_(si), saved_(si), savedOutputs_(si.RenderState().ShadeOutputs()) {}
  ~trShadingGuard() {
    const trRandomStream random = si_.Random();
    const bool tripped = si_.DepthTripped();
    si_ = saved_;
    si_.Random() = random;
    if (tripped) si_.KeepDepthTripped();
    si_.RenderState().ShadeOutputs() = savedOutputs_;
  }
  trShadingGuard(const trShadingGuard&) = delete;
  trShadingGuard& operator=(const trShadingGuard&) = delete;

 private:
  trShadingInterface& si_;
  const trShadingInterface saved_;
  const trRenderState::Outputs savedOutputs_;
};

/// The mask of a shader: `blend_by_shader`, `blending_shader`, `fit_blendshader_to_this`,
/// `invert_blendshader`.
class trMask {
 public:
  /// Declares the four parameters on `node`.
  void Declare(trBase* node, unsigned char fitDefault) {
    node->Param(use_, "blend_by_shader", 0)
        .Display("Mask by shader")
        .About("Lets another shader say where this one counts. Linking or cutting the mask switches it.");
    node->Gui(trGuiRowOpen);
    node->Gui(trGuiRowClose);
    node->Param(shader_, "blending_shader", "")
        .Display("Mask shader")
        .About("Its brightness is how much this shader counts at a place: 0 none, 1 all.");
    node->Gui(trGuiIndentOpen);
    node->Param(fit_, "fit_blendshader_to_this", fitDefault)
        .Display("Fit mask to this")
        .About(
            "Measures the mask by this node's own extent or feature scale as 1, not in metres of the world.");
    node->Gui(trGuiGapSmall);
    node->Param(invert_, "invert_blendshader", 0)
        .Display("Invert mask")
        .About("Turns the mask round: the shader counts where the mask is dark.");
    node->Gui(trGuiIndentClose);
    node->AddGuiAction({"blend_by_shader"}, {"blending_shader"}, 3);
    node->AddGuiAction({"blend_by_shader"}, {"fit_blendshader_to_this", "invert_blendshader"}, 2);
  }

  /// A link the user made or cut switches the mask on or off. Called from OnParamChanged.
  void OnParamChanged(trBase* node, long index, trBase* who) const {
    trSwitchFollowsLink(node, index, who, shader_, use_, "blend_by_shader");
  }

  bool IsOn() const { return use_ != 0; }
  const trShader* Link() const { return LinkedShader(shader_); }

  /// The mask at the state as a number into `m`, 1 without a mask; false when it is on and leads nowhere.
  /// `inverseFeatureScale` is the reciprocal of the masked shader's feature scale.
  bool Evaluate(trShadingInterface& si, double inverseFeatureScale, float& m) const {
    return EvaluateAt(si, si.P() * inverseFeatureScale, m);
  }
  /// The same with the point at which a fitted mask is taken.
  bool EvaluateAt(trShadingInterface& si, const trVector& fitted, float& m) const {
    m = 1.0f;
    if (!use_) return true;
    trShader* const shader = LinkedShader(shader_);
    if (!shader) return false;
    trFCol colour;
    if (fit_)
      colour = si.RenderState().CallShaderCd(shader, true, &fitted, nullptr);
    else
      colour = shader->FColValueTS(si);
    m = Luminance(Tamed(colour));
    if (invert_) m = 1.0f - m;
    return true;
  }

 private:
  unsigned char use_, fit_, invert_;
  trShaderLink shader_;
};
