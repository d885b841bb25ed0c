// A shading state of one's own, for nodes that evaluate shaders outside a render.
#pragma once

#include "core/render_state.h"

/// Owns a state with no lights and nothing to hit. Per-thread state.
class trShadingState {
 public:
  trShadingState() : state_(services_, shading_) {}
  trShadingState(const trShadingState&) = delete;
  trShadingState& operator=(const trShadingState&) = delete;
  trShadingInterface& ShadingInterface() { return shading_; }

 private:
  trNoRenderServices services_;
  trShadingInterface shading_;
  trRenderState state_;
};
