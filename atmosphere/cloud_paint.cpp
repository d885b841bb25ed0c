// A cloud layer that obeys paint on the sky.
#include <algorithm>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"

void CloudLayerV2::FindLegacyPaint() {
  if (legacyPaint_.empty()) return;
  trBase* found = NodeByPath(legacyPaint_);
  legacyPaint_.clear();
  if (!found) return;
  if (found->ClassName() == "sky_paint_solve") {
    // Older projects kept the solver, which led to the paint.
    trBase* const solver = found;
    trString input;
    solver->GetParam("input_node", input);
    found = input.empty() ? nullptr : solver->NodeByPath(input);
    trDestroyObject(solver);
  }
  if (found && found->IsTrue("is_sky_paint")) SetParam("paint", found->NameAndPath(), this);
}

void CloudLayerV2::PreparePaint(trRenderingInterface& rendering) {
  FindLegacyPaint();
  paintSolver_ = nullptr;
  if (!settings_.enablePaint || !IsEnabled()) return;
  if (!ownPaintSolver_) ownPaintSolver_ = trCreateObject("sky_paint_solve", this, 0);
  auto* const solver = dynamic_cast<SkyPaintSolve*>(ownPaintSolver_);
  auto* const paint = dynamic_cast<SkyPaintBase*>(settings_.paint.LinkedNode(true));
  if (!solver) return;
  solver->Bind(paint);
  if (!paint) return;
  if (solver->Calibrate(*this, changeCounter_, rendering.NumThreads(), rendering.PMainView()))
    paintSolver_ = solver;
}

float CloudLayerV2::OpacityAtPaintValue(trRenderState& state, const trVector& eye, const trVector& direction,
                                        float paintValue) {
  CloudThread& thread = Thread(state);
  const CloudNesting nesting(state, thread);
  thread.paintGiven = true;
  thread.paintValue = paintValue;
  trRenderState::Ray& ray = state.CurrentRay();
  ray.origin = eye;
  ray.end = eye + direction * ((eye - settings_.centre).Length() + 2 * derived_.topRadius);
  ray.depth = 1;
  ray.wantsColour = false;
  ray.quality = 1;
  return std::clamp(Luminance(trFCol(1.0f) - MarchAlone(state)), 0.0f, 1.0f);
}
