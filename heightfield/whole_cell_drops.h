// Drops that live on whole grid points: the second version of erosion, and the experiment before it.
#pragma once

#include <cstdint>

#include "core/random.h"
#include "heightfield/drop_run.h"
#include "heightfield/drop_settings.h"

/// Walks `drops` drops in the calling thread, with a report at every hundredth of them, or at every drop
/// when they are fewer; and twice a second where those take longer. Drops go around to the opposite side.
/// False when a report stopped it; what was done stays. `settings.border` and `settings.nearestCentre` say
/// nothing here.
bool WalkWholeCellDrops(const DropField& field, double depositionRate, trMersenneTwister& generator,
                        std::int64_t drops, const DropReport& report);

/// The same for the experiment: diffusion grows along the walk, and a step over the last row loses touch
/// with the ground.
bool WalkExperimentalDrops(const DropField& field, double erosionPower, trMersenneTwister& generator,
                           std::int64_t drops, const DropReport& report);
