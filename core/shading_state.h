// Shading states of one's own, for nodes that evaluate shaders outside a render.
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

/// A state that sees shaders as a render of the project's current frame would: from its camera, and started.
/// While it lives, the shaders of the project are started that no render has started yet. Per-thread state,
/// made and destroyed on the main thread or where all others wait.
class OV_API trSamplingState : public trShadingState {
 public:
  /// `node` is any node of the project.
  explicit trSamplingState(const trBase& node);
  ~trSamplingState();

 private:
  trView view_;
  std::vector<trShader*> started_;
};
