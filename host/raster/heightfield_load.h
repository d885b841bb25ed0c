// The node that reads elevation files.
#pragma once

#include "core/heightfield.h"
#include "host/raster/raster_read.h"

/// A heightfield from a file: elevation models, pictures of heights, the system's own .ovh. Its scale comes
/// from the file's georeference, as do its geographic corners; raster units are such that slopes of the
/// raster are slopes of the ground.
class OV_API trHeightfieldLoad : public trHeightfield {
 public:
  trHeightfieldLoad();
  long HfOperate() override;
  /// Reports the file that can't be read, as far as its beginning tells, and warns of what would be left out
  /// of it. Main thread only.
  void CheckFile() const;
  void UpdateDerived() override;
  /// Where the points of what was read last lie on the file's map projection; null where it has none.
  const std::shared_ptr<const ovhost::MapPlacement>& Map() const { return map_; }

 private:
  ovhost::RasterRequest Request() const;
  std::unique_ptr<ovhost::RasterSource> Open(const std::string& path, ovhost::RasterPlan& plan,
                                             std::string& problem) const;
  void ReportFile(const std::string& path, const std::string& problem) const;
  /// Reads the file into the raster. Empty, or why it can't be read.
  std::string ReadFile(const std::string& path);
  void MakeFlat();

  trFile filename_;
  trLinkHint filenameHint_;
  trIntHint bandHint_, shrinkHint_, unitsHint_, fillHint_, georeferenceHint_;
  long band_, shrink_, units_, fill_, georeference_;
  unsigned char readPart_, setMissing_, setScale_;
  tr2Vector bottomLeft_, topRight_, metresPerPixel_;
  double verticalScale_, verticalOffset_, missingValue_, fillValue_;
  std::shared_ptr<const ovhost::MapPlacement> map_;
};

namespace ovhost {

/// The map that a heightfield's points lie on: that of the file at the beginning of its chain, as long as
/// nothing on the way has moved a point. Null where there is none. Main thread only.
std::shared_ptr<const MapPlacement> MapOf(const trHeightfield& heightfield);

/// Reports as errors the elevation files that can't be read, without reading them. Main thread only.
OV_API void ReportElevationFiles(trBase* root);

}  // namespace ovhost
