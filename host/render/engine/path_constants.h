// Constants that the engines share.
#pragma once

namespace ovhost {

/// What a rough lobe adds to the cone, as a share of its roughness, and the footprint of a cone as one of its
/// angle: detail finer than this averages out.
constexpr double kSpreadOfRoughness = 0.5, kFootprintOfSpread = 0.2;
/// Cones wider than this see blurred air: few samples do.
constexpr double kBlurredSpread = 0.05;
/// Clear sheets that a path goes through at most.
constexpr int kMostSheets = 64;
/// Share of the open sky taken to be seen from the end of a path: the tabulated light knows no terrain.
constexpr float kDeepVisibility = 0.7f;

}  // namespace ovhost
