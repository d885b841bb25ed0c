// Patches that the surface itself hides from the eye.
#pragma once

#include <array>
#include <atomic>
#include <vector>

#include "core/render_state.h"

namespace ovhost {

/// A patch before it is diced: its displaced corners in turn and its centre, world space.
using PatchOutline = std::array<trVector, 5>;

/// Which patches of a surface other patches hide from the eye. Relief between the points of an outline isn't
/// known yet, so a patch counts as hidden only where nothing near it can be seen, and what hides it stands
/// well in front. None once `stop`, which may be null, is set. Uses all workers of the caller's arena; the
/// result doesn't depend on how many there are.
std::vector<char> FindHiddenPatches(const std::vector<PatchOutline>& patches, const trView& view,
                                    const std::atomic<bool>* stop);

}  // namespace ovhost
