// Pictures that keep the depths of what they show.
#pragma once

#include <vector>

#include "core/colour.h"
#include "host/image/picture.h"

namespace ovhost {

/// What a stretch of depth adds to a pixel, as it reaches the eye: steps of a pixel add up to what it shows.
struct DeepStep {
  float front = 0, back = 0;  ///< metres from the eye; equal for surfaces
  trFCol light;
  float cover = 0;  ///< share of the pixel that is hidden from here on, and wasn't before
  bool IsSurface() const { return front == back; }
};

/// The steps of a picture's pixels, front to back and none over another.
class OV_API DeepPixels {
 public:
  virtual ~DeepPixels() = default;
  /// Of a pixel, counted from the data window's corner; `steps` is replaced. Thread-safe.
  virtual void Steps(int x, int y, std::vector<DeepStep>& steps) const = 0;
};

/// A sample of a deep picture: its own opacity, and its light, which that opacity has multiplied, before what
/// lies in front dims it.
struct DeepSample {
  float front = 0, back = 0;
  trFCol light;
  float alpha = 0;
};

/// The samples that steps, composited front to back, come of. Each makes up for how those before it were
/// rounded, where colour and alpha are kept as halves: `roundsToHalf`. `samples` is replaced.
OV_API void SamplesOfSteps(const std::vector<DeepStep>& steps, bool roundsToHalf,
                           std::vector<DeepSample>& samples);

/// Whether files of the path's extension can be deep: exr.
OV_API bool HoldsDepths(const std::string& path);

/// Writes a deep OpenEXR of scan lines atomically, once it has proved whole: R, G, B and A as halves, or as
/// floats where some light is past what halves hold; Z and ZBack as floats. Size, place and metadata are
/// those of `picture`, whose own pixels aren't looked at. Returns an empty text, or why it failed.
OV_API std::string WriteDeepPicture(const std::string& path, const Picture& picture,
                                    const DeepPixels& pixels);

}  // namespace ovhost
