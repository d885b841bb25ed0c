// geog_image_map_shader: a georeferenced raster on a planet, by latitude and longitude.
#pragma once

#include <atomic>
#include <mutex>

#include "core/geography.h"
#include "imagemap/geog_raster_load.h"
#include "imagemap/image_map_shader.h"

class GeogImageMapShader;

/// "Update": reads the file again, with missing values replaced as the sheet now says.
class GeogImageMapShader_UpdateNODATAButton : public trGuiPushButton {
 public:
  explicit GeogImageMapShader_UpdateNODATAButton(GeogImageMapShader* node);
  long OnPressed() override;

 private:
  GeogImageMapShader* node_;
};

/// "Size from Image": sets the size of a raster that is placed by hand to what it is on the ground.
class GeogImageMapShader_SizeFromImageButton : public trGuiPushButton {
 public:
  explicit GeogImageMapShader_SizeFromImageButton(GeogImageMapShader* node);
  long OnPressed() override;

 private:
  GeogImageMapShader* node_;
};

class GeogImageMapShader : public ImageMapShader {
 public:
  GeogImageMapShader();
  long OnFirstCreate() override;
  long OnUserCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  long StartRender(trRenderingInterface& rendering) override;
  long LoadImage(long frame) override;
  long MapToImage(trShadingInterface& si, double& x, double& y, trFCol& mask) override;
  void UpdateImageSizeInfo() override {}

  /// Reads the file again and leaves the corners alone. Main thread only.
  long Reload() { return LoadDataset(false); }
  /// Size of the loaded image on the ground, metres; in pixels where its file isn't read as a raster.
  tr2Vector GroundSize() const;

 private:
  enum LoadMethod : long { kRasterLibrary = 0, kPictureLibrary = 1 };

  void DeclareLocation();
  void DeclareNoData();
  void DeclareInfo();
  GeogNoDataSettings NoDataSettings() const;
  bool IsCorner(long index) const;
  bool IsOutput(long index) const;
  trString FoundFile() const;
  std::unique_ptr<trGeoRaster> OpenRaster(const trString& path) const;
  long LoadDataset(bool mayPlace);
  void TakePlace(GeogPlace place, bool mayPlace);
  void WarnOfCutValues(const trGeoRasterInfo& info, const GeogBandMap& map) const;
  void UpdateInfo(const trGeoRasterInfo* info);
  trGeoTransformation* WayOf(unsigned thread);
  const trPlanetGeography* Planet();
  bool FindOnPlanet(trShadingInterface& si, double& u, double& v);

  trIntHint loadMethodHint_, colourModeHint_;
  trDoubleHint alphaHint_;
  trStringHint infoHint_;
  long loadMethod_, colourMode_;
  unsigned char georeference_, autoGeoreference_, reproject_, positionExplicitly_;
  unsigned char replaceNoData_, withColour_, withScalar_, makeTransparent_;
  GeogCorners corners_;
  trManRgb noDataColour_;
  double noDataAlpha_, noDataScalar_;
  tr2Vector xySize_, xyPoints_;
  trString projectionInfo_;
  GeogImageMapShader_SizeFromImageButton sizeButton_{this};
  GeogImageMapShader_UpdateNODATAButton updateButton_{this};

  GeogPlace place_;
  GeogCorners fileCorners_;  ///< as the raster itself has them
  GeogNoDataSettings loadedNoData_;

  /// Ways from degrees to the file, one a thread, made by the thread itself under the lock.
  std::vector<std::unique_ptr<trGeoTransformation>> ways_;
  enum class PlanetState { kUnread, kNone, kFound };
  std::atomic<PlanetState> planetState_{PlanetState::kUnread};
  trPlanetGeography planet_;
  std::mutex lazy_;
};
