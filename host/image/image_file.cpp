// Images from files by name and frame.
#include "core/image.h"
#include "core/image_process.h"
#include "core/messages.h"
#include "host/image/image_reader.h"

trString trFrameName(const trString& path, long frame) {
  const size_t last = path.find_last_of('#');
  if (last == trString::npos) return path;
  size_t first = last;
  while (first > 0 && path[first - 1] == '#') --first;
  trString number = std::to_string(frame < 0 ? -frame : frame);
  const size_t length = last - first + 1;
  if (number.size() < length) number.insert(0, length - number.size(), '0');
  return path.substr(0, first) + (frame < 0 ? "-" : "") + number + path.substr(last + 1);
}

int trImage::ReadFile(const trString& path, const int* frame) {
  Cleanup();
  const trString name = trFrameName(path, frame ? *frame : 0);
  std::string problem;
  ovhost::DecodedImage image = ovhost::ReadImageFile(name, problem);
  if (!image.pixels) {
    trWarning(name + ": the image can't be read: " + problem);
    return 0;
  }
  storage_ = std::move(image.pixels);
  pixels = storage_.get();
  width = image.width;
  height = image.height;
  channels_ = image.channels;
  type_ = image.type;
  pixelSize = channels_ * (type_ == trChannelType::kByte ? 1 : type_ == trChannelType::kFloat ? 4 : 2);
  return 1;
}
