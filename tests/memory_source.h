// Bytes in memory as a file.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "host/raster/ovh_reader.h"

class MemorySource : public ovhost::ByteSource {
 public:
  explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  bool Read(std::uint64_t offset, void* out, std::uint64_t size) const override {
    if (offset > bytes_.size() || size > bytes_.size() - offset) return false;
    std::memcpy(out, bytes_.data() + offset, size);
    return true;
  }

 private:
  std::string bytes_;
};
