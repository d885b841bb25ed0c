// Which instruction sets the noise kernels may use: for tests that compare them and benches that measure
// each.
#pragma once

#include <string>
#include <vector>

#include "core/api.h"

/// The instruction sets of this machine that kernels were compiled for, best first ("AVX3", "AVX2", ...; the
/// last is plain scalar code). Main thread only.
OV_API std::vector<std::string> NoiseSimdLevels();
/// Makes all kernels use the named set from now on; an empty name goes back to the best. Returns whether the
/// name is one of NoiseSimdLevels. Results don't change, to the bit. Main thread only.
OV_API bool SetNoiseSimdLevel(const std::string& name);
