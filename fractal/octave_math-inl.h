// Exponential and logarithm on vectors of doubles, the same bits on every machine. Included once per
// instruction set.
#if defined(FRACTAL_OCTAVE_MATH_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef FRACTAL_OCTAVE_MATH_INL_H_
#undef FRACTAL_OCTAVE_MATH_INL_H_
#else
#define FRACTAL_OCTAVE_MATH_INL_H_
#endif

#include <hwy/highway.h>

#include <limits>

#include "core/noise.h"

HWY_BEFORE_NAMESPACE();
namespace ovfractal {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// ln 2 in two parts, the high one with 21 zero bits at its end, so that its small multiples are exact.
inline constexpr double kLn2High = 6.93147180369123816490e-01, kLn2Low = 1.90821492927058770002e-10;

/// Sum of coefficient[i] * x^i by Horner's rule.
template <class D, size_t N, class V = hn::Vec<D>>
HWY_INLINE V Polynomial(D d, V x, const double (&coefficient)[N]) {
  V sum = hn::Set(d, coefficient[N - 1]);
  for (size_t i = N - 1; i-- > 0;) sum = hn::Add(hn::Mul(sum, x), hn::Set(d, coefficient[i]));
  return sum;
}

/// The same with even and odd powers summed side by side, in half the time.
template <class D, size_t N, class V = hn::Vec<D>>
HWY_INLINE V SplitPolynomial(D d, V x, const double (&coefficient)[N]) {
  static_assert(N % 2 == 0);
  const V square = hn::Mul(x, x);
  V even = hn::Set(d, coefficient[N - 2]), odd = hn::Set(d, coefficient[N - 1]);
  for (size_t i = N - 2; i >= 2; i -= 2) {
    even = hn::Add(hn::Mul(even, square), hn::Set(d, coefficient[i - 2]));
    odd = hn::Add(hn::Mul(odd, square), hn::Set(d, coefficient[i - 1]));
  }
  return hn::Add(even, hn::Mul(odd, x));
}

/// `p` times 2^n, n standing in the low bits of `shifted`.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V ScaleByPower(D d, V p, V shifted) {
  const hn::RebindToUnsigned<D> du;
  return hn::BitCast(d, hn::Add(hn::BitCast(du, p), hn::ShiftLeft<52>(hn::BitCast(du, shifted))));
}

/// trFastExp, to the bit.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V FastExp(D d, V x) {
  const V highest = hn::Set(d, trFastExp::kHighest), round = hn::Set(d, trFastExp::kRound);
  const auto underflow = hn::Lt(x, hn::Set(d, trFastExp::kLowest));
  x = hn::IfThenElse(hn::Lt(x, highest), x, highest);
  const V shifted = hn::Add(hn::Mul(x, hn::Set(d, trFastExp::kLog2E)), round);
  const V r = hn::Sub(x, hn::Mul(hn::Sub(shifted, round), hn::Set(d, trFastExp::kLn2)));
  const V p = hn::Add(hn::Mul(Polynomial(d, r, trFastExp::kPolynomial), r), hn::Set(d, 1.0));
  return hn::IfThenZeroElse(underflow, ScaleByPower(d, p, shifted));
}

/// The exponential within about an ulp; the ends of the range are those of trFastExp.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Exp(D d, V x) {
  static constexpr double kTaylor[] = {1.0,
                                       1.0,
                                       1.0 / 2,
                                       1.0 / 6,
                                       1.0 / 24,
                                       1.0 / 120,
                                       1.0 / 720,
                                       1.0 / 5040,
                                       1.0 / 40320,
                                       1.0 / 362880,
                                       1.0 / 3628800,
                                       1.0 / 39916800,
                                       1.0 / 479001600,
                                       1.0 / 6227020800};
  const V highest = hn::Set(d, trFastExp::kHighest), round = hn::Set(d, trFastExp::kRound);
  const auto underflow = hn::Lt(x, hn::Set(d, trFastExp::kLowest));
  x = hn::IfThenElse(hn::Lt(x, highest), x, highest);
  const V shifted = hn::Add(hn::Mul(x, hn::Set(d, trFastExp::kLog2E)), round);
  const V n = hn::Sub(shifted, round);
  const V r = hn::Sub(hn::Sub(x, hn::Mul(n, hn::Set(d, kLn2High))), hn::Mul(n, hn::Set(d, kLn2Low)));
  return hn::IfThenZeroElse(underflow, ScaleByPower(d, SplitPolynomial(d, r, kTaylor), shifted));
}

/// The natural logarithm within about two ulp; -infinity for 0, denormal and negative numbers and NaN.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V Log(D d, V x) {
  // log m = 2 artanh((m - 1) / (m + 1)), m between sqrt(1/2) and sqrt(2).
  static constexpr double kArtanh[] = {1.0 / 3,  1.0 / 5,  1.0 / 7,  1.0 / 9,  1.0 / 11,
                                       1.0 / 13, 1.0 / 15, 1.0 / 17, 1.0 / 19, 1.0 / 21};
  const hn::RebindToUnsigned<D> du;
  const V one = hn::Set(d, 1.0);
  const auto bits = hn::BitCast(du, x);
  // A biased exponent put into the low mantissa bits of 2^52 counts it as a double.
  const auto biased = hn::Or(hn::ShiftRight<52>(bits), hn::Set(du, uint64_t{0x4330000000000000}));
  V exponent = hn::Sub(hn::BitCast(d, biased), hn::Set(d, 4503599627370496.0 + 1023.0));
  V m = hn::BitCast(d, hn::OrAnd(hn::Set(du, uint64_t{0x3ff0000000000000}), bits,
                                 hn::Set(du, uint64_t{0x000fffffffffffff})));
  const auto upper = hn::Gt(m, hn::Set(d, 1.4142135623730951));
  m = hn::IfThenElse(upper, hn::Mul(m, hn::Set(d, 0.5)), m);
  exponent = hn::IfThenElse(upper, hn::Add(exponent, one), exponent);
  const V s = hn::Div(hn::Sub(m, one), hn::Add(m, one));
  const V s2 = hn::Add(s, s), z = hn::Mul(s, s);
  const V tail = hn::Mul(hn::Mul(s2, z), SplitPolynomial(d, z, kArtanh));
  const V low = hn::Add(s2, hn::Add(tail, hn::Mul(exponent, hn::Set(d, kLn2Low))));
  const V log = hn::Add(hn::Mul(exponent, hn::Set(d, kLn2High)), low);
  const V infinity = hn::Set(d, std::numeric_limits<double>::infinity());
  const V finite =
      hn::IfThenElse(hn::Ge(x, hn::Set(d, std::numeric_limits<double>::min())), log, hn::Neg(infinity));
  return hn::IfThenElse(hn::Eq(x, infinity), infinity, finite);
}

using One = hn::CappedTag<double, 1>;
HWY_INLINE double Scalar(hn::Vec<One> v) { return hn::GetLane(v); }
HWY_INLINE double Exp1(double x) { return Scalar(Exp(One(), hn::Set(One(), x))); }
HWY_INLINE double Log1(double x) { return Scalar(Log(One(), hn::Set(One(), x))); }

}  // namespace HWY_NAMESPACE
}  // namespace ovfractal
HWY_AFTER_NAMESPACE();

#endif
