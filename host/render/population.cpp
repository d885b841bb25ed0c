// Particles as copies of prototypes.
#include <algorithm>

#include "host/base/parallel.h"
#include "host/render/assembly.h"

namespace ovhost {
namespace {

/// Shares of the ray tracer's hierarchies, bytes.
constexpr std::uint64_t kBytesPerTriangle = 80, kBytesPerInstance = 100;
constexpr std::uint32_t kNoPrototype = ~0u;

bool IsFinite(const float* numbers, int count) {
  return std::all_of(numbers, numbers + count, [](float x) { return std::isfinite(x); });
}

/// Where one particle's copy stands; without a prototype where it can't stand at all.
Instance Place(const Population& population, long particle, const trVector& origin) {
  Instance instance;
  instance.particle = static_cast<std::int32_t>(particle);
  instance.prototype = kNoPrototype;
  const long index =
      population.scene->GetParticleInflator()->InstanceSceneIndex(*population.scene->GetPParticle(particle));
  if (index < 0 || index >= static_cast<long>(population.prototypes.size())) return instance;
  const Prototype* prototype = population.prototypes[index];
  if (!prototype || prototype->parts.IsEmpty()) return instance;

  const trTransform<double> outer = OuterFromInstance(population, instance);
  const trVector centre = outer.Point(prototype->parts.origin) - origin;
  for (int i = 0; i < 3; ++i) {
    instance.centre[i] = static_cast<float>(centre[i]);
    for (int j = 0; j < 3; ++j)
      instance.localFromOuter[3 * i + j] = static_cast<float>(outer.inverse.m[i][j]);
  }
  const auto& m = outer.forward.m;
  const double volume = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                        m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                        m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (volume != 0 && IsFinite(instance.centre, 3) && IsFinite(instance.localFromOuter, 9))
    instance.prototype = static_cast<std::uint32_t>(index);
  return instance;
}

}  // namespace

trTransform<double> OuterFromInstance(const Population& population, const Instance& instance) {
  const trParticle& particle = *population.scene->GetPParticle(instance.particle);
  return population.scene->GetTransform() *
         population.scene->GetParticleInflator()->InstanceTransform(particle);
}

void PlaceInstances(Population& population, const trVector& origin) {
  auto& instances = population.instances;
  instances.resize(population.scene->NumParticles());
  ParallelFor(instances.size(),
              [&](size_t i) { instances[i] = Place(population, static_cast<long>(i) + 1, origin); });
  std::erase_if(instances, [](const Instance& instance) { return instance.prototype == kNoPrototype; });
}

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

std::uint64_t Assembly::Bytes() const {
  std::uint64_t bytes = 0;
  for (const auto& mesh : meshes) bytes += mesh->Bytes() + mesh->triangles.size() * kBytesPerTriangle;
  for (const auto& population : populations)
    bytes += population->instances.size() * (sizeof(Instance) + kBytesPerInstance);
  return bytes;
}

}  // namespace ovhost
