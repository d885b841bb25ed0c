// The encoder of picture files, a library of its own: the one it stands on brings 260 others, a fifth of a
// second to load, which only a run that writes a picture should pay for.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/image/deep_picture.h"
#include "host/image/picture.h"

namespace ovhost {

struct EncodeJob {
  const std::string* path = nullptr;  ///< its extension chooses the format
  const Picture* picture = nullptr;
  const float* pixels = nullptr;  ///< `channels` a pixel
  int channels = 0;
  bool isScene = false;  ///< linear values of any range, else display values 0 to 1
  bool fullFloat = false;
  std::vector<unsigned char> bytes;  ///< the result
  std::string problem;               ///< why there is none
};

struct DeepEncodeJob {
  const std::string* path = nullptr;
  const Picture* picture = nullptr;  ///< size, place and metadata
  /// Of a pixel, counted from the data window's corner; replaces what it is given.
  std::function<void(int x, int y, std::vector<DeepSample>& samples)> samples;
  bool fullFloat = false;  ///< colour and alpha too
  std::vector<unsigned char> bytes;
  std::string problem;
};

/// The library's functions `ovEncodePicture` and `ovEncodeDeepPicture`: false with the problem told.
/// Thread-safe.
using PictureEncoder = bool(EncodeJob& job);
using DeepEncoder = bool(DeepEncodeJob& job);

}  // namespace ovhost
