// Foreign bytes as an elevation file of any format: the first byte chooses its name's ending; what follows
// the word COMPANION is a header beside it.
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host/raster/raster_read.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr const char* kEndings[] = {"N46E007.hgt", "a.tif", "a.asc", "a.bt",  "a.dt0", "a.dem", "a.grd",
                                    "a.xyz",       "a.gtx", "a.gsb", "a.tga", "a.png", "a.bmp", "a.pgm",
                                    "a.jpg",       "a.bil", "a.exr", "a.isg", "a.ovh"};
constexpr const char kCompanion[] = "COMPANION";
/// Larger rasters take more time than they are worth.
constexpr std::int64_t kMostPoints = 1 << 20;

bool Read(ovhost::RasterSource& source, const std::string& path, const ovhost::RasterRequest& request,
          ovhost::RasterPlan& plan, std::vector<float>& values) {
  if (!ovhost::PlanRaster(source.Info(), request, plan).empty()) return false;
  if (plan.width * plan.height > kMostPoints) return false;
  values.resize(static_cast<std::size_t>(plan.width * plan.height));
  ovhost::RasterJob job;
  job.path = path;
  job.source = &source;
  job.out = values.data();
  return ovhost::ReadRaster(job, plan).empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::string path = FuzzFile(kEndings[data[0] % std::size(kEndings)]);
  const std::string all = InputText(data + 1, size - 1);
  const std::size_t split = all.find(kCompanion);
  const std::string header = std::filesystem::path(path).replace_extension(".hdr");
  PutFile(path, all.substr(0, split));
  if (split != std::string::npos) PutFile(header, all.substr(split + std::strlen(kCompanion)));

  std::string problem;
  if (const auto source = ovhost::OpenRaster(path, 1, problem)) {
    // A part read by itself is what it is in the whole.
    ovhost::RasterPlan whole, part;
    std::vector<float> values, some;
    ovhost::RasterRequest request;
    if (Read(*source, path, request, whole, values) && whole.width > 2 && whole.height > 2) {
      request.useWindow = true;
      request.windowX0 = request.windowY0 = 1;
      request.windowX1 = static_cast<double>(whole.width - 2);
      request.windowY1 = static_cast<double>(whole.height - 2);
      if (Read(*source, path, request, part, some) && part.factor == whole.factor &&
          part.addend == whole.addend)
        for (std::int64_t y = 0; y < part.height; ++y)
          for (std::int64_t x = 0; x < part.width; ++x) {
            const float a = some[static_cast<std::size_t>(y * part.width + x)],
                        b = values[static_cast<std::size_t>((y + 1) * whole.width + x + 1)];
            Check(a == b || (std::isnan(a) && std::isnan(b)));
          }
    }
  } else {
    Check(!problem.empty());
  }
  unlink(path.c_str());
  unlink(header.c_str());
  return 0;
}
