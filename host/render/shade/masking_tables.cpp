// Masking tables.
#include "host/render/shade/masking_tables.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kRowsPerOctave = 8, kOctaves = 4, kRows = kRowsPerOctave * kOctaves + 1;
constexpr int kColumns = 65;

/// Slopes of roughness 1 whose density falls with the radial slope r as `density(r)`.
/// Entries are the mean excess of slopes over x, E[max(0, slope - x)], by x / (1 + x) in equal steps: smooth
/// and convex in x, so that interpolation errs towards more masking and never towards a gain of light.
class MaskingTable {
 public:
  template <typename Density, typename Remainder>
  MaskingTable(const Density& density, const Remainder& remainder) {
    for (int row = 0; row < kRows; ++row) {
      const double tail = kLeastTail * std::exp2(static_cast<double>(row) / kRowsPerOctave);
      for (int column = 0; column < kColumns - 1; ++column) {
        const double t = static_cast<double>(column) / (kColumns - 1), x = t / (1 - t);
        entries_[row][column] = Excess(density, tail, x) + remainder(tail, kLastOffset);
      }
      entries_[row][kColumns - 1] = 0;
    }
  }

  double Lambda(double row, double slope) const {
    const double column = slope / (1 + slope) * (kColumns - 1);
    const int i = std::clamp(static_cast<int>(row), 0, kRows - 2),
              j = std::clamp(static_cast<int>(column), 0, kColumns - 2);
    const double u = row - i, v = column - j;
    const auto at = [&](int r) { return entries_[r][j] + v * (entries_[r][j + 1] - entries_[r][j]); };
    return std::max(0.0, at(i) + u * (at(i + 1) - at(i))) / slope;
  }

 private:
  static constexpr double kFirstLog = -8, kStep = 0.1;
  static constexpr int kSteps = 172;
  static constexpr double kLastOffset = 9414.4;  ///< where the last step ends

  /// The integral over the half plane of slopes beyond x, in polar form about the far point with
  /// r^2 = x^2 + w^2; even steps in log(w) converge exponentially.
  template <typename Density>
  static double Excess(const Density& density, double tail, double x) {
    double sum = 0;
    for (int i = 0; i < kSteps; ++i) {
      const double w = std::exp(kFirstLog + kStep * i);
      const double width = x > 0 ? w - x * std::atan(w / x) : w;
      sum += density(tail, std::sqrt(x * x + w * w)) * w * w * width;
    }
    return 2 * kStep * sum;
  }

  std::array<std::array<double, kColumns>, kRows> entries_;
};

}  // namespace

double MaskingRow(double tail) {
  return kRowsPerOctave * std::log2(std::clamp(tail, kLeastTail, kGreatestTail) / kLeastTail);
}

double TweakedBeckmannLambda(double row, double slope) {
  static const MaskingTable table(
      [](double tail, double r) {
        return tail / (2 * kPi * std::tgamma(2 / tail)) * std::exp(-std::pow(r, tail));
      },
      [](double, double) { return 0.0; });
  return table.Lambda(row, slope);
}

double TweakedGgxLambda(double row, double slope) {
  // Beyond the last step the density is a power, and its excess has a closed form.
  static const MaskingTable table(
      [](double tail, double r) {
        const double power = GgxTailPower(tail);
        return (power - 1) / kPi * std::pow(1 + r * r, -power);
      },
      [](double tail, double last) {
        const double power = GgxTailPower(tail);
        return 2 * (power - 1) / kPi * std::pow(last, 3 - 2 * power) / (2 * power - 3);
      });
  return table.Lambda(row, slope);
}

}  // namespace ovhost
