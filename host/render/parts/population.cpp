// Particles as copies of prototypes.
#include "host/render/parts/population.h"

#include <algorithm>
#include <cmath>

#include "core/memory_budget.h"
#include "host/base/parallel.h"
#include "host/render/parts/assembly.h"

namespace ovhost {
namespace {

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

}  // namespace ovhost

std::uint64_t trBytesOfCopies(std::uint64_t copies) {
  return copies * (sizeof(trParticle) + sizeof(ovhost::Instance) + ovhost::kHierarchyBytesPerCopy);
}
