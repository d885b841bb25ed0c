// Evaluates a shader at points: a render without light or rays around it.
#include "app/evaluator.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "core/messages.h"
#include "core/render_state.h"
#include "host/node/node_data.h"

namespace ovapp {
namespace {

constexpr size_t kChunk = 256;  // points a thread takes at a time

}  // namespace

struct Evaluator::Worker {
  trNoRenderServices services;
  trShadingInterface shading;
  trRenderState state{services, shading};
};

Evaluator::Evaluator(juProject& project, trShader& shader, double smoothSize)
    : shader_(shader), smoothSize_(smoothSize) {
  ovhost::UpdateAnimation(&project, project.GetCurrentFrame());
  ovhost::ResolveAllLinks(&project);
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
  for (trBase* node : ovhost::AllNodes(&project))
    if (auto* each = dynamic_cast<trShader*>(node)) {
      const trScopedErrorsWarningsContext context(each);
      each->StartRender(rendering);
      started_.push_back(each);
    }
}

Evaluator::~Evaluator() {
  trRenderingInterface rendering(workers_[0]->state, static_cast<int>(workers_.size()), nullptr,
                                 trRenderContext::kFinal);
  for (trShader* each : started_) each->FinishRender(rendering);
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
  std::atomic<size_t> next{0};
  const auto work = [&](Worker& worker) {
    for (size_t begin = next.fetch_add(kChunk); begin < points.size(); begin = next.fetch_add(kChunk))
      for (size_t i = begin; i < std::min(begin + kChunk, points.size()); ++i)
        results[i] = At(worker, points[i], i);
  };
  std::vector<std::thread> threads;
  for (size_t i = 1; i < workers_.size() && i * kChunk < points.size(); ++i)
    threads.emplace_back([&work, worker = workers_[i].get()] { work(*worker); });
  work(*workers_[0]);
  for (std::thread& thread : threads) thread.join();
  return results;
}

}  // namespace ovapp
