// Dicing all of a frame's surfaces within the memory that there is for them.
#pragma once

#include "host/render/dice/dicer.h"
#include "host/render/parts/assembly.h"

namespace ovhost {

/// Shares `total` out: everybody's least, and of the rest what each wants, up to a level that is the same for
/// all; who wants less leaves the rest to the others. Throws std::bad_alloc where there isn't the least.
OV_API std::vector<std::uint64_t> ShareVertices(std::uint64_t total,
                                                const std::vector<VertexDemand>& demands);

/// Dices and displaces the parts and the prototypes, whose finest edges are known; displaced meshes that
/// nothing moves become triangles. `settings` are those of the view, and their greatest number of vertices is
/// one for all surfaces. False when it was stopped. Uses all workers of the caller's arena; the result
/// doesn't depend on how many there are. Throws std::bad_alloc where even the coarsest surfaces have more
/// vertices than allowed.
OV_API bool DiceAllParts(Assembly& parts, const SharedParts& shared, const DiceSettings& settings,
                         trRenderServices& services, DiceStatistics& statistics);

}  // namespace ovhost
