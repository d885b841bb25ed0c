// Counting copies before anything is built of them.
#include "host/render/frame/population_claims.h"

#include <algorithm>
#include <set>

#include "core/memory_budget.h"
#include "core/scene_maker.h"
#include "host/base/log.h"
#include "host/base/memory.h"
#include "host/base/session_context.h"
#include "host/node/node_data.h"
#include "host/render/parts/population.h"

namespace ovhost {
namespace {

/// A triangle of a shared scene: in its scene's tables, in the renderer's, and in the ray tracer's hierarchy,
/// bytes.
constexpr std::uint64_t kBytesPerTriangle = 250;

class Count {
 public:
  void Take(const trScene& scene, int level) {
    if (const trParticleInflator* inflator = scene.GetParticleInflator();
        inflator && inflator->IsBasicInstancer() && level < kMaxInstanceLevels) {
      copies_ += static_cast<std::uint64_t>(scene.NumParticles());
      for (long i = 0; i < inflator->NumInstanceScenes(); ++i)
        TakeShared(inflator->InstanceScene(i), level + 1);
    }
    for (long i = 1; i <= scene.NumGroups(); ++i) Take(*scene.GetPGroup(i)->Subscene(), level);
  }
  std::uint64_t Copies() const { return copies_; }
  std::uint64_t Bytes() const { return trBytesOfCopies(copies_) + triangles_ * kBytesPerTriangle; }

 private:
  void TakeShared(const std::shared_ptr<trScene>& scene, int level) {
    if (!scene || !shared_.insert(scene.get()).second) return;
    triangles_ += static_cast<std::uint64_t>(std::max(0L, scene->TotalNumTrisAtPrep()));
    Take(*scene, level);
  }

  std::uint64_t copies_ = 0, triangles_ = 0;
  std::set<const trScene*> shared_;
};

}  // namespace

PopulationClaim ClaimOf(const trBase& maker, const trScene& scene) {
  Count count;
  count.Take(scene, 0);
  PopulationClaim claim{&maker, count.Copies(), count.Copies() ? count.Bytes() : 0};
  const auto* kept =
      static_cast<const std::uint64_t*>(const_cast<trBase&>(maker).RequestMember("population_bytes"));
  if (kept && claim.copies) claim.bytes += *kept;
  return claim;
}

void TellClaims(const std::vector<PopulationClaim>& claims, std::uint64_t budget) {
  for (const PopulationClaim& claim : claims)
    if (claim.copies)
      trPrintMessage(claim.node->Name() + ": " +
                     CopiesText(claim.copies, claim.bytes, budget ? budget : trMemoryBudget()));
}

bool ClaimsFit(const std::vector<PopulationClaim>& claims, std::uint64_t budget) {
  PopulationClaim all;
  for (const PopulationClaim& claim : claims) {
    all.copies += claim.copies;
    all.bytes += claim.bytes;
  }
  if (!budget || all.bytes <= budget) return true;
  trRefuseCopies("all populations", all.copies, all.bytes);
  return false;
}

bool FindClaims(juProject& project, std::uint64_t budget, std::vector<PopulationClaim>& claims,
                bool& isRefused) {
  const MemoryScope memory(budget);
  bool isMade = true;
  for (trBase* node : AllNodes(&project)) {
    auto* const maker = node->IsTrue("is_populator") ? dynamic_cast<trSceneMaker*>(node) : nullptr;
    if (!maker) continue;
    const trScopedErrorsWarningsContext context(node);
    trScene scene;
    scene.Init();
    const ToldErrors told;
    if (!maker->Make(scene, trSceneMaker::kRender)) {
      if (!told.Any()) trError("The object could not be made.");
      isMade = false;
      continue;
    }
    scene.PrepForRender();
    if (const PopulationClaim claim = ClaimOf(*node, scene); claim.copies) claims.push_back(claim);
  }
  isMade = ClaimsFit(claims, budget) && isMade;
  isRefused = memory.HasRefused();
  return isMade;
}

}  // namespace ovhost
