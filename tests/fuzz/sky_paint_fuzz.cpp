// Foreign bytes as the data of a sky paint in a project, and as a blob.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "atmosphere/sky_paint.h"
#include "core/plugin.h"
#include "core/xml.h"
#include "host/base/log.h"
#include "host/node/class_pool.h"
#include "host/project/project_file.h"

namespace {

void Check(bool holds) {
  if (!holds) std::abort();
}

/// Looks in all directions from all viewpoints.
void Look(const SkyPaint& paint) {
  trShadingInterface si;
  for (long k = -1; k <= trSkyPaintStore::kViewpoints; ++k)
    for (int i = 0; i < 27; ++i) {
      si.P() = trVector(i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1) * 1e7;
      trFCol colour;
      paint.Sample(colour, si, k);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ovhost::RegisterHostClasses();
  ovhost::RegisterHostClass("hidden/sky_paint", "sky_paint", trCreateNode<SkyPaint>, trDestroyNode);
  ovhost::SetLogSink([](void*, const ovhost::LogRecord&) {}, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  constexpr std::size_t kMostBytes = 1 << 20;
  std::vector<unsigned char> bytes;
  if (trXML::DecodeBlobForXML(text, bytes, kMostBytes)) {
    trString again;
    std::vector<unsigned char> same;
    Check(bytes.size() <= kMostBytes);
    Check(trXML::EncodeBlobForXML(bytes.size(), bytes.data(), again, 9));
    Check(trXML::DecodeBlobForXML(again, same, bytes.size()) && same == bytes);
  }

  const auto project = ovhost::ProjectFromText(
      "<ombrivex_project><sky_paint name=\"P\"><custom>" + text + "</custom></sky_paint></ombrivex_project>",
      "fuzz.ovd");
  if (!project) return 0;
  for (long i = 0; i < project->NumChildren(); ++i)
    if (const auto* paint = dynamic_cast<const SkyPaint*>(project->Child(i))) Look(*paint);
  // What was read is written, and what was written is read to the same bytes.
  const std::string first = ovhost::ProjectToText(*project);
  const auto again = ovhost::ProjectFromText(first, "again.ovd");
  Check(again != nullptr);
  Check(ovhost::ProjectToText(*again) == first);
  return 0;
}
