// Four numbers in a register, for drops and points that are worked on side by side: the few operations that
// the compilers' vector types don't have as operators. For processors with AVX2; whoever calls these asks
// first. By hand, not through Highway: lanes are what is kept of drops from step to step, and borders,
// dealers and the ordered walk read and write single lanes of them, for which Highway's vectors have no
// subscripts.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__)
#define OV_FOUR_LANES 1

#include <immintrin.h>

/// For functions, and lambdas within them, that are compiled for AVX2.
#define OV_LANES __attribute__((target("avx2")))
#define OV_LANES_INLINE __attribute__((target("avx2"), always_inline))

constexpr int kDropLanes = 4;
constexpr int kAllLanes = (1 << kDropLanes) - 1;

using Float4 = float __attribute__((vector_size(16)));
using Int4 = int __attribute__((vector_size(16)));
using Double4 = double __attribute__((vector_size(32)));
using Long4 = long __attribute__((vector_size(32)));

OV_LANES_INLINE inline Float4 All(float v) { return Float4{v, v, v, v}; }
OV_LANES_INLINE inline Int4 All(int v) { return Int4{v, v, v, v}; }
OV_LANES_INLINE inline Double4 All(double v) { return Double4{v, v, v, v}; }

OV_LANES_INLINE inline Double4 Widened(Float4 v) { return _mm256_cvtps_pd(v); }
OV_LANES_INLINE inline Float4 Narrowed(Double4 v) { return _mm256_cvtpd_ps(v); }
OV_LANES_INLINE inline Float4 ToFloat(Int4 v) { return _mm_cvtepi32_ps(reinterpret_cast<__m128i>(v)); }
/// Towards zero; the lowest int for what is no int.
OV_LANES_INLINE inline Int4 Truncated(Float4 v) { return reinterpret_cast<Int4>(_mm_cvttps_epi32(v)); }
OV_LANES_INLINE inline Int4 Floored(Float4 v) { return Truncated(_mm_floor_ps(v)); }

/// The smaller one; the second where either is no number.
OV_LANES_INLINE inline Float4 Least(Float4 a, Float4 b) { return _mm_min_ps(a, b); }
OV_LANES_INLINE inline Double4 Least(Double4 a, Double4 b) { return _mm256_min_pd(a, b); }
OV_LANES_INLINE inline Int4 ClampedTo(Int4 v, Int4 top) {
  const __m128i capped = _mm_min_epi32(reinterpret_cast<__m128i>(v), reinterpret_cast<__m128i>(top));
  return reinterpret_cast<Int4>(_mm_max_epi32(capped, _mm_setzero_si128()));
}
OV_LANES_INLINE inline Double4 SquareRoot(Double4 v) { return _mm256_sqrt_pd(v); }

/// A bit for each lane where a mask is set.
OV_LANES_INLINE inline int LanesOf(Int4 mask) { return _mm_movemask_ps(reinterpret_cast<__m128>(mask)); }
OV_LANES_INLINE inline int LanesOf(Long4 mask) { return _mm256_movemask_pd(reinterpret_cast<__m256d>(mask)); }
/// `v` where the mask is set, else zero.
OV_LANES_INLINE inline Float4 Where(Int4 mask, Float4 v) {
  return reinterpret_cast<Float4>(mask & reinterpret_cast<Int4>(v));
}

/// Rows become columns.
OV_LANES_INLINE inline void Transpose(Float4 (&rows)[4]) {
  _MM_TRANSPOSE4_PS(rows[0], rows[1], rows[2], rows[3]);
}

/// SafeReciprocal, in lanes.
OV_LANES_INLINE inline Double4 SafeReciprocals(Double4 v) {
  const Double4 reciprocal = 1.0 / v;
  const Long4 isSafe = (v > 1e-12) | (v < -1e-12);
  if (LanesOf(isSafe) == kAllLanes) [[likely]]
    return reciprocal;
  return isSafe ? reciprocal : (v < 0.0 ? All(-1e12) : All(1e12));
}

/// UnitDraw of four raw numbers, each less a half.
OV_LANES_INLINE inline Double4 CentredDraws(Int4 raw) {
  const Int4 centred = raw ^ All(-2147483647 - 1);
  const Double4 wide = _mm256_cvtepi32_pd(reinterpret_cast<__m128i>(centred)) + 2147483648.0;
  return wide * 0x1p-32 + wide * (0x1p-64 + 0x1p-96) - 0.5;
}

#endif
