// Cutting and displacing meshes as finely as the view asks.
#pragma once

#include "host/render/dice/dicer.h"
#include "host/render/parts/micro_mesh.h"

namespace ovhost {

/// What cutting the roots takes, going by where they lie undisplaced.
VertexDemand DemandOf(const MicroMesh& mesh, const DiceSettings& settings);

/// Cuts and displaces the roots. `moves` tells whether anything was displaced at all; if not, the mesh stays
/// empty, and its roots are as good as they are. False when it was stopped. Uses all workers of the caller's
/// arena; the result doesn't depend on how many there are. Throws std::bad_alloc where the roots alone have
/// more vertices than allowed.
OV_API bool DisplaceMesh(MicroMesh& mesh, const DiceSettings& settings, trRenderServices& services,
                         DiceStatistics& statistics, bool& moves);

}  // namespace ovhost
