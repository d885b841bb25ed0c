// The cloud's side of paint: the solver that it keeps, and its opacity under a given paint value.
#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"

/// Older projects name the solver, or the paint itself.
void CloudLayerV2::LinkLegacyPaint() {
  if (legacyPaint_.empty()) return;
  trBase* const named = NodeByPath(legacyPaint_);
  legacyPaint_.clear();
  if (!named) return;
  if (named->IsTrue("is_sky_paint")) {
    SetParam("paint", named->NameAndPath(), this);
  } else if (named->ClassName() == "sky_paint_solve") {
    trString paint;
    if (named->GetParam("input_node", paint)) SetParam("paint", paint, this);
    if (named->Parent()) named->Parent()->DestroyChild(named->Name(), false);
  }
}

void CloudLayerV2::PreparePaint(trRenderingInterface& rendering) {
  LinkLegacyPaint();
  if (!settings_.enablePaint) return;
  if (!paintSolver_) paintSolver_ = static_cast<SkyPaintSolve*>(trCreateObject("sky_paint_solve", this, 0));
  if (!paintSolver_) return;
  paintSolver_->Bind(static_cast<SkyPaintBase*>(settings_.paint.LinkedNode(true)));
  paintSolver_->Calibrate(*this, changeCounter_, rendering.NumThreads(), rendering.PMainView());
}

float CloudLayerV2::OpacityAtPaintValue(trRenderState& state, const trVector& eye, const trVector& direction,
                                        float paintValue) {
  CloudThread& thread = Thread(state);
  const CloudNesting nesting(state, thread);
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = eye;
  ray.end = eye + direction * (2 * derived_.topRadius + (eye - settings_.centre).Length());
  ray.depth = 1;
  ray.wantsColour = false;
  thread.paintGiven = true;
  thread.paintValue = paintValue;
  return 1.0f - MarchAlone(state).MaxChannel();
}
