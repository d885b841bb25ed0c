// Picture files through OpenImageIO. Its writers' word on full discs can't be relied on, so they write to
// memory and the bytes are put on disc here.
#include "host/image/picture.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

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

std::string ErrorText() { return std::strerror(errno); }

}  // namespace

float DisplayValue(float linear, const ViewTransform& view) {
  float v = linear * static_cast<float>(std::exp2(view.exposureStops));
  if (!(v > 0)) return 0;
  constexpr float kKnee = 0.6f;
  if (view.softClip && v > kKnee) v = kKnee + (1 - kKnee) * (1 - std::exp(-(v - kKnee) / (1 - kKnee)));
  return EncodeSrgb(std::min(v, 1.0f));
}

bool IsPicturePath(const std::string& path) {
  const std::string e = Extension(path);
  return e == "exr" || e == "png" || e == "jpg" || e == "jpeg" || e == "tif" || e == "tiff";
}

std::string WriteFileAtomically(const std::string& path, const void* data, std::uint64_t size) {
  const std::string temporary = path + ".tmp" + std::to_string(getpid());
  const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return path + ": can't be written: " + ErrorText();
  const char* at = static_cast<const char*>(data);
  std::uint64_t left = size;
  std::string problem;
  while (left > 0 && problem.empty()) {
    const ssize_t written = write(file, at, std::min<std::uint64_t>(left, 1u << 30));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      problem = path + ": can't be written: " + ErrorText();
    } else {
      at += written;
      left -= static_cast<std::uint64_t>(written);
    }
  }
  if (problem.empty() && fsync(file) != 0 && errno != EINVAL)
    problem = path + ": can't be flushed: " + ErrorText();
  if (close(file) != 0 && problem.empty()) problem = path + ": can't be closed: " + ErrorText();
  if (problem.empty() && std::rename(temporary.c_str(), path.c_str()) != 0)
    problem = path + ": can't be put in place: " + ErrorText();
  if (!problem.empty()) unlink(temporary.c_str());
  return problem;
}

std::string WritePicture(const std::string& path, const Picture& picture, const ViewTransform& view,
                         bool fullFloat) {
  using namespace OIIO;
  const std::string extension = Extension(path);
  const bool isExr = extension == "exr", isJpeg = extension == "jpg" || extension == "jpeg";
  auto out = ImageOutput::create(path);
  if (!out) return path + ": no writer for pictures of this kind";

  const int channels = isExr    ? static_cast<int>(picture.channels.size())
                       : isJpeg ? 3
                                : std::min<int>(4, static_cast<int>(picture.channels.size()));
  const TypeDesc format = isExr                 ? (fullFloat ? TypeDesc::FLOAT : TypeDesc::HALF)
                          : extension[0] == 't' ? TypeDesc::UINT16
                                                : TypeDesc::UINT8;
  ImageSpec spec(picture.width, picture.height, channels, format);
  spec.channelnames.assign(picture.channels.begin(), picture.channels.begin() + channels);
  spec.alpha_channel = channels > 3 ? 3 : -1;
  if (isExr) {
    spec.x = picture.originX;
    spec.y = picture.originY;
    spec.full_width = picture.fullWidth ? picture.fullWidth : picture.width;
    spec.full_height = picture.fullHeight ? picture.fullHeight : picture.height;
    spec.attribute("compression", "zip");
    // Positions and depths are metres at planet scale: halves would overflow.
    if (!fullFloat) {
      spec.channelformats.clear();
      for (const std::string& name : spec.channelnames)
        spec.channelformats.push_back(
            name.rfind("position", 0) == 0 || name.rfind("depth", 0) == 0 || name == "Z" ? TypeDesc::FLOAT
                                                                                         : TypeDesc::HALF);
    }
  }
  spec.attribute("oiio:ColorSpace", isExr ? "Linear" : "sRGB");
  if (isJpeg) spec.attribute("Compression", "jpeg:95");
  if (!isExr) spec.attribute("oiio:UnassociatedAlpha", 1);
  for (const auto& [name, text] : picture.metadata) spec.attribute(name, text);

  Filesystem::IOVecOutput memory;
  if (!out->supports("ioproxy")) return path + ": the writer can't be kept from the disc";
  out->set_ioproxy(&memory);
  if (!out->open(path, spec)) return path + ": " + out->geterror();
  const std::vector<float> display = isExr ? std::vector<float>() : DisplayPixels(picture, channels, view);
  if (!out->write_image(TypeDesc::FLOAT, isExr ? picture.pixels.data() : display.data()) || !out->close())
    return path + ": " + out->geterror();
  if (out->has_error()) return path + ": " + out->geterror();
  return WriteFileAtomically(path, memory.buffer().data(), memory.buffer().size());
}

}  // namespace ovhost
