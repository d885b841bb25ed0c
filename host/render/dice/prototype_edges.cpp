// What copies ask of the dicing of their prototypes.
#include "host/render/dice/prototype_edges.h"

#include <cmath>

#include "host/render/dice/dicer.h"

namespace ovhost {
namespace {

/// Copies are never diced into more than this many edges across.
constexpr double kMostEdgesAcross = 400;

/// Edges that a population's copies ask of its prototypes; `edgeAt(distance)` is what is wanted in the
/// population's own space.
template <typename EdgeAt>
void AskForEdges(const Population& population, EdgeAt edgeAt, SharedParts& shared) {
  std::vector<double> finest(population.prototypes.size(), 1e300);
  for (const Instance& instance : population.instances) {
    const Prototype& prototype = *population.prototypes[instance.prototype];
    const float* m = instance.localFromOuter;
    const double determinant = m[0] * (double(m[4]) * m[8] - double(m[5]) * m[7]) -
                               m[1] * (double(m[3]) * m[8] - double(m[5]) * m[6]) +
                               m[2] * (double(m[3]) * m[7] - double(m[4]) * m[6]);
    const double scale = 1 / std::cbrt(std::fmax(std::fabs(determinant), 1e-300));
    const double radius = prototype.scene->BoundingBoxT().Size().Length() * 0.5 * scale;
    const double distance = trVector(instance.centre[0], instance.centre[1], instance.centre[2]).Length();
    double& edge = finest[instance.prototype];
    edge = std::fmin(edge, edgeAt(std::fmax(distance - radius, 0)) / scale);
  }
  for (const auto& prototype : shared.prototypes)
    for (size_t i = 0; i < finest.size(); ++i)
      if (population.prototypes[i] == prototype.get())
        prototype->finestEdge = std::fmin(prototype->finestEdge, finest[i]);
}

}  // namespace

void FindFinestEdges(const Assembly& parts, SharedParts& shared, double edgePixels) {
  for (const auto& population : parts.populations)
    AskForEdges(
        *population, [&](double distance) { return FootprintAt(shared.view, edgePixels, distance); }, shared);
  // Outer ones first: what they ask for goes on to those within.
  for (auto outer = shared.prototypes.rbegin(); outer != shared.prototypes.rend(); ++outer) {
    const double across = (*outer)->scene->BoundingBoxT().Size().Length();
    (*outer)->finestEdge = std::fmax((*outer)->finestEdge, across / kMostEdgesAcross);
    for (const auto& population : (*outer)->parts.populations)
      AskForEdges(
          *population, [&](double) { return (*outer)->finestEdge; }, shared);
  }
}

}  // namespace ovhost
