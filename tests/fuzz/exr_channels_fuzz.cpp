// Foreign bytes as the header of an OpenEXR picture.
#include <cstdint>
#include <cstring>
#include <string>

#include "host/raster/exr_channels.h"

namespace {

class Memory : public ovhost::ByteSource {
 public:
  explicit Memory(std::string bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  bool Read(std::uint64_t offset, void* out, std::uint64_t size) const override {
    if (offset > bytes_.size() || size > bytes_.size() - offset) return false;
    std::memcpy(out, bytes_.data() + offset, size);
    return true;
  }

 private:
  std::string bytes_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (ovhost::UnsignedExrChannel(Memory(bytes)).size() > size) __builtin_trap();
  return 0;
}
