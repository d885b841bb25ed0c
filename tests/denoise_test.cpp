// The denoiser: less noise, edges of the scene where they were, brightness kept.
#include "host/render/frame/denoise.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/shading.h"
#include "host/base/parallel.h"

namespace {

/// Two walls of different albedo, textured, under light of a known noise, beside a noiseless strip of sky.
struct Room {
  static constexpr int kSize = 96, kSky = 80;
  Room() {
    input.width = input.height = kSize;
    trRandomStream random{42};
    for (int y = 0; y < kSize; ++y)
      for (int x = 0; x < kSize; ++x) {
        const bool isSky = x >= kSky;
        const trFCol albedo =
            isSky ? trFCol() : trFCol((x < 40 ? 0.8f : 0.3f) * ((x / 2 + y / 2) % 2 ? 1.0f : 0.9f));
        const float light = y < 48 ? 1.0f : 0.2f;  // a shadow's edge
        const float noise = isSky ? 0 : 0.1f * static_cast<float>((random.Next() - 0.5) * std::sqrt(12.0));
        truth.push_back(isSky ? trFCol(0.5f) : albedo * light);
        input.colour.push_back(isSky ? trFCol(0.5f) : albedo * (light + noise));
        input.albedo.push_back(albedo);
        input.normal.push_back(isSky ? trFVector() : x < 40 ? trFVector(1, 0, 0) : trFVector(0, 1, 0));
        const float spread = 0.1f * Luminance(albedo);
        input.variance.push_back(spread * spread);
      }
  }
  double Error(const std::vector<trFCol>& colours) const {
    double sum = 0;
    for (size_t i = 0; i < colours.size(); ++i) sum += std::pow(colours[i].g - truth[i].g, 2);
    return std::sqrt(sum / static_cast<double>(colours.size()));
  }
  ovhost::DenoiseInput input;
  std::vector<trFCol> truth;
};

TEST(Denoise, LeavesAQuarterOfTheNoiseAndAllOfTheEdges) {
  const Room room;
  const auto smooth = ovhost::Denoise(room.input);
  EXPECT_LT(room.Error(smooth), room.Error(room.input.colour) / 4);
  double before = 0, after = 0;
  for (int y = 0; y < Room::kSize; ++y)
    for (int x = 0; x < Room::kSize; ++x) {
      const size_t i = static_cast<size_t>(y) * Room::kSize + x;
      EXPECT_NEAR(smooth[i].r, room.input.colour[i].r, x >= Room::kSky ? 1e-6 : 1) << "no noise, no change";
      before += room.truth[i].g;
      after += smooth[i].g;
    }
  EXPECT_NEAR(after / before, 1, 0.005);
}

TEST(Denoise, GivesTheSameBitsForAnyNumberOfThreads) {
  const Room room;
  std::vector<trFCol> alone, together;
  ovhost::WithThreads(1, [&] { alone = ovhost::Denoise(room.input); });
  ovhost::WithThreads(7, [&] { together = ovhost::Denoise(room.input); });
  EXPECT_EQ(alone, together);
}

}  // namespace
