// Listing and choosing instruction sets, through Highway's table of targets.
#include "host/noise/simd_level.h"

#include <hwy/highway.h>

namespace {
int64_t Compiled() {
  hwy::SetSupportedTargetsForTest(0);
  return hwy::SupportedTargets() & HWY_TARGETS;
}
void Choose(int64_t targets) {
  hwy::SetSupportedTargetsForTest(targets);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}
}  // namespace

std::vector<std::string> NoiseSimdLevels() {
  std::vector<std::string> names;
  for (int64_t targets = Compiled(); targets != 0; targets &= targets - 1)
    names.push_back(hwy::TargetName(targets & -targets));
  return names;
}

bool SetNoiseSimdLevel(const std::string& name) {
  if (name.empty()) return Choose(0), true;
  for (int64_t targets = Compiled(); targets != 0; targets &= targets - 1) {
    const int64_t target = targets & -targets;
    if (name == hwy::TargetName(target)) return Choose(target), true;
  }
  return false;
}
