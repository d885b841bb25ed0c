// Colour conversions made by the library of colour management.
#pragma once

#include <string>

namespace ovhost {

/// A conversion to linear render space. Apply is thread-safe.
class ColourProcessor {
 public:
  virtual ~ColourProcessor() = default;
  /// Converts three floats in place.
  virtual void Apply(float* rgb) const = 0;
};

/// The library's function `ovMakeColourProcessor`: from a space of the configuration; null with the problem
/// told.
using ColourProcessorMaker = ColourProcessor*(const char* configPath, const char* inputSpace,
                                              std::string& problem);

}  // namespace ovhost
