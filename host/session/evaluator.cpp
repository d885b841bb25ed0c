// Evaluates a shader at points: a render without light or rays around it.
#include "host/session/evaluator.h"

#include <algorithm>

#include "core/messages.h"
#include "core/render_state.h"
#include "host/base/parallel.h"
#include "host/node/node_data.h"
#include "host/node/shader_start.h"

namespace ovhost {
struct Evaluator::Worker {
  trNoRenderServices services;
  trShadingInterface shading;
  trRenderState state{services, shading};
};

Evaluator::Evaluator(juProject& project, trShader& shader, double smoothSize)
    : shader_(shader), smoothSize_(smoothSize) {
  UpdateAnimation(&project, project.GetCurrentFrame());
  ResolveAllLinks(&project);
  const trView* view = nullptr;
  if (trBase* camera = project.PActiveCameraNode()) {
    view = static_cast<const trView*>(camera->RequestMember("view"));
    camera->GetParam("position", eye_);
  }

  const int threads = std::max(1, trNumCoresToUse());
  for (int i = 0; i < threads; ++i) {
    workers_.push_back(std::make_unique<Worker>());
    workers_.back()->shading.SetThread(static_cast<unsigned>(i));
    workers_.back()->shading.SetFrame(static_cast<float>(project.GetCurrentFrame()));
    workers_.back()->shading.SetMainView(view);
    workers_.back()->shading.SetRenderState(&workers_.back()->state);
  }
  trRenderingInterface rendering(workers_[0]->state, threads, view, trRenderContext::kFinal);
  for (trBase* node : AllNodes(&project))
    if (auto* each = dynamic_cast<trShader*>(node)) {
      const trScopedErrorsWarningsContext context(each);
      ovhost::StartShader(*each, rendering);
      started_.push_back(each);
    }
}

Evaluator::~Evaluator() {
  trRenderingInterface rendering(workers_[0]->state, static_cast<int>(workers_.size()), nullptr,
                                 trRenderContext::kFinal);
  for (trShader* each : started_) ovhost::FinishShader(*each, rendering);
}

EvalResult Evaluator::At(Worker& worker, const EvalPoint& point, std::uint64_t index) const {
  trShadingInterface& si = worker.shading;
  const auto begin = [&] {
    si.SetSample(point.position, point.normal);
    si.Eye() = si.RootEye() = eye_;
    si.SmoothSize() = smoothSize_;
    si.Random() = {index, 0};
  };
  EvalResult result;
  begin();
  shader_.DisplaceTS(si);
  result.displaced = si.P();
  result.displacement = Dot(result.displaced - point.position, point.normal);
  begin();
  result.colour = shader_.FColValueTS(si);
  begin();
  result.scalar = shader_.FloatValueTS(si);
  begin();
  result.vector = shader_.VectorValueTS(si);
  return result;
}

std::vector<EvalResult> Evaluator::Evaluate(const std::vector<EvalPoint>& points) {
  std::vector<EvalResult> results(points.size());
  WithThreads(static_cast<int>(workers_.size()), [&] {
    ParallelFor(points.size(), [&](size_t i) { results[i] = At(*workers_[ThreadSlot()], points[i], i); });
  });
  return results;
}

}  // namespace ovhost
