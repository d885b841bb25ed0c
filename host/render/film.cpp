// Pixel sums and the picture they make.
#include "host/render/film.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

constexpr int kFixedChannels = 5;

struct LayerKind {
  const char* name;
  int channels;
  const char* suffixes;  ///< one letter a channel
};
constexpr LayerKind kLayerKinds[] = {
    {"depth", 1, "Z"},      {"position", 3, "XYZ"},     {"normal", 3, "XYZ"},     {"albedo", 3, "RGB"},
    {"direct", 3, "RGB"},   {"indirect", 3, "RGB"},     {"atmosphere", 3, "RGB"}, {"diffuse", 3, "RGB"},
    {"specular", 3, "RGB"}, {"transmission", 3, "RGB"}, {"emission", 3, "RGB"},   {"sky", 3, "RGB"},
    {"node_id", 1, "I"}};

std::array<float, 3> Floats(const trFCol& c) { return {c.r, c.g, c.b}; }
std::array<float, 3> Floats(const trVector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

std::array<float, 3> ValuesOf(const std::string& layer, const CameraSample& s) {
  if (layer == "depth") return {s.depth, 0, 0};
  if (layer == "position") return Floats(s.position);
  if (layer == "normal") return Floats(s.normal);
  if (layer == "albedo") return Floats(s.albedo);
  if (layer == "direct") return Floats(s.direct);
  if (layer == "indirect") return Floats(s.indirect);
  if (layer == "atmosphere") return Floats(s.atmosphere);
  if (layer == "diffuse") return Floats(s.light.diffuse);
  if (layer == "specular") return Floats(s.light.specular);
  if (layer == "transmission") return Floats(s.light.transmission);
  if (layer == "emission") return Floats(s.light.emission);
  if (layer == "sky") return Floats(s.light.sky);
  return {s.nodeId, 0, 0};
}

/// Ids don't blend: a pixel keeps its first sample's.
bool KeepsFirst(const std::string& layer) { return layer == "node_id"; }

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
    layers_.push_back({kind.name, stride_, kind.channels});
    stride_ += kind.channels;
  }
  sums_.assign(static_cast<size_t>(area.x1 - area.x0) * (area.y1 - area.y0) * stride_, 0.0f);
  tileSamples_.assign(NumTiles(), 0);
}

PixelRect Film::TileRect(int tile) const {
  const int x = area_.x0 + tile % tilesX_ * kTileSize, y = area_.y0 + tile / tilesX_ * kTileSize;
  return {x, y, std::min(x + kTileSize, area_.x1), std::min(y + kTileSize, area_.y1)};
}

void Film::Add(int x, int y, const CameraSample& sample) {
  float* sums =
      &sums_[(static_cast<size_t>(y - area_.y0) * (area_.x1 - area_.x0) + (x - area_.x0)) * stride_];
  const float luminance = Luminance(sample.beauty);
  const bool isFirst = sums[4] == 0 && sums[3] == 0 && sums[0] == 0;
  sums[0] += sample.beauty.r;
  sums[1] += sample.beauty.g;
  sums[2] += sample.beauty.b;
  sums[3] += sample.alpha;
  sums[4] += luminance * luminance;
  for (const Layer& layer : layers_) {
    const std::array<float, 3> values = ValuesOf(layer.name, sample);
    for (int c = 0; c < layer.channels; ++c) {
      if (!KeepsFirst(layer.name))
        sums[layer.first + c] += values[c];
      else if (isFirst)
        sums[layer.first + c] = values[c];
    }
  }
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
    for (const LayerKind& kind : kLayerKinds)
      if (std::string(kind.name) == layer.name)
        for (int c = 0; c < layer.channels; ++c)
          picture.channels.push_back(std::string(layer.name) + "." + kind.suffixes[c]);
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
        for (const Layer& layer : layers_)
          for (int c = 0; c < layer.channels; ++c)
            *out++ = sums[layer.first + c] * (KeepsFirst(layer.name) ? 1.0f : scale);
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
        const size_t pixel = static_cast<size_t>(y - area_.y0) * width + (x - area_.x0);
        const float* sums = &sums_[pixel * stride_];
        const double mean = Luminance({sums[0], sums[1], sums[2]}) / n;
        variance[pixel] = static_cast<float>(std::max(0.0, sums[4] / n - mean * mean) / (n - 1));
      }
  }
  return variance;
}

double Film::RelativeError() const {
  double errorSum = 0, luminanceSum = 0;
  size_t pixels = 0;
  for (int tile = 0; tile < NumTiles(); ++tile) {
    const double n = tileSamples_[tile];
    if (n < 2) return 1e9;
    const PixelRect rect = TileRect(tile);
    for (int y = rect.y0; y < rect.y1; ++y)
      for (int x = rect.x0; x < rect.x1; ++x) {
        const float* sums =
            &sums_[(static_cast<size_t>(y - area_.y0) * (area_.x1 - area_.x0) + (x - area_.x0)) * stride_];
        const double mean = Luminance({sums[0], sums[1], sums[2]}) / n;
        errorSum += std::max(0.0, sums[4] / n - mean * mean) / (n - 1);
        luminanceSum += mean;
        ++pixels;
      }
  }
  return pixels && luminanceSum > 0 ? std::sqrt(errorSum / pixels) / (luminanceSum / pixels) : 0;
}

}  // namespace ovhost
