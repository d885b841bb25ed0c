// Sharing memory among surfaces by what they need.
//
// What a diced surface needs is known once its patches are found, which takes about a hundredth of dicing it.
// No search goes on past the surface's share, so however many there are, one round of searches costs no more
// than one for all the memory. What is left over by those that need less raises the share of the others, who
// search again. Displaced meshes are only guessed at; they come first, and what they leave goes to the diced
// ones.
#include "host/render/dice/dice_parts.h"

#include <algorithm>
#include <new>

#include "host/render/dice/displace_mesh.h"
#include "host/render/dice/gather.h"

namespace ovhost {
namespace {

/// What a vertex of a displaced mesh takes, in those of diced surfaces: two triangles each.
constexpr std::uint64_t kMicroVertexShare = 4;
/// A surface's patches are looked for again where its share has grown as many times.
constexpr double kWorthAnotherSearch = 1.5;

/// One surface, or the roots of one. Numbers of vertices are in those of diced surfaces.
struct Surface {
  Assembly* assembly;
  GridMesh* grid;
  std::unique_ptr<MicroMesh>* micro;
  DiceSettings settings;
  VertexDemand demand;
  std::uint64_t share = 0, searched = 0;
  bool isFound = false;  ///< what it wants is no guess
};

class PartsDicer {
 public:
  PartsDicer(trRenderServices& services, DiceStatistics& statistics)
      : services_(services), statistics_(statistics) {}

  void Add(Assembly& parts, const DiceSettings& settings) {
    for (auto& mesh : parts.micros) surfaces_.push_back({&parts, nullptr, &mesh, settings, {}});
    for (const auto& grid : parts.grids) surfaces_.push_back({&parts, grid.get(), nullptr, settings, {}});
  }

  bool Run(std::uint64_t mostVertices) {
    total_ = mostVertices;
    if (total_ && surfaces_.size() > 1) FindDemands();
    if (!DisplaceMeshes()) return false;
    if (total_ && surfaces_.size() > 1) Share();
    for (Surface& surface : surfaces_)
      if (surface.grid && !Dice(*surface.grid, SettingsOf(surface), services_, statistics_)) return false;
    return true;
  }

 private:
  void Share();
  void FindDemands();
  /// Looks for the patches of surfaces whose share may have become large enough. Whether any was.
  bool SearchPatches();
  bool DisplaceMeshes();
  /// With its share as the limit.
  const DiceSettings& SettingsOf(Surface& surface) const {
    surface.settings.maxVertices = surfaces_.size() > 1 ? surface.share : total_;
    if (surface.micro) surface.settings.maxVertices /= kMicroVertexShare;
    return surface.settings;
  }

  trRenderServices& services_;
  DiceStatistics& statistics_;
  std::uint64_t total_ = 0;
  std::vector<Surface> surfaces_;
};

void PartsDicer::Share() {
  std::vector<VertexDemand> demands;
  for (const Surface& surface : surfaces_) demands.push_back(surface.demand);
  const std::vector<std::uint64_t> shares = ShareVertices(total_, demands);
  for (size_t i = 0; i < surfaces_.size(); ++i) surfaces_[i].share = shares[i];
}

void PartsDicer::FindDemands() {
  for (Surface& surface : surfaces_) {
    if (surface.grid) {
      surface.demand = DemandOf(*surface.grid, surface.settings);
    } else {
      surface.demand = DemandOf(**surface.micro, surface.settings);
      surface.demand.least *= kMicroVertexShare;
      surface.demand.wanted *= kMicroVertexShare;
    }
  }
  do Share();
  while (SearchPatches());
}

bool PartsDicer::SearchPatches() {
  bool isAnyFound = false;
  for (Surface& surface : surfaces_) {
    if (!surface.grid || surface.isFound) continue;
    if (static_cast<double>(surface.share) < kWorthAnotherSearch * static_cast<double>(surface.searched))
      continue;
    surface.searched = surface.share;
    surface.isFound = FindPatches(*surface.grid, SettingsOf(surface), services_, statistics_);
    if (!surface.isFound) continue;
    surface.demand.wanted = surface.grid->patches.size() * kPatchVertices;
    surface.demand.least = std::min(surface.demand.least, surface.demand.wanted);
    isAnyFound = true;
  }
  return isAnyFound;
}

bool PartsDicer::DisplaceMeshes() {
  std::uint64_t spare = total_;
  for (const Surface& surface : surfaces_) spare -= std::min(spare, surface.share);
  for (Surface& surface : surfaces_) {
    if (!surface.micro) continue;
    const std::uint64_t share = surface.share;
    surface.share += spare;
    bool moves = true;
    MicroMesh& mesh = **surface.micro;
    if (!DisplaceMesh(mesh, SettingsOf(surface), services_, statistics_, moves)) return false;
    const std::uint64_t used = mesh.vertices.size() * kMicroVertexShare;
    spare = share + spare - std::min(share + spare, used);
    surface.demand = {used, used};
    if (moves) continue;
    surface.assembly->meshes.push_back(MakeTriMesh(mesh, mesh.roots, surface.assembly->origin));
    surface.micro->reset();
  }
  for (Surface& surface : surfaces_)
    if (surface.micro) std::erase(surface.assembly->micros, nullptr);
  return true;
}

}  // namespace

std::vector<std::uint64_t> ShareVertices(std::uint64_t total, const std::vector<VertexDemand>& demands) {
  const auto shareOf = [](const VertexDemand& demand, std::uint64_t level) {
    return std::max(demand.least, std::min(demand.wanted, level));
  };
  const auto fits = [&](std::uint64_t level) {
    std::uint64_t left = total;
    for (const VertexDemand& demand : demands) {
      const std::uint64_t share = shareOf(demand, level);
      if (share > left) return false;
      left -= share;
    }
    return true;
  };
  if (!fits(0)) throw std::bad_alloc();
  // The highest level that fits.
  std::uint64_t low = 0, high = total;
  while (low < high) {
    const std::uint64_t middle = high - (high - low) / 2;
    if (fits(middle))
      low = middle;
    else
      high = middle - 1;
  }
  std::vector<std::uint64_t> shares;
  for (const VertexDemand& demand : demands) shares.push_back(shareOf(demand, low));
  return shares;
}

bool DiceAllParts(Assembly& parts, const SharedParts& shared, const DiceSettings& settings,
                  trRenderServices& services, DiceStatistics& statistics) {
  PartsDicer dicer(services, statistics);
  dicer.Add(parts, settings);
  for (const auto& prototype : shared.prototypes) {
    DiceSettings copied = settings;
    copied.copiedEdge = prototype->finestEdge;
    copied.origin = prototype->parts.origin;
    dicer.Add(prototype->parts, copied);
  }
  return dicer.Run(settings.maxVertices);
}

}  // namespace ovhost
