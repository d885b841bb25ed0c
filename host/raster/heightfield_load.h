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
  void OnParamChanged(long index, trBase* who) override;

 private:
  ovhost::RasterRequest Request() const;
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
};
