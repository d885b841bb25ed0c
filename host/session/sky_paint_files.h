// Pictures of skies and of paint in files, and paint taken back from them.
#pragma once

#include <string>

#include "host/session/sky_paint_edit.h"

namespace ovhost {

/// Where pictures of all directions lie: one panorama, or six faces beside each other ("sky.png" stands for
/// sky_n.png, sky_e.png and so on).
struct SkyFiles {
  std::string path;
  bool isFaces = false;
};
/// The file of one face.
OV_API std::string FacePath(const std::string& path, trSkyPaintFace face);
/// Whether such pictures can be files of that extension: png, tif, tiff, exr.
OV_API bool IsSkyPath(const std::string& path);

/// Writes a sky as the project shows it, or linear to an EXR. `width` is the panorama's. Throws a
/// SessionError where a file can't be written; those before it are there then. Likewise the next.
OV_API void WriteSky(const SkyFiles& files, const SkyView& sky, int width);
/// Writes paint: red and green as they are, whatever the format, on black.
OV_API void WritePaint(const SkyFiles& files, const SkyFaces& paint, int width);

/// How paint comes from pictures.
struct PaintImport {
  SkyFiles pictures;
  /// The pictures as they were before they were painted on; empty where `pictures` hold nothing but paint, on
  /// black or on nothing, which replaces what there was.
  std::string sky;
  int side = 0;  ///< pixels of a face; 0: as before, or what the pictures hold
};
/// Throws a SessionError where the pictures can't be read or don't fit each other.
OV_API void ImportPaint(SkyPaintEdit& paint, int number, const PaintImport& import);

}  // namespace ovhost
