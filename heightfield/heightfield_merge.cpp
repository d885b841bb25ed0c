// heightfield_merge.
#include "heightfield/heightfield_merge.h"

#include <algorithm>
#include <cmath>

#include "core/idioms.h"

HeightfieldMerge::HeightfieldMerge() {
  SetMenu(modeHint_, this,
          {{"Mix", kMix},
           {"Add", kAdd},
           {"Subtract", kSubtract},
           {"Difference", kDifference},
           {"Highest (raise)", kHighest},
           {"Lowest (cut away)", kLowest},
           {"Multiply", kMultiply},
           {"Screen", kScreen}});
  Param(other_, "heightfield_A", "")
      .About("Heightfield that is merged with the input, point by point: of as many points.");
  Param(mixAmount_, "mix_amount", 1.0)
      .About("How much of the merge there is: 0 is the input alone, 1 the mode in full.");
  Param(mode_, "merge_mode", kAdd, &modeHint_)
      .About("How heights come together: mixed, added, subtracted, the higher or lower of both, and so on.");
}

trHeightfield* HeightfieldMerge::Other() const {
  trBase* const node = other_.LinkedNode(true);
  return node && node->IsTrue("is_heightfield") ? dynamic_cast<trHeightfield*>(node) : nullptr;
}

long HeightfieldMerge::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  trHeightfield* other = Other();
  if (other && !(other->HfOperateTS() & 1)) return 0;
  if (!input) return MakeFlat(*this);
  if (!Init(0, 0, input->width, input->height)) return 0;
  if (!HasPoints(other)) other = nullptr;
  if (other && (other->width != width || other->height != height))
    trOutWarning("Merging " + other->Name() + ": mismatched number of data points");

  const float m = static_cast<float>(mixAmount_), n = 1.0f - m;
  const float inputLow = input->HfMinZ(), inputHigh = input->HfMaxZ();
  const float low = other ? other->HfMinZ() : 0, high = other ? other->HfMaxZ() : 0;
  const float r = 1.0f / std::max(high - low, 1e-5f);
  const int shared = other ? std::min(width, other->width) : 0;

  // `blend(i, a)` for the points that both have; the loop is compiled for each mode.
  const auto mergeBy = [&](const auto& blend) {
    MakeRows(*this, [&](long row) {
      const float* const i = input->HfScanlineRaw(static_cast<int>(row));
      float* const to = HfScanlineRaw(static_cast<int>(row));
      if (other) {
        const float* const a = other->HfScanlineRaw(std::min(static_cast<int>(row), other->height - 1));
        for (int x = 0; x < shared; ++x) to[x] = blend(i[x], a[x]);
      }
      std::copy(i + shared, i + width, to + shared);
    });
  };
  switch (mode_) {
    case kMix:
      mergeBy([=](float i, float a) { return n * i + m * a; });
      break;
    case kAdd:
      mergeBy([=](float i, float a) { return i + m * a; });
      break;
    case kSubtract:
      mergeBy([=](float i, float a) { return i - m * a; });
      break;
    case kDifference:
      mergeBy([=](float i, float a) { return m * std::fabs(i - a) + n * i; });
      break;
    case kHighest:
      mergeBy([=](float i, float a) { return m * std::max(i, a) + n * i; });
      break;
    case kLowest:
      mergeBy([=](float i, float a) { return m * std::min(i, a) + n * i; });
      break;
    case kMultiply:
      mergeBy([=](float i, float a) { return m * ((i - inputLow) * (a - low) * r + inputLow) + n * i; });
      break;
    case kScreen:
      mergeBy([=](float i, float a) { return m * (inputHigh - (high - a) * (inputHigh - i) * r) + n * i; });
      break;
    default:  // no such mode: the input
      mergeBy([](float i, float) { return i; });
  }
  return 1;
}
