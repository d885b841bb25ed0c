// Encodes pictures with OpenImageIO. Its writers' word on full discs can't be relied on, so they write to
// memory.
#include "host/image/codec/encoder.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <exception>

#include "host/image/codec/memory_file.h"

using ovhost::EncodeJob;
using ovhost::MemoryFile;
using ovhost::Picture;

namespace {

/// Positions and depths are metres at planet scale: halves would overflow.
OIIO::TypeDesc SceneFormat(const std::string& channel) {
  const bool isMetres = channel.rfind("position", 0) == 0 || channel.rfind("depth", 0) == 0 ||
                        channel.rfind("volume_depth", 0) == 0 || channel == "Z";
  return isMetres ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::HALF;
}

OIIO::ImageSpec SceneSpec(const EncodeJob& job) {
  const Picture& picture = *job.picture;
  OIIO::ImageSpec spec(picture.width, picture.height, job.channels,
                       job.fullFloat ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::HALF);
  spec.x = picture.originX;
  spec.y = picture.originY;
  spec.full_width = picture.fullWidth ? picture.fullWidth : picture.width;
  spec.full_height = picture.fullHeight ? picture.fullHeight : picture.height;
  if (!job.fullFloat)
    for (const std::string& name : picture.channels) spec.channelformats.push_back(SceneFormat(name));
  spec.attribute("compression", "zip");
  spec.attribute("oiio:ColorSpace", "Linear");
  return spec;
}

/// The scene's pixels with what a half can't hold cut to its greatest value: infinities spoil every filter
/// that compositing puts over them.
std::vector<float> ScenePixels(const EncodeJob& job, const OIIO::ImageSpec& spec) {
  constexpr float kGreatestHalf = 65504.0f;
  const size_t count = static_cast<size_t>(spec.width) * spec.height * job.channels;
  std::vector<float> pixels(job.pixels, job.pixels + count);
  for (int c = 0; c < job.channels; ++c)
    if (spec.channelformat(c) == OIIO::TypeDesc::HALF)
      for (size_t i = c; i < count; i += job.channels)
        pixels[i] = std::clamp(pixels[i], -kGreatestHalf, kGreatestHalf);
  return pixels;
}

OIIO::ImageSpec DisplaySpec(const EncodeJob& job, const std::string& format) {
  OIIO::ImageSpec spec(job.picture->width, job.picture->height, job.channels,
                       format == "tiff" ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8);
  spec.attribute("oiio:ColorSpace", "sRGB");
  // Half the time of the usual level 6 for 3 % more bytes: unfinished pictures are written too.
  spec.attribute("png:compressionLevel", 3);
  if (format == "jpeg") spec.attribute("Compression", "jpeg:95");
  return spec;
}

/// Opens, fills and closes the writer; false where any of it fails.
bool Write(OIIO::ImageOutput& out, const std::string& name, const OIIO::ImageSpec& spec,
           const float* pixels) {
  return out.open(name, spec) && out.write_image(OIIO::TypeDesc::FLOAT, pixels) && out.close() &&
         !out.has_error();
}

bool Encode(EncodeJob& job) {
  const auto out = OIIO::ImageOutput::create(*job.path);
  if (!out) return job.problem = "no writer for pictures of this kind", false;

  OIIO::ImageSpec spec = job.isScene ? SceneSpec(job) : DisplaySpec(job, out->format_name());
  spec.channelnames.assign(job.picture->channels.begin(), job.picture->channels.begin() + job.channels);
  spec.alpha_channel = job.channels > 3 ? 3 : -1;
  for (const auto& [name, text] : job.picture->metadata) spec.attribute(name, text);

  if (std::string(out->format_name()) == "tiff") {
    const MemoryFile file;
    if (!Write(*out, file.Name(), spec, job.pixels)) return job.problem = out->geterror(), false;
    return file.ReadAll(job.bytes) || (job.problem = "the encoded picture can't be read back", false);
  }
  if (!out->supports("ioproxy")) return job.problem = "the writer can't be kept from the disc", false;
  OIIO::Filesystem::IOVecOutput memory;
  out->set_ioproxy(&memory);
  const std::vector<float> scene = job.isScene ? ScenePixels(job, spec) : std::vector<float>();
  if (!Write(*out, *job.path, spec, job.isScene ? scene.data() : job.pixels))
    return job.problem = out->geterror(), false;
  job.bytes = memory.buffer();
  return true;
}

}  // namespace

extern "C" OV_API bool ovEncodePicture(EncodeJob& job) {
  try {
    return Encode(job);
  } catch (const std::exception& error) {
    job.problem = error.what();
    return false;
  }
}
