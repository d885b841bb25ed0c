// Shading results kept aside and mixed: what layers and merges do with what lies beneath.
#pragma once

#include "core/render_state.h"

/// The results of shading: reflection, utility colour and gathered light. Per-thread state.
struct trSavedShading {
  trBsdf bsdf;
  trFCol cutil;
  trRenderState::Outputs outputs;

  explicit trSavedShading(trShadingInterface& si)
      : bsdf(si.Bsdf()), cutil(si.Cutil()), outputs(si.RenderState().ShadeOutputs()) {}

  void Restore(trShadingInterface& si) const {
    si.Bsdf() = bsdf;
    si.Cutil() = cutil;
    si.RenderState().ShadeOutputs() = outputs;
  }
};

/// Blending by mask: the state becomes its own results times `weight` plus the saved ones times
/// `savedWeight`, per channel. The lobes of both are kept, the state's own first.
inline void trBlendShading(trShadingInterface& si, const trFCol& weight, const trSavedShading& saved,
                           const trFCol& savedWeight) {
  trBsdf other = saved.bsdf;
  other.Scale(savedWeight);
  si.Bsdf().Scale(weight);
  si.Bsdf().Add(other);
  si.Cutil() = si.Cutil() * weight + saved.cutil * savedWeight;
  si.RenderState().ShadeOutputs().Blend(weight, saved.outputs, savedWeight);
}
