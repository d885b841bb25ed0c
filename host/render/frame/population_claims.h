// What the populations of a project will take of the memory.
#pragma once

#include <cstdint>
#include <vector>

#include "core/project.h"
#include "core/scene.h"

namespace ovhost {

/// Of one scene maker.
struct PopulationClaim {
  const trBase* node = nullptr;
  std::uint64_t copies = 0;
  std::uint64_t bytes = 0;  ///< of copies, of what the maker keeps of them, and of the scenes that they share
};

/// Of a scene that was made. No copies where it has none.
OV_API PopulationClaim ClaimOf(const trBase& maker, const trScene& scene);
/// Tells of each claim, beside `budget`, bytes, 0 for no limit.
OV_API void TellClaims(const std::vector<PopulationClaim>& claims, std::uint64_t budget);
/// Whether they fit `budget` together; where not, an error says so.
OV_API bool ClaimsFit(const std::vector<PopulationClaim>& claims, std::uint64_t budget);

/// What a render of the project at its present frame would have to make room for, found out by populating
/// alone. False with errors reported where something can't be populated, or `isRefused` for want of memory:
/// then the claims are those of the populations before.
OV_API bool FindClaims(juProject& project, std::uint64_t budget, std::vector<PopulationClaim>& claims,
                       bool& isRefused);

}  // namespace ovhost
