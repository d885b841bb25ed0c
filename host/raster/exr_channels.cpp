// Reads the attributes of an OpenEXR header (OpenEXR File Layout, 2013) up to the list of channels.
#include "host/raster/exr_channels.h"

#include <algorithm>
#include <cstring>

namespace ovhost {
namespace {

/// Headers are a few hundred bytes; previews and metadata may make them longer.
constexpr std::uint64_t kMostHeaderBytes = 1 << 22;

/// Steps through the bytes of a header; once something lies beyond their end nothing is found any more.
class HeaderReader {
 public:
  explicit HeaderReader(std::string bytes) : bytes_(std::move(bytes)) {}
  bool IsGood() const { return isGood_; }

  std::string Text() {
    const std::size_t end = bytes_.find('\0', at_);
    if (end == std::string::npos) return isGood_ = false, std::string();
    const std::string text = bytes_.substr(at_, end - at_);
    at_ = end + 1;
    return text;
  }
  std::uint32_t Number() {
    std::uint32_t value = 0;
    if (!Has(sizeof value)) return 0;
    std::memcpy(&value, bytes_.data() + at_, sizeof value);
    at_ += sizeof value;
    return value;
  }
  /// The next `size` bytes.
  std::string Take(std::size_t size) {
    if (!Has(size)) return {};
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }

 private:
  bool Has(std::size_t size) { return isGood_ = isGood_ && size <= bytes_.size() - at_; }

  const std::string bytes_;
  std::size_t at_ = 0;
  bool isGood_ = true;
};

std::string UnsignedAmong(const std::string& channels) {
  constexpr std::uint32_t kUnsigned = 0;
  HeaderReader list(channels);
  for (std::string name = list.Text(); !name.empty(); name = list.Text()) {
    const std::uint32_t type = list.Number();
    list.Take(12);  // of perception, and of samples left out
    if (!list.IsGood()) break;
    if (type == kUnsigned) return name;
  }
  return {};
}

}  // namespace

std::string UnsignedExrChannel(const ByteSource& bytes) {
  std::string begin(static_cast<std::size_t>(std::min(bytes.Size(), kMostHeaderBytes)), '\0');
  if (!bytes.Read(0, begin.data(), begin.size())) return {};
  HeaderReader header(std::move(begin));
  header.Take(8);  // magic number and version
  for (std::string name = header.Text(); !name.empty(); name = header.Text()) {
    const std::string type = header.Text();
    const std::string value = header.Take(header.Number());
    if (!header.IsGood()) break;
    if (name == "channels" && type == "chlist") return UnsignedAmong(value);
  }
  return {};
}

}  // namespace ovhost
