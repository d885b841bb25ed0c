// The denoiser: smooths what sampling noise left, along the features of the scene and not across them.
#pragma once

#include <vector>

#include "core/colour.h"
#include "core/vector.h"
#include "host/image/picture.h"

namespace ovhost {

/// What the denoiser goes by, rows after each other. Colours and albedos are linear; normals are unit
/// vectors, zero for the sky; `variance` is that of the pixel's mean luminance.
struct DenoiseInput {
  int width = 0, height = 0;
  std::vector<trFCol> colour, albedo;
  std::vector<trFVector> normal;
  std::vector<float> variance;
};

/// Smooths the colours of a picture that has the layers albedo and normal.
void DenoisePicture(Picture& picture, const std::vector<float>& variance);

/// The smoothed colours. An edge-avoiding wavelet filter (Dammertz et al. 2010) whose tolerance follows the
/// pixels' own variance (Schied et al. 2017), on light without its albedo, so that textures stay; where
/// there is no variance about, colours stay. The same bits for any number of threads.
OV_API std::vector<trFCol> Denoise(const DenoiseInput& input);

}  // namespace ovhost
