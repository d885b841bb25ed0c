// The process that reads picture files, and the limits that it works in.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/api.h"
#include "host/image/image_reader.h"
#include "host/image/picture_header.h"

namespace ovhost {

/// A file that is to be read.
struct PictureFile {
  int file = -1;
  std::uint64_t bytes = 0;
  PictureHeader header;
  bool keepNotFinite = false;
};

/// Started when first asked, and again after it ended. One thread at a time.
class OV_API ReaderProcess {
 public:
  /// `patience` is how many seconds a small picture may take.
  ReaderProcess(std::string program, double patience);
  ~ReaderProcess();
  ReaderProcess(const ReaderProcess&) = delete;
  ReaderProcess& operator=(const ReaderProcess&) = delete;

  /// Null pixels with the reason in `problem`.
  DecodedImage Read(const PictureFile& picture, std::uint64_t freeMemory, std::string& problem);

 private:
  bool Start(std::string& problem);
  void Stop();
  /// Sends it to a reader that is there: one that has ended since is started anew.
  bool Send(const PictureFile& picture, std::uint64_t mostBytes, std::string& problem);
  /// What memory and processor time the reader may take for a picture.
  void Limit(const PictureFile& picture, std::uint64_t mostBytes) const;
  double Patience(const PictureFile& picture) const;

  const std::string program_;
  const double patience_;
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace ovhost
