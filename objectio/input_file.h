// Files that are read whole.
#pragma once

#include <memory>
#include <span>

#include "core/string.h"

/// The bytes of a plain file; devices, pipes and folders aren't read. Throws std::bad_alloc.
class InputFile {
 public:
  explicit InputFile(const trString& path);
  bool IsRead() const { return isRead_; }
  std::span<const unsigned char> Bytes() const { return {bytes_.get(), size_}; }

 private:
  bool isRead_ = false;
  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t size_ = 0;
};
