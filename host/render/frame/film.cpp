// Pixel sums and the picture they make.
#include "host/render/frame/film.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ovhost {

struct LayerKind {
  const char* name;
  int channels;
  const char* suffixes;  ///< one letter a channel of the picture; kWeighted has a sum of weights too
  std::array<float, 3> (*values)(const CameraSample&);
  /// Of the samples. Ids don't blend; what is weighted has the weight behind its one value.
  enum Kept { kMean, kSum, kFirst, kWeighted } kept = kMean;
  int Pictured() const { return kept == kWeighted ? 1 : channels; }
};

namespace {

constexpr int kFixedChannels = 6;

/// Side of the blocks that noise is estimated in, and the luminance below which it counts as there.
constexpr int kNoiseBlock = 8;
constexpr double kDarkest = 0.02;

std::array<float, 3> Floats(const trFCol& c) { return {c.r, c.g, c.b}; }
std::array<float, 3> Floats(const trVector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

#define OV_LAYER(member) [](const CameraSample& s) { return Floats(s.member); }
constexpr LayerKind kLayerKinds[] = {{"depth", 1, "Z",
                                      [](const CameraSample& s) {
                                        return std::array<float, 3>{s.depth, 0, 0};
                                      }},
                                     {"position", 3, "XYZ", OV_LAYER(position)},
                                     {"normal", 3, "XYZ", OV_LAYER(normal)},
                                     {"albedo", 3, "RGB", OV_LAYER(albedo)},
                                     {"direct", 3, "RGB", OV_LAYER(direct)},
                                     {"indirect", 3, "RGB", OV_LAYER(indirect)},
                                     {"atmosphere", 3, "RGB", OV_LAYER(atmosphere)},
                                     {"diffuse", 3, "RGB", OV_LAYER(light.diffuse)},
                                     {"specular", 3, "RGB", OV_LAYER(light.specular)},
                                     {"transmission", 3, "RGB", OV_LAYER(light.transmission)},
                                     {"emission", 3, "RGB", OV_LAYER(light.emission)},
                                     {"sky", 3, "RGB", OV_LAYER(light.sky)},
                                     {"volume_opacity", 3, "RGB", OV_LAYER(volumeOpacity)},
                                     {"volume_depth", 2, "Z",
                                      [](const CameraSample& s) {
                                        const float weight = Brightness(s.volumeOpacity);
                                        return std::array<float, 3>{s.volumeDepth * weight, weight, 0};
                                      },
                                      LayerKind::kWeighted},
                                     {"samples", 1, "N",
                                      [](const CameraSample&) {
                                        return std::array<float, 3>{1, 0, 0};
                                      },
                                      LayerKind::kSum},
                                     {"node_id", 1, "I",
                                      [](const CameraSample& s) {
                                        return std::array<float, 3>{s.nodeId, 0, 0};
                                      },
                                      LayerKind::kFirst}};
#undef OV_LAYER

}  // namespace

const std::vector<std::string>& LayerNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> list;
    for (const LayerKind& kind : kLayerKinds) list.push_back(kind.name);
    return list;
  }();
  return names;
}

std::uint64_t Film::BytesFor(const PixelRect& area, const std::vector<std::string>& layers) {
  std::uint64_t stride = kFixedChannels;
  for (const LayerKind& kind : kLayerKinds)
    if (std::find(layers.begin(), layers.end(), kind.name) != layers.end()) stride += kind.channels;
  return static_cast<std::uint64_t>(area.x1 - area.x0) * (area.y1 - area.y0) * stride * sizeof(float);
}

Film::Film(const PixelRect& area, int fullWidth, int fullHeight, const std::vector<std::string>& layers)
    : area_(area), fullWidth_(fullWidth), fullHeight_(fullHeight) {
  tilesX_ = (area.x1 - area.x0 + kTileSize - 1) / kTileSize;
  tilesY_ = (area.y1 - area.y0 + kTileSize - 1) / kTileSize;
  stride_ = kFixedChannels;
  for (const LayerKind& kind : kLayerKinds) {
    if (std::find(layers.begin(), layers.end(), kind.name) == layers.end()) continue;
    layers_.push_back({&kind, stride_});
    stride_ += kind.channels;
  }
  sums_.assign(static_cast<size_t>(area.x1 - area.x0) * (area.y1 - area.y0) * stride_, 0.0f);
  tileSamples_.assign(NumTiles(), 0);
}

PixelRect Film::TileRect(int tile) const {
  const int x = area_.x0 + tile % tilesX_ * kTileSize, y = area_.y0 + tile / tilesX_ * kTileSize;
  return {x, y, std::min(x + kTileSize, area_.x1), std::min(y + kTileSize, area_.y1)};
}

Film::Place Film::PlaceOf(int x, int y) const {
  const int tile = y / kTileSize * tilesX_ + x / kTileSize;
  const int left = x / kTileSize * kTileSize;
  const auto width = static_cast<size_t>(std::min(kTileSize, area_.x1 - area_.x0 - left));
  return {tile, static_cast<size_t>(y % kTileSize) * width + static_cast<size_t>(x - left)};
}

size_t Film::FirstSum(int x, int y) const {
  return (static_cast<size_t>(y - area_.y0) * (area_.x1 - area_.x0) + (x - area_.x0)) * stride_;
}

void Film::GetTileSums(int tile, std::vector<float>& sums) const {
  const PixelRect rect = TileRect(tile);
  const auto width = static_cast<std::ptrdiff_t>(rect.x1 - rect.x0) * stride_;
  sums.clear();
  for (int y = rect.y0; y < rect.y1; ++y) {
    const float* row = &sums_[FirstSum(rect.x0, y)];
    sums.insert(sums.end(), row, row + width);
  }
}

void Film::SetTileSums(int tile, const std::vector<float>& sums) {
  const PixelRect rect = TileRect(tile);
  const auto width = static_cast<std::ptrdiff_t>(rect.x1 - rect.x0) * stride_;
  for (int y = rect.y0; y < rect.y1; ++y)
    std::copy_n(sums.begin() + (y - rect.y0) * width, width, &sums_[FirstSum(rect.x0, y)]);
}

void Film::Clear() {
  std::fill(sums_.begin(), sums_.end(), 0.0f);
  std::fill(tileSamples_.begin(), tileSamples_.end(), 0u);
}

void Film::Add(int x, int y, const CameraSample* samples, int count) {
  float* sums = &sums_[FirstSum(x, y)];
  const bool isFirst = sums[4] == 0 && sums[3] == 0 && sums[0] == 0;
  trFCol beauty;
  for (int i = 0; i < count; ++i) {
    beauty += samples[i].beauty;
    const float luminance = Luminance(samples[i].beauty);
    sums[4] += luminance * luminance;
    sums[3] += samples[i].alpha;
    for (const Layer& layer : layers_) {
      const bool isKeptFirst = layer.kind->kept == LayerKind::kFirst;
      if (isKeptFirst && !(isFirst && i == 0)) continue;
      const std::array<float, 3> values = layer.kind->values(samples[i]);
      for (int c = 0; c < layer.kind->channels; ++c)
        sums[layer.first + c] = isKeptFirst ? values[c] : sums[layer.first + c] + values[c];
    }
  }
  sums[0] += beauty.r;
  sums[1] += beauty.g;
  sums[2] += beauty.b;
  const float luminance = Luminance(beauty);
  sums[5] += luminance * luminance / static_cast<float>(count);
}

Picture Film::MakePicture() const {
  Picture picture;
  picture.width = area_.x1 - area_.x0;
  picture.height = area_.y1 - area_.y0;
  picture.originX = area_.x0;
  picture.originY = area_.y0;
  picture.fullWidth = fullWidth_;
  picture.fullHeight = fullHeight_;
  picture.channels = {"R", "G", "B", "A"};
  for (const Layer& layer : layers_)
    for (int c = 0; c < layer.kind->Pictured(); ++c)
      picture.channels.push_back(std::string(layer.kind->name) + "." + layer.kind->suffixes[c]);
  const size_t channels = picture.channels.size();
  picture.pixels.resize(static_cast<size_t>(picture.width) * picture.height * channels);
  for (int tile = 0; tile < NumTiles(); ++tile) {
    const PixelRect rect = TileRect(tile);
    const float scale = tileSamples_[tile] ? 1.0f / static_cast<float>(tileSamples_[tile]) : 0.0f;
    for (int y = rect.y0; y < rect.y1; ++y)
      for (int x = rect.x0; x < rect.x1; ++x) {
        const size_t pixel = static_cast<size_t>(y - area_.y0) * picture.width + (x - area_.x0);
        const float* sums = &sums_[pixel * stride_];
        float* out = &picture.pixels[pixel * channels];
        for (int c = 0; c < 4; ++c) *out++ = sums[c] * scale;
        for (const Layer& layer : layers_) {
          const float* values = &sums[layer.first];
          if (layer.kind->kept == LayerKind::kWeighted)
            *out++ = values[1] > 0 ? values[0] / values[1] : 0.0f;
          else
            for (int c = 0; c < layer.kind->channels; ++c)
              *out++ = values[c] * (layer.kind->kept == LayerKind::kMean ? scale : 1.0f);
        }
      }
  }
  return picture;
}

std::vector<float> Film::MeanVariance() const {
  const int width = area_.x1 - area_.x0;
  std::vector<float> variance(static_cast<size_t>(width) * (area_.y1 - area_.y0));
  for (int tile = 0; tile < NumTiles(); ++tile) {
    const double n = tileSamples_[tile];
    if (n < 2) continue;
    const PixelRect rect = TileRect(tile);
    for (int y = rect.y0; y < rect.y1; ++y)
      for (int x = rect.x0; x < rect.x1; ++x) {
        const float* sums = &sums_[FirstSum(x, y)];
        const double mean = Luminance({sums[0], sums[1], sums[2]}) / n;
        variance[static_cast<size_t>(y - area_.y0) * width + (x - area_.x0)] =
            static_cast<float>(std::max(0.0, sums[4] / n - mean * mean) / (n - 1));
      }
  }
  return variance;
}

double Film::TileNoise(int tile) const {
  const double n = tileSamples_[tile];
  // Samples of a pass share what they can, so only passes are independent: one of one sample, then full ones.
  const double degrees = std::ceil(n / kPassSamples);
  if (n < 2) return std::numeric_limits<double>::infinity();
  const PixelRect rect = TileRect(tile);
  double worst = 0;
  for (int top = rect.y0; top < rect.y1; top += kNoiseBlock)
    for (int left = rect.x0; left < rect.x1; left += kNoiseBlock) {
      double variance = 0, brightness = 0;
      const int bottom = std::min(top + kNoiseBlock, rect.y1), right = std::min(left + kNoiseBlock, rect.x1);
      for (int y = top; y < bottom; ++y)
        for (int x = left; x < right; ++x) {
          const float* sums = &sums_[FirstSum(x, y)];
          const double mean = Luminance({sums[0], sums[1], sums[2]}) / n;
          variance += std::max(0.0, sums[5] - n * mean * mean) / degrees / n;
          brightness += mean;
        }
      const double pixels = static_cast<double>(bottom - top) * (right - left);
      worst = std::max(worst, std::sqrt(variance / pixels) / std::max(brightness / pixels, kDarkest));
    }
  return worst;
}

}  // namespace ovhost
