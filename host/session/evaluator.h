// Evaluates one shader at points outside of any render.
#pragma once

#include <memory>
#include <vector>

#include "core/colour.h"
#include "core/project.h"
#include "core/shader.h"
#include "host/session/points.h"

namespace ovhost {

struct EvalResult {
  double displacement = 0;  ///< along the point's normal, metres
  trVector displaced;       ///< world, metres
  trFCol colour;
  float scalar = 0;
  trVector vector;
};

/// Prepares the project's shaders for evaluation while it lives.
class OV_API Evaluator {
 public:
  /// `smoothSize` is the filter footprint of every sample, metres. Main thread only.
  Evaluator(juProject& project, trShader& shader, double smoothSize);
  ~Evaluator();
  Evaluator(const Evaluator&) = delete;
  Evaluator& operator=(const Evaluator&) = delete;

  /// One result a point, in order, on all threads the user allows. Main thread only.
  std::vector<EvalResult> Evaluate(const std::vector<EvalPoint>& points);

 private:
  struct Worker;
  EvalResult At(Worker& worker, const EvalPoint& point, std::uint64_t index) const;

  trShader& shader_;
  double smoothSize_;
  trVector eye_;
  std::vector<trShader*> started_;
  std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace ovhost
