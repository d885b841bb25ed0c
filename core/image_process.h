// Picture files made from picture files.
#pragma once

#include "core/api.h"
#include "core/string.h"

/// How light is coded in the pixels of a file.
enum class trLightCoding : long {
  kByType = 0,  ///< sRGB for whole numbers, linear for floats
  kLinear = 1,
  kSrgb = 2
};

/// What is done to a picture, in this order. Pixels are counted from the bottom left, as in all pictures
/// here.
struct trImageChange {
  bool crops = false;
  long left = 0, bottom = 0, right = 0, top = 0;  ///< the last ones are part of the picture
  bool resizes = false;
  long width = 0, height = 0;  ///< 0 for one of them keeps the proportions
  trLightCoding coding = trLightCoding::kByType;
  double exposureStops = 0;
  bool fullFloat = false;  ///< of EXR: 32 bits rather than 16
};

/// The name with its last run of '#' replaced by the frame, padded with zeros to the run's length.
OV_API trString trFrameName(const trString& path, long frame);

/// Whether files of the path's extension can be written: exr, png, jpg, jpeg, tif, tiff.
OV_API bool trIsPicturePath(const trString& path);

/// Reads one file and writes another, whole or not at all; it may be the same one. PNG, JPEG and TIFF hold
/// sRGB, EXR linear light; TIFF and EXR keep alpha, in EXR colours are multiplied by it. Empty, or why it
/// failed. Thread-safe.
OV_API trString trProcessImageFile(const trString& from, const trString& to, const trImageChange& change);
