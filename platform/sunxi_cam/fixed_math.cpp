#include "platform/sunxi_cam/fixed_math.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace sunxi_cam::sim::fixed {
namespace {

// ln 2 and pi / 2 split so that k times the leading part is exact for the
// k these functions meet (the leading parts end in zero bits).
constexpr double kLn2Hi = 6.93147180369123816490e-01;
constexpr double kLn2Lo = 1.90821492927058770002e-10;
constexpr double kInvLn2 = 1.44269504088896338700e+00;
constexpr double kPio2Hi = 1.57079632673412561417e+00;
constexpr double kPio2Mid = 6.07710050630396597660e-11;
constexpr double kPio2Lo = 2.02226624879595063154e-21;
constexpr double kTwoOverPi = 6.36619772367581382433e-01;

// 1/n! for n = 0..19, folded at compile time (exactly rounded divisions).
struct InverseFactorials {
  double c[20];
  constexpr InverseFactorials() : c() {
    double factorial = 1;
    for (int n = 0; n < 20; ++n) {
      if (n > 0) factorial *= n;
      c[n] = 1.0 / factorial;
    }
  }
};
constexpr InverseFactorials kInv;

// sin r and cos r for |r| <= pi / 4, by their Taylor series (the terms left
// out are below 1e-19).
double SinSeries(double r) {
  const double r2 = r * r;
  double sum = kInv.c[19];
  for (int n = 17; n >= 1; n -= 2) sum = kInv.c[n] - sum * r2;
  return r * sum;
}

double CosSeries(double r) {
  const double r2 = r * r;
  double sum = kInv.c[18];
  for (int n = 16; n >= 0; n -= 2) sum = kInv.c[n] - sum * r2;
  return sum;
}

// x = k pi/2 + r with |r| <= pi/4 (about); the quadrant k mod 4 in *quadrant.
double Reduce(double x, int* quadrant) {
  const double k = std::floor(x * kTwoOverPi + 0.5);
  const double r = ((x - k * kPio2Hi) - k * kPio2Mid) - k * kPio2Lo;
  const double q = k - 4.0 * std::floor(k / 4.0);
  *quadrant = static_cast<int>(q);
  return r;
}

}  // namespace

double Exp(double x) {
  if (std::isnan(x)) return x;
  if (x < -745.2) return 0.0;
  if (x > 709.78) return std::numeric_limits<double>::infinity();
  const double k = std::floor(x * kInvLn2 + 0.5);
  const double r = (x - k * kLn2Hi) - k * kLn2Lo;  // |r| <= 0.35
  // e^r by its Taylor series to the 14th power (the rest is below 1e-17).
  double sum = kInv.c[14];
  for (int n = 13; n >= 0; --n) sum = sum * r + kInv.c[n];
  const int e = static_cast<int>(k);
  if (e < -1022 || e > 1023) return std::ldexp(sum, e);
  // sum 2^e by multiplying with 2^e made from its bits: exact, as ldexp is.
  const uint64_t bits = static_cast<uint64_t>(e + 1023) << 52;
  double scale = 0;
  std::memcpy(&scale, &bits, sizeof scale);
  return sum * scale;
}

double Log(double x) {
  if (std::isnan(x) || x < 0) return std::numeric_limits<double>::quiet_NaN();
  if (x == 0) return -std::numeric_limits<double>::infinity();
  if (std::isinf(x)) return x;
  int e = 0;
  double m = std::frexp(x, &e);  // x = m 2^e, 0.5 <= m < 1
  if (m < 0.70710678118654752440) {
    m *= 2.0;
    e -= 1;
  }
  // log m = 2 atanh f with f = (m - 1) / (m + 1), |f| <= 0.1716.
  const double f = (m - 1.0) / (m + 1.0);
  const double s = f * f;
  double sum = 0;
  for (int n = 23; n >= 1; n -= 2) sum = sum * s + 1.0 / static_cast<double>(n);
  const double log_m = 2.0 * f * sum;
  const double k = static_cast<double>(e);
  return k * kLn2Hi + (k * kLn2Lo + log_m);
}

double Sin(double x) {
  if (!std::isfinite(x)) return std::numeric_limits<double>::quiet_NaN();
  int q = 0;
  const double r = Reduce(x, &q);
  switch (q) {
    case 0:
      return SinSeries(r);
    case 1:
      return CosSeries(r);
    case 2:
      return -SinSeries(r);
    default:
      return -CosSeries(r);
  }
}

double Cos(double x) {
  if (!std::isfinite(x)) return std::numeric_limits<double>::quiet_NaN();
  int q = 0;
  const double r = Reduce(x, &q);
  switch (q) {
    case 0:
      return CosSeries(r);
    case 1:
      return -SinSeries(r);
    case 2:
      return -CosSeries(r);
    default:
      return SinSeries(r);
  }
}

double Erf(double x) {
  if (std::isnan(x)) return x;
  // Abramowitz and Stegun 7.1.26: absolute error below 1.5e-7.
  const double a = std::fabs(x);
  const double t = 1.0 / (1.0 + 0.3275911 * a);
  const double poly =
      t *
      (0.254829592 + t * (-0.284496736 + t * (1.421413741 + t * (-1.453152027 + t * 1.061405429))));
  const double y = 1.0 - poly * Exp(-a * a);
  return x < 0 ? -y : y;
}

}  // namespace sunxi_cam::sim::fixed
