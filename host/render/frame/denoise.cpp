// The wavelet passes of the denoiser.
#include "host/render/frame/denoise.h"

#include <algorithm>
#include <cmath>

#include "host/base/parallel.h"

namespace ovhost {
namespace {

constexpr int kPasses = 5;
/// B3 spline, the a-trous filter's generator.
constexpr float kSpline[5] = {1 / 16.0f, 1 / 4.0f, 3 / 8.0f, 1 / 4.0f, 1 / 16.0f};
/// Standard errors that light may differ by and still be taken for the same.
constexpr float kLightTolerance = 3.0f;
/// How sharply turned-away normals fall off, and how far albedos may differ.
constexpr float kNormalPower = 48.0f, kAlbedoTolerance = 0.08f;
/// Albedos below this hide nothing that dividing by them would bring out.
constexpr float kLeastAlbedo = 0.02f;

trFCol Divisor(const trFCol& albedo) {
  return {std::max(albedo.r, kLeastAlbedo), std::max(albedo.g, kLeastAlbedo),
          std::max(albedo.b, kLeastAlbedo)};
}

bool HasSurface(const trFVector& n) { return n.x * n.x + n.y * n.y + n.z * n.z > 0.25f; }

/// Light and its variance on their way through the passes.
struct Field {
  std::vector<trFCol> light;
  std::vector<float> variance;
};

class Pass {
 public:
  Pass(const DenoiseInput& input, const Field& from, int step) : input_(input), from_(from), step_(step) {}

  void Row(int y, Field& to) const {
    for (int x = 0; x < input_.width; ++x) Pixel(x, y, to);
  }

 private:
  size_t At(int x, int y) const { return static_cast<size_t>(y) * input_.width + x; }

  /// Variance averaged over the nearest pixels: a single pixel's own is too unsure to go by.
  float SmoothVariance(int x, int y) const {
    float sum = 0, weights = 0;
    for (int j = -1; j <= 1; ++j)
      for (int i = -1; i <= 1; ++i) {
        const int u = x + i, v = y + j;
        if (u < 0 || v < 0 || u >= input_.width || v >= input_.height) continue;
        const float weight = (i ? 1.0f : 2.0f) * (j ? 1.0f : 2.0f);
        sum += weight * from_.variance[At(u, v)];
        weights += weight;
      }
    return sum / weights;
  }

  /// Likeness of two pixels' features, 0 to 1.
  float SameSurface(size_t a, size_t b) const {
    const trFVector &n = input_.normal[a], &m = input_.normal[b];
    if (HasSurface(n) != HasSurface(m)) return 0;
    if (!HasSurface(n)) return 1;
    const float cosine = n.x * m.x + n.y * m.y + n.z * m.z;
    if (cosine <= 0) return 0;
    const trFCol apart = input_.albedo[a] - input_.albedo[b];
    const float distance = std::max({std::fabs(apart.r), std::fabs(apart.g), std::fabs(apart.b)});
    return std::exp(-kNormalPower * (1 - std::min(cosine, 1.0f)) - distance / kAlbedoTolerance);
  }

  void Pixel(int x, int y, Field& to) const {
    const size_t centre = At(x, y);
    const float spread = kLightTolerance * std::sqrt(SmoothVariance(x, y));
    if (!(spread > 0)) {
      to.light[centre] = from_.light[centre];
      to.variance[centre] = from_.variance[centre];
      return;
    }
    const float here = Luminance(from_.light[centre]);
    trFCol light;
    float variance = 0, weights = 0;
    for (int j = -2; j <= 2; ++j)
      for (int i = -2; i <= 2; ++i) {
        const int u = x + i * step_, v = y + j * step_;
        if (u < 0 || v < 0 || u >= input_.width || v >= input_.height) continue;
        const size_t at = At(u, v);
        const float apart = std::fabs(Luminance(from_.light[at]) - here) / spread;
        const float weight = kSpline[i + 2] * kSpline[j + 2] *
                             (at == centre ? 1.0f : std::exp(-apart) * SameSurface(centre, at));
        light += from_.light[at] * weight;
        variance += from_.variance[at] * weight * weight;
        weights += weight;
      }
    to.light[centre] = light * (1 / weights);
    to.variance[centre] = variance / (weights * weights);
  }

  const DenoiseInput& input_;
  const Field& from_;
  const int step_;
};

}  // namespace

std::vector<trFCol> Denoise(const DenoiseInput& input) {
  // Light without albedo; its variance goes with the square of what it was divided by.
  Field field{input.colour, input.variance};
  for (size_t i = 0; i < field.light.size(); ++i) {
    if (!HasSurface(input.normal[i])) continue;
    const trFCol divisor = Divisor(input.albedo[i]);
    field.light[i] *= trFCol(1 / divisor.r, 1 / divisor.g, 1 / divisor.b);
    const float luminance = Luminance(divisor);
    field.variance[i] /= luminance * luminance;
  }

  Field next = field;
  for (int pass = 0; pass < kPasses; ++pass) {
    const Pass filter(input, field, 1 << pass);
    ParallelFor(input.height, [&](int y) { filter.Row(y, next); });
    std::swap(field, next);
  }
  for (size_t i = 0; i < field.light.size(); ++i)
    if (HasSurface(input.normal[i])) field.light[i] *= Divisor(input.albedo[i]);
  return field.light;
}

void DenoisePicture(Picture& picture, const std::vector<float>& variance) {
  const auto first = [&](const char* channel) {
    const auto at = std::find(picture.channels.begin(), picture.channels.end(), channel);
    return at == picture.channels.end() ? -1 : static_cast<int>(at - picture.channels.begin());
  };
  const int albedo = first("albedo.R"), normal = first("normal.X");
  if (albedo < 0 || normal < 0) return;
  DenoiseInput input;
  input.width = picture.width;
  input.height = picture.height;
  input.variance = variance;
  const size_t pixels = static_cast<size_t>(picture.width) * picture.height, stride = picture.channels.size();
  for (size_t i = 0; i < pixels; ++i) {
    const float* at = &picture.pixels[i * stride];
    input.colour.push_back({at[0], at[1], at[2]});
    input.albedo.push_back({at[albedo], at[albedo + 1], at[albedo + 2]});
    input.normal.push_back(trFVector(Normalised(trVector(at[normal], at[normal + 1], at[normal + 2]))));
  }
  const std::vector<trFCol> smooth = Denoise(input);
  for (size_t i = 0; i < pixels; ++i)
    for (int c = 0; c < 3; ++c) picture.pixels[i * stride + c] = smooth[i][c];
}

}  // namespace ovhost
