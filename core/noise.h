// The host's noises: gradient noise in three and four dimensions, cell noise, Voronoi and the fast
// exponential. All are pure functions of point and seed (hashing, no tables), of lattice scale 1 (one cell a
// unit), and do not repeat within 2^31 cells. Every operation is thread-safe and gives the same bits on every
// machine and instruction set. None returns NaN or infinity: a coordinate that has no cell (2^51 or more,
// infinite, NaN) counts as 0.
#pragma once

#include <bit>
#include <cstdint>

#include "core/api.h"
#include "core/vector.h"

/// Gradient noise in 3D: about -1 to 1, centred on 0, mean absolute value near 0.2, twice continuously
/// differentiable. The lattice is turned against the axes and shifted by the seed, so no plane, axis or point
/// is special.
class OV_API trNoiseInst3 {
 public:
  /// `seeded` false gives the seed 0 whatever `seed` says.
  void Init(bool seeded, int seed);
  double Noise3(const trVector& p) const;
  std::uint32_t Seed() const { return seed_; }

 private:
  std::uint32_t seed_ = 0;
};

/// Gradient noise in 4D (space and time); the same scale as trNoiseInst3.
class OV_API trNoiseInst4 {
 public:
  void Init(bool seeded, int seed);
  double Noise4(const trVector& p, const double& w) const;
  std::uint32_t Seed() const { return seed_; }

 private:
  std::uint32_t seed_ = 0;
};

/// A noise that may or may not change with time. Thread-safe.
class trNoiseInstBase {
 public:
  virtual ~trNoiseInstBase() = default;
  virtual double Noise(const trVector& p, const double& w) const = 0;
};

/// The noise of three or of four dimensions, as configured, so that its user need not care which. An instance
/// is its seed, so a wrapper is a few words and copies freely.
class trNoiseInstWrapper : public trNoiseInstBase {
 public:
  /// Three-dimensional noise of seed 0.
  trNoiseInstWrapper() { inst3_.Init(false, 0); }
  void Configure(bool is4D, int seed) {
    is4D_ = is4D;
    isConfigured_ = true;
    seed_ = seed;
    inst3_.Init(!is4D, seed);
    inst4_.Init(is4D, seed);
  }
  /// `w` counts in four dimensions only.
  double Noise(const trVector& p, const double& w) const override {
    return is4D_ ? inst4_.Noise4(p, w) : inst3_.Noise3(p);
  }
  bool Is4D() const { return is4D_; }
  bool IsConfigured() const { return isConfigured_; }
  int Seed() const { return seed_; }

 private:
  bool is4D_ = false, isConfigured_ = false;
  int seed_ = 0;
  trNoiseInst3 inst3_;
  trNoiseInst4 inst4_;
};

/// Many lookups in one call: entry i is the lookup of an instance of seed `firstSeed + i * seedStep` at
/// (x[i], y[i], z[i]). A step of 1 gives the octaves of one point, a step of 0 one noise over many points.
struct trNoiseBatch {
  const double* x;
  const double* y;
  const double* z;
  const double* w;  ///< four-dimensional lookups only
  std::uint32_t firstSeed;
  std::uint32_t seedStep;
  int count;
};

/// out[i] = Noise3 of each entry, to the bit what the single form gives; `out` holds `count`.
OV_API void trNoise3Batch(const trNoiseBatch& batch, double* out);
/// The 4D form of trNoise3Batch.
OV_API void trNoise4Batch(const trNoiseBatch& batch, double* out);

/// A fixed offset a seed, to decorrelate lookups of one noise: each component within plus and minus 1000.
OV_API trVector trNoff3(int seed);

/// Smooth noise of a fixed seed, on a lattice that lies along the axes; the range of trNoiseInst3, twice
/// continuously differentiable. `point` is three doubles.
OV_API double trLerpNoise3(const double* point);
/// trLerpNoise3 averaged over a box about the point. `filter` is two doubles, the box's widths in cells along
/// x and y; fades to 0 as a width grows from one cell to two.
OV_API double trLerpNoise3_SmoothXY(const double* point, const double* filter);
/// Gradient noise of a fixed seed; the range of trNoiseInst3.
OV_API double trNoise3(const trVector& p);
/// One value a cell, -1 to 1, constant inside it.
OV_API double trCellNoise3(const trVector& p);
/// The same for a cell given by its three integer coordinates.
OV_API double trCellNoise3(const int* cell);
/// The old landscapes' noise, with steeper slopes near the zero crossings and flat extremes; -1 to 1,
/// continuously differentiable.
OV_API double trOldSharpNoise3(const trVector& p);

/// Voronoi features, one a cell, anywhere in it. `toNearest` and `toSecond` run from each feature to the
/// point (point less vector is the feature); their lengths are F1 (mean near 0.52) and F2. `value` gets a
/// random number of the nearest feature's cell, -0.5 to 0.5.
template <typename T>
void trVoronoi3(T& value, trVector& toNearest, trVector& toSecond, const T* point);
template <>
OV_API void trVoronoi3<double>(double& value, trVector& toNearest, trVector& toSecond, const double* point);

/// Nearest-feature distance smoothed over a filter of `size` cells (`invSize` is its reciprocal): the
/// features' mean distance under weights that fall off exponentially with it. Tends to F1 (at most 1) as the
/// size goes to 0; continuously differentiable for a size above 0.
OV_API void trDEV_SmoothVoronoi3(double& result, const double* point, const double& size,
                                 const double& invSize);

/// Fast exponential: relative error below 1e-8, exactly 1 at 0; 0 below -708, about e^709 from 709 on and for
/// NaN.
struct trFastExp {
  static constexpr double kLowest = -708.0, kHighest = 709.0;
  static constexpr double kLog2E = 1.4426950408889634, kLn2 = 0.6931471805599453;
  /// 1.5 * 2^52: adding it rounds to an integer that then stands in the low mantissa bits.
  static constexpr double kRound = 6755399441055744.0;
  /// (e^r - 1) / r for |r| <= ln(2) / 2, interpolated at the Chebyshev points.
  static constexpr double kPolynomial[6] = {1.0000000107780402,  0.5000000013465811,  0.1666650519575831,
                                            0.04166646492528998, 0.00836915566767414, 0.0013933649995863098};

  double operator()(double x) const {
    if (x < kLowest) return 0.0;
    x = x < kHighest ? x : kHighest;
    // e^x = 2^n e^r with n the integer nearest x / ln 2.
    const double shifted = x * kLog2E + kRound;
    const double r = x - (shifted - kRound) * kLn2;
    double p = kPolynomial[5];
    for (int i = 4; i >= 0; --i) p = p * r + kPolynomial[i];
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(p * r + 1.0) +
                                 (std::bit_cast<std::uint64_t>(shifted) << 52));
  }
};
