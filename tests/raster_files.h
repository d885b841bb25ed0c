// Elevation files of tests: a folder for them, and a file read as a heightfield node reads it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/raster/raster_read.h"

/// A folder that goes with the test.
class RasterFolder {
 public:
  RasterFolder() { EXPECT_TRUE(mkdtemp(path_.data())); }
  ~RasterFolder() { std::filesystem::remove_all(path_); }
  RasterFolder(const RasterFolder&) = delete;
  RasterFolder& operator=(const RasterFolder&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = testing::TempDir() + "/ov_heights_XXXXXX";
};

inline void Put(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

struct LoadedRaster {
  std::string problem;
  ovhost::RasterPlan plan;
  std::vector<float> values;
  double Metres(std::int64_t x, std::int64_t y) const {
    return values[static_cast<size_t>(y * plan.width + x)] * plan.zScale;
  }
};

inline bool Warns(const ovhost::RasterPlan& plan, const std::string& text) {
  return std::any_of(plan.warnings.begin(), plan.warnings.end(),
                     [&](const std::string& warning) { return warning.find(text) != std::string::npos; });
}

inline LoadedRaster Load(const std::string& path, const ovhost::RasterRequest& request = {},
                         int threads = 2) {
  LoadedRaster loaded;
  const auto source = ovhost::OpenRaster(path, request.band, loaded.problem);
  if (!source) return loaded;
  loaded.problem = ovhost::PlanRaster(source->Info(), request, loaded.plan);
  if (!loaded.problem.empty()) return loaded;
  loaded.values.resize(static_cast<size_t>(loaded.plan.width * loaded.plan.height), -12345.0f);
  ovhost::RasterJob job;
  job.path = path;
  job.band = request.band;
  job.source = source.get();
  job.threads = threads;
  job.out = loaded.values.data();
  loaded.problem = ovhost::ReadRaster(job, loaded.plan);
  if (loaded.problem.empty() && loaded.plan.isOnMap) {
    loaded.plan.map.reference = source->Info().referenceText(false);
    loaded.plan.map.esriReference = source->Info().referenceText(true);
  }
  return loaded;
}
