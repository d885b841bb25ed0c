// The film: sums of samples a pixel, by tiles, and the picture they make.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/image/picture.h"
#include "host/render/frame/render_settings.h"
#include "host/render/shade/camera_sample.h"

namespace ovhost {

/// The layers that a film may have besides beauty and alpha.
OV_API const std::vector<std::string>& LayerNames();

struct LayerKind;

/// Pixel sums. Tiles are written by one thread at a time each; the rest is main thread only.
class OV_API Film {
 public:
  static constexpr int kTileSize = 32;

  /// `layers` are names of LayerNames().
  Film(const PixelRect& area, int fullWidth, int fullHeight, const std::vector<std::string>& layers);

  /// What the sums of such a film take.
  static std::uint64_t BytesFor(const PixelRect& area, const std::vector<std::string>& layers);

  int NumTiles() const { return tilesX_ * tilesY_; }
  PixelRect TileRect(int tile) const;
  /// Where a pixel lies, counted from the corner of the film's area: its tile, and its number in that.
  struct Place {
    int tile;
    size_t pixel;
  };
  Place PlaceOf(int x, int y) const;
  /// Samples a pixel that a tile has.
  std::uint32_t& TileSamples(int tile) { return tileSamples_[tile]; }
  std::uint32_t TileSamples(int tile) const { return tileSamples_[tile]; }
  /// Copies the sums of a tile out, and back.
  void GetTileSums(int tile, std::vector<float>& sums) const;
  void SetTileSums(int tile, const std::vector<float>& sums);
  /// Forgets all samples.
  void Clear();
  /// Adds a pixel's samples of one pass.
  void Add(int x, int y, const CameraSample* samples, int count);

  /// The mean picture so far.
  Picture MakePicture() const;
  /// Variance of every pixel's mean luminance; 0 where there is one sample.
  std::vector<float> MeanVariance() const;
  /// Estimated noise of a tile: the root mean square of its pixels' standard errors beside their mean
  /// luminance, in the noisiest of its blocks of 8 by 8 pixels. Infinite before the second pass. Depends on
  /// nothing but the tile's sums.
  double TileNoise(int tile) const;

  // Checkpoints: the raw sums.
  const std::vector<float>& Sums() const { return sums_; }
  std::vector<float>& Sums() { return sums_; }
  const std::vector<std::uint32_t>& AllTileSamples() const { return tileSamples_; }
  std::vector<std::uint32_t>& AllTileSamples() { return tileSamples_; }

 private:
  struct Layer {
    const LayerKind* kind;
    int first;
  };
  size_t FirstSum(int x, int y) const;

  PixelRect area_;
  int fullWidth_, fullHeight_, tilesX_, tilesY_, stride_;
  std::vector<Layer> layers_;
  std::vector<float> sums_;  ///< stride_ floats a pixel: R G B A, squared luminances of samples and of
                             ///< passes, then the layers
  std::vector<std::uint32_t> tileSamples_;
};

}  // namespace ovhost
