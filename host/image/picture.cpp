// Picture files: display values, encoding.
#include "host/image/picture.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/base/atomic_file.h"
#include "host/image/codec/encoder.h"
#include "host/image/codec_library.h"
#include "host/image/encoded_picture.h"

namespace ovhost {
namespace {

std::string Extension(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return {};
  std::string extension = path.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension;
}

float EncodeSrgb(float v) { return v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1 / 2.4f) - 0.055f; }

/// Display-referred pixels of the first three or four channels; alpha stays linear, colours are as they came
/// (over black).
std::vector<float> DisplayPixels(const Picture& picture, int channels, const ViewTransform& view) {
  const size_t count = static_cast<size_t>(picture.width) * picture.height, stride = picture.channels.size();
  std::vector<float> out(count * channels);
  for (size_t i = 0; i < count; ++i)
    for (int c = 0; c < channels; ++c) {
      const float value = picture.pixels[i * stride + c];
      out[i * channels + c] = c < 3 ? DisplayValue(value, view) : std::clamp(value, 0.0f, 1.0f);
    }
  return out;
}

PictureEncoder* Encoder(std::string& problem) {
  return reinterpret_cast<PictureEncoder*>(CodecFunction("ovEncodePicture", problem));
}

}  // namespace

float DisplayValue(float linear, const ViewTransform& view) {
  float v = linear * static_cast<float>(std::exp2(view.exposureStops));
  if (!(v > 0)) return 0;
  constexpr float kKnee = 0.6f;
  if (view.softClip && v > kKnee) v = kKnee + (1 - kKnee) * (1 - std::exp(-(v - kKnee) / (1 - kKnee)));
  return EncodeSrgb(std::min(v, 1.0f));
}

Picture ChannelsOf(const Picture& picture, const std::vector<size_t>& channels) {
  Picture part = picture;
  part.channels.clear();
  part.pixels.clear();
  for (const size_t c : channels) part.channels.push_back(picture.channels[c]);
  const size_t stride = picture.channels.size();
  part.pixels.reserve(picture.pixels.size() / std::max<size_t>(stride, 1) * channels.size());
  for (size_t first = 0; first < picture.pixels.size(); first += stride)
    for (const size_t c : channels) part.pixels.push_back(picture.pixels[first + c]);
  return part;
}

Picture Displayed(const Picture& picture, const ViewTransform& view) {
  const int channels = std::min(4, static_cast<int>(picture.channels.size()));
  Picture shown = picture;
  shown.channels.resize(channels);
  shown.pixels = DisplayPixels(picture, channels, view);
  return shown;
}

bool IsPicturePath(const std::string& path) {
  const std::string e = Extension(path);
  return e == "exr" || e == "png" || e == "jpg" || e == "jpeg" || e == "tif" || e == "tiff";
}

bool HoldsLayers(const std::string& path) { return Extension(path) == "exr"; }

std::string PictureSizeProblem(const std::string& path, int width, int height) {
  // What the encoders take: of JPEG somewhat less than its 16 bits, of PNG what readers agree to.
  const std::string extension = Extension(path);
  const int most = extension == "jpg" || extension == "jpeg" ? 65500
                   : extension == "png"                      ? 1000000
                                                             : std::numeric_limits<int>::max();
  if (width >= 1 && height >= 1 && width <= most && height <= most) return {};
  return path + ": can't hold " + std::to_string(width) + " x " + std::to_string(height) +
         " pixels; EXR and TIFF files can";
}

std::string LoadPictureEncoder() {
  std::string problem;
  return Encoder(problem) ? "" : problem;
}

std::string WritePicture(const std::string& path, const Picture& picture, const ViewTransform& view,
                         bool fullFloat) {
  std::string problem = PictureSizeProblem(path, picture.width, picture.height);
  if (!problem.empty()) return problem;
  PictureEncoder* const encode = Encoder(problem);
  if (!encode) return path + ": " + problem;
  const std::string extension = Extension(path);
  const bool isExr = extension == "exr", isTiff = extension == "tif" || extension == "tiff";
  EncodeJob job;
  job.path = &path;
  job.picture = &picture;
  job.isScene = isExr;
  job.fullFloat = fullFloat;
  job.channels = static_cast<int>(picture.channels.size());
  // Viewers blend transparent pixels with paper white; only TIFF, for compositing, keeps the alpha.
  if (!isExr) job.channels = std::min(isTiff ? 4 : 3, job.channels);
  const std::vector<float> display =
      isExr ? std::vector<float>() : DisplayPixels(picture, job.channels, view);
  job.pixels = isExr ? picture.pixels.data() : display.data();
  if (!encode(job)) return path + ": " + job.problem;
  problem = EncodedProblem(path, job.bytes.data(), job.bytes.size(), picture.width, picture.height);
  if (!problem.empty()) return path + ": " + problem;
  return WriteFileAtomically(path, job.bytes.data(), job.bytes.size());
}

}  // namespace ovhost
