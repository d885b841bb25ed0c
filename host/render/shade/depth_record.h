// What a camera sample tells of depths on its way.
#pragma once

#include <span>

#include "host/render/shade/camera_sample.h"

namespace ovhost {

/// Counts volumes on a part of the way to what is seen: their steps, in metres from the eye, and what they
/// let through.
void CountVolumes(std::span<const DeepStep> steps, const trFCol& transmittance, CameraSample& sample);

/// The same on the way past a surface, `start` metres from the eye, where `throughput` arrives. The steps
/// become the sample's own.
void AddVolumesBehind(const std::vector<DeepStep>& steps, const trFCol& transmittance, double start,
                      const trFCol& throughput, CameraSample& sample);

/// Light from where a path was scattered in a volume, by all that was left of it: it stands for as much of
/// the volume as `footprint`, metres.
void AddScattering(double distance, double footprint, const trFCol& light, const trFCol& throughput,
                   CameraSample& sample);

/// A surface's light, and how much it covers.
void AddSurface(double distance, const trFCol& light, float cover, CameraSample& sample);

}  // namespace ovhost
