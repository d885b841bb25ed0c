// The encoder of picture files, a library of its own: the one it stands on brings 260 others, a fifth of a
// second to load, which only a run that writes a picture should pay for.
#pragma once

#include <string>
#include <vector>

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

/// The library's one function, `ovEncodePicture`: false with the problem told. Thread-safe.
using PictureEncoder = bool(EncodeJob& job);

}  // namespace ovhost
