// What every call of GDAL stands in: only harmless drivers, messages collected, no way to end the program.
#pragma once

#include <string>

namespace ovhost {

/// Thrown out of GDAL where it would end the program: it has run out of memory.
struct GdalGaveUp {
  std::string text;
};

/// While it lives, this thread's GDAL messages are collected here instead of being printed. Scopes nest.
class GdalScope {
 public:
  GdalScope();
  ~GdalScope();
  GdalScope(const GdalScope&) = delete;
  GdalScope& operator=(const GdalScope&) = delete;

  /// Whether anything failed, and what GDAL said first; `otherwise` where it kept silent.
  bool HasFailed() const { return hasFailed_; }
  std::string Problem(const std::string& otherwise) const;

 private:
  static void Collect(int severity, int code, const char* text);

  bool hasFailed_ = false;
  std::string first_;
};

/// The drivers that files are read with, ended by null: formats of one file (and a header beside it) that
/// name no other file to open.
const char* const* RasterDrivers();

}  // namespace ovhost
