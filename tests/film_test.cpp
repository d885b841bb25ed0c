// The film's sums, layers and estimate of noise; pixel filters against their shapes.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "host/render/engine/pixel_filter.h"
#include "host/render/frame/film.h"

namespace {

using ovhost::CameraSample;
using ovhost::Film;
using ovhost::PixelFilter;

CameraSample Grey(float value) {
  CameraSample sample;
  sample.light.diffuse = sample.beauty = trFCol(value);
  return sample;
}

TEST(Film, LayersAreMeansSumsOrTheFirst) {
  Film film({0, 0, 2, 1}, 2, 1, {"diffuse", "samples", "node_id"});
  CameraSample samples[3] = {Grey(1), Grey(2), Grey(6)};
  for (int i = 0; i < 3; ++i) samples[i].nodeId = static_cast<float>(5 - i);
  film.Add(1, 0, samples, 1);
  film.Add(1, 0, samples + 1, 2);
  film.TileSamples(0) = 3;
  const ovhost::Picture picture = film.MakePicture();
  const float* pixel = &picture.pixels[picture.channels.size()];
  const auto value = [&](const char* name) {
    for (size_t c = 0; c < picture.channels.size(); ++c)
      if (picture.channels[c] == name) return pixel[c];
    return -1.0f;
  };
  EXPECT_EQ(value("G"), 3);
  EXPECT_EQ(value("diffuse.G"), 3);
  EXPECT_EQ(value("samples.N"), 3);
  EXPECT_EQ(value("node_id.I"), 5);
}

TEST(Film, NoiseOfATileIsItsStandardErrorBesideItsBrightness) {
  constexpr double kMean = 0.4, kDeviation = 0.1;
  std::mt19937 random(3);
  std::normal_distribution<float> draw(kMean, kDeviation);
  Film film({0, 0, 64, 32}, 64, 32, {});
  EXPECT_TRUE(std::isinf(film.TileNoise(0)));
  // Independent samples in the first tile; in the second those of a pass are all the same.
  for (int begin = 0, end = 1; begin < 256; begin = end, end = (begin / 16 + 1) * 16)
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 64; ++x) {
        CameraSample samples[16];
        for (int i = 0; i < end - begin; ++i) samples[i] = x < 32 || i == 0 ? Grey(draw(random)) : samples[0];
        film.Add(x, y, samples, end - begin);
      }
  film.TileSamples(0) = film.TileSamples(1) = 256;
  // The largest of 16 blocks of 64 pixels with 16 degrees of freedom each lies a little over the mean.
  const double expected = kDeviation / std::sqrt(256) / kMean;
  EXPECT_GT(film.TileNoise(0), expected);
  EXPECT_LT(film.TileNoise(0), 1.15 * expected);
  EXPECT_NEAR(film.TileNoise(1), 4 * 1.05 * expected, 0.1 * 4 * expected);
}

TEST(PixelFilter, DrawsFollowTheShapes) {
  const auto gaussian = [](double x) { return std::exp(-4.5 * x * x) - std::exp(-4.5); };
  const auto harris = [](double x) {
    const double t = 3.14159265358979 * (x + 1);
    return 0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
  };
  const struct {
    PixelFilter::Shape shape;
    std::function<double(double)> weight;
  } rows[] = {{PixelFilter::Shape::kBox, [](double) { return 1.0; }},
              {PixelFilter::Shape::kTent, [](double x) { return 1 - std::fabs(x); }},
              {PixelFilter::Shape::kGaussian, gaussian},
              {PixelFilter::Shape::kBlackmanHarris, harris}};
  for (const auto& row : rows)
    for (const double width : {0.0, 1.0, 3.5}) {
      const PixelFilter filter(row.shape, width);
      double whole = 0, below = 0;
      for (int i = 0; i < 4000; ++i) whole += row.weight((i + 0.5) / 2000 - 1);
      int i = 0;
      for (const double draw : {0.05, 0.3, 0.5, 0.8, 0.97}) {
        // The share of the filter before the offset is the draw.
        const double offset = filter.Offset(draw);
        if (width == 0) {
          EXPECT_EQ(offset, 0);
          continue;
        }
        for (; (i + 0.5) / 2000 - 1 < offset / (width / 2); ++i) below += row.weight((i + 0.5) / 2000 - 1);
        EXPECT_NEAR(below / whole, draw, 2e-3) << static_cast<int>(row.shape) << " " << draw;
      }
    }
}

}  // namespace
