// Picture files: encoded in memory, written beside their target, flushed and renamed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/api.h"

namespace ovhost {

/// A float picture of any number of channels, rows from the top, channels interleaved.
struct Picture {
  int width = 0, height = 0;
  std::vector<std::string> channels;  ///< "R", "G", "B", "A", "normal.X" ...
  std::vector<float> pixels;
  /// Where it lies in the full picture, and the full picture's size (data and display window).
  int originX = 0, originY = 0, fullWidth = 0, fullHeight = 0;
  std::vector<std::pair<std::string, std::string>> metadata;
};

/// How scene-linear light becomes display values in PNG, JPEG and TIFF.
struct ViewTransform {
  double exposureStops = 0;
  /// Rolls highlights off instead of cutting them at 1: straight up to 0.6, then towards 1.
  bool softClip = true;
  bool operator==(const ViewTransform&) const = default;
};

/// Whether the path's extension is one that can be written: exr, png, jpg, jpeg, tif, tiff.
OV_API bool IsPicturePath(const std::string& path);
/// Whether files of the path's extension take channels beyond colour and alpha: exr.
OV_API bool HoldsLayers(const std::string& path);

/// Empty, or why no picture of that size can have the path's format.
OV_API std::string PictureSizeProblem(const std::string& path, int width, int height);
/// Loads what WritePicture encodes with, for who wants to know before hours of work that it is there. Empty,
/// or why it isn't. Thread-safe.
OV_API std::string LoadPictureEncoder();

/// Writes atomically, once the encoded picture has proved whole. EXR keeps linear values of all channels,
/// half or (`fullFloat`) float; PNG has 8 bits, TIFF 16, JPEG 8, of the first three channels through the view
/// transform and the sRGB curve; TIFF keeps alpha. Returns an empty text, or why it failed.
OV_API std::string WritePicture(const std::string& path, const Picture& picture, const ViewTransform& view,
                                bool fullFloat = false);

/// Some of a picture's channels, by their numbers.
OV_API Picture ChannelsOf(const Picture& picture, const std::vector<std::size_t>& channels);
/// The first three channels as a screen shows them, 0 to 1, with alpha where there is one.
OV_API Picture Displayed(const Picture& picture, const ViewTransform& view);

/// The display value, 0 to 1, of a linear one.
OV_API float DisplayValue(float linear, const ViewTransform& view);

}  // namespace ovhost
